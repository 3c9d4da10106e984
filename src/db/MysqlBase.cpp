#include "db/MysqlBase.h"

#include <errmsg.h>
#include <mysqld_error.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "db/login_remedy.h"
#include "db/mysql_failure.h"
#include "log/zux_center_log.h"

namespace {

constexpr char kUnit[] = "MysqlBase";
constexpr int kStatementFailedLine = 114;  // fixed: part of the message that operators know
constexpr std::size_t kMaxUseStatement = 1023;
constexpr char kInitFailed[] = "mysql_init() error";

// The library's own time-outs end nothing, since ServerWait does the waiting. They bound for how
// long an encrypted connection is read without asking it, and how often a host's name that could
// not be looked up is looked up again.
constexpr unsigned int kLibraryTimeoutSeconds = 1;

// While a statement runs for hours the connection is silent. The system asks the peer's system
// every quarter of a minute, from the first minute of silence on, and breaks the connection after
// three minutes without an answer; so it does when what was sent is not acknowledged for so long.
constexpr int kSilentSeconds = 60;
constexpr int kProbeSeconds = 15;
constexpr int kProbes = 8;

// Sets the library up once for the process, and tears it down in each thread that used it.
void UseClientLibrary() {
  struct ThreadEnd {
    ~ThreadEnd() { mysql_thread_end(); }
  };
  [[maybe_unused]] static const int result = mysql_library_init(0, nullptr, nullptr);
  [[maybe_unused]] static thread_local ThreadEnd thread_end;
}

// An encrypted connection is read and written without asking ServerWait first, for as long as the
// socket itself lets it: short enough for nobody to notice that a stop had to wait.
void KeepCallsShort(int socket) {
  const timeval limit{0, 100'000};
  for (const int name : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    [[maybe_unused]] const int ignored = setsockopt(socket, SOL_SOCKET, name, &limit, sizeof limit);
  }
}

// Connections over a socket file have no such options, and need none.
void NoticeDeadPeers(int socket, std::chrono::seconds unsent_limit) {
  const auto set = [socket](int level, int name, int value) {
    [[maybe_unused]] const int ignored = setsockopt(socket, level, name, &value, sizeof value);
  };
  set(SOL_SOCKET, SO_KEEPALIVE, 1);
  set(IPPROTO_TCP, TCP_KEEPIDLE, kSilentSeconds);
  set(IPPROTO_TCP, TCP_KEEPINTVL, kProbeSeconds);
  set(IPPROTO_TCP, TCP_KEEPCNT, kProbes);
  set(IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(unsent_limit.count()) * 1000);
}

}  // namespace

CMysqlBase::CMysqlBase(MYSQLAUTH* auth)
    : m_auth(std::make_unique<MYSQLAUTH>(auth)), m_ownDatabase(auth->dbname) {}

CMysqlBase::~CMysqlBase() { CMysqlBase::closeDB(); }

int CMysqlBase::setAuth(MYSQLAUTH* auth) {
  m_auth->dbname = m_ownDatabase = auth->dbname;
  m_auth->host = auth->host;
  m_auth->extra_flag = auth->extra_flag;
  m_auth->port = auth->port;
  m_auth->password = auth->password;
  m_auth->extra = auth->extra;
  m_auth->user = auth->user;
  m_auth->client_options = auth->client_options;
  return 1;
}

int CMysqlBase::init() {
  if (m_handle != nullptr) return 0;
  UseClientLibrary();
  m_handle = std::make_unique<MYSQL>();
  m_initialised = mysql_init(m_handle.get()) != nullptr;
  return m_initialised ? 0 : fail(kInitFailed, SqlFailure::kConnection);
}

int CMysqlBase::connectDB() {
  if (init() == -1) return -1;
  if (m_connected) return succeed();
  if (usable() == nullptr) return fail(kInitFailed, SqlFailure::kConnection);
  m_connected = logIn();
  if (!m_connected && lastDatabaseIsClosed()) {
    m_auth->dbname = m_ownDatabase;
    m_connected = logIn();
  }
  if (m_connected) return succeed();
  return fail("connect failed, error:" + loginError(), SqlFailure::kConnection);
}

bool CMysqlBase::logIn() {
  m_options = ClientOptions();
  if (!m_options.Read(m_auth->client_options)) {
    m_gaveUp = m_options.error();
    return false;
  }
  MYSQLAUTH auth(m_auth.get());
  m_options.Complete(auth);
  // Nobody can ask yet which session it is whose answer may be lost.
  WaitPolicy policy;
  policy.ends_on_stop = m_policy.ends_on_stop;
  const ServerWait wait(m_gaveUp, m_options.connect_limit, policy);
  prepareHandle();
  MYSQL* const handle = usable();
  if (mysql_real_connect(handle, auth.host.c_str(), auth.user.c_str(), auth.password.c_str(),
                         auth.dbname.c_str(), static_cast<unsigned int>(auth.port),
                         m_options.socket(),
                         m_allowsScripts ? CLIENT_MULTI_STATEMENTS : 0) == nullptr) {
    return false;
  }
  m_takesScripts = m_allowsScripts;
  KeepCallsShort(mysql_get_socket(handle));
  NoticeDeadPeers(mysql_get_socket(handle), m_options.unsent_limit);
  return prepareSession() && prepareToNotice();
}

// The library forgets its options with every attempt that fails.
void CMysqlBase::prepareHandle() {
  MYSQL* const handle = usable();
  m_options.ApplyTo(handle);
  for (const auto option :
       {MYSQL_OPT_CONNECT_TIMEOUT, MYSQL_OPT_READ_TIMEOUT, MYSQL_OPT_WRITE_TIMEOUT}) {
    mysql_optionsv(handle, option, &kLibraryTimeoutSeconds);
  }
  mysql_optionsv(handle, MARIADB_OPT_IO_WAIT, &ServerWait::Wait);
  if (m_allowsLocalLoads) prepareLocalLoads();
}

std::string CMysqlBase::loginError() const {
  std::string words = libraryError();
  if (!m_gaveUp.empty()) return words;
  const MYSQL& handle = *usable();
  const bool spared_tls =
      (handle.server_capabilities & CLIENT_SSL) != 0 && (handle.client_flag & CLIENT_SSL) == 0;
  const std::string_view remedy = LoginRemedy(words, spared_tls);
  if (!remedy.empty()) words.append(kRemedyFollows).append(remedy);
  return words;
}

// It was dropped, or the user's rights on it were.
bool CMysqlBase::lastDatabaseIsClosed() const {
  const unsigned int error = mysql_errno(usable());
  return m_auth->dbname != m_ownDatabase &&
         (error == ER_BAD_DB_ERROR || error == ER_DBACCESS_DENIED_ERROR);
}

// False only when the connection is gone again. Rows that were loaded under autocommit=0, by the
// server's default or its init_connect, would be gone with the connection; MySQL does not tell a
// client of that default. A server that was built without InnoDB, say, does not know all of the
// variables, and sets none when asked for all.
bool CMysqlBase::prepareSession() {
  const std::string seconds = " = " + std::to_string(m_lockWaitSeconds);
  const std::string tables = "autocommit = 1, lock_wait_timeout" + seconds;
  const std::string rows = "innodb_lock_wait_timeout" + seconds;
  for (const std::string& limits : {Format("%s, %s", rows.c_str(), tables.c_str()), tables}) {
    const std::string statement = "set session " + limits;
    if (mysql_real_query(usable(), statement.c_str(), statement.size()) == 0) return true;
    if (libraryFailure() == SqlFailure::kConnection) return false;
  }
  return true;
}

int CMysqlBase::closeDB() {
  clearRecordSet();
  // Also when not connected: the library keeps memory with every handle that it initialised.
  if (MYSQL* handle = usable()) mysql_close(handle);
  m_handle.reset();
  m_initialised = false;
  m_connected = false;
  return succeed();
}

int CMysqlBase::reconnectDB() {
  closeDB();
  return connectDB();
}

std::chrono::seconds CMysqlBase::answerLimit() const {
  return m_options.answer_limit + std::chrono::seconds(m_lockWaitSeconds);
}

int CMysqlBase::succeed() {
  m_lastFailure = SqlFailure::kNone;
  return 0;
}

int CMysqlBase::fail(const std::string& text, SqlFailure meaning) {
  m_lastError = text;
  m_lastFailure = meaning;
  return -1;
}

// The whole text, however long the statement: callers look for server messages at its end.
int CMysqlBase::failStatement(const char* sql) {
  return fail(std::string("execute ") + sql + " failed, error:" + libraryError(), libraryFailure());
}

std::string CMysqlBase::libraryError() const {
  if (!m_gaveUp.empty()) return m_gaveUp;
  return usable() == nullptr ? "not connected" : mysql_error(usable());
}

SqlFailure CMysqlBase::libraryFailure() const {
  if (!m_gaveUp.empty() || usable() == nullptr) return SqlFailure::kConnection;
  return MeaningOfMysqlError(mysql_errno(usable()), mysql_sqlstate(usable()),
                             mysql_error(usable()));
}

int CMysqlBase::executeSQL(const char* sql, int logOnError) {
  const ServerWait wait(m_gaveUp, m_policy);
  return run(sql, logOnError);
}

int CMysqlBase::run(const char* sql, int logOnError) {
  if (usable() != nullptr && (IsOneStatement(sql) || letTakeScripts(false)) &&
      mysql_real_query(usable(), sql, std::strlen(sql)) == 0) {
    return succeed();
  }
  failStatement(sql);
  if (logOnError != 0 && m_logs)
    g_loger(kUnit, kStatementFailedLine, kError, "%s", m_lastError.c_str());
  return -1;
}

// DELIBERATE: looks at one row only, although `name` was taken as a pattern.
bool CMysqlBase::firstRowIs(Result list, const char* name) {
  if (list == nullptr) {
    fail(std::string("look-up of ") + name + " failed, error:" + libraryError(), libraryFailure());
    return false;
  }
  succeed();
  const MYSQL_ROW row = mysql_fetch_row(list.get());
  return row != nullptr && row[0] != nullptr && strcasecmp(row[0], name) == 0;
}

bool CMysqlBase::existDB(const char* name) {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
  return firstRowIs(Result(usable() == nullptr ? nullptr : mysql_list_dbs(usable(), name)), name);
}

bool CMysqlBase::existTable(const char* name) {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
  return firstRowIs(Result(usable() == nullptr ? nullptr : mysql_list_tables(usable(), name)),
                    name);
}

int CMysqlBase::changeDB(const char* name) {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
  const std::string statement = (std::string("use ") + name).substr(0, kMaxUseStatement);
  const int result = run(statement.c_str(), 1);
  if (result == 0) m_auth->dbname = name;
  return result;
}

int CMysqlBase::changeDB(const char* name, const char* /*password*/) { return changeDB(name); }

int CMysqlBase::RowsCountBySQL(const char* sql, unsigned int* count) {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
  MYSQL* const handle = usable();
  Result result;
  if (handle != nullptr && mysql_real_query(handle, sql, std::strlen(sql)) == 0) {
    result.reset(mysql_store_result(handle));
  }
  if (result == nullptr) {
    const unsigned int error = handle == nullptr ? CR_SERVER_GONE_ERROR : mysql_errno(handle);
    m_lastFailure = error == 0 ? SqlFailure::kStatement : libraryFailure();
    return static_cast<int>(error == 0 ? CR_UNKNOWN_ERROR : error);
  }
  *count = static_cast<unsigned int>(mysql_num_rows(result.get()));
  return succeed();
}

bool CMysqlBase::isDBAlive() {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
  if (usable() != nullptr && mysql_ping(usable()) == 0) return succeed() == 0;
  fail("ping failed, error:" + libraryError(), SqlFailure::kConnection);
  return false;
}

int CMysqlBase::GetColums(const char* /*table*/, std::vector<std::string>& /*columns*/) {
  succeed();
  return 1;
}

int CMysqlBase::fetchResult(const char* sql, MYSQL_RES*& result) {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
  const int executed = run(sql, 1);
  if (executed != 0) return executed;
  result = mysql_use_result(usable());
  if (result != nullptr) return 0;
  if (mysql_errno(usable()) != 0) return failStatement(sql);
  return fail(std::string("execute ") + sql + " failed, error:the statement gives no rows",
              SqlFailure::kStatement);
}

int CMysqlBase::freeResult(MYSQL_RES* result) {
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);  // it reads the rows that are left
  mysql_free_result(result);
  return 0;
}

int CMysqlBase::fetchRow(MYSQL_RES* result, MYSQL_ROW& row) {
  if (!m_connected) return -1;
  const ServerWait wait(m_gaveUp, answerLimit(), m_policy);
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
  if (m_result != nullptr) freeResult(m_result.release());
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
    if (m_logs) g_loger(kUnit, kStatementFailedLine, kError, "%s", m_lastError.c_str());
  }
  clearRecordSet();
  return broken ? -1 : 0;
}
