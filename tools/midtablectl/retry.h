// Gives failed mem files their waiting name back.
#pragma once

#include <string>
#include <vector>

#include "midtablectl/console.h"
#include "midtablectl/failure.h"

namespace ctl {

// A .err file and what is to become of it. Both texts go on after "it", without a full stop.
struct RetryPlan {
  std::string path;
  std::string target;
  std::string refusal;                // not empty: it stays
  std::vector<std::string> warnings;  // it goes, but somebody should look at it first
};
RetryPlan PlanRetry(const std::string& path, LoadDoubts& doubts);

struct RetryOptions {
  std::vector<std::string> files;  // paths, or bare names of files in the spool
  std::string database;            // id of one folder; all its .err files
  bool all = false;                // those of every folder
  bool yes = false;                // do not ask
};

// Shows what becomes of each file and moves those that may go, after a "y" or with `yes`. Files
// that are missing, outside of the spool, no regular files, of a name that is never taken or
// refused, set aside, or kept beside their .mid or .dat stay where they are; with `database` and
// `all` those with a warning too. kFine: all were moved, or there was none; kFindings: some were
// not; kCouldNotLook: there is no such database, or a folder could not be listed. `database` and
// `all` are not given together with files.
Status Retry(const RetryOptions& options, Console& console);

}  // namespace ctl
