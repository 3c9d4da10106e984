// Why a mem file failed, or why the conversion of a loaded one did: the lines of the run log about
// it, and what to do.
#pragma once

#include <string>

#include "midtablectl/console.h"

namespace ctl {

// `file` is a path, or the bare name of a file in the spool. Of a file that waits: what holds it
// back. kFine when the run log tells the reason, or has nothing against a loaded or waiting file;
// kFindings when it says nothing of a failed one.
Status Why(const std::string& file, Console& console);

}  // namespace ctl
