#include "db/server_wait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "support/pulse.h"
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

constexpr char kLost[] = "the server has answered, or ended the session, and no answer came";
constexpr char kStopped[] = "stopped while waiting for the server";

thread_local ServerWait* t_current = nullptr;

std::string NoAnswerWithin(milliseconds limit) {
  return "no answer from the server within " + std::to_string(limit.count() / 1000) + " s";
}

}  // namespace

const WaitPolicy ServerWait::kPatient;

ServerWait::ServerWait(std::string& reason, const WaitPolicy& policy, bool ends_on_stop)
    : m_reason(reason), m_policy(policy), m_endsOnStop(ends_on_stop), m_outer(t_current) {
  m_reason.clear();
  if (policy.ends_on_stop && g_nMainRun == 0) {
    m_stopSeen = true;
    m_end = Clock::now();
  }
  t_current = this;
}

ServerWait::ServerWait(std::string& reason, const WaitPolicy& policy)
    : ServerWait(reason, policy, policy.ends_on_stop) {}

ServerWait::ServerWait(std::string& reason, milliseconds limit, const WaitPolicy& policy)
    : ServerWait(reason, policy, true) {
  m_limit = limit;
  m_end = std::min(m_end, Clock::now() + limit);
}

ServerWait::~ServerWait() { t_current = m_outer; }

bool ServerWait::givesUp() {
  const auto now = Clock::now();
  if (m_endsOnStop && g_nMainRun == 0 && !m_stopSeen) {
    m_stopSeen = true;
    m_end = std::min(m_end, now + kGrace);
  }
  if (now < m_end) return false;
  m_reason = m_stopSeen ? kStopped : NoAnswerWithin(m_limit);
  return true;
}

bool ServerWait::answerIsLost(Clock::time_point silent_since) {
  if (m_policy.silence == milliseconds(0)) return false;
  const auto pause = m_saidNo ? m_policy.silence / 10 : m_policy.silence;
  if (Clock::now() - std::max(silent_since, m_askedAt) < pause) return false;
  const bool said_no_before = m_saidNo;
  m_saidNo = !m_policy.may_come();
  m_askedAt = Clock::now();
  if (!m_saidNo || !said_no_before) return false;
  m_reason = kLost;
  return true;
}

// On encrypted connections the library says that it waits to read when it waits to write: both are
// looked for where nothing more can be sent. One that really waits to read tries again.
short ServerWait::Awaited(my_socket socket, bool for_reading) {
  if (!for_reading) return POLLOUT;
  pollfd entry{socket, POLLOUT, 0};
  return poll(&entry, 1, 0) == 0 ? POLLIN | POLLOUT : POLLIN;
}

int ServerWait::Wait(my_socket socket, my_bool for_reading, int /*timeout*/) {
  ServerWait* const current = t_current;
  const bool forever = current == nullptr ||
                       (!current->m_endsOnStop && current->m_policy.silence == milliseconds(0));
  const auto begin = Clock::now();
  if (current != nullptr) current->m_saidNo = false;
  pollfd entry{socket, Awaited(socket, for_reading != 0), 0};
  for (;;) {
    const int ready = poll(&entry, 1, forever ? -1 : static_cast<int>(kLook.count()));
    Pulse::Beat();
    if (ready > 0 || (ready < 0 && errno != EINTR)) return ready;
    if (!forever && (current->givesUp() || current->answerIsLost(begin))) {
      errno = ETIMEDOUT;
      return 0;
    }
  }
}
