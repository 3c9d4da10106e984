#include "tables/mid_table_name.h"

#include "support/names.h"

namespace {

// The mark of the period stands behind "T_" and four letters, as in T_FLOW1D_.
constexpr std::size_t kPeriodPosition = 6;

}  // namespace

std::string PeriodMark(std::string_view base) { return TextAt(base, kPeriodPosition, 2); }

Period PeriodOf(std::string_view base) {
  const std::string mark = PeriodMark(base);
  return mark == "1Y" ? Period::kYear : mark == "1M" ? Period::kMonth : Period::kDay;
}

// A date that is too short gives no digits at all rather than some of them: the name is then that
// of one table for every date, which shows, and not that of a wrong day.
std::string MidTableName(std::string_view base, std::string_view date) {
  const Period period = PeriodOf(base);
  const std::size_t digits = period == Period::kYear ? 4 : period == Period::kMonth ? 6 : 8;
  return std::string(base) + TextAt(date, 0, digits);
}
