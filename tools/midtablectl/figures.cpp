#include "midtablectl/figures.h"

#include <cmath>

#include "log/zux_center_log.h"
#include "midtablectl/local_time.h"

namespace ctl {

std::string Grouped(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<std::size_t>(at), 1, ',');
  }
  return digits;
}

std::string Rate(double per_second) {
  if (per_second > 0 && per_second < 9.95) return Format("%.1f", per_second);
  return Grouped(static_cast<std::uint64_t>(std::lround(per_second)));
}

std::string Bytes(std::uint64_t bytes) {
  static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1024 && unit < 4; ++unit) value /= 1024;
  return Format(unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
}

std::string Duration(double seconds) {
  const auto whole = std::lround(seconds);
  constexpr long kHour = 3600;
  constexpr long kDay = 24 * kHour;
  if (whole < 60) return Format("%ld s", whole);
  if (whole < kHour) return Format("%ld:%02ld min", whole / 60, whole % 60);
  if (whole < 2 * kDay) return Format("%ld:%02ld h", whole / kHour, whole / 60 % 60);
  return Format("%ld days", whole / kDay);
}

// The names of days and months are those of this program's locale, which is always that of C.
std::string Stamp(std::time_t time) {
  const std::tm local = LocalTime(time);
  char text[64];
  std::string stamp(text, std::strftime(text, sizeof text, "%a %-d %b %Y, %H:%M:%S UTC%z", &local));
  const std::size_t minutes = stamp.size() - 2;
  if (stamp.ends_with("+0000")) return stamp.substr(0, minutes - 3);
  return stamp.insert(minutes, ":");
}

std::string ShortStamp(std::time_t time, std::time_t now) {
  const std::tm local = LocalTime(time);
  char text[64];
  const bool today = DayOf(time) == DayOf(now);
  return {text, std::strftime(text, sizeof text, today ? "%H:%M" : "%-d %b %H:%M", &local)};
}

}  // namespace ctl
