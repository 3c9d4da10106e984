// The failed files of the spool by the reasons that the run log tells.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "midtablectl/spool_scan.h"

namespace ctl {

// Failed files of one reason.
struct FailureGroup {
  std::string reason;  // as it reads of the newest of them; empty where the run log tells none
  std::string remedy;  // empty where there is no advice
  std::size_t files = 0;
  std::time_t newest = 0;  // when the newest of them failed
  std::string example;     // its path
};

struct Failures {
  std::vector<FailureGroup> groups;  // the newest first
  std::string log_error;             // a log that cannot be read, with errno's text
};

// Two reasons are one when they differ in numbers and in what stands between quotes only. The logs
// of the last seven days with failures are read, each once, however many files failed.
Failures GroupFailures(const Spool& spool);

}  // namespace ctl
