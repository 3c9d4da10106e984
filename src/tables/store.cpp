#include "tables/store.h"

#include <algorithm>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/names.h"
#include "support/trim.h"

namespace {

// This saves most journeys to the server and keeps the statement at a moderate length.
constexpr std::size_t kTablesPerQuery = 100;

// The rows are shown on the console only, where a developer follows what the service does.
void LogRows(const std::vector<SqlRecord>& rows) {
  for (const SqlRecord& row : rows) {
    g_loger(kUnit, __LINE__, kConsoleRow, "******************************");
    for (const auto& [column, value] : row) {
      g_loger(kUnit, __LINE__, kConsoleRow, "%s:\t%s", column.c_str(), value.c_str());
    }
  }
}

}  // namespace

Store::Store(std::unique_ptr<CSqlBase> sql, const MYSQLAUTH& auth)
    : m_sql(std::move(sql)),
      m_dialect(Dialect::Of(auth)),
      m_new_user_password(auth.new_user_password) {}

Outcome Store::RunTemplate(const std::string& node, const std::string& text,
                           std::span<const TemplateValue> values) {
  return RunFilled(node, text, FillTemplate(text, values), 1);
}

// A template that cannot be used never reaches the server: a cut or half-filled statement might be
// valid and do something else.
Outcome Store::RunFilled(const std::string& node, const std::string& text,
                         const FilledTemplate& filled, int log_on_error) {
  const bool empty = Trim(text).empty();
  if (!filled || empty) {
    const std::string reason = empty ? "template is empty" : filled.error;
    // The template may be megabytes long, and every mem file has it logged.
    return {false, text.substr(0, kLongestStatement),
            reason + ", see " + node + " of " + m_dialect.DefinitionsFile(),
            SqlFailure::kStatement};
  }
  if (m_sql->executeSQL(filled.text.c_str(), log_on_error) == 0)
    return {true, filled.text, {}, SqlFailure::kNone};
  return {false, filled.text, LastError(), LastFailure()};
}

// What a question came to that the back end answers with true or false.
Presence Store::Answer(bool found) const {
  if (found) return Presence::kPresent;
  return LastFailure() == SqlFailure::kNone ? Presence::kAbsent : Presence::kUnknown;
}

Presence Store::FindDatabase(const std::string& database) {
  return Answer(m_sql->existDB(database.c_str()));
}

// A database is made only after the server has said that it is not there. A lost connection says
// the same to those who do not ask why.
bool Store::PrepareDatabase(const std::string& database) {
  switch (FindDatabase(database)) {
    case Presence::kPresent:
      return true;
    case Presence::kUnknown:
      g_loger(kUnit, __LINE__, kError, "db %s not looked up error %s", database.c_str(),
              LastError().c_str());
      return false;
    case Presence::kAbsent:
      break;
  }
  g_loger(kUnit, __LINE__, kConsole, "last err is %s", LastError().c_str());
  if (m_dialect.DatabasesAreUsers()) return CreateUser(database);
  if (Execute("create database " + database)) return true;
  g_loger(kUnit, __LINE__, kError, "create db %s error %s", database.c_str(), LastError().c_str());
  return false;
}

// On these servers a database is the schema of a user of its name. The user gets every right, since
// the definitions, which the service does not know, may create whatever they like there.
bool Store::CreateUser(const std::string& user) {
  const auto failed = [&](const char* action) {
    g_loger(kUnit, __LINE__, kError, "%s db %s error %s", action, user.c_str(),
            LastError().c_str());
    return false;
  };
  if (!IsSafePassword(m_new_user_password)) {
    g_loger(kUnit, __LINE__, kError, "user %s not made, set_password is not safe in a statement",
            user.c_str());
    return false;
  }
  const std::string identified = user + " identified by " + m_new_user_password;
  if (!Execute("create user " + identified)) {
    failed("create");
    // The user may exist with another password.
    if (!Execute("alter user " + identified)) return failed("alter");
  }
  return Execute("grant dba to " + user) || failed("grant");
}

