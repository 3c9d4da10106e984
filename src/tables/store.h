// The database server that the service works on: its connection, what kind it is, and what stands
// on it. The one place that knows which kind of server it talks to.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "db/SqlBase.h"
#include "tables/dialect.h"
#include "tables/sql_template.h"

// What became of a statement made from a template.
struct Outcome {
  bool ok;
  std::string statement;  // as sent; the template when it could not be filled
  std::string error;
  SqlFailure failure;  // kStatement for a template that could not be filled
};

// The answer to a question that may fail.
enum class Presence { kPresent, kAbsent, kUnknown };

// Failures of the operations that answer bool are logged where they happen, unless said otherwise,
// and leave their reason in LastError. For one thread at a time.
class Store {
 public:
  using BackEndFactory = std::function<std::unique_ptr<CSqlBase>(const MYSQLAUTH&)>;

  // Takes a back end, which must not be null, and the credentials that it was made from. Makes no
  // connection.
  Store(std::unique_ptr<CSqlBase> sql, const MYSQLAUTH& auth);

  const Dialect& dialect() const { return m_dialect; }
  // Text of the last failure, as the back end has it.
  std::string LastError() const { return m_sql->getLastError(); }
  // What the most recent operation came to.
  SqlFailure LastFailure() const { return m_sql->lastFailure(); }

  // --- the connection; nothing is logged

  bool Connect() { return m_sql->connectDB() == 0; }
  bool Reconnect() { return m_sql->reconnectDB() == 0; }
  bool IsAlive() { return m_sql->isDBAlive(); }

  // --- statements; only the back end logs

  bool Execute(const std::string& statement) {
    return m_sql->executeSQL(statement.c_str(), 1) == 0;
  }
  // The same without a line in the log.
  bool ExecuteQuietly(const std::string& statement) {
    return m_sql->executeSQL(statement.c_str(), 0) == 0;
  }
  // Rows that the statement before has changed or loaded; 0 on a server where nobody counts them.
  std::uint64_t AffectedRows() const { return m_sql->affectedRows(); }
  // Fills and runs the template that stands at `node` of the table definitions.
  Outcome RunTemplate(const std::string& node, const std::string& text,
                      std::span<const TemplateValue> values);
  // The same for one that was filled already; `log_on_error` as executeSQL takes it.
  Outcome RunFilled(const std::string& node, const std::string& text, const FilledTemplate& filled,
                    int log_on_error);

  // --- databases

  // Makes the database, or the user that stands for one, where it is missing. Where the server
  // could not be asked, false and nothing is made.
  bool PrepareDatabase(const std::string& database);
  // Whether it is there; nothing is logged.
  Presence FindDatabase(const std::string& database);
  // False, and the current database as it was, when the server refuses.
  bool Use(const std::string& database);

  // --- tables

  // Whether `database` has it; a database that is not there has none. That the server could not be
  // asked, or knows no such database, is logged.
  Presence FindTable(const std::string& table, const std::string& database);
  // Whether the current database has it; nothing is logged.
  Presence FindTableHere(const std::string& table);
  // Appends the names of the mem tables of `database` that hold rows; none when the database is not
  // there. A table that the server cannot read is logged and passed over. False when the connection
  // was lost.
  bool FilledMemTables(const std::string& database, std::vector<std::string>& tables);
  // Appends the names of its columns, in their order, on servers whose loader tool needs them;
  // nothing is logged.
  bool ColumnsOf(const std::string& table, std::vector<std::string>& columns) {
    return m_sql->GetColums(table.c_str(), columns) == 1;
  }

 private:
  Presence Answer(bool found) const;
  bool AppendFilled(const std::string& database, std::span<const std::string> candidates,
                    std::vector<std::string>& tables);
  bool CreateUser(const std::string& user);

  std::unique_ptr<CSqlBase> m_sql;
  const Dialect& m_dialect;
  const std::string m_new_user_password;
};
