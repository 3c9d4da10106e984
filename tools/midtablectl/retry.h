// Gives failed mem files their waiting name back.
#pragma once

#include <string>
#include <vector>

#include "midtablectl/console.h"

namespace ctl {

struct RetryOptions {
  std::vector<std::string> files;  // paths, or bare names of files in the spool
  std::string database;            // id of one folder; all its .err files
  bool all = false;                // those of every folder
  bool yes = false;                // do not ask
};

// Shows what becomes of each file and moves those that may go, after a "y" or with `yes`. Files
// that are missing, no regular files, of a name that is never taken, set aside, or kept beside
// their .mid or .dat stay where they are. kFine: all were moved, or there was none; kFindings: some
// were not; kCouldNotLook: there is no such database. `database` and `all` are not given together
// with files.
Status Retry(const RetryOptions& options, Console& console);

}  // namespace ctl
