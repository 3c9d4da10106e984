// A sign of life of a thread, for whoever has to know whether the thread is stuck.
#pragma once

#include <atomic>
#include <chrono>

// A thread beats wherever it waits in a loop of its own, or works a long time piece by piece. What
// blocks it for good, a dead file system say, is told by beats that do not come.
class Pulse {
 public:
  using Clock = std::chrono::steady_clock;

  // Makes this the pulse of the calling thread, which must end before the object does.
  void Bind();
  // Of the calling thread; nothing where it has no pulse.
  static void Beat();
  // A beat from outside: the thread has just been given work.
  void Touch() { m_last = Clock::now().time_since_epoch().count(); }
  Clock::time_point last() const { return Clock::time_point(Clock::duration(m_last.load())); }

 private:
  std::atomic<Clock::rep> m_last{Clock::now().time_since_epoch().count()};
};
