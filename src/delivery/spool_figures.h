// What waits in the spool, told to the board.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "spool/backlog.h"
#include "state/board.h"

// Of the thread that reads the folders. What it is given must outlive it.
class SpoolFigures {
 public:
  SpoolFigures(Backlog& backlog, StateBoard& board) : m_backlog(backlog), m_board(board) {}

  // Tells what has changed since the last call. Cheap as long as nothing has: no folder is read,
  // and a file is looked at only where the first ones of a database's mem tables may be others.
  void Show();
  // The same for files that are done with, of folders that were read: at once, since the board
  // counts on from there.
  void ShowFinished();

 private:
  struct Shown {
    std::size_t files = 0;
    std::uint64_t arrivals = 0;
    bool operator==(const Shown&) const = default;
  };

  Backlog& m_backlog;
  StateBoard& m_board;
  std::map<std::string, Shown> m_shown;  // by database
};
