// The program behind main().
#pragma once

#include "midtablectl/console.h"

namespace ctl {

// Parses the command line and runs its command; the result is the exit status. A mistake in it, and
// the help, are printed by this call; mistakes are kCouldNotLook.
Status Control(int argc, const char* const* argv, Console& console);

}  // namespace ctl
