// A real server, the settings and definitions for it, and the engine between it and the spool.
#pragma once

#include <memory>

#include "gmock/gmock.h"
#include "midtable/Midtable.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;

inline const std::string kSpool = paths::kSpool;
inline const std::string kDb = "WLAN_1a2b3c4d";
inline const std::string kMemA = "MEM_20121231_0004A";

// Conversions of a day and of a month table, which count the rows of a mem table.
inline const std::string kDay = "insert into T_AUTH1D_%s select count(*) from %s";
inline const std::string kMonth = "insert into T_AUTH1M_%.6s select count(*) from %s";

// The definition of mid table i; its fallback counts the rows as negative ones.
inline std::string MidTable(int i, const std::string& name, const std::string& convert) {
  const std::string tag = "MidTab" + std::to_string(i) + ">";
  return "<" + tag + "<Always>1</Always><Name>" + name + "</Name>" +
         "<Create>create table if not exists %s (n int) engine=InnoDB</Create>" +  //
         "<Convert>" + convert + "</Convert>" +                                    //
         "<Convert1>insert into " + name + "%s select -count(*) from %s</Convert1></" + tag;
}

// Writes the definitions: kind A with these conversions.
inline void Define(const std::string& day, const std::string& month) {
  WriteFile(paths::kMysqlDefinitions,
            "<root><Mem><MidCnt>1</MidCnt>"
            "<MidTab1><Name>A</Name><Create>create table %s (id int primary key, v int) "
            "engine=InnoDB</Create></MidTab1></Mem><Conv><A><MidCnt>2</MidCnt>" +
                MidTable(1, "T_AUTH1D_", day) + MidTable(2, "T_AUTH1M_", month) +
                "</A></Conv></root>");
}

// Back ends that wait for a lock for two seconds only.
inline std::unique_ptr<CSqlBase> ShortLockWaits(const MYSQLAUTH& auth) {
  auto back_end = CreateSqlBase(auth);
  back_end->setLockWaitSeconds(2);
  return back_end;
}

class Pipeline : public testing::Test {
 protected:
  // The registry's watcher has a connection of its own. Where it ends at once, all statements that
  // the server gets are the engine's; CMidTable::Run, though, would wait for its first round.
  enum class Watcher { kEnds, kRuns };

  explicit Pipeline(Watcher watcher = Watcher::kEnds) {
    fs::remove_all(kSpool);
    fs::create_directories(kSpool);
    server.WriteSettings();
    WriteFile(paths::kLoaderTemplates, "<root/>");
    Define(kDay, kMonth);
    for (const std::string& name : server.Run("show databases like 'WLAN%'")) {
      server.Run("drop database " + name);
    }
    server.Run("create database WLAN_TUNE");
    g_nMainRun = watcher == Watcher::kRuns ? 1 : 0;
    engine = std::make_unique<CMidTable>(ShortLockWaits);
    if (watcher == Watcher::kEnds) AwaitSingleThread();
    g_nMainRun = 1;
    EXPECT_TRUE(engine->Initialize());
    mark = server.Mark();
  }
  ~Pipeline() override { g_nMainRun = 0; }

  // Puts a file of these rows into the spool, as a producer does; its path without the suffix.
  static std::string Drop(const std::string& table, const std::string& time,
                          const std::string& rows, const std::string& id = "1a2b3c4d") {
    const std::string stem = kSpool + id + "/" + id + "-" + table + "-20121231-" + time;
    WriteFile(stem + ".tmp", rows);
    fs::rename(stem + ".tmp", stem + ".dat");
    return stem;
  }
  // The statements that the server got since the last call.
  std::vector<std::string> Sent() {
    const auto statements = server.Statements(mark);
    mark = server.Mark();
    return statements;
  }
  // What a mid table counted.
  std::string Sum(const std::string& table) {
    return server.Run("select ifnull(sum(n), 0) from " + kDb + "." + table).at(0);
  }
  std::vector<std::string> MemRows() { return server.Run("select * from " + kDb + "." + kMemA); }

  MariadbServer& server = MariadbServer::Get();
  std::unique_ptr<CMidTable> engine;
  std::size_t mark = 0;
};
