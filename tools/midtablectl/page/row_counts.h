// How many rows were loaded since the last look.
#pragma once

#include <optional>

#include "midtablectl/page/history.h"
#include "midtablectl/spool_scan.h"

namespace ctl {

// By the times at which files got their .mid name: who deletes those at once sees none. Nothing
// where the last look is too long ago, or a folder could not be read.
std::optional<RowCounts> RowsSince(const History& history, const Spool& spool, std::time_t now);

// By the service's own counters, which become those of the history. A service that was started
// since the last look counted from 0 on. Nothing where there was no last look to compare with.
std::optional<RowCounts> RowsSince(const RowCounters& counters, std::time_t now, History& history);

}  // namespace ctl
