// The slots of the history as rows of values: one for each ten minutes of the last day.
#pragma once

#include <ctime>
#include <string>

#include "midtablectl/page/charts.h"
#include "midtablectl/page/page.h"

namespace ctl {

inline constexpr std::size_t kSlots = kHistorySeconds / kSlotSeconds;

// When the last slot ends, which is not over.
std::time_t SlotsEnd(const Page& page);
// Rows a second of a database, of all of them without a name. `together` slots make one value.
Series RatesOf(const Page& page, const std::string* database, std::size_t together = 1);
// The greatest age of a file that waited, in seconds.
Series AgesOf(const Page& page);
// The rows of a database, of all of them without a name, that the slots have together.
std::uint64_t RowsOfDay(const Page& page, const std::string* database);

}  // namespace ctl
