// A back end without a server: it notes every call and answers as the test's script says.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config/dbinfo.h"
#include "db/SqlBase.h"

// What the server knows and does, shared by the test and the back end that the engine owns.
struct SqlScript {
  std::vector<std::string> calls;   // statements as they are, other calls as "name(argument)"
  std::set<std::string> databases;  // for existDB
  std::set<std::string> tables;     // texts that occur in the table queries that find a row
  std::map<std::string, std::string> fail;  // beginning of a statement or call -> error text
  std::vector<std::string> columns;         // for GetColums

  // The calls since the last take, without those that begin with one of `skipped`.
  std::vector<std::string> Take(const std::vector<std::string>& skipped = {}) {
    std::vector<std::string> taken;
    taken.swap(calls);
    std::erase_if(taken, [&](const std::string& call) {
      return std::any_of(skipped.begin(), skipped.end(),
                         [&](const std::string& prefix) { return call.starts_with(prefix); });
    });
    return taken;
  }
};

class RecordingSql : public CSqlBase {
 public:
  explicit RecordingSql(SqlScript& script) : m_script(script) {}

  int connectDB() override { return Note("connectDB()"); }
  int closeDB() override { return Note("closeDB()"); }
  std::string getLastError() override { return m_error; }
  int executeSQL(const char* sql, int /*logOnError*/) override { return Note(sql); }
  bool existDB(const char* name) override {
    Note(std::string("existDB(") + name + ")");
    return m_script.databases.count(name) != 0;
  }
  int changeDB(const char* name) override { return changeDB(name, ""); }
  int changeDB(const char* name, const char* password) override {
    return Note(std::string("changeDB(") + name + "," + password + ")");
  }
  int fetchRecordSet(const char* sql, std::vector<SqlRecord>& rows) override {
    rows.clear();
    if (Note(sql) != 0) return -1;
    for (const std::string& table : m_script.tables) {
      if (std::string_view(sql).find(table) != std::string_view::npos)
        rows.push_back({{"t", table}});
    }
    return 0;
  }
  int reconnectDB() override { return Note("reconnectDB()"); }
  bool existTable(const char* name) override {
    Note(std::string("existTable(") + name + ")");
    return false;
  }
  int RowsCountBySQL(const char* /*sql*/, unsigned int* /*count*/) override { return 1; }
  bool isDBAlive() override { return Note("isDBAlive()") == 0; }
  int GetColums(const char* table, std::vector<std::string>& columns) override {
    columns = m_script.columns;
    return Note(std::string("GetColums(") + table + ")") == 0 ? 1 : 0;
  }

 private:
  int Note(const std::string& call) {
    m_script.calls.push_back(call);
    for (const auto& [beginning, error] : m_script.fail) {
      if (!call.starts_with(beginning)) continue;
      m_error = error;
      return -1;
    }
    return 0;
  }

  SqlScript& m_script;
  std::string m_error;
};

// A factory for the thread that makes it; other threads, such as a watcher, get no back end.
inline auto RecordingFactory(SqlScript& script) {
  return [&script, owner = std::this_thread::get_id()](const MYSQLAUTH&) {
    return std::this_thread::get_id() == owner ? std::make_unique<RecordingSql>(script) : nullptr;
  };
}
