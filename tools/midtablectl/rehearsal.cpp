// The statements of the definitions, tried on empty tables: a server alone can tell whether they
// are sound SQL, whether columns and tables fit, and what it makes of an engine.

#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/check.h"
#include "midtablectl/local_time.h"
#include "midtablectl/statement_words.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

// A table that was made by a definition, or is used in its place.
struct MadeTable {
  std::string database;
  std::string name;
  std::string called;  // what a finding calls it
  std::string create;  // the statement that made it; empty when an operator made it
};

// The names of all databases but the scratch one, in small letters.
std::vector<std::string> OtherDatabases(Server& server) {
  std::vector<std::string> names;
  for (const SqlRecord& row :
       server.Rows("select schema_name as d from information_schema.schemata")) {
    if (row.at("d") != ScratchDatabase::kName) names.push_back(Lower(row.at("d")));
  }
  return names;
}

class Rehearsal {
 public:
  Rehearsal(Server& server, const DefinitionSet& definitions, bool once, Findings& findings)
      : m_server(server),
        m_set(definitions),
        m_once(once),
        m_findings(findings),
        m_others(OtherDatabases(server)) {}

  void Run() {
    // Every server has a database of its own. Where none is shown, nobody can tell what a statement
    // would reach.
    if (m_others.empty()) return;
    for (const MemDefinition& mem : m_set.mem) {
      if (!mem.create.empty() && Try(mem.create, mem.line, "Create")) CheckMemTable(mem);
    }
    for (const MidDefinition& mid : m_set.mid) RunConversion(mid);
    CompareWithTablesInUse();
  }

 private:
  // Runs a statement of the definitions in the scratch database. Whatever could act elsewhere is
  // not run but noted: the definitions are being looked at just because they may be wrong.
  bool Try(const std::string& statement, long line, const std::string& what) {
    const std::string reach = ReachOf(statement, m_others);
    if (!reach.empty()) {
      m_findings.Note(m_set.path, line, what + " is not tried on the server: it " + reach);
      return false;
    }
    const std::string words = m_server.Run(statement);
    if (words.empty()) return true;
    std::string advice = ServerAdvice(words);
    const std::size_t denied = words.find(" command denied");
    if (denied != std::string::npos) {
      // The server's text begins with the privilege: "DELETE command denied to user ...".
      advice = "grant " + Lower(words.substr(0, denied)) + " on `" + DatabasePattern() + "`.* to " +
               m_server.user();
    }
    m_findings.Error(m_set.path, line, what + " fails on the server: " + words,
                     advice.empty() ? "mend the statement" : advice);
    return false;
  }

  // One value of information_schema about a table.
  std::string Ask(const std::string& columns, const MadeTable& table) {
    return m_server.Value("select " + columns + " where table_schema = '" + table.database +
                          "' and table_name = '" + table.name + "'");
  }

  void CheckMemTable(const MemDefinition& mem) {
    const MadeTable table = {ScratchDatabase::kName, SampleMemTable(mem.kind), "mem table",
                             mem.create};
    CheckEngine(table, mem.line, true);
    CheckKey(table, mem.line, true, true);
    const std::string columns = Ask("count(*) from information_schema.columns", table);
    if (mem.kind == "F" && columns != "12") {
      m_findings.Warning(
          m_set.path, mem.line,
          "the mem table of kind F has " + columns +
              " columns; its files are loaded with 12, the last being the local flag",
          "define 12 columns");
    }
  }

  void CheckMidTable(const MadeTable& table, const MidDefinition& mid) {
    CheckEngine(table, mid.line, m_once);
    CheckKey(table, mid.line, false, AddsUp(mid.convert));
  }

  // Whether the table has the engine that its create statement asks for, or names none. An engine
  // that the statement names was reported with the words of the statement.
  void CheckEngine(const MadeTable& table, long line, bool is_error) {
    const std::string named = EngineOf(table.create);
    const std::string engine = Lower(Ask("engine from information_schema.tables", table));
    if (engine == "innodb" || (!m_once && !named.empty() && named != "innodb")) return;
    m_findings.Add(is_error, m_set.path, line,
                   table.called + " has engine " + engine +
                       (m_once ? ", which cannot be rolled back: its files wait"
                               : ", which keeps half of what failed"),
                   named.empty() || named == engine
                       ? "give it engine = InnoDB"
                       : "add NO_ENGINE_SUBSTITUTION to sql_mode: InnoDB is not to be had");
  }

