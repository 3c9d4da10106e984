// The definitions' statements on empty tables: what only a server can tell of them.

#include <cctype>
#include <cstring>
#include <regex>

#include "log/zux_center_log.h"
#include "midtable/mem_file_name.h"
#include "midtablectl/advice.h"
#include "midtablectl/check.h"

namespace ctl {

namespace {

// Engines whose tables stand for rows elsewhere.
const std::set<std::string> kReachingEngines = {"connect", "federated", "s3", "sphinx", "spider"};

bool ContinuesName(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 || std::isalnum(byte) != 0 || c == '_' || c == '$';
}

// Whether `name` may stand for a database in `text`, both in small letters: before a dot, or before
// a comment, which may be followed by one.
bool NamesDatabase(const std::string& text, const std::string& name) {
  for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
    if (at > 0 && ContinuesName(text[at - 1])) continue;
    const std::size_t next = text.find_first_not_of(" \t\n\v\f\r`\"", at + name.size());
    if (next != std::string::npos && std::strchr(".*/-#", text[next]) != nullptr) return true;
  }
  return false;
}

class Rehearsal {
 public:
  Rehearsal(Server& server, const DefinitionSet& definitions, Findings& findings)
      : m_server(server), m_set(definitions), m_findings(findings) {
    for (const SqlRecord& row :
         server.Rows("select schema_name as d from information_schema.schemata")) {
      if (row.at("d") != ScratchDatabase::kName) m_others.push_back(Lower(row.at("d")));
    }
  }

  void Run() {
    if (m_others.empty()) return;  // what a statement reaches cannot be told
    for (const MemDefinition& mem : m_set.mem) {
      if (!mem.create.empty() && Try(mem.create, mem.line, "Create")) CheckMemTable(mem);
    }
    for (const MidDefinition& mid : m_set.mid) Convert(mid);
    const std::string today = Today();
    for (const MemDefinition& mem : m_set.mem) {
      CompareLayouts(SampleMemTable(mem.kind), "MEM\\_" + today + "%" + mem.kind, mem.line);
    }
    for (const MidDefinition& mid : m_set.mid) {
      if (mid.period == Period::kYear) continue;
      CompareLayouts(mid.NameAt(kSampleDate), mid.NameAt(today), mid.line);
    }
  }

 private:
  bool Try(const std::string& statement, long line, const std::string& what) {
    const std::string reach = ReachOf(statement);
    if (!reach.empty()) {
      m_findings.Note(m_set.path, line, what + " is not tried on the server: it " + reach);
      return false;
    }
    const std::string words = m_server.Run(statement);
    if (words.empty()) return true;
    std::string advice = ServerAdvice(words);
    const std::size_t denied = words.find(" command denied");
    if (denied != std::string::npos) {
      advice = "grant " + Lower(words.substr(0, denied)) + " on `WLAN\\_%`.* to " + m_server.user();
    }
    m_findings.Error(m_set.path, line, what + " fails on the server: " + words,
                     advice.empty() ? "mend the statement" : advice);
    return false;
  }

  // How a statement could act outside of the scratch database; empty when it cannot.
  std::string ReachOf(const std::string& statement) const {
    static const std::regex kTried(
        R"(\s*(create(\s+or\s+replace)?(\s+temporary)?\s+table|insert|replace|update|delete)\b)",
        std::regex::icase);
    if (!std::regex_search(statement, kTried, std::regex_constants::match_continuous)) {
      return "is no create table, insert, replace, update or delete";
    }
    const std::string text = Lower(statement);
    if (text.find("/*!") != std::string::npos || text.find("/*m!") != std::string::npos) {
      return "has a comment that the server executes";
    }
    if (kReachingEngines.count(EngineOf(text)) != 0) return "keeps its rows elsewhere";
    for (const std::string& name : m_others) {
      if (NamesDatabase(text, name)) return "names database " + name;
    }
    return {};
  }

  void CheckMemTable(const MemDefinition& mem) {
    const std::string table = SampleMemTable(mem.kind);
    CheckMade(table, "mem table", mem.create, mem.line, {});
    const std::string columns = Ask("count(*) from information_schema.columns", table);
    if (mem.kind == "F" && columns != "12") {
      m_findings.Warning(
          m_set.path, mem.line,
          "the mem table of kind F has " + columns +
              " columns; its files are loaded with 12, the last being the local flag",
          "define 12 columns");
    }
  }

