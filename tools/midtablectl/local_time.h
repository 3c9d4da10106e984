// Points in time as the operator's clock shows them. The service names its run logs by local days
// and writes local times into them, so every comparison with the log goes through here.
#pragma once

#include <ctime>
#include <string>

namespace ctl {

// The parts of a point in time, in the time zone of this process.
std::tm LocalTime(std::time_t time);

// The local day that holds `time`, as YYYYMMDD.
std::string DayOf(std::time_t time);

// The local day on which this is called, as YYYYMMDD.
std::string Today();

}  // namespace ctl
