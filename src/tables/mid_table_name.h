// How mid tables are named.
#pragma once

#include <string>
#include <string_view>

// DELIBERATE: month tables are looked up here, and created where the service stands.
inline constexpr char kMonthTableDatabase[] = "WLAN_TUNE";

enum class Period { kDay, kMonth, kYear };

// The two characters of a mid table's name that tell its period; empty when it is too short.
std::string PeriodMark(std::string_view base);
// "1M" is a month table, "1Y" a year table, anything else a day table.
Period PeriodOf(std::string_view base);
// `base` and as much of `date`, YYYYMMDD, as its period takes; nothing of a shorter date.
std::string MidTableName(std::string_view base, std::string_view date);
