// Asking a database server, for all commands.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "db/SqlBase.h"
#include "tables/dialect.h"

namespace ctl {

// What the server itself said, of a back end's last error, which has the statement before it.
std::string ServerWords(const std::string& error);

// A pattern for `like`, and for the database of a grant: every database of the service, whose names
// begin alike.
std::string DatabasePattern();

// A name, and a text, as a statement takes them whatever they hold. The text is for a session in
// which a backslash escapes the character behind it, which is the servers' default.
std::string QuotedName(std::string_view name);
std::string QuotedText(std::string_view text);

// Puts statements to a connected back end, which must live longer than this object.
class Server {
 public:
  // `user` is the account as it stands in "grant ... to": it is for advice only.
  Server(CSqlBase& sql, const Dialect& dialect, std::string user = {})
      : m_sql(sql), m_dialect(dialect), m_user(std::move(user)) {}

  // How the service speaks to it.
  const Dialect& dialect() const { return m_dialect; }

  // Runs a statement or a query, of which the rows do not matter. The result is the server's words
  // without the statement; empty when it succeeded.
  std::string Run(const std::string& statement);
  // The rows of a query; none when it failed.
  std::vector<SqlRecord> Rows(const std::string& query);
  // The first value of the first row; empty when there is none.
  std::string Value(const std::string& query);
  // A global variable of the server.
  std::string Variable(const std::string& name) { return Value("select @@global." + name); }

  bool HasDatabase(const std::string& name);
  bool HasTable(const std::string& database, const std::string& table);

  const std::string& user() const { return m_user; }

 private:
  CSqlBase& m_sql;
  const Dialect& m_dialect;
  std::string m_user;
};

}  // namespace ctl
