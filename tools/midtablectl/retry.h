// Gives failed mem files their waiting name back.
#pragma once

#include <string>
#include <vector>

#include "midtablectl/console.h"
#include "midtablectl/failure.h"

namespace ctl {

// A failed file and what is to become of it. The refusal and the warnings are texts without a full
// stop; the refusal goes on after "it".
struct RetryPlan {
  std::string path;
  std::string target;                 // the name that it waited under
  std::string refusal;                // why the file stays; empty when it may be moved
  std::vector<std::string> warnings;  // what somebody should look at before it is moved
};

// The plan for one file, with its full path. Nothing is changed.
RetryPlan PlanRetry(const std::string& path, LoadDoubts& doubts);

struct RetryOptions {
  std::vector<std::string> files;  // paths, or bare names of files in the spool
  std::string database;            // id of one folder; all its .err files
  bool all = false;                // those of every folder
  bool yes = false;                // do not ask
};

// Shows what becomes of each file and moves those that may go, after a "y" or with `yes`. Files
// that are missing, outside of the spool, no regular files, of a name that is never taken or
// refused, set aside, kept beside their .mid or .dat, or failed for a reason that the run log does
// not tell stay where they are; with `database` and `all` those with a warning too. kFine: all were
// moved, or there was none; kFindings: some were not; kCouldNotLook: there is no such database, or
// a folder could not be listed. `database` and `all` are not given together with files.
Status Retry(const RetryOptions& options, Console& console);

}  // namespace ctl
