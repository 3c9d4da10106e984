// The engine and its steps over a server that does as the test says, with definition files of the
// test's making.
#pragma once

#include "midtable/Midtable.h"
#include "support/run_state.h"
#include "testing/scripted_server.h"

namespace fs = std::filesystem;

inline const std::string kFolder = "/vqlog/log_data/midtable/1a2b3c4d/";
inline const std::string kName = "1a2b3c4d-MEM_20121231_1004F-20121231-101500.dat";
inline const std::string kFile = kFolder + kName;
inline const std::string kTable = "WLAN_1a2b3c4d.MEM_20121231_0004F";  // of kFile

inline std::string Xml(const std::string& tag, const std::string& content) {
  return "<" + tag + ">" + content + "</" + tag + ">";
}
// An entry of a definition file.
inline std::string MidTab(int number, const std::string& name, const std::string& more) {
  return Xml("MidTab" + std::to_string(number), Xml("Always", "1") + Xml("Name", name) + more);
}
// The conversions of one kind.
inline std::string Conversions(const std::string& kind, const std::string& count,
                               const std::string& entries) {
  return Xml("Conv", Xml(kind, Xml("MidCnt", count) + entries));
}
inline void Define(const std::string& content, const char* file = paths::kMysqlDefinitions) {
  WriteFile(file, Xml("root", content));
}

// For one step, with what the engine hands to it. The mem table of kFile is there.
class StepTest : public StoreTest {
 protected:
  explicit StepTest(const std::string& dbtype = "mysql") : StoreTest(dbtype) {
    script.databases = {kDb};
    script.tables = {Table(kDb, kMem)};
  }
  ConversionResult Convert(const std::string& path = kFile, bool counts = true) {
    const MemFile file = MemFile::Parse(path);
    return Logged([&] {
      return MemTableConversion(store, cities, failures, not_emptied, file, counts).Run();
    });
  }

  TourLocalUser registry{[](const MYSQLAUTH&) { return nullptr; }};
  NotEmptied not_emptied;
  CityValues cities{registry};
  MidTableFailures failures;
};

// For the engine as a whole. The registry's watcher has ended.
class EngineTest : public ScriptedServer {
 protected:
  explicit EngineTest(const std::string& dbtype = "mysql",
                      const SpoolSystem& system = SpoolSystem::Real())
      : ScriptedServer(dbtype) {
    WriteFile(paths::kSettingsFile, "host=h");
    *ProcessPolicy().getDBPolicy() = auth;
    g_nMainRun = 0;
    engine = std::make_unique<CMidTable>(RecordingFactory(script), system);
    EXPECT_TRUE(engine->Initialize());
    AwaitSingleThread();
    g_nMainRun = 1;
    script.Take();
  }
  ~EngineTest() override { g_nMainRun = 0; }

  std::unique_ptr<CMidTable> engine;
};
