// CSqlBase on the MySQL client library.
//
// States: created (no handle) -> initialised -> connected -> closed, which is created again. A read
// streams its rows from the server; it is open until the next read, clearRecordSet or closeDB.
// Names given to existDB and existTable are patterns of the server, and only the first match
// counts.
//
// Waiting: connecting is given up after 10 seconds. What executeSQL runs is awaited as long as the
// connection stands; a peer that is gone is noticed within 3 minutes. All other operations are
// questions: an answer is awaited for 60 seconds and for as long as a lock may keep it. The
// machine's option files may say otherwise (db/client_options.h), and are read at each connect.
// Once the service is to stop (g_nMainRun is 0), connecting and questions are given up within a
// second. What was given up fails as kConnection, with a text that says so, and the back end is to
// be reconnected. The look-up of a host's name alone is the system's and obeys none of this.
#pragma once

#include <mysql.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "config/dbinfo.h"
#include "db/LocalLoad.h"
#include "db/SqlBase.h"
#include "db/client_options.h"
#include "db/server_wait.h"

// What a statement of a script came to.
struct SqlReply {
  std::uint64_t affected = 0;
  std::vector<SqlRecord> rows;
};

// Whether nothing but white space follows a semicolon in the text.
bool IsOneStatement(std::string_view sql);

class CMysqlBase : public CSqlBase {
 public:
  // A lock that is held for longer is not waited for: what met one is tried again later, and until
  // then other databases get their turn. The servers' own limits are a day for a table's lock and
  // 50 seconds for a row's.
  static constexpr int kLockWaitSeconds = 60;

  // Copies the record; makes no connection.
  explicit CMysqlBase(MYSQLAUTH* auth);
  ~CMysqlBase() override;
  CMysqlBase(const CMysqlBase&) = delete;
  CMysqlBase& operator=(const CMysqlBase&) = delete;

