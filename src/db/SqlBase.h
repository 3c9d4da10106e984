// The one interface through which the program talks to a database server.
//
// Results are texts: every value of a row is a string, SQL NULL reads as "NULL". A back end keeps
// the text of its last failure. It is used by one thread at a time and never reconnects by itself.
#pragma once

#include <map>
#include <string>
#include <vector>

// Column name to value.
using SqlRecord = std::map<std::string, std::string>;

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
  // when `logOnError` is not 0 (by back ends that write to the run log).
  virtual int executeSQL(const char* sql, int logOnError) = 0;
  virtual bool existDB(const char* name) = 0;
  // Switches to another database: 0, or -1 and everything stays as it was. `password` is that of
  // the database's own user, for servers on which a database is a user.
  virtual int changeDB(const char* name) = 0;
  virtual int changeDB(const char* name, const char* password) = 0;
  // Runs a query and replaces `rows` by its rows: 0, or -1 with the last error set. Of two columns
  // of one name the first counts.
  virtual int fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) = 0;
  // closeDB, then connectDB and its result.
  virtual int reconnectDB() = 0;
  // Whether the current database has that table.
  virtual bool existTable(const char* name) = 0;
  // Number of rows of a query: 0 and `*count` set, otherwise the server's error number and `*count`
  // as it was.
  virtual int RowsCountBySQL(const char* sql, unsigned int* count) = 0;
  // Whether the server answers on this connection; if not, the last error says why.
  virtual bool isDBAlive() = 0;
  // Appends the column names of `table`, in table order, where the back end offers that service;
  // 1 when done (also by a back end that does not offer it), 0 on failure.
  virtual int GetColums(const char* table, std::vector<std::string>& columns) = 0;
};
