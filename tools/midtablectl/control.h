// The program behind main().
#pragma once

#include "midtablectl/console.h"

namespace ctl {

// Parses the command line and runs its command; the result is the exit status of the program. For a
// mistake in the command line a message is printed, and the status is kCouldNotLook.
Status Control(int argc, const char* const* argv, Console& console);

}  // namespace ctl
