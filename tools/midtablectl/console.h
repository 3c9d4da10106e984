// What a command writes to and reads from, and how it ends.
#pragma once

#include <istream>
#include <ostream>

namespace ctl {

struct Console {
  std::ostream& out;
  std::ostream& err;
  std::istream& in;
  bool terminal = false;     // colours and redrawing are welcome
  bool interactive = false;  // somebody is there to answer a question
  int width = 80;            // columns
};

// Exit statuses of every command.
enum class Status : int { kFine = 0, kFindings = 1, kCouldNotLook = 2 };

}  // namespace ctl
