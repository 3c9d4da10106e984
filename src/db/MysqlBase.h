// CSqlBase on the MySQL client library.
//
// States: created (no handle) -> initialised -> connected -> closed, which is created again. A read
// streams its rows from the server; it is open until the next read, clearRecordSet or closeDB.
// Names given to existDB and existTable are patterns of the server, and only the first match
// counts.
#pragma once

#include <mysql.h>

#include <memory>
#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "db/SqlBase.h"

class CMysqlBase : public CSqlBase {
 public:
  // Copies the record; makes no connection.
  explicit CMysqlBase(MYSQLAUTH* auth);
  ~CMysqlBase() override;
  CMysqlBase(const CMysqlBase&) = delete;
  CMysqlBase& operator=(const CMysqlBase&) = delete;

  // Failure: "mysql_init() error" or "connect failed, error:" and the library's text.
  int connectDB() override;
  int closeDB() override;
  std::string getLastError() override { return m_lastError; }
  // Committed at once outside of a transaction, whatever the server's default; with an init_connect
  // of autocommit=0, from the second statement of a connection on.
  // Failure: "execute <statement> failed, error:" and the library's text, unchanged.
  int executeSQL(const char* sql, int logOnError) override;
  // False as well when a database that matches the pattern `name` is listed before it.
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

  // Prepares the handle: 0, or -1. It is tried once: after a failure the next call gives 0, and
  // connecting still fails.
  virtual int init();

  // Takes over all but dbtype and new_user_password, for the next connect. Always 1.
  int setAuth(MYSQLAUTH* auth);

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
  std::string libraryError() const;
  bool commitsByItself();
  int failStatement(const char* sql);
  bool firstRowIs(Result list, const char* name);

  std::unique_ptr<MYSQL> m_handle;
  std::unique_ptr<MYSQLAUTH> m_auth;
  bool m_initialised = false;
  bool m_connected = false;
  Result m_result;
  MYSQL_ROW m_row = nullptr;
  MYSQL_FIELD* m_fields = nullptr;
  std::vector<std::string> m_columnNames;
  std::string m_lastError;
};
