#include <algorithm>

#include "midtable/engine_fixture.h"
#include "testing/scripted_system.h"

static thread_local int t_pauses = 0;

// In the C library's place: pauses take next to no time.
extern "C" unsigned int sleep(unsigned int /*seconds*/) {
  ++t_pauses;
  usleep(1000);
  return 0;
}

namespace {

using namespace std::chrono_literals;
using testing::Contains, testing::ElementsAre, testing::StartsWith;

// On two databases, whose folders are read again in each pass; of kinds A and F there are no mid
// tables.
class Engine : public ScriptedSystem, public EngineTest {
 protected:
  Engine() : EngineTest("mysql", static_cast<ScriptedSystem&>(*this)) {
    local = false;
    const std::string none = Xml("MidCnt", "0");
    Define(Xml("Conv", Xml("A", none) + Xml("F", none)));
    script.databases = {kDb, "WLAN_5e6f7a8b"};
    fs::create_directories(kFolder);
  }
  ~Engine() override { RefuseRenames(false); }

  // A file of one row, whose mem table is there; its path.
  std::string Drop(const std::string& table, const std::string& time = "101500",
                   const std::string& id = "1a2b3c4d") {
    const std::string name = id + "-" + table + "-20121231-" + time + ".dat";
    const std::string path = paths::kSpool + id + "/" + name;
    WriteFile(path, row);
    script.tables.insert(Table("WLAN_" + id, table));
    return path;
  }
  static std::string StemOf(const std::string& path) { return path.substr(0, path.rfind('.')); }
  static void RefuseRenames(bool refuse = true) {
    if (fs::exists(kFolder)) fs::permissions(kFolder, fs::perms(refuse ? 0555 : 0755));
  }
  static auto LoadOf(const std::string& path) {
    return StartsWith("load data infile \"" + path + "\"");
  }
  bool Pass() {
    now += 1s;
    return Logged([this] { return engine->MakeMidTable(); });
  }
  // What was loaded and converted since the last call.
  std::vector<std::string> Work() { return script.Take({"show", "change", "exist", "isDB"}); }
  // Runs an engine until as many reconnections are made, which end each pass that is idle or fails.
  void Run(int reconnections, const CMidTable::BackEndFactory& factory) {
    script.before_call = [left = reconnections](const std::string& call) mutable {
      if (call == "reconnectDB()" && --left == 0) g_nMainRun = 0;
    };
    engine = std::make_unique<CMidTable>(factory, *this);
    Logged([this] { return engine->Run(); });
  }

  const std::string row = "a\t800138000\tc\td\te\tf\tg\th\ti\tj\tk";
  const std::string begin = "start transaction";
};

// --- passes

TEST_F(Engine, PausesAfterAPassThatCannotListTheSpool) {
  fs::remove_all(paths::kSpool);
  t_pauses = 0;
  Run(5, RecordingFactory(script));
  EXPECT_EQ(t_pauses, 4) << "none after the stop";
}

TEST_F(Engine, RunWaitsForTheRegistryThenFlagsWhatWaits) {
  // The registry's thread gets no back end, and that late.
  const auto slow = [make = RecordingFactory(script)](const MYSQLAUTH& credentials) {
    auto sql = make(credentials);
    if (sql == nullptr) usleep(500'000);
    return sql;
  };
  WriteFile(LOGFILE, "1380013\n");
  const std::string path = Drop(kMem);
  Run(1, slow);
  EXPECT_EQ(ReadFile(StemOf(path) + ".mid"), row + "\t1\n");
}

// --- rows that wait for their conversion

TEST_F(Engine, WhatAFailedPassLeftIsConvertedBeforeAnythingIsLoaded) {
  Drop("A");
  const std::string bad = Drop("B");
  Fail("load data infile \"" + bad);
  EXPECT_FALSE(Pass());
  script.Take();
  const std::string of_other = Drop("A", "101500", "5e6f7a8b");
  EXPECT_TRUE(Pass());
  EXPECT_THAT(Work(), ElementsAre(begin, "commit", "truncate table A", LoadOf(of_other), begin,
                                  "commit", "truncate table A"));
}

TEST_F(Engine, AStopKeepsWhatIsNotConvertedAndNamesIt) {
  Drop("A");
  Fail("start", SqlFailure::kServer);
  Run(1, RecordingFactory(script));
  EXPECT_THAT(log, Contains("<1>:memtable WLAN_1a2b3c4d.A is left filled, converted after the next "
                            "start"));
  engine->AddToConvert(kFile);
  EXPECT_EQ(engine->Convert(), 0);
  EXPECT_EQ(engine->filesToConvert().size(), 1U);
}

// --- files that are not what they were

TEST_F(Engine, AFileIsLoadedOnceWhateverHappensJustBeforeItsLoad) {
  const std::string path = kFile;
  const std::string stem = StemOf(path);
  const struct {
    std::function<void()> happens;
    std::string log;
    Lines outcome;  // of two passes: files given to the server, endings in the folder
  } cases[] = {
      {[&] {
         WriteFile(stem, row);
         fs::rename(stem, path);
       },
       "<2>:file (" + path + ") was replaced while it was loaded, the new one waits",
       {"1 .dat", "1 .mid"}},
      {[&] { std::ofstream(path, std::ios::app) << row; },
       "<2>:file (" + path + ") was written to while it was loaded, rows may be missing",
       {"1 .mid", "0 .mid"}},
      {[&] { fs::create_hard_link(path, stem + ".mid"); },
       "<3>:load table (" + kTable + ") success",
       {"1 .mid", "0 .mid"}},
      {[] { RefuseRenames(); },
       "<2>:file (" + path + ") rename to (" + stem + ".mid) failed errno (13)",
       {"1 .dat", "0 .dat"}},
      {[] { throw "killed"; },
       "<3>:after rename file size (" + path + ")(" + std::to_string(row.size() + 3) + ")",
       {"1 .dat", "1 .mid"}},
  };
  const auto is_load = [](const std::string& call) { return call.starts_with("load"); };
  script.tables = {Table(kDb, kMem)};
  for (const auto& [happens, expected_log, expected] : cases) {
    SCOPED_TRACE(expected_log);
    RefuseRenames(false);
    fs::remove_all(kFolder);
    WriteFile(path, row);
    FailNoMore();
    Lines outcome;
    script.before_call = [&, &accident = happens](const std::string& call) {
      if (outcome.empty() && is_load(call)) accident();
    };
    const Lines logged = LogOf([&] {
      for (int pass = 0; pass < 2; ++pass) {
        now += 1s;
        try {
          engine->MakeMidTable();
        } catch (const char*) {
        }
        outcome.push_back(std::to_string(std::ranges::count_if(script.Take(), is_load)));
        for (const std::string& name : ListFolder(kFolder)) {
          outcome.back() += " " + name.substr(name.find('.'));
        }
      }
    });
    EXPECT_THAT(logged, Contains(expected_log));
    EXPECT_EQ(outcome, expected);
  }
}

}  // namespace
