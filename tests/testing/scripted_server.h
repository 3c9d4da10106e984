// A server that does as the test says, seen by the code under test through a recording back end.
#pragma once

#include <filesystem>
#include <string>

#include "gmock/gmock.h"
#include "support/paths.h"
#include "tables/store.h"
#include "testing/recording_sql.h"
#include "testing/run_log.h"

// Begins with empty data and definition folders.
class ScriptedServer : public testing::Test {
 protected:
  static constexpr char kDb[] = "WLAN_1a2b3c4d";
  static constexpr char kMem[] = "MEM_20121231_0004F";

  explicit ScriptedServer(const std::string& dbtype) {
    for (const char* folder : {"/vqlog", "/etc/morvan"}) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) remove_all(entry);
    }
    auth.dbtype = dbtype;
    auth.user = "u";
    auth.password = "pw";
    auth.new_user_password = "np";
  }

  // What the query for this table holds; in script.tables it says that the table is there.
  std::string Table(const std::string& db, const std::string& table) const {
    if (auth.dbtype != "oracle") return "show tables from " + db + " like \"" + table + "\"";
    return "upper('" + db + "') and object_type='TABLE' and object_name = upper('" + table + "')";
  }
  // From now on the server refuses what begins so, with the error "E".
  void Fail(const std::string& beginning, SqlFailure meaning = SqlFailure::kStatement) {
    script.fail[beginning] = "E";
    script.meaning[beginning] = meaning;
  }
  void FailNoMore() { script.fail.clear(); }
  // Does something, whose result this is, and keeps what it logged.
  template <typename Action>
  auto Logged(Action action) {
    decltype(action()) result{};
    log = LogOf([&] { result = action(); });
    return result;
  }

  MYSQLAUTH auth;
  SqlScript script;
  Lines log;
};

class StoreTest : public ScriptedServer {
 protected:
  explicit StoreTest(const std::string& dbtype = "mysql") : ScriptedServer(dbtype) {}

  Store store{std::make_unique<RecordingSql>(script), auth};
};
