// The one interface through which the program talks to a database server.
//
// Results are texts: every value of a row is a string, SQL NULL reads as "NULL". A back end keeps
// the text and the meaning of its last failure. It is used by one thread at a time and never
// reconnects by itself.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Column name to value.
using SqlRecord = std::map<std::string, std::string>;

// What a failure means: whose fault it is, and so what would help. A server's own error numbers
// are sorted into these by its back end and by nobody else.
enum class SqlFailure {
  kNone,        // nothing failed
  kStatement,   // the statement is wrong as it stands: its syntax, a name that is not there
  kData,        // the rows are refused for their own sake: a value, a duplicate, a trigger's signal
  kConnection,  // nobody answers on this connection, or the server lets nobody in: reconnect
  kServer,      // the server cannot at present: a lock, a deadlock, read-only, a full disk
  kPrivilege    // the user may not do this, or the server's settings forbid it to everyone
};

class CSqlBase {
 public:
  virtual ~CSqlBase() = default;

  // 0 connected (at once when it already was), -1 failed.
  virtual int connectDB() = 0;
  // Ends any open read and the connection, releasing all that belongs to it. Always 0.
  virtual int closeDB() = 0;
  // Text of the most recent failure; a later success does not clear it.
  virtual std::string getLastError() = 0;
  // Runs a statement that yields no rows: 0, or -1 with the last error set, which is also logged
  // when `logOnError` is not 0 (by back ends that write to the run log). It may take hours: only
  // the server or a connection that breaks ends it, no request to stop does.
  virtual int executeSQL(const char* sql, int logOnError) = 0;
  // Whether the server has that database. False as well, with lastFailure() telling why and the
  // last error set, when the server could not be asked.
  virtual bool existDB(const char* name) = 0;
  // Switches to another database: 0, or -1 and everything stays as it was. `password` is that of
  // the database's own user, for servers on which a database is a user.
  virtual int changeDB(const char* name) = 0;
  virtual int changeDB(const char* name, const char* password) = 0;
  // Runs a query and replaces `rows` by its rows: 0, or -1 with the last error set. Of two columns
  // of one name the first counts.
  virtual int fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) = 0;
  // closeDB, then connectDB and its result. It goes to the database that was used last. When that
  // is gone, it goes to the one that the back end was made for.
  virtual int reconnectDB() = 0;
  // Whether the current database has that table. False as well, as existDB is, when the server
  // could not be asked.
  virtual bool existTable(const char* name) = 0;
  // Number of rows of a query: 0 and `*count` set, otherwise the server's error number and `*count`
  // and the last error's text as they were.
  virtual int RowsCountBySQL(const char* sql, unsigned int* count) = 0;
  // Whether the server answers on this connection; if not, the last error says why.
  virtual bool isDBAlive() = 0;
  // Appends the column names of `table`, in table order, where the back end offers that service;
  // 1 when done (also by a back end that does not offer it), 0 on failure.
  virtual int GetColums(const char* table, std::vector<std::string>& columns) = 0;
  // What the failure of the most recent operation means; kNone before any operation and after one
  // that succeeded. Every function above but getLastError is an operation, those among them that
  // answer "no" or leave the last error alone. So "is not there" is false and kNone, "could not be
  // asked" is false and anything else. Ask before the next operation, a roll-back for instance,
  // has its own outcome.
  virtual SqlFailure lastFailure() const = 0;
  // Rows that the most recent statement without a result has changed or loaded; 0 where the back
  // end does not count them. Ask before the next operation.
  virtual std::uint64_t affectedRows() const { return 0; }
  // For how many seconds, from the next connect on, a statement waits for a lock that another
  // session holds; then it fails with kServer. A back end whose server has no such setting leaves
  // it alone.
  virtual void setLockWaitSeconds(int /*seconds*/) {}
};
