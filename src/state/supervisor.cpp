#include "state/supervisor.h"

#ifdef MIDTABLE_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

#include <cstdint>

#include "support/names.h"

namespace {

// So many signs of life may get lost.
constexpr int kSignsInPatience = 4;

#ifdef MIDTABLE_SYSTEMD
void Send(const std::string& message) {
  [[maybe_unused]] const int ignored = sd_notify(0, message.c_str());
}

std::chrono::microseconds Patience() {
  std::uint64_t patience = 0;
  return std::chrono::microseconds(sd_watchdog_enabled(0, &patience) > 0 ? patience : 0);
}
#else
void Send(const std::string& /*message*/) {}

std::chrono::microseconds Patience() { return std::chrono::microseconds(0); }
#endif

}  // namespace

Supervisor::Supervisor() : m_patience(Patience()) {}

void Supervisor::Ready() { Send("READY=1"); }

// A line feed would begin another message.
void Supervisor::Say(const std::string& status) {
  std::string line = Printable(status);
  if (line == m_status) return;
  m_status = std::move(line);
  Send("STATUS=" + m_status);
}

void Supervisor::Alive() {
  const auto now = Clock::now();
  if (m_patience.count() == 0 || now - m_told_at < m_patience / kSignsInPatience) return;
  m_told_at = now;
  Send("WATCHDOG=1");
}

void Supervisor::Stopping() { Send("STOPPING=1"); }
