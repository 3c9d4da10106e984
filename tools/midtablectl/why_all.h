// What went wrong lately and what is held back, without naming a file: an overview by reason.
#pragma once

#include "midtablectl/console.h"

namespace ctl {

// Prints a paragraph for each reason, the newest first: how many files it concerns, the newest line
// of the run log about it, one file, and what to do. Looked at are the .err files that wait for
// somebody, the conversions that failed since yesterday and did not succeed later, and, with
// delivery=once, what is held back. kFine when there is none of these, kFindings when there is any,
// kCouldNotLook when the spool or the run log cannot be read.
Status WhyAll(Console& console);

}  // namespace ctl
