// What holds files back at present where every row is counted exactly once (delivery=once). The
// service tells it in the run log: when it begins, once a minute, and when it has ended.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "midtablectl/run_log.h"

namespace ctl {

struct Held {
  std::string what;  // "server" or another of those that docs/state.md lists
  std::string files;
  std::string reason;
  LogEntry entry;  // the line that says so
};

// What is held back at `now`, in the order in which it began. `error` becomes what ReadLogOf says
// of a log that cannot be read.
std::vector<Held> HeldBack(std::time_t now, std::string& error);

// The last error of each kind about the list of local users, as far as it is of the last half
// minute: such an error comes again every 10 seconds. No file waits for its end, but users are
// counted as visitors meanwhile. `error` as above.
std::vector<LogEntry> RegistryErrors(std::time_t now, std::string& error);

// Whether files of this path's mem table, or the file itself, wait for that.
bool Concerns(const Held& held, const std::string& path);

}  // namespace ctl
