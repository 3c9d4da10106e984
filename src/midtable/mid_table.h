// How mid tables are named and what their conversions are given: the rules that the service and
// its checks share.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "midtable/sql_template.h"

// DELIBERATE: month tables are looked up here, and created where the service stands.
inline constexpr char kMonthTableDatabase[] = "WLAN_TUNE";

enum class Period { kDay, kMonth, kYear };

// The two characters of a mid table's name that tell its period; empty when it is too short.
std::string PeriodMark(std::string_view base);
// "1M" is a month table, "1Y" a year table, anything else a day table.
Period PeriodOf(std::string_view base);
// `base` and as much of `date`, YYYYMMDD, as its period takes; nothing of one that is shorter.
std::string MidTableName(std::string_view base, std::string_view date);

// What the Convert template of a mid table is filled with, and ConvertOracle on Oracle. `city` is
// the city value, which year tables on Oracle alone take.
std::vector<TemplateValue> ConversionValues(bool oracle, Period period, const std::string& date,
                                            const std::string& mem_table, const std::string& city);
