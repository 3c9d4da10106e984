#include "delivery/trouble.h"

#include <algorithm>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/names.h"

namespace {

constexpr std::chrono::seconds kShortestPause{1};
constexpr std::chrono::minutes kLineEach{1};

}  // namespace

// The pause doubles, so that a server in trouble is not asked every second by each of many tables.
// A line is written at once for another reason: it may be the one that the operator has to act on.
void Trouble::Failed(const std::string& reason, std::size_t files, Clock::time_point now) {
  m_pause = m_lasts ? std::min(m_pause * 2, m_longest_pause) : kShortestPause;
  m_next_try = now + m_pause;
  if (!m_lasts || reason != m_reason || now - m_logged_at >= kLineEach) {
    g_loger(kUnit, __LINE__, kError, "%s held back, %zu files wait: %s", m_what.c_str(), files,
            Printable(reason).c_str());
    m_logged_at = now;
  }
  m_board.Hold(m_database, m_what, files, reason);
  m_lasts = true;
  m_reason = reason;
}

void Trouble::Ended() {
  if (!m_lasts) return;
  m_lasts = false;
  m_board.Release(m_database, m_what);
  g_loger(kUnit, __LINE__, kInfo, "%s goes on", m_what.c_str());
}
