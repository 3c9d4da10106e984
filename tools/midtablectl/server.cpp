#include "midtablectl/server.h"

#include "midtablectl/log_phrases.h"
#include "support/database_name.h"

namespace ctl {

namespace {

std::string Quoted(std::string_view text, char quote, bool escapes) {
  std::string quoted(1, quote);
  for (const char c : text) {
    if (c == quote || (escapes && c == '\\')) quoted += c;
    quoted += c;
  }
  return quoted + quote;
}

}  // namespace

std::string QuotedName(std::string_view name) { return Quoted(name, '`', false); }
std::string QuotedText(std::string_view text) { return Quoted(text, '\'', true); }

// The back end tells first which statement failed. The finding names it already and only needs the
// reason.
std::string ServerWords(const std::string& error) {
  const std::string mark = kServerWordsFollow.text;
  const std::size_t at = error.rfind(mark);
  return at == std::string::npos ? error : error.substr(at + mark.size());
}

std::string DatabasePattern() {
  std::string pattern;
  for (const char c : kDatabasePrefix) {
    // An underscore would stand for any character.
    if (c == '_') pattern += '\\';
    pattern += c;
  }
  return pattern + "%";
}

std::string Server::Run(const std::string& statement) {
  std::vector<SqlRecord> rows;
  // A back end takes queries by another operation than statements without rows.
  const bool query = statement.starts_with("select") || statement.starts_with("show");
  const int result = query ? m_sql.fetchRecordSet(statement.c_str(), rows)
                           : m_sql.executeSQL(statement.c_str(), 0);
  return result == 0 ? std::string() : ServerWords(m_sql.getLastError());
}

// A query that fails has no rows. What a missing answer means is for each caller to say.
std::vector<SqlRecord> Server::Rows(const std::string& query) {
  std::vector<SqlRecord> rows;
  m_sql.fetchRecordSet(query.c_str(), rows);
  return rows;
}

std::string Server::Value(const std::string& query) {
  const std::vector<SqlRecord> rows = Rows(query);
  return rows.empty() || rows[0].empty() ? std::string() : rows[0].begin()->second;
}

bool Server::HasDatabase(const std::string& name) {
  return !Value("select 1 from information_schema.schemata where schema_name = " + QuotedText(name))
              .empty();
}

bool Server::HasTable(const std::string& database, const std::string& table) {
  return !Value("select 1 from information_schema.tables where table_schema = " +
                QuotedText(database) + " and table_name = " + QuotedText(table))
              .empty();
}

}  // namespace ctl
