// The database server: login, privileges, databases, year tables, settings that alter rows.

#include <algorithm>
#include <ctime>

#include "db/SqlFactory.h"
#include "log/zux_center_log.h"
#include "midtable/mem_file_name.h"
#include "midtablectl/advice.h"
#include "midtablectl/check.h"

namespace ctl {

namespace {

constexpr char kWhere[] = "server";
constexpr char kConfiguration[] = "vqcfg";

bool Has(Server& server, const std::string& database, const std::string& table) {
  return !server
              .Value("select 1 from information_schema.tables where table_schema = '" + database +
                     "' and table_name = '" + table + "'")
              .empty();
}

bool HasDatabase(Server& server, const std::string& name) {
  return !server
              .Value("select 1 from information_schema.schemata where schema_name = '" + name + "'")
              .empty();
}

void CheckConfiguration(Server& server, Findings& findings) {
  const std::string words = server.Run(std::string("select crc, name from ") + kConfiguration +
                                       ".EnterpriseUser limit 0");
  if (words.empty()) return;
  findings.Error(
      kWhere, 0,
      "vqcfg.EnterpriseUser cannot be read (" + words + "); two error lines every 10 seconds",
      std::string(HasDatabase(server, kConfiguration)
                      ? "create the table as in the sample setup.sql"
                      : "create database and table as in the sample setup.sql") +
          ", or: grant select on vqcfg.* to " + server.user());
}

void CheckMonthDatabase(Server& server, const DefinitionSet& definitions, Findings& findings) {
  const auto is_month = [](const MidDefinition& mid) { return mid.period == Period::kMonth; };
  if (std::none_of(definitions.mid.begin(), definitions.mid.end(), is_month)) return;
  const std::string name = kMonthTableDatabase;
  const std::string words = server.Run("show tables from " + name + " like 'x'");
  if (words.empty()) return;
  findings.Error(kWhere, 0,
                 name + " cannot be looked at (" + words +
                     "): an error line with every conversion of a month table",
                 "create database " + name + "; it stays empty");
}

// Years that the conversions of `folder` need: this one, and those of files that wait.
std::set<std::string> YearsOf(const DatabaseFolder& folder, const std::string& kind) {
  std::set<std::string> years = {Today().substr(0, 4)};
  for (const SpoolEntry& file : folder.files) {
    const std::string table = MemFileTable(file.name);
    if (file.state != FileState::kWaiting || !table.ends_with(kind)) continue;
    const std::string year = TextAt(table, 4, 4);
    if (IsNumber(year)) years.insert(year);
  }
  return years;
}

void CheckYearTables(Server& server, const Spool& spool, const DefinitionSet& definitions,
                     Findings& findings) {
  const int next_year = std::atoi(Today().substr(0, 4).c_str()) + 1;
  for (const DatabaseFolder& folder : spool.folders) {
    if (folder.error != 0) continue;
    for (const MidDefinition& mid : definitions.mid) {
      if (mid.period != Period::kYear || !mid.has_table) continue;
      for (const std::string& year : YearsOf(folder, mid.kind)) {
        const std::string table = mid.NameAt(year);
        if (Has(server, folder.Database(), table)) continue;
        findings.Error(kWhere, 0,
                       "year table " + folder.Database() + "." + table +
                           " is missing: rows of kind " + mid.kind + " stay in their mem tables",
                       "create the year tables, see the sample year_tables.sql");
      }
      const std::string next = mid.NameAt(std::to_string(next_year));
      if (Has(server, folder.Database(), next)) continue;
      findings.Warning(kWhere, 0,
                       "year table " + folder.Database() + "." + next + " is not there yet",
                       "create next year's tables before January, see the sample year_tables.sql");
    }
  }
}

void CheckModes(Server& server, Findings& findings) {
  const std::string mode = server.Variable("sql_mode");
  if (mode.find("STRICT_") == std::string::npos) {
    findings.Warning(kWhere, 0,
                     "sql_mode \"" + mode +
                         "\" is not strict: values that do not fit are altered "
                         "without a word",
                     "add STRICT_TRANS_TABLES to sql_mode");
  }
  if (mode.find("ANSI_QUOTES") != std::string::npos) {
    findings.Error(kWhere, 0, "sql_mode has ANSI_QUOTES: every load statement fails",
                   "take ANSI_QUOTES out of sql_mode");
  }
}

std::string Connect(CSqlBase& sql, const MYSQLAUTH& auth, Findings& findings) {
  if (sql.connectDB() == 0) return {};
  std::string words = ServerWords(sql.getLastError());
  std::string login = "no login as " + auth.user;
  std::string advice = ServerAdvice(words);
  if (IsOracle(auth)) {
    login += " through ODBC";
    advice = "see oracle.md: package midtable-oracle, driver and data source in odbc.ini, password";
  } else {
    login += " at " + auth.host + " port " + std::to_string(auth.port);
    constexpr std::string_view kDenied = "Access denied for user ";
    const std::size_t database = words.find(" to database ");
    if (words.starts_with(kDenied) && database != std::string::npos) {
      const std::string user = words.substr(kDenied.size(), database - kDenied.size());
      advice = "grant select on " + auth.dbname + ".* to " + user;
    } else if (words.starts_with(kDenied)) {
      advice = "mend user and password of the settings, or make that user on the server";
    } else if (advice.empty()) {
      advice = "mend host, port, user, password and dbname0 of the settings";
    }
  }
  findings.Error(kWhere, 0, login + ": " + words, advice);
  return words;
}

}  // namespace

std::string Today() {
  const std::tm local = LocalTime(std::time(nullptr));
  return Format("%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

ScratchDatabase::ScratchDatabase(Server& server) : m_server(server) {
  const std::string name = kName;
  // One that a run left behind that was ended half-way is nobody else's. Who may not drop it makes
  // none.
  for (const std::string& step :
       {"drop database if exists " + name, "create database " + name, "use " + name,
        std::string("create table probe (n int primary key) engine = InnoDB"),
        std::string("insert into probe values (1)"),
        std::string("insert into probe select n from probe on duplicate key update n = 2"),
        std::string("truncate table probe")}) {
    const std::string words = m_server.Run(step);
    if (words.empty()) continue;
    m_error = Format("\"%s\" fails: %s", step.c_str(), words.c_str());
    return;
  }
}

ScratchDatabase::~ScratchDatabase() {
  m_server.Run(std::string("drop database if exists ") + kName);
}

bool CheckServer(const MYSQLAUTH& auth, const Spool& spool, const DefinitionSet& definitions,
                 Findings& findings) {
  if (LacksPort(auth)) return true;
  const std::unique_ptr<CSqlBase> sql = CreateSqlBase(auth);
  if (!Connect(*sql, auth, findings).empty() || IsOracle(auth)) return true;
  std::string user = Server(*sql).Value("select current_user()");
  const std::size_t at = user.find('@');
  if (at != std::string::npos) user = user.substr(0, at) + "@'" + user.substr(at + 1) + "'";
  Server server(*sql, user);
  // Held until the connection ends: two runs would drop each other's database.
  if (server.Value("select get_lock('midtablectl', 0)") == "0") return false;
  CheckModes(server, findings);
  CheckConfiguration(server, findings);
  {
    const ScratchDatabase scratch(server);
    if (scratch.error().empty()) {
      RehearseDefinitions(server, definitions, findings);
      ProbeLoads(server, spool, findings);
    } else {
      const bool denied = scratch.error().find("denied") != std::string::npos;
      const std::string advice = ServerAdvice(scratch.error());
      findings.Error(kWhere, 0, scratch.error() + "; definitions and loads were not tried",
                     denied
                         ? "grant select, insert, update, create, drop on `WLAN\\_%`.* to " + user
                     : advice.empty() ? "see the server's error log"
                                      : advice);
    }
  }
  CheckMonthDatabase(server, definitions, findings);
  CheckYearTables(server, spool, definitions, findings);
  return true;
}

}  // namespace ctl
