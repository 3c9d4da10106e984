#include "delivery/preparation.h"

#include <algorithm>
#include <set>

#include "tables/mid_table_name.h"

namespace {

std::string ListOf(const std::set<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "'" : ",'") + name + "'";
  return list;
}

}  // namespace

std::string Preparation::MarksQuery() const {
  std::set<std::string> names;
  for (const Entry& entry : m_entries) names.insert(entry.table);
  return std::string("select name, token, state from ") + kLedgerTable +
         " where kind = 'M' and name in (" + ListOf(names) + ")";
}

std::string Preparation::TablesQuery() const {
  std::set<std::string> names = {kLedgerTable};
  for (const Entry& entry : m_entries) {
    names.insert(entry.table);
    for (const MidTarget& target : entry.plan->targets) names.insert(target.name);
  }
  return "select concat(t.table_schema, '.', t.table_name) as name, ifnull(e.transactions, 'NO') "
         "as safe from information_schema.tables t left join information_schema.engines e on "
         "e.engine = t.engine where t.table_schema in ('" +
         m_database + "', '" + kMonthTableDatabase + "') and t.table_name in (" + ListOf(names) +
         ") and t.table_type = 'BASE TABLE'";
}

std::map<std::string, SqlRecord> Preparation::MarksIn(const SqlReply& reply) {
  std::map<std::string, SqlRecord> marks;
  for (const SqlRecord& row : reply.rows) marks[row.at("name")] = row;
  return marks;
}

Preparation::Tables Preparation::TablesIn(const SqlReply& reply) {
  Tables tables;
  for (const SqlRecord& row : reply.rows) tables[row.at("name")] = row.at("safe") == "YES";
  return tables;
}

// A table that several feeds need is made once.
std::vector<std::string> Preparation::WhatIsMissing(const Tables& tables) const {
  std::vector<std::string> script;
  std::set<std::string> made;
  for (const auto& [table, feed, plan] : m_entries) {
    if (tables.count(m_database + "." + table) == 0) {
      script.insert(script.end(), plan->mem_creates.begin(), plan->mem_creates.end());
      script.push_back(Ledger::AddingMark(table));
    }
    for (const MidTarget& target : plan->targets) {
      const std::string name = target.database + "." + target.name;
      if (target.database.empty() || tables.count(name) != 0 || !made.insert(name).second) continue;
      script.push_back(target.create);
    }
  }
  return script;
}

// A name may be that of a view, or of a table of neither database, as a year table that is missing.
bool Preparation::HasAll(const Entry& entry, const Tables& tables) const {
  const auto is_safe = [&](const std::string& name) {
    const auto found = tables.find(m_database + "." + name);
    return found != tables.end() && found->second;
  };
  const auto none_is_unsafe = [&](const MidTarget& target) {
    return std::all_of(tables.begin(), tables.end(), [&](const auto& table) {
      return table.second || !table.first.ends_with("." + target.name);
    });
  };
  return is_safe(entry.table) && is_safe(kLedgerTable) &&
         std::all_of(entry.plan->targets.begin(), entry.plan->targets.end(), none_is_unsafe);
}

// A mem table without a mark may lack some of its Create statements, a mark without a mem table may
// be an old one: these are for the feed's own steps.
void Preparation::LeaveHalfMade(const std::map<std::string, SqlRecord>& marks,
                                const Tables& tables) {
  std::erase_if(m_entries, [&](const Entry& entry) {
    return marks.contains(entry.table) != tables.contains(m_database + "." + entry.table);
  });
}

// Only an empty mem table with a mark of its own is taken, in the end.
void Preparation::Run() {
  if (m_entries.empty()) return;
  std::size_t done = 0;
  std::vector<SqlReply> replies;
  if (!m_sql.RunAll({MarksQuery(), TablesQuery()}, nullptr, done, replies)) return;
  const Tables tables = TablesIn(replies[1]);
  LeaveHalfMade(MarksIn(replies[0]), tables);
  if (m_entries.empty()) return;
  std::vector<std::string> script = WhatIsMissing(tables);
  script.push_back(MarksQuery());
  script.push_back(TablesQuery());
  std::string filled;
  for (const Entry& entry : m_entries) {
    filled += (filled.empty() ? "(select '" : " union all (select '") + entry.table +
              "' as name from " + entry.table + " limit 1)";
  }
  script.push_back(filled);
  if (!m_sql.RunAll(script, nullptr, done, replies)) return;
  NoteWhatIsReady(MarksIn(replies[done - 3]), TablesIn(replies[done - 2]), replies[done - 1].rows);
}

void Preparation::NoteWhatIsReady(const std::map<std::string, SqlRecord>& marks,
                                  const Tables& tables, const std::vector<SqlRecord>& filled) {
  for (const Entry& entry : m_entries) {
    const auto mark = marks.find(entry.table);
    const bool is_empty = std::none_of(filled.begin(), filled.end(), [&](const SqlRecord& row) {
      return row.at("name") == entry.table;
    });
    if (mark == marks.end() || mark->second.at("state") != "E" || !is_empty) continue;
    if (HasAll(entry, tables)) entry.feed->NotePrepared(mark->second.at("token"));
  }
}
