// The engine over a recording back end, with definition files of the test's making.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "midtable/Midtable.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

using Lines = std::vector<std::string>;

class EngineTest : public testing::Test {
 protected:
  static constexpr char kDb[] = "WLAN_1a2b3c4d";
  static constexpr char kMem[] = "MEM_20121231_0004F";
  static constexpr char kFile[] =
      "/vqlog/log_data/midtable/1a2b3c4d/1a2b3c4d-MEM_20121231_1004F-20121231-101500.dat";

  explicit EngineTest(const std::string& dbtype = "mysql",
                      const SpoolSystem& system = SpoolSystem::Real())
      : oracle(dbtype == "oracle") {
    for (const char* folder : {"/vqlog", "/etc/morvan"}) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) remove_all(entry);
    }
    WriteFile(paths::kSettingsFile, "host=h\nuser=u\npassword=pw\nset_password=np");
    ProcessPolicy().getDBPolicy()->dbtype = dbtype;
    script.databases = {kDb};
    script.tables = {Table(kDb, kMem)};
    g_nMainRun = 0;  // the watcher has nothing to do here, and ends
    engine = std::make_unique<CMidTable>(RecordingFactory(script), system);
    EXPECT_TRUE(engine->Initialize());
    AwaitSingleThread();
    g_nMainRun = 1;
    script.Take();
  }
  ~EngineTest() override { g_nMainRun = 0; }

  // What a query for this table holds, by kind of store.
  std::string Table(const std::string& db, const std::string& table) const {
    return oracle ? "upper('" + db + "') and object_type='TABLE' and object_name = upper('" +
                        table + "')"
                  : "show tables from " + db + " like \"" + table + "\"";
  }

  // Runs `action` and returns what it logged at levels 0 to 3, each line as "<level>:text".
  static Lines LogOf(const std::function<void()>& action) {
    CapturedStdout out;
    action();
    std::istringstream captured(out.text());
    const std::regex form(R"(\[\w+:\d+\](<[0-3]>:.*))");
    Lines lines;
    std::smatch match;
    for (std::string line; std::getline(captured, line);) {
      if (std::regex_match(line, match, form)) lines.push_back(match[1]);
    }
    return lines;
  }

  // Converts the mem table of `path` and returns what was logged.
  Lines ConvertFile(const std::string& path = kFile) {
    engine->AddToConvert(path);
    return LogOf([&] { engine->Convert(); });
  }

  // The definition of mid table i; `more` are further elements.
  static std::string Mid(int i, const std::string& name, const std::string& more) {
    const std::string tag = "MidTab" + std::to_string(i) + ">";
    return "<" + tag + "<Always>1</Always><Name>" + name + "</Name><Create>create %s</Create>" +
           more + "</" + tag;
  }

  const bool oracle;
  SqlScript script;
  std::unique_ptr<CMidTable> engine;
};
