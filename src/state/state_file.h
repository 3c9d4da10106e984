// The file in which the running service tells of itself.
#pragma once

#include <functional>
#include <semaphore>
#include <string>
#include <thread>

#include "state/board.h"
#include "state/state_text.h"

// Keeps the file as long as the object lives: a thread of its own looks at the board once a second,
// and replaces the file in one step when there is something new. Whatever keeps the file from being
// written is told once in the run log, and keeps nobody else waiting; it is tried again each
// second.
class StateFile {
 public:
  // `board` must outlive the object. `each_second` is called by the thread, where it is given.
  StateFile(const StateBoard& board, const ServiceFacts& facts,
            std::function<void()> each_second = {});
  // Removes the file.
  ~StateFile();
  StateFile(const StateFile&) = delete;
  StateFile& operator=(const StateFile&) = delete;

 private:
  void Run();
  void Keep();
  bool Write(const std::string& text) const;

  const StateBoard& m_board;
  const ServiceFacts m_facts;
  const std::function<void()> m_each_second;
  StateBoard::Stamp m_written;
  bool m_is_current = false;  // the file shows m_written
  bool m_told = false;        // that it cannot be written
  std::binary_semaphore m_ends{0};
  std::thread m_thread;
};
