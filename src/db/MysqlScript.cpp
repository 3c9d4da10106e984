// Several statements in one journey to the server and back.
#include <algorithm>
#include <cctype>

#include "db/MysqlBase.h"
#include "db/server_wait.h"

// Semicolons within quotes count as well: a statement that holds one is sent alone.
bool IsOneStatement(std::string_view sql) {
  const std::size_t end = sql.find(';');
  return end == std::string_view::npos ||
         std::all_of(sql.begin() + static_cast<std::ptrdiff_t>(end) + 1, sql.end(),
                     [](unsigned char c) { return std::isspace(c) != 0; });
}

// A server takes several statements in a text from connections that said so. A single statement
// must not become two of them for that.
bool CMysqlBase::letTakeScripts(bool takes) {
  if (!m_allowsScripts || m_takesScripts == takes) return true;
  const auto option = takes ? MYSQL_OPTION_MULTI_STATEMENTS_ON : MYSQL_OPTION_MULTI_STATEMENTS_OFF;
  if (mysql_set_server_option(usable(), option) != 0) return false;
  m_takesScripts = takes;
  return true;
}

std::size_t CMysqlBase::runScript(const std::vector<std::string>& statements, LoadBytes* bytes,
                                  std::vector<SqlReply>& replies) {
  const ServerWait wait(m_gaveUp, m_policy);
  replies.clear();
  if (!std::all_of(statements.begin(), statements.end(), IsOneStatement)) {
    fail("a semicolon within a statement of a script", SqlFailure::kStatement);
    return 0;
  }
  std::string text;
  // A comment at the end of a statement ends with the line.
  for (const std::string& statement : statements) {
    text += text.empty() ? "" : "\n;";
    text += statement.substr(0, statement.find(';'));
  }
  m_loadBytes = bytes;
  const bool sent = m_allowsScripts && usable() != nullptr && letTakeScripts(true) &&
                    mysql_real_query(usable(), text.c_str(), text.size()) == 0;
  const bool all = sent && takeReplies(replies);
  m_loadBytes = nullptr;
  if (all) {
    succeed();
  } else {
    failStatement(statements[std::min(replies.size(), statements.size() - 1)].c_str());
  }
  return replies.size();
}

// False when a statement failed, which is the last that the server has looked at.
bool CMysqlBase::takeReplies(std::vector<SqlReply>& replies) {
  MYSQL* const handle = usable();
  for (;;) {
    SqlReply reply;
    if (!takeRows(reply.rows)) return false;
    reply.affected = mysql_affected_rows(handle);
    replies.push_back(std::move(reply));
    if (mysql_more_results(handle) == 0) return true;
    if (mysql_next_result(handle) != 0) return false;
  }
}

bool CMysqlBase::takeRows(std::vector<SqlRecord>& rows) {
  const Result result(mysql_store_result(usable()));
  if (result == nullptr) return mysql_errno(usable()) == 0;
  const MYSQL_FIELD* const fields = mysql_fetch_fields(result.get());
  while (const MYSQL_ROW row = mysql_fetch_row(result.get())) {
    const unsigned long* const lengths = mysql_fetch_lengths(result.get());
    SqlRecord& record = rows.emplace_back();
    for (unsigned int i = 0; i < mysql_num_fields(result.get()); ++i) {
      record.emplace(fields[i].name,
                     row[i] == nullptr ? std::string("NULL") : std::string(row[i], lengths[i]));
    }
  }
  return true;
}
