// What earlier looks saw: the page's curves need more than one look. Kept in a file beside the
// page, as JSON; docs/monitoring.md describes the form.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "midtablectl/status.h"

namespace ctl {

inline constexpr std::time_t kSlotSeconds = 600;
inline constexpr std::time_t kHistorySeconds = 86'400;

// Numbers of rows, by database.
using RowCounts = std::map<std::string, std::uint64_t>;

// Ten minutes.
struct HistorySlot {
  std::time_t begin = 0;
  std::time_t watched = 0;    // seconds of it that the rows are known of; 0: there is no speed
  RowCounts rows;             // loaded in these seconds; without the databases that had none
  std::uint64_t waiting = 0;  // the most files that a look found waiting
  std::int64_t oldest = 0;    // the greatest age of one of them, in seconds
};

// The service's own counters as they were at the last look.
struct RowCounters {
  std::time_t started_at = 0;  // of the service: they began at 0 then
  RowCounts rows;
};

// The day tables of one name, of all databases together.
struct DayTotals {
  std::string table;                   // without its date
  std::string measure;                 // the column that is added up; empty for the number of rows
  std::map<std::string, double> days;  // by YYYYMMDD
};

struct History {
  std::time_t looked_at = 0;       // the last look; 0 before the first one
  std::vector<HistorySlot> slots;  // by time; what nobody looked at has none
  std::optional<RowCounters> counters;
  std::time_t totals_at = 0;  // when the server was asked for all days; 0: never
  std::vector<DayTotals> totals;
};

// The file of the page at `page`.
std::string HistoryPath(const std::string& page);

// The history of the page; an empty one where there is none. A file that cannot be used is set
// aside, or left where that is impossible; then `note` tells so in one line.
History ReadHistory(const std::string& page, std::string& note);
// The form in which it is kept.
std::string ToJson(const History& history);

// How many seconds before `now` the rows are to be counted from; 0 when nobody has looked for so
// long that they belong to no one slot.
std::time_t SecondsSince(const History& history, std::time_t now);

// Adds a look, and drops what is older than a day. `rows` were loaded since the last look; nothing
// where that is not known.
void AddLook(const SystemStatus& status, const std::optional<RowCounts>& rows, History& history);

}  // namespace ctl
