#include "db/OracleBase.h"

#include <sql.h>
#include <sqlext.h>
#include <strings.h>

#include <string_view>
#include <utility>

#include "db/oracle_failure.h"
#include "support/trim.h"

namespace {

// Which server this is, and by which driver it is reached, is said in the settings of ODBC alone.
constexpr char kDataSource[] = "midtable";
constexpr char kNotConnected[] = "not connected";
constexpr char kNoRows[] = "the statement gives no rows";

// A login takes milliseconds; ten seconds are for a server that has just started or is overloaded.
constexpr SQLULEN kLoginSeconds = 10;

// What is known of a failed call. Without a word from the server the connection is to blame.
struct Failure {
  std::string text;
  SQLINTEGER code = 0;  // the server's number; 0 where there is none
  SqlFailure meaning = SqlFailure::kConnection;
};

// A handle of ODBC, which is freed with the object. The kind is part of the type, since every call
// that takes a handle has to be told its kind.
template <SQLSMALLINT kType>
class Handle {
 public:
  explicit Handle(SQLHANDLE parent) {
    if (!SQL_SUCCEEDED(SQLAllocHandle(kType, parent, &m_handle))) m_handle = nullptr;
  }
  ~Handle() {
    if (m_handle != nullptr) SQLFreeHandle(kType, m_handle);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  SQLHANDLE get() const { return m_handle; }

  // All that the driver and the server have to say about the call that just failed.
  Failure failure() const {
    Failure all;
    std::string first_state;
    std::string message(1024, '\0');
    SQLCHAR state[SQL_SQLSTATE_SIZE + 1] = {};
    for (SQLSMALLINT record = 1;; ++record) {
      SQLINTEGER code = 0;
      SQLSMALLINT size = 0;
      // A message may be longer than the buffer: its length is told then, and it is read a second
      // time.
      const auto read = [&] {
        return SQLGetDiagRec(kType, m_handle, record, state, &code,
                             reinterpret_cast<SQLCHAR*>(message.data()),
                             static_cast<SQLSMALLINT>(message.size()), &size);
      };
      if (!SQL_SUCCEEDED(read())) break;
      if (static_cast<std::size_t>(size) >= message.size()) {
        message.resize(static_cast<std::size_t>(size) + 1);
        if (!SQL_SUCCEEDED(read())) break;
      }
      const std::string state_text = reinterpret_cast<const char*>(state);
      if (record == 1) {
        all.code = code;
        first_state = state_text;
      } else {
        all.text += "; ";
      }
      all.text += state_text + " " + message.c_str();
    }
    if (all.text.empty()) all.text = "ODBC failed without a text";
    all.meaning = MeaningOfOracleError(first_state, all.text);
    return all;
  }

 private:
  SQLHANDLE m_handle = SQL_NULL_HANDLE;
};

SQLPOINTER Number(SQLULEN value) { return reinterpret_cast<SQLPOINTER>(value); }

// ODBC refuses connections in an environment that has not said which version of the interface the
// program was written for.
struct Environment : Handle<SQL_HANDLE_ENV> {
  Environment() : Handle(SQL_NULL_HANDLE) {
    SQLSetEnvAttr(get(), SQL_ATTR_ODBC_VERSION, Number(SQL_OV_ODBC3), 0);
  }
};

// ODBC declares texts as not constant although it only reads them.
SQLCHAR* Text(const char* text) {
  return const_cast<SQLCHAR*>(reinterpret_cast<const SQLCHAR*>(text));
}

// Statements come from definition files, in whose letters the case is free.
bool BeginsWith(std::string_view text, std::string_view word) {
  return text.size() >= word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

bool Is(std::string_view text, std::string_view word) {
  return text.size() == word.size() && BeginsWith(text, word);
}

// One statement from its execution to its last row.
class Statement {
 public:
  enum class Fetched { kRow, kEnd, kFailed };

  explicit Statement(SQLHANDLE connection) : m_handle(connection) {}

  // Runs the text as it stands: the driver is not to look for escapes in it.
  bool run(const char* sql) {
    SQLSetStmtAttr(m_handle.get(), SQL_ATTR_NOSCAN, Number(SQL_NOSCAN_ON), 0);
    return execute(sql);
  }

  // Runs the text with `argument` in the place of its one "?".
  bool run(const char* sql, const std::string& argument) {
    const SQLULEN size = argument.empty() ? 1 : argument.size();
    SQLLEN length = static_cast<SQLLEN>(argument.size());
    return SQL_SUCCEEDED(SQLBindParameter(m_handle.get(), 1, SQL_PARAM_INPUT, SQL_C_CHAR,
                                          SQL_VARCHAR, size, 0, Text(argument.c_str()), length,
                                          &length)) &&
           execute(sql);
  }

  // The names of the columns; none for a statement that gives no rows.
  std::vector<std::string> columns() const {
    SQLSMALLINT count = 0;
    SQLNumResultCols(m_handle.get(), &count);
    std::vector<std::string> names;
    for (SQLSMALLINT i = 1; i <= count; ++i) {
      SQLCHAR name[512] = {};
      SQLDescribeCol(m_handle.get(), static_cast<SQLUSMALLINT>(i), name, sizeof name, nullptr,
                     nullptr, nullptr, nullptr, nullptr);
      names.emplace_back(reinterpret_cast<const char*>(name));
    }
    return names;
  }

  // The three outcomes are told apart: rows that ended early must not look like all rows.
  Fetched fetch() {
    const SQLRETURN result = SQLFetch(m_handle.get());
    if (result == SQL_NO_DATA) return Fetched::kEnd;
    return SQL_SUCCEEDED(result) ? Fetched::kRow : Fetched::kFailed;
  }

  // The value of a column of the current row, in pieces until it is whole. Columns are to be read
  // from left to right.
  bool value(std::size_t column, std::string& out) {
    char piece[8192];
    for (out.clear();;) {
      std::string_view filled(piece, sizeof piece - 1);
      SQLLEN rest = 0;
      const SQLRETURN result = SQLGetData(m_handle.get(), static_cast<SQLUSMALLINT>(column + 1),
                                          SQL_C_CHAR, piece, sizeof piece, &rest);
      if (result == SQL_NO_DATA) return true;
      if (!SQL_SUCCEEDED(result)) return false;
      if (rest == SQL_NULL_DATA) {
        out = "NULL";
        return true;
      }
      // The length of the rest includes this piece, and a driver need not know it.
      const bool last = rest != SQL_NO_TOTAL && rest < static_cast<SQLLEN>(sizeof piece);
      if (last) {
        out.append(piece, static_cast<std::size_t>(rest));
        return true;
      }
      // A driver that does not split characters may end a piece early.
      out.append(filled.substr(0, filled.find('\0')));
    }
  }

  Failure failure() const { return m_handle.failure(); }

 private:
  bool execute(const char* sql) {
    const SQLRETURN result = SQLExecDirect(m_handle.get(), Text(sql), SQL_NTS);
    // A statement that touched no row has succeeded too, and is answered with SQL_NO_DATA.
    return SQL_SUCCEEDED(result) || result == SQL_NO_DATA;
  }

  Handle<SQL_HANDLE_STMT> m_handle;
};

}  // namespace

// A login. Its end without leave() rolls back what was not committed.
class COracleBase::Session {
 public:
  Session() : m_connection(m_environment.get()) {}
  ~Session() {
    if (!m_open) return;
    SQLEndTran(SQL_HANDLE_DBC, m_connection.get(), SQL_ROLLBACK);
    SQLDisconnect(m_connection.get());
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Logs in; false with `failure` set. Called once.
  bool open(const std::string& user, const std::string& password, Failure& failure) {
    SQLHANDLE connection = m_connection.get();
    // ODBC would wait for a silent server without limit.
    SQLSetConnectAttr(connection, SQL_ATTR_LOGIN_TIMEOUT, Number(kLoginSeconds), SQL_IS_UINTEGER);
    m_open = SQL_SUCCEEDED(SQLConnect(connection, Text(kDataSource), SQL_NTS, Text(user.c_str()),
                                      SQL_NTS, Text(password.c_str()), SQL_NTS));
    const bool ready =
        m_open && SQL_SUCCEEDED(SQLSetConnectAttr(connection, SQL_ATTR_AUTOCOMMIT,
                                                  Number(SQL_AUTOCOMMIT_OFF), SQL_IS_UINTEGER));
    if (!ready) failure = m_connection.failure();
    return ready;
  }

  SQLHANDLE connection() const { return m_connection.get(); }
  bool inTransaction() const { return m_in_transaction; }

  // A transaction is ended by a call of ODBC: a driver may refuse to pass these words on as
  // statements, or not notice what they did.
  bool execute(const char* sql, Failure& failure) {
    const std::string_view words = Trim(sql);
    if (Is(words, "commit")) return end(SQL_COMMIT, failure);
    if (Is(words, "rollback")) return end(SQL_ROLLBACK, failure);
    Statement statement(m_connection.get());
    if (!statement.run(sql)) {
      failure = statement.failure();
      return false;
    }
    if (BeginsWith(words, "set transaction")) m_in_transaction = true;
    return true;
  }

  // Ends the transaction in the way of `how`.
  bool end(SQLSMALLINT how, Failure& failure) {
    if (!SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, m_connection.get(), how))) {
      // The transaction counts as open, so that the end of the session rolls it back.
      failure = m_connection.failure();
      return false;
    }
    m_in_transaction = false;
    return true;
  }

