// What the mid tables say of each of the last days, asked of the server.
#pragma once

#include <ctime>
#include <string>

#include "config/dbinfo.h"
#include "midtablectl/page/history.h"

namespace ctl {

inline constexpr int kTotalDays = 31;  // today's with them

// The days, as YYYYMMDD, that the page shows: today's is the last one.
std::vector<std::string> TotalDays(std::time_t now);

// Brings the totals in the history up to date: of all days once an hour, since late files change
// old days too, and of today and yesterday each time. Day tables are those of the devices'
// databases whose name ends in the day. Of each is added up the first column of numbers that is no
// part of the primary key, which the conversions of the samples count in; of tables without such a
// column, the rows.
//
// The result is the server's words when something could not be asked; the totals are then as they
// were. Empty also for servers whose tables no login sees.
std::string UpdateTotals(const MYSQLAUTH& auth, std::time_t now, History& history);

}  // namespace ctl