  // Whether the table has the key that it `needs`, or else the primary key that replication needs.
  void CheckKey(const MadeTable& table, long line, bool is_mem, bool needs) {
    // The answer is 1 with a primary key, 0 with another unique key only, NULL with no unique key.
    const std::string primary =
        Ask("max(if(non_unique, null, index_name = 'PRIMARY')) from information_schema.statistics",
            table);
    if (primary == "NULL" && needs) {
      // A create statement without the word was reported with the words of the statement.
      if (!table.create.empty() && !NamesKey(table.create)) return;
      m_findings.Add(!is_mem, m_set.path, line,
                     table.called + (is_mem ? kMemWithoutKey : kMidWithoutKey), kGiveKey);
    } else if (primary != "1") {
      m_findings.Warning(m_set.path, line,
                         table.called + " has no primary key, which more than one server needs",
                         kGiveKey);
    }
  }

  void RunConversion(const MidDefinition& mid) {
    if (mid.convert.empty() || (mid.has_table && !MakeMidTable(mid))) return;
    // Without its mem table the conversion fails, which was reported with the mem table.
    if (IsMade(SampleMemTable(mid.kind))) Try(mid.convert, mid.line, "Convert of " + mid.name);
  }

  bool IsMade(const std::string& table) {
    return !m_server.Value("show tables like '" + table + "'").empty();
  }

  // Makes the table that the conversion fills. False when there is none to try it on.
  bool MakeMidTable(const MidDefinition& mid) {
    if (mid.period == Period::kYear) return MakeYearTable(mid);
    if (mid.create.empty() || !Try(mid.create, mid.line, "Create of " + mid.name)) return false;
    CheckMidTable({ScratchDatabase::kName, mid.NameAt(kSampleDate), mid.name, mid.create}, mid);
    return true;
  }

  // Year tables are made by the operator: the newest table serves as the model. Tables that still
  // get rows are also looked at.
  bool MakeYearTable(const MidDefinition& mid) {
    const std::vector<SqlRecord> tables = m_server.Rows(
        "select table_schema as d, table_name as t from information_schema.tables "
        "where table_schema like '" +
        DatabasePattern() + "' and table_name like '" + mid.name +
        "____' order by table_name desc");
    for (const SqlRecord& row : tables) {
      const std::string& table = row.at("t");
      if (table.substr(table.size() - 4) < Today().substr(0, 4)) break;
      CheckMidTable({row.at("d"), table, row.at("d") + "." + table, {}}, mid);
    }
    return !tables.empty() &&
           m_server
               .Run(Format("create table %s like `%s`.`%s`", mid.NameAt(kSampleDate).c_str(),
                           tables[0].at("d").c_str(), tables[0].at("t").c_str()))
               .empty();
  }

  // A create statement never changes a table that is there already. So a table that was made before
  // its definition was edited keeps its old columns, and conversions fail on it.
  void CompareWithTablesInUse() {
    const std::string today = Today();
    for (const MemDefinition& mem : m_set.mem) {
      CompareLayouts(SampleMemTable(mem.kind), "MEM\\_" + today + "%" + mem.kind, mem.line);
    }
    for (const MidDefinition& mid : m_set.mid) {
      if (mid.period == Period::kYear) continue;
      CompareLayouts(mid.NameAt(kSampleDate), mid.NameAt(today), mid.line);
    }
  }

  // `used` is a pattern for the names of the tables in use.
  void CompareLayouts(const std::string& sample, const std::string& used, long line) {
    const std::vector<SqlRecord> made = Layouts(sample, ScratchDatabase::kName);
    if (made.empty()) return;
    for (const SqlRecord& table : Layouts(used, DatabasePattern())) {
      if (table.at("c") == made[0].at("c")) continue;
      m_findings.Warning(m_set.path, line,
                         Format("%s.%s has other columns than its Create gives",
                                table.at("d").c_str(), table.at("t").c_str()),
                         "it is older than the Create, which never changes a table: alter it");
    }
  }

  // Database (d), name (t) and columns (c) of all tables that fit the two patterns.
  std::vector<SqlRecord> Layouts(const std::string& tables, const std::string& databases) {
    return m_server.Rows(
        Format("select table_schema as d, table_name as t, group_concat(column_name, ' ', "
               "column_type order by ordinal_position) as c from information_schema.columns "
               "where table_name like '%s' and table_schema like '%s' group by 1, 2",
               tables.c_str(), databases.c_str()));
  }

  Server& m_server;
  const DefinitionSet& m_set;
  const bool m_once;
  Findings& m_findings;
  const std::vector<std::string> m_others;
};

}  // namespace

void RehearseDefinitions(Server& server, const DefinitionSet& definitions, bool once,
                         Findings& findings) {
  Rehearsal(server, definitions, once, findings).Run();
}

}  // namespace ctl