  // The driver only knows of a lost connection what its last call has shown, so a query is sent
  // too.
  bool isAlive(std::string& error) const {
    SQLUINTEGER dead = SQL_CD_FALSE;
    SQLGetConnectAttr(m_connection.get(), SQL_ATTR_CONNECTION_DEAD, &dead, SQL_IS_UINTEGER,
                      nullptr);
    Statement statement(m_connection.get());
    if (dead != SQL_CD_TRUE && statement.run("select 1 from dual")) return true;
    error = dead == SQL_CD_TRUE ? kNotConnected : statement.failure().text;
    return false;
  }

 private:
  Environment m_environment;
  Handle<SQL_HANDLE_DBC> m_connection;
  bool m_open = false;
  bool m_in_transaction = false;
};

COracleBase::COracleBase(const std::string& user, const std::string& password)
    : m_user(user), m_password(password), m_firstUser(user), m_firstPassword(password) {}

COracleBase::~COracleBase() { COracleBase::closeDB(); }

int COracleBase::succeed() {
  m_lastFailure = SqlFailure::kNone;
  return 0;
}

int COracleBase::fail(const std::string& text, SqlFailure meaning) {
  m_lastError = text;
  m_lastFailure = meaning;
  return -1;
}

int COracleBase::notConnected() { return fail(kNotConnected, SqlFailure::kConnection); }

int COracleBase::connectDB() {
  if (m_session != nullptr) return succeed();
  auto session = std::make_unique<Session>();
  Failure failure;
  if (!session->open(m_user, m_password, failure)) {
    return fail(failure.text, SqlFailure::kConnection);
  }
  m_session = std::move(session);
  return succeed();
}

// What stands outside of transactions is committed here, since ODBC was told not to commit each
// statement by itself. A transaction that is open is rolled back by the end of its session.
int COracleBase::closeDB() {
  succeed();
  Failure failure;
  if (m_session != nullptr && !m_session->inTransaction() && !m_session->end(SQL_COMMIT, failure)) {
    fail(failure.text, failure.meaning);
  }
  m_session.reset();
  return 0;
}

// The user of a device that was dropped cannot log in any more, so the first user is tried in its
// place.
int COracleBase::reconnectDB() {
  closeDB();
  if (connectDB() == 0 || m_user == m_firstUser) return m_session == nullptr ? -1 : 0;
  std::string last_user = std::exchange(m_user, m_firstUser);
  std::string last_password = std::exchange(m_password, m_firstPassword);
  if (connectDB() == 0) return 0;
  // The server may be away: the user that was logged in last has a chance again later.
  m_user = std::move(last_user);
  m_password = std::move(last_password);
  return -1;
}

int COracleBase::executeSQL(const char* sql, int /*logOnError*/) {
  if (m_session == nullptr) return notConnected();
  Failure failure;
  return m_session->execute(sql, failure) ? succeed() : fail(failure.text, failure.meaning);
}

int COracleBase::changeDB(const char* name) { return changeDB(name, m_password.c_str()); }

int COracleBase::changeDB(const char* name, const char* password) {
  Failure failure;
  // The commit comes first: this very session may have created the user that logs in next.
  if (m_session != nullptr && !m_session->inTransaction() && !m_session->end(SQL_COMMIT, failure)) {
    return fail(failure.text, failure.meaning);
  }
  std::string user = name;
  std::string new_password = password;
  auto session = std::make_unique<Session>();
  if (!session->open(user, new_password, failure)) {
    const bool refused = failure.meaning == SqlFailure::kPrivilege;
    return fail(failure.text, refused ? SqlFailure::kPrivilege : SqlFailure::kConnection);
  }
  m_session = std::move(session);
  m_user = std::move(user);
  m_password = std::move(new_password);
  return succeed();
}

int COracleBase::fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) {
  if (m_session == nullptr) return notConnected();
  Statement statement(m_session->connection());
  const auto failed = [&] {
    const Failure failure = statement.failure();
    return fail(failure.text, failure.meaning);
  };
  if (!statement.run(sql)) return failed();
  const std::vector<std::string> names = statement.columns();
  if (names.empty()) return fail(kNoRows, SqlFailure::kStatement);
  rows.clear();
  for (;;) {
    auto fetched = statement.fetch();
    if (fetched == Statement::Fetched::kEnd) return succeed();
    SqlRecord record;
    for (std::size_t i = 0; fetched == Statement::Fetched::kRow && i < names.size(); ++i) {
      std::string value;
      if (!statement.value(i, value)) fetched = Statement::Fetched::kFailed;
      record.emplace(names[i], std::move(value));
    }
    if (fetched == Statement::Fetched::kFailed) {
      rows.clear();
      return failed();
    }
    rows.push_back(std::move(record));
  }
}

