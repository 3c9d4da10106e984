#include "midtable/not_emptied.h"

#include "log/engine_unit.h"
#include "log/zux_center_log.h"

namespace {

// What keeps the server from emptying a table, a lock or a full disk, seldom ends within seconds.
constexpr std::chrono::minutes kPause{1};

}  // namespace

// The table is forgotten only once the server has emptied it: as long as it is remembered, nothing
// is loaded into it.
bool NotEmptied::Empty(Store& store, const std::string& table) {
  if (m_tables.count(table) == 0) return true;
  const std::string truncate = "truncate table " + table;
  if (!store.Execute(truncate)) {
    g_loger(kUnit, __LINE__, kError, "sql %s error %s", truncate.c_str(),
            store.LastError().c_str());
    return false;
  }
  m_tables.erase(table);
  return true;
}

bool NotEmptied::IsDue(std::chrono::nanoseconds now) const {
  return !m_tables.empty() && now - m_tried_at >= kPause;
}

// The loop runs over a copy, because each table that is emptied leaves the set.
void NotEmptied::EmptyAll(Store& store, std::chrono::nanoseconds now) {
  m_tried_at = now;
  const std::set<std::string> tables = m_tables;
  for (const std::string& table : tables) Empty(store, table);
}

// The set lives in memory alone. After the next start the service would not know that these rows
// are counted, so the operator is told.
void NotEmptied::LogLeft() const {
  for (const std::string& table : m_tables) {
    g_loger(kUnit, __LINE__, kError,
            "memtable %s is left with converted rows, empty it before the next start",
            table.c_str());
  }
}
