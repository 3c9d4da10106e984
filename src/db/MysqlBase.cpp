#include "db/MysqlBase.h"

#include <errmsg.h>
#include <strings.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "log/zux_center_log.h"

namespace {

constexpr char kUnit[] = "MysqlBase";
constexpr int kStatementFailedLine = 114;  // fixed: part of the message that operators know
constexpr std::size_t kMaxUseStatement = 1023;

// Sets the library up once for the process, and tears it down in each thread that used it.
void UseClientLibrary() {
  struct ThreadEnd {
    ~ThreadEnd() { mysql_thread_end(); }
  };
  [[maybe_unused]] static const int result = mysql_library_init(0, nullptr, nullptr);
  [[maybe_unused]] static thread_local ThreadEnd thread_end;
}

}  // namespace

CMysqlBase::CMysqlBase(MYSQLAUTH* auth) : m_auth(std::make_unique<MYSQLAUTH>(auth)) {}

CMysqlBase::~CMysqlBase() { CMysqlBase::closeDB(); }

int CMysqlBase::setAuth(MYSQLAUTH* auth) {
  m_auth->dbname = auth->dbname;
  m_auth->host = auth->host;
  m_auth->extra_flag = auth->extra_flag;
  m_auth->port = auth->port;
  m_auth->password = auth->password;
  m_auth->extra = auth->extra;
  m_auth->user = auth->user;
  return 1;
}

int CMysqlBase::init() {
  if (m_handle != nullptr) return 0;
  UseClientLibrary();
  m_handle = std::make_unique<MYSQL>();
  m_initialised = mysql_init(m_handle.get()) != nullptr;
  if (m_initialised) return 0;
  m_lastError = "mysql_init() error";
  return -1;
}

int CMysqlBase::connectDB() {
  if (init() == -1) return -1;
  if (m_connected) return 0;
  if (usable() == nullptr) {
    m_lastError = "mysql_init() error";
    return -1;
  }
  if (mysql_real_connect(usable(), m_auth->host.c_str(), m_auth->user.c_str(),
                         m_auth->password.c_str(), m_auth->dbname.c_str(),
                         static_cast<unsigned int>(m_auth->port), nullptr, 0) == nullptr) {
    m_lastError = "connect failed, error:" + libraryError();
    return -1;
  }
  m_connected = true;
  return 0;
}

int CMysqlBase::closeDB() {
  clearRecordSet();
  // Also when not connected: the library keeps memory with every handle that it initialised.
  if (MYSQL* handle = usable()) mysql_close(handle);
  m_handle.reset();
  m_initialised = false;
  m_connected = false;
  return 0;
}

int CMysqlBase::reconnectDB() {
  closeDB();
  return connectDB();
}

std::string CMysqlBase::libraryError() const {
  return usable() == nullptr ? "not connected" : mysql_error(usable());
}

// The whole text, however long the statement: callers look for server messages at its end.
int CMysqlBase::failStatement(const char* sql) {
  m_lastError = std::string("execute ") + sql + " failed, error:" + libraryError();
  return -1;
}

// Rows that were loaded under autocommit=0, by the server's default or its init_connect, would be
// gone with the connection. The server's last answer tells, so that asking costs nothing.
bool CMysqlBase::commitsByItself() {
  return (usable()->server_status & SERVER_STATUS_AUTOCOMMIT) != 0 ||
         mysql_autocommit(usable(), 1) == 0;
}

int CMysqlBase::executeSQL(const char* sql, int logOnError) {
  if (usable() != nullptr && commitsByItself() &&
      mysql_real_query(usable(), sql, std::strlen(sql)) == 0) {
    return 0;
  }
  failStatement(sql);
  if (logOnError != 0) g_loger(kUnit, kStatementFailedLine, kError, "%s", m_lastError.c_str());
  return -1;
}

// DELIBERATE: looks at one row only, although `name` was taken as a pattern.
bool CMysqlBase::firstRowIs(Result list, const char* name) {
  MYSQL_ROW row = nullptr;
  if (list == nullptr || fetchRow(list.get(), row) != 0 || row == nullptr) return false;
  return row[0] != nullptr && strcasecmp(row[0], name) == 0;
}

bool CMysqlBase::existDB(const char* name) {
  return usable() != nullptr && firstRowIs(Result(mysql_list_dbs(usable(), name)), name);
}

