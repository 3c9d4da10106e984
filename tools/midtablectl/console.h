// What a command writes to and reads from, and how it ends.
#pragma once

#include <istream>
#include <ostream>

namespace ctl {

// The streams are those of the program, or a test's own. They must live longer than this object.
struct Console {
  std::ostream& out;
  std::ostream& err;
  std::istream& in;
  bool terminal = false;     // colours and redrawing are welcome
  bool interactive = false;  // somebody is there to answer a question
  int width = 80;            // columns
};

// How a command ends; the numbers are the program's exit statuses. A command that could not look at
// everything ends with kCouldNotLook, whatever it found; one that changed something, and could not
// come to its end, with kHalfDone.
enum class Status : int { kFine = 0, kFindings = 1, kCouldNotLook = 2, kHalfDone = 3 };

}  // namespace ctl
