// Numbers, sizes and times as people read them.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace ctl {

// "1,234,567".
std::string Grouped(std::uint64_t number);
// A number per second: "1,235", and below ten "0.4".
std::string Rate(double per_second);
// "1.5 MiB": what matters in a backlog is its order of magnitude.
std::string Bytes(std::uint64_t bytes);
// "45 s", "12:30 min", "5:00 h", "3 days": nobody wants the seconds of a backlog of days.
std::string Duration(double seconds);
// "Sun 22 Nov 2026, 10:31:05 UTC+08:00", in the time zone of this process.
std::string Stamp(std::time_t time);
// The same as short as can be on the day of `now`: "10:31", and "22 Nov 10:31" of another day.
std::string ShortStamp(std::time_t time, std::time_t now);

}  // namespace ctl
