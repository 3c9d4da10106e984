// Asking a database server, for all commands.
#pragma once

#include <string>
#include <vector>

#include "db/SqlBase.h"

namespace ctl {

// What the server said, after the library's own beginning.
std::string ServerWords(const std::string& error);

// Puts statements to a back end that is connected, and that must outlive it.
class Server {
 public:
  // `user` is for advice only, as it stands in "grant ... to".
  explicit Server(CSqlBase& sql, std::string user = {}) : m_sql(sql), m_user(std::move(user)) {}

  // Runs a statement: the server's own words, without the statement; empty when it succeeded.
  std::string Run(const std::string& statement);
  // No rows after an error.
  std::vector<SqlRecord> Rows(const std::string& query);
  // The first value of the first row; empty when there is none.
  std::string Value(const std::string& query);
  std::string Variable(const std::string& name) { return Value("select @@global." + name); }
  const std::string& user() const { return m_user; }

 private:
  CSqlBase& m_sql;
  std::string m_user;
};

}  // namespace ctl
