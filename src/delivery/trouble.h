// Something that holds files back, as the board and the run log tell it, the latter with a line
// when it begins, one a minute while it lasts, one when it has ended. Tried again after pauses that
// grow from a second to eight. Another reason is another trouble, and is told at once.
#pragma once

#include <chrono>
#include <string>

#include "state/board.h"

class Trouble {
 public:
  using Clock = std::chrono::steady_clock;

  // `what` is held back, as the log names it: "table WLAN_1a2b3c4d.MEM_20121231_0000A". Its files
  // are those of `database`, or of all databases where the name is empty. The board must outlive
  // the object.
  Trouble(StateBoard& board, std::string database, std::string what,
          std::chrono::seconds longest_pause = std::chrono::seconds(8))
      : m_board(board),
        m_database(std::move(database)),
        m_what(std::move(what)),
        m_longest_pause(longest_pause) {}
  // Whatever it held back is nobody's concern any more.
  ~Trouble() { m_board.Release(m_database, m_what); }
  Trouble(const Trouble&) = delete;
  Trouble& operator=(const Trouble&) = delete;

  // A try has failed for `reason`; `files` wait.
  void Failed(const std::string& reason, std::size_t files, Clock::time_point now);
  // A try has succeeded; nothing when there was no trouble.
  void Ended();
  // The next try is due at once.
  void Hurry() { m_next_try = {}; }

  bool lasts() const { return m_lasts; }
  bool IsDue(Clock::time_point now) const { return !m_lasts || now >= m_next_try; }

 private:
  StateBoard& m_board;
  const std::string m_database;
  const std::string m_what;
  const std::chrono::seconds m_longest_pause;
  bool m_lasts = false;
  std::string m_reason;
  std::chrono::seconds m_pause{1};
  Clock::time_point m_next_try;
  Clock::time_point m_logged_at;
};
