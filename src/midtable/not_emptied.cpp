#include "midtable/not_emptied.h"

#include "log/engine_unit.h"
#include "log/zux_center_log.h"

namespace {

constexpr std::chrono::minutes kPause{1};

}  // namespace

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

// The set changes under the loop.
void NotEmptied::EmptyAll(Store& store, std::chrono::nanoseconds now) {
  m_tried_at = now;
  const std::set<std::string> tables = m_tables;
  for (const std::string& table : tables) Empty(store, table);
}

void NotEmptied::LogLeft() const {
  for (const std::string& table : m_tables) {
    g_loger(kUnit, __LINE__, kError,
            "memtable %s is left with converted rows, empty it before the next start",
            table.c_str());
  }
}
