#include "midtable/mid_table.h"

#include <cstdlib>

#include "midtable/mem_file_name.h"

namespace {

constexpr std::size_t kPeriodPosition = 6;
constexpr int kMostDayNumbers = 8;

}  // namespace

std::string PeriodMark(std::string_view base) { return TextAt(base, kPeriodPosition, 2); }

Period PeriodOf(std::string_view base) {
  const std::string mark = PeriodMark(base);
  return mark == "1Y" ? Period::kYear : mark == "1M" ? Period::kMonth : Period::kDay;
}

std::string MidTableName(std::string_view base, std::string_view date) {
  const Period period = PeriodOf(base);
  const std::size_t digits = period == Period::kYear ? 4 : period == Period::kMonth ? 6 : 8;
  return std::string(base) + TextAt(date, 0, digits);
}

std::vector<TemplateValue> ConversionValues(bool oracle, Period period, const std::string& date,
                                            const std::string& mem_table, const std::string& city) {
  if (!oracle) return {date, mem_table};
  const std::string year = TextAt(date, 0, 4);
  const std::string month = TextAt(date, 4, 2);
  const std::string day = TextAt(date, 6, 2);
  switch (period) {
    case Period::kDay:
      return {date, mem_table, date};
    case Period::kMonth: {
      std::vector<TemplateValue> values = {year + month, mem_table};
      values.resize(values.size() + kMostDayNumbers, std::atoi(day.c_str()));
      return values;
    }
    case Period::kYear:
      break;
  }
  const std::string literal = "date'" + year + "-" + month + "-" + day + "'";
  return {year, mem_table, literal, city, literal, city};
}
