// The database server: login, privileges, databases, year tables, and settings that alter rows.

#include <algorithm>

#include "db/SqlFactory.h"
#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/check.h"
#include "midtablectl/local_time.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/names.h"

namespace ctl {

namespace {

constexpr char kWhere[] = "server";

// The table of enterprise users, by the query that the registry puts every ten seconds.
void CheckEnterpriseUsers(Server& server, Findings& findings) {
  const std::string prefix = std::string(DBNAME) + ".";
  const std::string words = server.Run(TourLocalUser::EnterpriseUserQuery(prefix) + " limit 0");
  if (words.empty()) return;
  findings.Error(kWhere, 0,
                 prefix + kEnterpriseUserTable + " cannot be read (" + words +
                     "); two error lines every 10 seconds",
                 std::string(server.HasDatabase(DBNAME)
                                 ? "create the table as in the sample setup.sql"
                                 : "create database and table as in the sample setup.sql") +
                     ", or: grant select on " + prefix + "* to " + server.user());
}

// The database in which the service looks for month tables. It is needed although nothing is in it.
void CheckMonthDatabase(Server& server, const DefinitionSet& definitions, Findings& findings) {
  const auto is_month = [](const MidDefinition& mid) { return mid.period == Period::kMonth; };
  if (std::none_of(definitions.mid.begin(), definitions.mid.end(), is_month)) return;
  const std::string name = kMonthTableDatabase;
  // The service's own question with a name that no table has.
  const std::string words = server.Run(server.dialect().TableQuery("x", name));
  if (words.empty()) return;
  findings.Error(kWhere, 0,
                 name + " cannot be looked at (" + words +
                     "): an error line with every conversion of a month table",
                 "create database " + name + "; it stays empty");
}

// The years whose tables the conversions of a kind need: this year, and those of files that wait.
std::set<std::string> YearsOf(const DatabaseFolder& folder, const std::string& kind) {
  std::set<std::string> years = {Today().substr(0, 4)};
  for (const SpoolEntry& entry : folder.files) {
    const MemFile file = MemFile::Parse(entry.name);
    if (entry.state != FileState::kWaiting || file.Kind() != kind) continue;
    const std::string year = TextAt(file.Date(), 0, 4);
    if (IsNumber(year)) years.insert(year);
  }
  return years;
}

// The tables of one definition in one database. The service makes no year tables, so one that is
// missing stops the conversion of the whole mem table.
void CheckYearTablesOf(Server& server, const DatabaseFolder& folder, const MidDefinition& mid,
                       Findings& findings) {
  for (const std::string& year : YearsOf(folder, mid.kind)) {
    const std::string table = mid.NameAt(year);
    if (server.HasTable(folder.Database(), table)) continue;
    findings.Error(kWhere, 0,
                   "year table " + folder.Database() + "." + table + " is missing: rows of kind " +
                       mid.kind + " stay in their mem tables",
                   "midtablectl year-tables --year " + year);
  }
  const int next_year = std::atoi(Today().substr(0, 4).c_str()) + 1;
  const std::string next = mid.NameAt(std::to_string(next_year));
  if (server.HasTable(folder.Database(), next)) return;
  findings.Warning(kWhere, 0, "year table " + folder.Database() + "." + next + " is not there yet",
                   "midtablectl year-tables --next, before January");
}

void CheckYearTables(Server& server, const Spool& spool, const DefinitionSet& definitions,
                     Findings& findings) {
  for (const DatabaseFolder& folder : spool.folders) {
    if (folder.error != 0) continue;
    for (const MidDefinition& mid : definitions.mid) {
      if (mid.period != Period::kYear || !mid.has_table) continue;
      CheckYearTablesOf(server, folder, mid, findings);
    }
  }
}

void CheckSqlMode(Server& server, Findings& findings) {
  const std::string mode = server.Variable("sql_mode");
  if (mode.find("STRICT_") == std::string::npos) {
    findings.Warning(kWhere, 0,
                     "sql_mode \"" + mode +
                         "\" is not strict: values that do not fit are altered "
                         "without a word",
                     "add STRICT_TRANS_TABLES to sql_mode");
  }
  // The load statement has the path of the file in double quotes, which would name a column then.
  if (mode.find("ANSI_QUOTES") != std::string::npos) {
    findings.Error(kWhere, 0, "sql_mode has ANSI_QUOTES: every load statement fails",
                   "take ANSI_QUOTES out of sql_mode");
  }
}

// The account that the server takes this user for, as it stands in "grant ... to": a user 'x' who
// comes from anywhere is x@'%'.
std::string Account(Server& server) {
  std::string user = server.Value("select current_user()");
  const std::size_t at = user.find('@');
  if (at == std::string::npos) return user;
  return user.substr(0, at) + "@'" + user.substr(at + 1) + "'";
}

// Tries definitions and loads in a database of their own.
void TryStatements(const CheckedSettings& settings, Server& server, const Spool& spool,
                   const DefinitionSet& definitions, Findings& findings) {
  const ScratchDatabase scratch(server);
  if (scratch.error().empty()) {
    RehearseDefinitions(server, definitions, settings.once, findings);
    if (settings.once) {
      ProbeLocalLoad(settings.auth, server, findings);
    } else {
      ProbeLoads(server, spool, findings);
    }
    return;
  }
  std::string advice = ServerAdvice(scratch.error());
  if (advice.empty()) advice = "see the server's error log";
  if (scratch.error().find("denied") != std::string::npos) {
    advice = std::string("grant select, insert, update, ") + (settings.once ? "delete, " : "") +
             "create, drop on `" + DatabasePattern() + "`.* to " + server.user();
  }
  findings.Error(kWhere, 0, scratch.error() + "; definitions and loads were not tried", advice);
}

}  // namespace

ScratchDatabase::ScratchDatabase(Server& server) : m_server(server) {
  const std::string name = kName;
  // A run that was ended half-way may have left the database behind. It is dropped first, also as a
  // test: who may not drop it must not make it.
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

bool CheckServer(const CheckedSettings& settings, const Spool& spool,
                 const DefinitionSet& definitions, Findings& findings) {
  const MYSQLAUTH& auth = settings.auth;
  // What keeps even the service from asking was reported with the settings.
  if (LacksPort(auth) || !settings.options_are_sound) return true;
  const std::unique_ptr<CSqlBase> sql = CreateSqlBase(auth);
  const Dialect& dialect = Dialect::Of(auth);
  // Of an Oracle server only the login is tried: none was at hand to try more on.
  if (!CheckLogin(*sql, auth, findings) || !dialect.HasMysqlSyntax()) return true;
  Server anonymous(*sql, dialect);
  Server server(*sql, dialect, Account(anonymous));
  // Held until the connection ends.
  if (server.Value("select get_lock('midtablectl', 0)") == "0") return false;
  CheckSqlMode(server, findings);
  if (settings.once) {
    CheckDelivery(server, findings);
  } else {
    CheckEnterpriseUsers(server, findings);
  }
  TryStatements(settings, server, spool, definitions, findings);
  CheckMonthDatabase(server, definitions, findings);
  CheckYearTables(server, spool, definitions, findings);
  return true;
}

}  // namespace ctl