  // Failure: "mysql_init() error" or "connect failed, error:" and the library's text, with what to
  // do about it where that is known, or what is wrong with the client options, with which nobody is
  // asked then; the meaning is always kConnection. Where the database that was used last is gone,
  // or closed to the user, it connects to the one of the record.
  int connectDB() override;
  int closeDB() override;
  std::string getLastError() override { return m_lastError; }
  // Committed at once outside of a transaction, whatever the server's default or init_connect.
  // Failure: "execute <statement> failed, error:" and the library's text, unchanged.
  int executeSQL(const char* sql, int logOnError) override;
  // False as well when a database that matches the pattern `name` is listed before it. Failure:
  // "look-up of <name> failed, error:" and the library's text, here and in existTable.
  bool existDB(const char* name) override;
  // A failure is logged. `password` is not needed here.
  int changeDB(const char* name) override;
  int changeDB(const char* name, const char* password) override;
  // A failure is logged. One after the first row, when the server breaks off, leaves no rows.
  int fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) override;
  int reconnectDB() override;
  bool existTable(const char* name) override;
  // Logs nothing and leaves the last error; a statement without rows counts as failed.
  int RowsCountBySQL(const char* sql, unsigned int* count) override;
  bool isDBAlive() override;
  // Not offered here: 1, and nothing is appended.
  int GetColums(const char* table, std::vector<std::string>& columns) override;
  SqlFailure lastFailure() const override { return m_lastFailure; }
  // kLockWaitSeconds at first. For locks on rows and on whole tables alike, a dump's among them; a
  // server that knows only one of its two settings gets that one.
  void setLockWaitSeconds(int seconds) override { m_lockWaitSeconds = seconds; }

  // Prepares the handle: 0, or -1. It is tried once: after a failure the next call gives 0, and
  // connecting still fails.
  virtual int init();

  // Takes over all but dbtype and new_user_password, for the next connect, whose database is the
  // record's own again. Always 1.
  int setAuth(MYSQLAUTH* auth);

  // --- for callers that need more than the interface

  // From the next connection on: loadLocal may be used. Nothing but the bytes that it is given ever
  // goes to the server, whatever file the server asks for, and nothing outside of loadLocal.
  void allowLocalLoads() { m_allowsLocalLoads = true; }
  // From now on a stop ends every statement, the work of executeSQL and loadLocal, too, and one
  // that is begun after the stop fails at once.
  void endWorkOnStop() { m_policy.ends_on_stop = true; }
  // From the next connection on: when the server was silent for so long, a second connection looks
  // at the process list. An answer that is not being worked on any more is not waited for; a
  // statement at work may take as long as it takes. The server in turn does not wait for the bytes
  // of a load longer than that, in whole seconds.
  void noticeLostAnswers(std::chrono::milliseconds silence);
  // From now on failures are for the caller to log.
  void logNothing() { m_logs = false; }
  // Runs a "load data local infile" statement on `bytes`: 0, or -1 with the last error set. It may
  // take hours, as executeSQL may.
  int loadLocal(const char* sql, LoadBytes& bytes, LoadCounts& counts);
  // From the next connection on: runScript may be used.
  void allowScripts() { m_allowsScripts = true; }
  // Runs `statements` one after the other, in one journey to the server and back; a second one goes
  // for `bytes`, of which a load among them is made. A statement that fails ends the script. Gives
  // how many succeeded, and sets the last error unless all did. None is sent unless each is one
  // statement.
  std::size_t runScript(const std::vector<std::string>& statements, LoadBytes* bytes,
                        std::vector<SqlReply>& replies);
  // How long a short question took when the connection was made; 0 unless lost answers are noticed.
  std::chrono::milliseconds roundTrip() const { return m_roundTrip; }
  // Rows that the last successful statement changed.
  std::uint64_t affectedRows() const override;
  // The server's number of the session; 0 where there is none.
  std::string sessionId() const;
  // The server's number of the last failure; 0 for none.
  unsigned int errorNumber() const;

  // Reading row by row. All but fetchRecord give 0, or -1 with the last error set.
  int fetchRecordSet(const char* sql);
  // 0 and the next row; 0 and `record` as it was when no read is open; -1 after the last row.
  int fetchRecord(SqlRecord& record);
  void clearRecordSet();
  int fetchResult(const char* sql, MYSQL_RES*& result);
  int freeResult(MYSQL_RES* result);
  // -1 when not connected; otherwise 0 and the next row, null after the last.
  int fetchRow(MYSQL_RES* result, MYSQL_ROW& row);

 private:
  struct ResultDeleter {
    void operator()(MYSQL_RES* result) const { mysql_free_result(result); }
  };
  using Result = std::unique_ptr<MYSQL_RES, ResultDeleter>;

  // The handle, or null where the library must not be called: none yet, or one that mysql_init
  // refused.
  MYSQL* usable() const { return m_initialised ? m_handle.get() : nullptr; }
  std::chrono::seconds answerLimit() const;

  // The outcomes of an operation: each sets what lastFailure tells.
  int succeed();
  int fail(const std::string& text, SqlFailure meaning);
  int failStatement(const char* sql);
  // Why the library's last call failed, as text and as meaning.
  std::string libraryError() const;
  SqlFailure libraryFailure() const;

  bool logIn();
  void prepareHandle();
  std::string loginError() const;
  bool lastDatabaseIsClosed() const;
  bool prepareSession();
  bool prepareToNotice();
  bool letTakeScripts(bool takes);
  bool takeReplies(std::vector<SqlReply>& replies);
  bool takeRows(std::vector<SqlRecord>& rows);
  bool answerMayCome() const;
  void prepareLocalLoads();
  static int beginLoad(void** state, const char* name, void* self);
  static int readLoad(void* state, char* buffer, unsigned int size);
  static void endLoad(void* state);
  static int explainLoad(void* state, char* text, unsigned int size);
  int run(const char* sql, int logOnError);
  bool firstRowIs(Result list, const char* name);

  std::unique_ptr<MYSQL> m_handle;
  std::unique_ptr<MYSQLAUTH> m_auth;  // its dbname is the database that was used last
  std::string m_ownDatabase;          // the record's
  int m_lockWaitSeconds = kLockWaitSeconds;
  bool m_allowsLocalLoads = false;
  bool m_allowsScripts = false;
  bool m_takesScripts = false;  // the session, at present
  std::chrono::milliseconds m_roundTrip{0};
  WaitPolicy m_policy;
  bool m_logs = true;
  std::string m_serverName;          // where lost answers are to be noticed
  LoadBytes* m_loadBytes = nullptr;  // those of the load at work
  bool m_initialised = false;
  bool m_connected = false;
  Result m_result;
  MYSQL_ROW m_row = nullptr;
  MYSQL_FIELD* m_fields = nullptr;
  std::vector<std::string> m_columnNames;
  std::string m_lastError;
  SqlFailure m_lastFailure = SqlFailure::kNone;
  // Why the library was not asked, or its last call not awaited to its end; empty when it was.
  std::string m_gaveUp;
  ClientOptions m_options;  // those of the last connect
};
