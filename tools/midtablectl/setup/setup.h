// Makes a machine and its database server ready for the service: folders, lists, definitions,
// settings, the login with no more privileges than it needs, databases and year tables.
#pragma once

#include "midtablectl/console.h"
#include "midtablectl/setup/target.h"

namespace ctl {

// Shows what is missing, asks, does it, and ends with `check`. What exists is left alone, so that
// after a failure the same command goes on where it ended. kFine when all is there and nothing was
// found, or with `dry_run` all was shown; kFindings when something was found, or nobody said yes;
// kCouldNotLook when nothing was changed because something is in the way; kHalfDone when something
// was.
Status Setup(const SetupOptions& options, Console& console);

}  // namespace ctl
