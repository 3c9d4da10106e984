// A back end without a server: it notes every call and answers as the test's script says.
#pragma once

#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <thread>

#include "config/dbinfo.h"
#include "db/SqlBase.h"
#include "log/zux_center_log.h"

// What the server knows and does. The test holds it, since the back end is owned by what it tests.
struct SqlScript {
  std::vector<std::string> calls;   // statements as they are, other calls as "name(argument)"
  std::set<std::string> databases;  // for existDB
  std::set<std::string> tables;     // texts that occur in the table queries that find a row
  std::map<std::string, std::string> fail;  // beginning of a statement or call -> error text
  // The same beginning -> what that failure means, where it is not the statement's own fault.
  std::map<std::string, SqlFailure> meaning;
  std::map<std::string, std::vector<std::string>> listed;  // beginning of a query -> its rows
  bool transaction_ended = false;    // by the server, behind the engine's back
  std::vector<std::string> columns;  // for GetColums
  SqlRecord row;                     // more columns of the row that a table query finds
  std::function<void(const std::string&)> before_call;  // what happens just before each one

  // The calls since the last take, without those that begin with one of `skipped`.
  std::vector<std::string> Take(const std::vector<std::string>& skipped = {}) {
    for (const std::string& beginning : skipped) {
      std::erase_if(calls, [&](const auto& call) { return call.starts_with(beginning); });
    }
    return std::exchange(calls, {});
  }
};

class RecordingSql : public CSqlBase {
 public:
  explicit RecordingSql(SqlScript& script) : m_script(script) {}

  int connectDB() override { return Note("connectDB()"); }
  int closeDB() override { return Note("closeDB()"); }
  int reconnectDB() override { return Note("reconnectDB()"); }
  bool isDBAlive() override { return Note("isDBAlive()") == 0; }
  std::string getLastError() override { return m_error; }
  SqlFailure lastFailure() const override { return m_failure; }
  int changeDB(const char* name) override { return changeDB(name, ""); }
  int changeDB(const char* name, const char* password) override {
    return Note(Format("changeDB(%s,%s)", name, password));
  }
  bool existDB(const char* name) override {
    return Note(Format("existDB(%s)", name)) == 0 && m_script.databases.count(name) != 0;
  }
  bool existTable(const char* name) override {
    return Note(Format("existTable(%s)", name)) == 0 && m_script.tables.count(name) != 0;
  }
  int GetColums(const char* table, std::vector<std::string>& columns) override {
    columns = m_script.columns;
    return Note(Format("GetColums(%s)", table)) == 0 ? 1 : 0;
  }
  int RowsCountBySQL(const char* /*sql*/, unsigned int* /*count*/) override {
    m_failure = SqlFailure::kStatement;
    return 1;
  }
  int executeSQL(const char* sql, int /*logOnError*/) override {
    const bool asks = std::string_view(sql).starts_with("set transaction iso");
    if (!asks || m_script.transaction_ended) return Note(sql);
    // A server refuses this within a transaction, and only there does the engine send it, to see
    // whether its transaction is still there. It is not noted.
    m_failure = SqlFailure::kStatement;
    return -1;
  }
  int fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) override {
    rows.clear();
    for (const std::string& table : m_script.tables) {
      if (std::strstr(sql, table.c_str()) == nullptr) continue;
      rows.emplace_back(m_script.row)["t"] = table;
    }
    for (const auto& [beginning, values] : m_script.listed) {
      if (!std::string_view(sql).starts_with(beginning)) continue;
      for (const std::string& value : values) rows.push_back({{"t", value}});
    }
    return Note(sql);
  }

 private:
  // 0, or -1 for a call that the script wants to fail.
  int Note(const std::string& call) {
    m_script.calls.push_back(call);
    if (m_script.before_call) m_script.before_call(call);
    m_failure = SqlFailure::kNone;
    for (const auto& [beginning, error] : m_script.fail) {
      if (!call.starts_with(beginning)) continue;
      const auto planned = m_script.meaning.find(beginning);
      m_error = error;
      m_failure = planned == m_script.meaning.end() ? SqlFailure::kStatement : planned->second;
    }
    return m_failure == SqlFailure::kNone ? 0 : -1;
  }

  SqlScript& m_script;
  std::string m_error;
  SqlFailure m_failure = SqlFailure::kNone;
};

// A factory for the thread that makes it; other threads, such as a watcher, get no back end.
inline auto RecordingFactory(SqlScript& script) {
  return [&script, owner = std::this_thread::get_id()](const MYSQLAUTH&) {
    return std::this_thread::get_id() == owner ? std::make_unique<RecordingSql>(script) : nullptr;
  };
}
