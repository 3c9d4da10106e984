// Whether an answer that does not come may still come: a network between the service and its server
// may swallow it, and keep both connections up.
#include <algorithm>

#include "db/MysqlBase.h"

namespace {

// Which server it is, whatever the address leads to.
constexpr char kServerName[] = "concat_ws(':', @@hostname, @@port, @@server_id)";

}  // namespace

void CMysqlBase::noticeLostAnswers(std::chrono::milliseconds silence) {
  m_policy.silence = silence;
  m_policy.may_come = [this] { return answerMayCome(); };
}

// False only when the connection is gone again.
bool CMysqlBase::prepareToNotice() {
  if (m_policy.silence == std::chrono::milliseconds(0)) return true;
  m_serverName.clear();
  MYSQL* const handle = usable();
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(m_policy.silence).count();
  const std::string limit = "set session net_read_timeout = " + std::to_string(seconds);
  if (mysql_real_query(handle, limit.c_str(), limit.size()) != 0 &&
      libraryFailure() == SqlFailure::kConnection) {
    return false;
  }
  const std::string question = std::string("select ") + kServerName;
  const auto begin = std::chrono::steady_clock::now();
  if (mysql_real_query(handle, question.c_str(), question.size()) == 0) {
    const Result result(mysql_store_result(handle));
    m_roundTrip = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    const MYSQL_ROW row = result == nullptr ? nullptr : mysql_fetch_row(result.get());
    if (row != nullptr && row[0] != nullptr) m_serverName = row[0];
  }
  return libraryFailure() != SqlFailure::kConnection;
}

// A user sees its own sessions without any privilege. Where nobody can be asked, the connection
// itself tells one day that the server is gone.
bool CMysqlBase::answerMayCome() const {
  MYSQLAUTH auth(m_auth.get());
  auth.dbname.clear();
  CMysqlBase other(&auth);
  other.logNothing();
  other.endWorkOnStop();
  std::vector<SqlRecord> rows;
  const std::string question =
      std::string("select ") + kServerName +
      " as server, (select command from information_schema.processlist where id = " +
      std::to_string(mysql_thread_id(m_handle.get())) + ") as command";
  if (other.connectDB() != 0 || other.fetchRecordSet(question.c_str(), rows) != 0 || rows.empty()) {
    return true;
  }
  const std::string& command = rows.front()["command"];
  return rows.front()["server"] != m_serverName || (command != "NULL" && command != "Sleep");
}