// Where a database is a user, the switch is a login with the password that the service gave to all
// of them. Other servers do not look at the password.
bool Store::Use(const std::string& database) {
  return m_sql->changeDB(database.c_str(), m_new_user_password.c_str()) == 0;
}

Presence Store::FindTable(const std::string& table, const std::string& database) {
  if (table.empty()) {
    g_loger(kUnit, __LINE__, kConsole, "table name is null, not exist");
    return Presence::kAbsent;
  }
  const std::string sql = m_dialect.TableQuery(table, database);
  g_loger(kUnit, __LINE__, kConsole, "strSql is %s", sql.c_str());
  std::vector<SqlRecord> rows;
  const int result = m_sql->fetchRecordSet(sql.c_str(), rows);
  if (result != 0) {
    g_loger(kUnit, __LINE__, kError, "sql (%s) failed ret (%d) (%s) ", sql.c_str(), result,
            LastError().c_str());
    // A right question is refused as a wrong statement where there is no such database.
    const bool refused = LastFailure() == SqlFailure::kStatement;
    if (refused && FindDatabase(database) == Presence::kAbsent) return Presence::kAbsent;
    return Presence::kUnknown;
  }
  LogRows(rows);
  return rows.empty() ? Presence::kAbsent : Presence::kPresent;
}

Presence Store::FindTableHere(const std::string& table) {
  return Answer(m_sql->existTable(table.c_str()));
}

// A database that cannot be searched is passed over and not tried again, since this is done once
// after a start. Only a lost connection makes the caller come back.
bool Store::FilledMemTables(const std::string& database, std::vector<std::string>& tables) {
  const Presence there = FindDatabase(database);
  if (there == Presence::kAbsent) return true;
  std::vector<SqlRecord> listed;
  if (there == Presence::kUnknown ||
      m_sql->fetchRecordSet(m_dialect.MemTablesQuery(database).c_str(), listed) != 0) {
    g_loger(kUnit, __LINE__, kError, "db %s not searched for rows error %s", database.c_str(),
            LastError().c_str());
    return LastFailure() != SqlFailure::kConnection;
  }
  std::vector<std::string> names;
  for (const SqlRecord& row : listed) {
    const std::string name = row.empty() ? std::string() : row.begin()->second;
    // Names come from the server here, and go into the next statement: whoever may create tables
    // must not be able to add words to it.
    if (name.starts_with("MEM_") && IsSafeIdentifier(name)) names.push_back(name);
  }
  const std::span<const std::string> all(names);
  for (std::size_t begin = 0; begin < all.size(); begin += kTablesPerQuery) {
    const std::size_t count = std::min(kTablesPerQuery, all.size() - begin);
    if (!AppendFilled(database, all.subspan(begin, count), tables)) return false;
  }
  return true;
}

// A question for each table would take its own journey to the server, and years leave thousands of
// tables. Where one of many cannot be read, the halves are asked, so that the others still count.
bool Store::AppendFilled(const std::string& database, std::span<const std::string> candidates,
                         std::vector<std::string>& tables) {
  std::vector<SqlRecord> filled;
  const std::string query = m_dialect.FilledTablesQuery(database, candidates);
  if (m_sql->fetchRecordSet(query.c_str(), filled) == 0) {
    for (const SqlRecord& row : filled) {
      if (!row.empty()) tables.push_back(row.begin()->second);
    }
    return true;
  }
  if (LastFailure() == SqlFailure::kConnection) return false;
  if (candidates.size() == 1) {
    g_loger(kUnit, __LINE__, kError, "table %s.%s not searched for rows error %s", database.c_str(),
            candidates.front().c_str(), LastError().c_str());
    return true;
  }
  const std::size_t half = candidates.size() / 2;
  return AppendFilled(database, candidates.first(half), tables) &&
         AppendFilled(database, candidates.subspan(half), tables);
}
