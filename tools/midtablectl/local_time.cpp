#include "midtablectl/local_time.h"

#include "log/zux_center_log.h"

namespace ctl {

// The run log is written in local time, and its lines are compared with the times of files.
std::tm LocalTime(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  return local;
}

std::string DayOf(std::time_t time) {
  const std::tm local = LocalTime(time);
  return Format("%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

std::string Today() { return DayOf(std::time(nullptr)); }

}  // namespace ctl
