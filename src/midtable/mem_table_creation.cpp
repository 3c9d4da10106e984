#include "midtable/mem_table_creation.h"

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/paths.h"
#include "tables/definitions.h"
#include "tables/template_values.h"

namespace {

// A definition may have several entries of one kind, of which each can be another statement for the
// same table.
bool RunCreate(Store& store, const TableDefinitions& definitions, const std::string& node,
               const std::string& table) {
  std::string create;
  if (!definitions.Read(node, create)) return false;
  const Outcome outcome = store.RunTemplate(node, create, MemCreateValues(table));
  if (outcome.ok) return true;
  g_loger(kUnit, __LINE__, kError, "executeSQL < %s > error %s", outcome.statement.c_str(),
          outcome.error.c_str());
  return false;
}

}  // namespace

// A kind that no entry defines makes nothing and is no failure: the load says that the table is not
// there. The line in the log names the reason, which the server cannot know.
bool CreateMemTable(Store& store, const std::string& table, const std::string& database) {
  // After a refused switch the statements below would look for the table, and make it, in another
  // database.
  if (!database.empty() && !store.Use(database)) {
    g_loger(kUnit, __LINE__, kError, "table %s.%s not made, change db error %s", database.c_str(),
            table.c_str(), store.LastError().c_str());
    return false;
  }
  switch (store.FindTableHere(table)) {
    case Presence::kPresent:
      return true;
    case Presence::kUnknown:
      g_loger(kUnit, __LINE__, kError, "table %s.%s not looked up error %s", database.c_str(),
              table.c_str(), store.LastError().c_str());
      return false;
    case Presence::kAbsent:
      break;
  }

  TableDefinitions definitions;
  if (!definitions.Parse(store.dialect().DefinitionsFile())) {
    // DELIBERATE: this line names the same file for every kind of store.
    g_loger(kUnit, __LINE__, kError, "parse xml file %s failed", paths::kMysqlDefinitions);
    return false;
  }
  int count = 0;
  if (!definitions.Read(CountPath(kMemDefinitions), count)) return false;
  // The kind is the last letter of a mem table's name, and the name of its entries in the
  // definitions.
  const std::string kind = table.empty() ? std::string() : std::string(1, table.back());
  bool defined = false;
  const bool made = ForEachEntry(kMemDefinitions, count, [&](const std::string& node) {
    std::string name;
    if (!definitions.Read(node + "/Name", name)) return false;
    if (name != kind) return true;
    defined = true;
    return RunCreate(store, definitions, node + "/Create", table);
  });
  if (made && !defined) {
    g_loger(kUnit, __LINE__, kAlarm, "xml file %s: no Name in /root/Mem is kind (%s) of table %s",
            definitions.file(), kind.c_str(), table.c_str());
  }
  return made;
}
