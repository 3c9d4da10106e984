// What the service tells the program that started it, where that wants to know: systemd, for a unit
// of Type=notify. A build without libsystemd tells nobody.
#pragma once

#include <chrono>
#include <string>

// One thread at a time. Nothing here fails: what nobody listens to is said in vain.
class Supervisor {
 public:
  // Looks how often the manager wants a sign of life, if at all.
  Supervisor();

  // The service does its work from here on.
  void Ready();
  // In one line, what it does or waits for; nothing is sent when that is as before.
  void Say(const std::string& status);
  // All that has to live lives. A manager that was not told for its time ends the service, so this
  // is to be called every second; what is sent is fewer.
  void Alive();
  // The service comes to its end.
  void Stopping();

 private:
  using Clock = std::chrono::steady_clock;

  std::chrono::microseconds m_patience{0};  // of the manager; 0: it wants no signs of life
  Clock::time_point m_told_at;
  std::string m_status;
};
