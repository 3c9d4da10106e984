// CSqlBase for Oracle, on ODBC: the library liboraclebase.
//
// It logs in to the data source named "midtable" in odbc.ini. On Oracle a database is a schema, and
// a schema belongs to the user of that name, so changing the database means logging in as that
// user. Autocommit is off: what a statement does holds once "commit" was run or, on Oracle, a
// statement that creates, drops or truncates. Leaving a session by closeDB or changeDB keeps what
// is not yet committed, unless "set transaction" had opened a transaction: that is rolled back.
//
// The texts of failures are those of the driver and the server, code included, one after the other.
// Nothing is written to the run log. A session belongs to one thread at a time.
//
// A login is given up after 10 seconds, where the driver obeys. Nothing else is: how long an answer
// is awaited, and whether a peer that is gone is noticed, is set in the driver's own files.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "db/SqlBase.h"

// The text in upper case (ASCII letters only): how Oracle stores names that are not quoted.
std::string OracleToUpper(const std::string& text);

class COracleBase : public CSqlBase {
 public:
  // Makes no connection.
  COracleBase(const std::string& user, const std::string& password);
  ~COracleBase() override;
  COracleBase(const COracleBase&) = delete;
  COracleBase& operator=(const COracleBase&) = delete;

  int connectDB() override;
  int closeDB() override;
  std::string getLastError() override { return m_lastError; }
  // "commit" and "rollback" (any case, blanks around them) end the transaction; everything else
  // goes to the server as it stands. `logOnError` changes nothing.
  int executeSQL(const char* sql, int logOnError) override;
  // Whether there is a user of that name; the case of the letters does not matter.
  bool existDB(const char* name) override;
  // Logs in as user `name`; without a password, with that of the current user. After a failure,
  // which is kPrivilege where the server refuses that user, the old session goes on; what it had
  // not committed is committed then.
  int changeDB(const char* name) override;
  int changeDB(const char* name, const char* password) override;
  // A failure after the first row leaves no rows. Long values are read whole.
  int fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) override;
  // As the user that was logged in last. Where that fails, as it does when the user was dropped, as
  // the one that the object was made for.
  int reconnectDB() override;
  // Whether the current user owns that table; the case of the letters does not matter.
  bool existTable(const char* name) override;
  // The error number is the server's own, or -1 where the driver has none.
  int RowsCountBySQL(const char* sql, unsigned int* count) override;
  bool isDBAlive() override;
  // Of a table of the current user, as the catalogue spells them; a missing table has none.
  int GetColums(const char* table, std::vector<std::string>& columns) override;
  SqlFailure lastFailure() const override { return m_lastFailure; }

 private:
  class Session;

  // The outcomes of an operation: each sets what lastFailure tells.
  int succeed();
  int fail(const std::string& text, SqlFailure meaning);
  int notConnected();

  // Whether the catalogue query gives a row for `name` in upper case; appends its first column.
  int queryCatalogue(const char* sql, const char* name, std::vector<std::string>& values);

  std::string m_user;
  std::string m_password;
  std::string m_firstUser;
  std::string m_firstPassword;
  std::string m_lastError;
  SqlFailure m_lastFailure = SqlFailure::kNone;
  std::unique_ptr<Session> m_session;
};