// The name is passed as a parameter and not written into the query, so that no name can change it.
// The catalogue has unquoted names in capitals.
int COracleBase::queryCatalogue(const char* sql, const char* name,
                                std::vector<std::string>& values) {
  if (m_session == nullptr) return notConnected();
  Statement statement(m_session->connection());
  bool good = statement.run(sql, OracleToUpper(name));
  while (good) {
    const auto fetched = statement.fetch();
    if (fetched == Statement::Fetched::kEnd) return succeed();
    good = fetched == Statement::Fetched::kRow && statement.value(0, values.emplace_back());
  }
  const Failure failure = statement.failure();
  return fail(failure.text, failure.meaning);
}

bool COracleBase::existDB(const char* name) {
  std::vector<std::string> found;
  return queryCatalogue("select username from all_users where username = ?", name, found) == 0 &&
         !found.empty();
}

bool COracleBase::existTable(const char* name) {
  std::vector<std::string> found;
  return queryCatalogue("select table_name from user_tables where table_name = ?", name, found) ==
             0 &&
         !found.empty();
}

int COracleBase::GetColums(const char* table, std::vector<std::string>& columns) {
  std::vector<std::string> names;
  const char* sql =
      "select column_name from user_tab_columns where table_name = ? order by column_id";
  if (queryCatalogue(sql, table, names) != 0) return 0;
  columns.insert(columns.end(), names.begin(), names.end());
  return 1;
}

// The rows are counted by reading them: ODBC promises a number of rows for changes only. The last
// error text is left alone, as the interface says.
int COracleBase::RowsCountBySQL(const char* sql, unsigned int* count) {
  m_lastFailure = SqlFailure::kConnection;
  if (m_session == nullptr) return -1;
  Statement statement(m_session->connection());
  unsigned int rows = 0;
  auto fetched = Statement::Fetched::kFailed;
  if (statement.run(sql)) {
    m_lastFailure = SqlFailure::kStatement;
    if (statement.columns().empty()) return -1;
    while ((fetched = statement.fetch()) == Statement::Fetched::kRow) ++rows;
  }
  if (fetched == Statement::Fetched::kFailed) {
    const Failure failure = statement.failure();
    m_lastFailure = failure.meaning;
    return failure.code != 0 ? failure.code : -1;
  }
  *count = rows;
  return succeed();
}

bool COracleBase::isDBAlive() {
  std::string why = kNotConnected;
  if (m_session != nullptr && m_session->isAlive(why)) return succeed() == 0;
  fail(why, SqlFailure::kConnection);
  return false;
}
