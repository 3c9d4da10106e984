#include "db/server_wait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "support/run_state.h"

namespace {

using std::chrono::milliseconds;

// How often a thread that waits looks whether the service is to stop. A signal that another thread
// got does not wake it.
constexpr milliseconds kLook{100};
// What is left to a question after a stop. A server that answers at all takes milliseconds, so a
// conversion that is under way still runs to its end; and a thread that asks a dead one several
// times, for instance before and after it reconnects, ends within three seconds.
constexpr milliseconds kGrace{500};

constexpr char kStopped[] = "stopped while waiting for the server";

thread_local ServerWait* t_current = nullptr;

std::string NoAnswerWithin(milliseconds limit) {
  return "no answer from the server within " + std::to_string(limit.count() / 1000) + " s";
}

}  // namespace

ServerWait::ServerWait(std::string& reason, bool ends_on_stop)
    : m_reason(reason),
      m_isQuestion(ends_on_stop),
      m_limit(0),
      m_end(Clock::time_point::max()),
      m_outer(t_current) {
  m_reason.clear();
  t_current = this;
}

ServerWait::ServerWait(std::string& reason, milliseconds limit)
    : m_reason(reason),
      m_isQuestion(true),
      m_limit(limit),
      m_end(Clock::now() + limit),
      m_outer(t_current) {
  m_reason.clear();
  t_current = this;
}

ServerWait::~ServerWait() { t_current = m_outer; }

bool ServerWait::givesUp() {
  if (!m_isQuestion) return false;
  const auto now = Clock::now();
  if (g_nMainRun == 0 && !m_stopSeen) {
    m_stopSeen = true;
    m_end = std::min(m_end, now + kGrace);
  }
  if (now < m_end) return false;
  m_reason = m_stopSeen ? kStopped : NoAnswerWithin(m_limit);
  return true;
}

int ServerWait::Wait(my_socket socket, my_bool for_reading, int /*timeout*/) {
  ServerWait* const current = t_current;
  const bool forever = current == nullptr || !current->m_isQuestion;
  pollfd entry{socket, static_cast<short>(for_reading != 0 ? POLLIN : POLLOUT), 0};
  for (;;) {
    const int ready = poll(&entry, 1, forever ? -1 : static_cast<int>(kLook.count()));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return ready;
    if (!forever && current->givesUp()) {
      errno = ETIMEDOUT;
      return 0;
    }
  }
}