  std::string Ask(const std::string& columns, const std::string& table,
                  const std::string& database = ScratchDatabase::kName) {
    return m_server.Value("select " + columns + " where table_schema = '" + database +
                          "' and table_name = '" + table + "'");
  }

  // Engine and key of a table; what the words of its `create` show was found before. A mem table
  // has no `convert`.
  void CheckMade(const std::string& table, const std::string& called, const std::string& create,
                 long line, const std::string& convert,
                 const std::string& database = ScratchDatabase::kName) {
    const bool mem = convert.empty();
    const std::string named = EngineOf(create);
    const std::string engine = Lower(Ask("engine from information_schema.tables", table, database));
    if (engine != "innodb" && (named.empty() || named == "innodb")) {
      m_findings.Add(mem, m_set.path, line,
                     called + " has engine " + engine + ", which keeps half of what failed",
                     named.empty()
                         ? "give it engine = InnoDB"
                         : "add NO_ENGINE_SUBSTITUTION to sql_mode: InnoDB is not to be had");
    }
    // 1, 0 when another key is unique, NULL when none is.
    const std::string primary =
        Ask("max(if(non_unique, null, index_name = 'PRIMARY')) from information_schema.statistics",
            table, database);
    if (primary == "NULL" && (mem || AddsUp(convert))) {
      if (!create.empty() && !NamesKey(create)) return;
      m_findings.Add(!mem, m_set.path, line, called + (mem ? kMemWithoutKey : kMidWithoutKey),
                     kGiveKey);
    } else if (primary != "1") {
      m_findings.Warning(m_set.path, line,
                         called + " has no primary key, which more than one server needs",
                         kGiveKey);
    }
  }

  void Convert(const MidDefinition& mid) {
    if (mid.convert.empty() || (mid.has_table && !MakeTable(mid))) return;
    if (Has(SampleMemTable(mid.kind))) Try(mid.convert, mid.line, "Convert of " + mid.name);
  }

  bool MakeTable(const MidDefinition& mid) {
    if (mid.period != Period::kYear) {
      if (mid.create.empty() || !Try(mid.create, mid.line, "Create of " + mid.name)) return false;
      CheckMade(mid.NameAt(kSampleDate), mid.name, mid.create, mid.line, mid.convert);
      return true;
    }
    const std::vector<SqlRecord> own = m_server.Rows(
        "select table_schema as d, table_name as t from information_schema.tables "
        "where table_schema like 'WLAN\\_%' and table_name like '" +
        mid.name + "____' order by table_name desc");
    for (const SqlRecord& year : own) {
      const std::string& table = year.at("t");
      if (table.substr(table.size() - 4) < Today().substr(0, 4)) break;
      CheckMade(table, year.at("d") + "." + table, {}, mid.line, mid.convert, year.at("d"));
    }
    // The operator's own table is the model; without one there is nothing to try.
    return !own.empty() &&
           m_server
               .Run(Format("create table %s like `%s`.`%s`", mid.NameAt(kSampleDate).c_str(),
                           own[0].at("d").c_str(), own[0].at("t").c_str()))
               .empty();
  }

  // A table in use that was made before its Create was edited: no Create changes it.
  void CompareLayouts(const std::string& sample, const std::string& used, long line) {
    const auto layouts_of = [this](const std::string& name, const std::string& databases) {
      return m_server.Rows(
          Format("select table_schema as d, table_name as t, group_concat(column_name, ' ', "
                 "column_type order by ordinal_position) as c from information_schema.columns "
                 "where table_name like '%s' and table_schema like '%s' group by 1, 2",
                 name.c_str(), databases.c_str()));
    };
    const std::vector<SqlRecord> made = layouts_of(sample, ScratchDatabase::kName);
    if (made.empty()) return;
    for (const SqlRecord& table : layouts_of(used, "WLAN\\_%")) {
      if (table.at("c") == made[0].at("c")) continue;
      m_findings.Warning(m_set.path, line,
                         Format("%s.%s has other columns than its Create gives",
                                table.at("d").c_str(), table.at("t").c_str()),
                         "it is older than the Create, which never changes a table: alter it");
    }
  }

  bool Has(const std::string& table) {
    return !m_server.Value("show tables like '" + table + "'").empty();
  }

  Server& m_server;
  const DefinitionSet& m_set;
  Findings& m_findings;
  std::vector<std::string> m_others;  // the server's databases but for the scratch one
};

}  // namespace

void RehearseDefinitions(Server& server, const DefinitionSet& definitions, Findings& findings) {
  Rehearsal(server, definitions, findings).Run();
}

}  // namespace ctl
