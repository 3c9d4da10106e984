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

Status Retry(const RetryOptions& options, Console& console);

}  // namespace ctl