bool CMysqlBase::existTable(const char* name) {
  return usable() != nullptr && firstRowIs(Result(mysql_list_tables(usable(), name)), name);
}

int CMysqlBase::changeDB(const char* name) {
  const std::string statement = (std::string("use ") + name).substr(0, kMaxUseStatement);
  const int result = executeSQL(statement.c_str(), 1);
  if (result == 0) m_auth->dbname = name;
  return result;
}

int CMysqlBase::changeDB(const char* name, const char* /*password*/) { return changeDB(name); }

int CMysqlBase::RowsCountBySQL(const char* sql, unsigned int* count) {
  MYSQL* handle = usable();
  if (handle == nullptr) return CR_SERVER_GONE_ERROR;
  if (mysql_real_query(handle, sql, std::strlen(sql)) != 0) {
    return static_cast<int>(mysql_errno(handle));
  }
  const Result result(mysql_store_result(handle));
  if (result == nullptr) {
    const auto error = static_cast<int>(mysql_errno(handle));
    return error != 0 ? error : CR_UNKNOWN_ERROR;
  }
  *count = static_cast<unsigned int>(mysql_num_rows(result.get()));
  return 0;
}

bool CMysqlBase::isDBAlive() {
  if (usable() != nullptr && mysql_ping(usable()) == 0) return true;
  m_lastError = "ping failed, error:" + libraryError();
  return false;
}

int CMysqlBase::GetColums(const char* /*table*/, std::vector<std::string>& /*columns*/) {
  return 1;
}

int CMysqlBase::fetchResult(const char* sql, MYSQL_RES*& result) {
  const int executed = executeSQL(sql, 1);
  if (executed != 0) return executed;
  result = mysql_use_result(usable());
  if (result != nullptr) return 0;
  if (mysql_errno(usable()) != 0) return failStatement(sql);
  m_lastError = std::string("execute ") + sql + " failed, error:the statement gives no rows";
  return -1;
}

int CMysqlBase::freeResult(MYSQL_RES* result) {
  mysql_free_result(result);
  return 0;
}

int CMysqlBase::fetchRow(MYSQL_RES* result, MYSQL_ROW& row) {
  if (!m_connected) return -1;
  row = mysql_fetch_row(result);
  return 0;
}

int CMysqlBase::fetchRecordSet(const char* sql) {
  clearRecordSet();
  MYSQL_RES* result = nullptr;
  const int executed = fetchResult(sql, result);
  if (executed != 0) return executed;
  m_result.reset(result);
  m_fields = mysql_fetch_fields(result);
  m_columnNames.clear();
  while (const MYSQL_FIELD* field = mysql_fetch_field(result)) {
    m_columnNames.emplace_back(field->name);
  }
  return 0;
}

int CMysqlBase::fetchRecord(SqlRecord& record) {
  if (m_result == nullptr) return 0;
  if (fetchRow(m_result.get(), m_row) == -1 || m_row == nullptr) return -1;
  const unsigned long* lengths = mysql_fetch_lengths(m_result.get());
  record.clear();
  for (std::size_t i = 0; i < m_columnNames.size(); ++i) {
    const std::string& name = m_columnNames[i];
    const std::string value = m_row[i] == nullptr ? "NULL" : std::string(m_row[i], lengths[i]);
    if (g_loger.HasConsole()) {
      const auto address = reinterpret_cast<std::uintptr_t>(name.c_str());
      std::printf("field.name 0x%08x(%s) value (%s)\n", static_cast<unsigned int>(address),
                  name.c_str(), value.c_str());
    }
    record.emplace(name, value);
  }
  return 0;
}

void CMysqlBase::clearRecordSet() {
  m_result.reset();
  m_row = nullptr;
  m_fields = nullptr;
}

int CMysqlBase::fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) {
  const int opened = fetchRecordSet(sql);
  if (opened != 0) return opened;
  if (g_loger.HasConsole()) std::printf("sql is %s\n", sql);
  rows.clear();
  SqlRecord record;
  while (fetchRecord(record) != -1) rows.push_back(record);
  // The end of the rows and a server that breaks off look alike but for the error number.
  const bool broken = mysql_errno(usable()) != 0;
  if (broken) {
    rows.clear();
    failStatement(sql);
    g_loger(kUnit, kStatementFailedLine, kError, "%s", m_lastError.c_str());
  }
  clearRecordSet();
  return broken ? -1 : 0;
}
