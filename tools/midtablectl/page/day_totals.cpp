#include "midtablectl/page/day_totals.h"

#include <algorithm>
#include <cstdlib>

#include "db/SqlFactory.h"
#include "midtablectl/local_time.h"
#include "midtablectl/server.h"
#include "support/names.h"
#include "tables/mid_table_name.h"

namespace ctl {

namespace {

constexpr std::size_t kDayDigits = 8;
constexpr std::time_t kSecondsBetweenAll = 3600;
// More would be no page to look at.
constexpr std::size_t kMostTables = 12;

struct DayTable {
  std::string database;
  std::string base;  // the name without its date
  std::string day;
};

using Totals = std::map<std::string, DayTotals>;  // by name without date

// Puts the questions. The first one that fails ends the asking.
class Asking {
 public:
  explicit Asking(const MYSQLAUTH& auth) : m_sql(CreateSqlBase(auth)) {
    if (m_sql->connectDB() != 0) m_error = ServerWords(m_sql->getLastError());
  }

  // Those of the day `first` and later.
  Totals TotalsSince(const std::string& first, const std::string& last);
  const std::string& error() const { return m_error; }

 private:
  std::vector<SqlRecord> Rows(const std::string& query);
  std::map<std::string, std::vector<DayTable>> Tables(const std::string& first,
                                                      const std::string& last);
  std::string MeasureOf(const DayTable& table);
  void AddUp(const std::vector<DayTable>& tables, Totals& totals);

  std::unique_ptr<CSqlBase> m_sql;
  std::string m_error;
};

std::vector<SqlRecord> Asking::Rows(const std::string& query) {
  std::vector<SqlRecord> rows;
  if (m_error.empty() && m_sql->fetchRecordSet(query.c_str(), rows) != 0) {
    m_error = ServerWords(m_sql->getLastError());
  }
  return rows;
}

// The day tables of each database. A name that is not safe in a statement is none of the service's.
std::map<std::string, std::vector<DayTable>> Asking::Tables(const std::string& first,
                                                            const std::string& last) {
  const std::string question =
      "select table_schema as d, table_name as t from information_schema.tables where "
      "table_schema like '" +
      DatabasePattern() +
      "' and table_name regexp '[^0-9][0-9]{8}$' and table_name not like 'MEM\\_%' and "
      "right(table_name, 8) between '" +
      first + "' and '" + last + "'";
  std::map<std::string, std::vector<DayTable>> tables;
  for (SqlRecord& row : Rows(question)) {
    const std::string name = row["t"];
    const std::string base = name.substr(0, name.size() - kDayDigits);
    if (!IsSafeIdentifier(name) || !IsSafeIdentifier(row["d"])) continue;
    if (PeriodOf(base) != Period::kDay) continue;
    tables[row["d"]].push_back({row["d"], base, name.substr(base.size())});
  }
  return tables;
}

// The column that is added up; empty where there is none.
std::string Asking::MeasureOf(const DayTable& table) {
  for (SqlRecord& row :
       Rows("select column_name as c from information_schema.columns where table_schema = '" +
            table.database + "' and table_name = '" + table.base + table.day +
            "' and numeric_precision is not null and column_key <> 'PRI' order by "
            "ordinal_position limit 1")) {
    if (IsSafeIdentifier(row["c"])) return row["c"];
  }
  return {};
}

// One question for all tables of a database.
void Asking::AddUp(const std::vector<DayTable>& tables, Totals& totals) {
  std::string query;
  for (const DayTable& table : tables) {
    if (!totals.contains(table.base)) {
      if (totals.size() == kMostTables) continue;
      totals[table.base] = {table.base, MeasureOf(table), {}};
    }
    const std::string& measure = totals[table.base].measure;
    const std::string sum = measure.empty() ? "count(*)" : "coalesce(sum(`" + measure + "`), 0)";
    query += (query.empty() ? "select '" : " union all select '") + table.base + "' as t, '" +
             table.day + "' as d, " + sum + " as n from `" + table.database + "`.`" + table.base +
             table.day + "`";
  }
  if (query.empty()) return;
  for (SqlRecord& row : Rows(query)) {
    totals[row["t"]].days[row["d"]] += std::strtod(row["n"].c_str(), nullptr);
  }
}

Totals Asking::TotalsSince(const std::string& first, const std::string& last) {
  Totals totals;
  for (const auto& [database, tables] : Tables(first, last)) {
    if (m_error.empty()) AddUp(tables, totals);
  }
  return totals;
}

// Puts the new totals in the place of those of the same days.
void Replace(const std::string& first, Totals fresh, std::vector<DayTotals>& totals) {
  for (DayTotals& old : totals) {
    const auto found = fresh.find(old.table);
    old.days.erase(old.days.lower_bound(first), old.days.end());
    if (found == fresh.end()) continue;
    old.measure = found->second.measure;
    old.days.merge(found->second.days);
    fresh.erase(found);
  }
  for (auto& [base, one] : fresh) totals.push_back(std::move(one));
  std::erase_if(totals, [](const DayTotals& one) { return one.days.empty(); });
  std::sort(totals.begin(), totals.end(),
            [](const DayTotals& one, const DayTotals& other) { return one.table < other.table; });
}

}  // namespace

// The noon of a day is never moved into another one by a change of the clock.
std::vector<std::string> TotalDays(std::time_t now) {
  std::vector<std::string> days;
  for (int back = kTotalDays - 1; back >= 0; --back) {
    std::tm noon = LocalTime(now);
    noon.tm_mday -= back;
    noon.tm_hour = 12;
    noon.tm_isdst = -1;
    days.push_back(DayOf(std::mktime(&noon)));
  }
  return days;
}

std::string UpdateTotals(const MYSQLAUTH& auth, std::time_t now, History& history) {
  if (Dialect::Of(auth).DatabasesAreUsers()) return {};
  const std::vector<std::string> days = TotalDays(now);
  for (DayTotals& totals : history.totals) {
    totals.days.erase(totals.days.begin(), totals.days.lower_bound(days.front()));
  }
  const bool all = history.totals_at > now || history.totals_at <= now - kSecondsBetweenAll;
  const std::string first = all ? days.front() : days[days.size() - 2];
  Asking asking(auth);
  Totals fresh = asking.TotalsSince(first, days.back());
  if (!asking.error().empty()) return asking.error();
  Replace(first, std::move(fresh), history.totals);
  if (all) history.totals_at = now;
  return {};
}

}  // namespace ctl
