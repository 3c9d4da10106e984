#include "delivery/connection.h"

#include <mysqld_error.h>

#include <fstream>
#include <string_view>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/names.h"
#include "support/paths.h"

namespace {

// How long a session that was ended may take to go.
constexpr int kClaimSeconds = 2;
// A lock that somebody else holds for longer is trouble: what met it is tried again later, and
// others get their turn.
constexpr int kLockSeconds = 5;

// How MariaDB, MySQL, servers before them, and the client library say that no bytes may be sent.
bool RefusesLocalFiles(unsigned int error) {
  constexpr unsigned int kOnMysql = 3948;
  constexpr unsigned int kInLibrary = 2068;
  return error == ER_LOAD_INFILE_CAPABILITY_DISABLED || error == ER_NOT_ALLOWED_COMMAND ||
         error == kOnMysql || error == kInLibrary;
}

// A server that only reads, and a node of a cluster that has lost the others.
bool RefusesChanges(unsigned int error) {
  return error == ER_OPTION_PREVENTS_STATEMENT || error == ER_READ_ONLY_MODE ||
         error == ER_UNKNOWN_COM_ERROR;
}

// The first half of the machine's id, which no other machine has.
std::string MachineName() {
  std::ifstream in(paths::kMachineId);
  std::string id;
  in >> id;
  return IsSafeIdentifier(id) ? id.substr(0, 16) : std::string();
}

}  // namespace

Connection::Connection(MYSQLAUTH* auth, std::chrono::milliseconds silence, int worker)
    : CMysqlBase(auth), m_worker(worker) {
  allowLocalLoads();
  allowScripts();
  endWorkOnStop();
  logNothing();
  noticeLostAnswers(silence);
  setLockWaitSeconds(kLockSeconds);
}

std::string Connection::Reason() {
  if (lastFailure() == SqlFailure::kPrivilege && RefusesLocalFiles(errorNumber())) {
    return "local_infile of the server is off, no file can be loaded: set global local_infile = 1";
  }
  constexpr std::string_view kBegin = " failed, error:";
  const std::string error = getLastError();
  const std::size_t at = error.rfind(kBegin);
  return at == std::string::npos ? error : error.substr(at + kBegin.size());
}

bool Connection::Note(bool succeeded) {
  if (!succeeded && RefusesChanges(errorNumber())) m_refuses_changes = true;
  return succeeded;
}

bool Connection::Ask(const std::string& query, std::string& value) {
  std::vector<SqlRecord> rows;
  if (!Query(query, rows)) return false;
  value = rows.empty() || rows.front().empty() ? std::string() : rows.front().begin()->second;
  if (value == "NULL") value.clear();
  return true;
}

bool Connection::FindDatabase(const std::string& database, bool& found) {
  std::string there;
  if (!Ask("select 1 as n from information_schema.schemata where schema_name = '" + database + "'",
           there)) {
    return false;
  }
  found = !there.empty();
  return true;
}

bool Connection::FindTable(const std::string& database, const std::string& table, bool& found) {
  std::string there;
  if (!Ask("select 1 as n from information_schema.tables where table_schema = '" + database +
               "' and table_name = '" + table + "'",
           there)) {
    return false;
  }
  found = !there.empty();
  return true;
}

// A lock's name, as the server has it. It is the machine's own: the service of another machine is
// none that was left behind. Each worker has a lock of its own, since any of them may be in the
// middle of something in the database when the service is killed.
std::string Connection::ClaimOf(const std::string& database, int worker) const {
  const std::string number = worker == 1 ? std::string() : " " + std::to_string(worker);
  static const std::string machine = MachineName();
  return "'midtable " + machine + " " + database + number + "'";
}

std::string Connection::ClaimsQuery(const std::string& database) const {
  std::string query = "select ";
  for (int worker = 1; worker <= kMostWorkers; ++worker) {
    query += (worker > 1 ? ", " : "") + ("is_used_lock(" + ClaimOf(database, worker)) + ") as n" +
             std::to_string(worker);
  }
  return query;
}

std::map<int, std::string> Connection::LeftSessions(const SqlRecord& claims,
                                                    const OwnSessions& own) {
  std::map<int, std::string> left;
  for (int worker = 1; worker <= kMostWorkers; ++worker) {
    const auto holder = claims.find("n" + std::to_string(worker));
    if (holder == claims.end() || holder->second == "NULL" || own.Has(holder->second)) continue;
    left.emplace(worker, holder->second);
  }
  return left;
}

bool Connection::EnterAtOnce(const std::string& database, const OwnSessions& own,
                             const std::string& statement) {
  std::size_t done = 0;
  std::vector<SqlReply> replies;
  return RunAll({"use " + database, ClaimsQuery(database), Claiming(database), statement}, nullptr,
                done, replies) &&
         !replies[1].rows.empty() && LeftSessions(replies[1].rows.front(), own).empty();
}

// The server gives up a named lock with the session that holds it, however that ended. Whether the
// session has gone shows when its lock can be had; if it holds it still, or the server has no such
// locks, the ledger keeps both apart.
bool Connection::EndLeftSessions(const std::string& database, const OwnSessions& own) {
  std::vector<SqlRecord> rows;
  if (!Query(ClaimsQuery(database), rows) || rows.empty()) return false;
  for (const auto& [worker, holder] : LeftSessions(rows.front(), own)) {
    if (!Run("kill " + holder)) continue;
    g_loger(kUnit, __LINE__, kInfo, "session %s of an earlier run on db %s ended", holder.c_str(),
            database.c_str());
    const std::string claim = ClaimOf(database, worker);
    std::string got;
    if (!Ask("select get_lock(" + claim + ", " + std::to_string(kClaimSeconds) + ") as n", got) ||
        !Run("do release_lock(" + claim + ")")) {
      return false;
    }
  }
  return true;
}

bool Connection::Claim(const std::string& database) { return Run(Claiming(database)); }

std::string Connection::Claiming(const std::string& database) const {
  return "do get_lock(" + ClaimOf(database, m_worker) + ", 0)";
}

bool Connection::SaysItExists() const {
  switch (errorNumber()) {
    case ER_DB_CREATE_EXISTS:
    case ER_TABLE_EXISTS_ERROR:
    case ER_DUP_FIELDNAME:
    case ER_DUP_KEYNAME:
    case ER_MULTIPLE_PRI_KEY:
    case ER_TRG_ALREADY_EXISTS:
      return true;
    default:
      return false;
  }
}
