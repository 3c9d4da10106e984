// What the engine does on a real server once trouble has ended: every row that was loaded is
// counted, once.
#include <thread>

#include "service/pipeline_fixture.h"
#include "testing/scripted_system.h"

using namespace std::chrono_literals;
using testing::Contains, testing::HasSubstr, testing::IsEmpty, testing::Not, testing::StartsWith;

// In the C library's place: the service's pauses take less than half of their time.
extern "C" unsigned int sleep(unsigned int seconds) {
  return static_cast<unsigned int>(usleep(seconds * 400'000));
}

namespace {

const std::string kDayTable = "T_AUTH1D_20121231";

// One pass after the other, at times of the test's choice.
class RecoveryByPasses : public Pipeline {
 protected:
  RecoveryByPasses() { clock.local = false; }

  // Another start of the service.
  void Start() {
    g_nMainRun = 0;
    engine = std::make_unique<CMidTable>(ShortLockWaits, clock);
    AwaitSingleThread();
    g_nMainRun = 1;
    EXPECT_TRUE(engine->Initialize());
    mark = server.Mark();
  }
  std::string PassAfter(std::chrono::seconds pause) {
    clock.now += pause;
    CapturedStdout out;
    engine->MakeMidTable();
    return out.text();
  }

  ScriptedSystem clock;
};

TEST_F(RecoveryByPasses, RowsThatAStopLeftAreConvertedOnceBeforeNewFiles) {
  server.Run("create database " + kDb + "; use " + kDb + "; create table " + kMemA +
             " (id int primary key, v int); insert into " + kMemA + " values (1, 1), (2, 2)");
  Start();
  Drop("MEM_20121231_0005A", "101500", "3\t3\n");
  PassAfter(1s);
  const auto sent = Sent();
  const auto converted = std::ranges::find(sent, "truncate table " + kMemA);
  const auto loaded = std::ranges::find_if(
      sent, [](const std::string& statement) { return statement.starts_with("load data"); });
  EXPECT_LT(converted, loaded);
  EXPECT_NE(loaded, sent.end());
  EXPECT_EQ(Sum(kDayTable), "3");
  EXPECT_EQ(Sum("T_AUTH1M_201212"), "3");
  Drop("MEM_20121231_0005A", "101600", "4\t4\n");
  PassAfter(1s);
  EXPECT_THAT(Sent(), Not(Contains(StartsWith("(select")))) << "they were looked for again";
  EXPECT_EQ(Sum(kDayTable), "4");
}

// As after a kill between the load of the earlier file and its rename.
TEST_F(RecoveryByPasses, AFileThatWasLoadedBeforeAKillIsNotCountedAgain) {
  server.Run("create database " + kDb + "; use " + kDb + "; create table " + kMemA +
             " (id int primary key, v int); insert into " + kMemA + " values (1, 1), (2, 2)");
  Drop(kMemA, "101500", "1\t1\n2\t2\n");
  Drop(kMemA, "101600", "3\t3\n");
  Start();
  for (int i = 0; i < 3; ++i) PassAfter(1s);
  EXPECT_EQ(Sum(kDayTable), "3");
  EXPECT_THAT(MemRows(), IsEmpty());
}

TEST_F(RecoveryByPasses, RowsWhoseConversionMetALockAreConvertedAMinuteLater) {
  Start();
  Drop(kMemA, "101500", "1\t1\n");
  PassAfter(1s);
  const std::string hold = "do sleep(5)";
  std::thread other(
      [&] { server.Run("lock tables " + kDb + "." + kDayTable + " write; " + hold); });
  const std::string asked = "select id from information_schema.processlist where info = '";
  while (server.Run(asked + hold + "'").empty()) usleep(100'000);
  Drop(kMemA, "101600", "2\t2\n3\t3\n");
  EXPECT_THAT(PassAfter(1s), HasSubstr("error:Lock wait timeout exceeded"));
  other.join();
  PassAfter(58s);
  EXPECT_EQ(Sum(kDayTable), "1");
  PassAfter(2s);
  EXPECT_EQ(Sum(kDayTable), "3");
  EXPECT_THAT(MemRows(), IsEmpty());
}

TEST_F(RecoveryByPasses, MonthsAreCountedWithoutTheDatabaseInWhichTheyAreLookedUp) {
  server.Run("drop database WLAN_TUNE");
  Start();
  Drop(kMemA, "101500", "1\t1\n");
  PassAfter(1s);
  EXPECT_EQ(Sum("T_AUTH1M_201212"), "1");
}

// The service as it runs.
class RecoveryOfTheService : public Pipeline {
 protected:
  RecoveryOfTheService() : Pipeline(Watcher::kRuns) {}
  ~RecoveryOfTheService() override {
    g_nMainRun = 0;
    if (runner.joinable()) runner.join();
  }
  void Run() {
    runner = std::thread([this] { engine->Run(); });
  }
  static bool IsLoadedIn(std::chrono::seconds time, const std::string& stem) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (!fs::exists(stem + ".mid") && std::chrono::steady_clock::now() < end) usleep(20'000);
    return fs::exists(stem + ".mid");
  }
  void AwaitSum(const std::string& expected) {
    for (int i = 0; i < 100 && Sum(kDayTable) != expected; ++i) usleep(100'000);
    EXPECT_EQ(Sum(kDayTable), expected);
  }

  std::thread runner;
};

TEST_F(RecoveryOfTheService, AConversionWhoseConnectionWasLostIsDoneAfterTheReconnection) {
  Define("insert into T_AUTH1D_%s select count(*) + sleep(2) from %s", kMonth);
  const std::string asked = "select id from information_schema.processlist where info like '";
  Run();
  Drop(kMemA, "101500", "1\t1\n");
  while (server.Run(asked + "insert into T_AUTH1D%'").empty()) usleep(100'000);
  server.EndSessionsOf("midtable");
  AwaitSum("1");
  EXPECT_EQ(Sum("T_AUTH1M_201212"), "1");
  EXPECT_THAT(MemRows(), IsEmpty());
}

TEST_F(RecoveryOfTheService, ADatabaseThatIsDroppedEndsNothing) {
  Run();
  ASSERT_TRUE(IsLoadedIn(30s, Drop(kMemA, "101500", "1\t1\n")));
  AwaitSum("1");
  server.Run("drop database " + kDb);
  server.EndSessionsOf("midtable");
  EXPECT_TRUE(IsLoadedIn(30s, Drop(kMemA, "101600", "1\t1\n", "5e6f7a8b")));
  EXPECT_TRUE(IsLoadedIn(30s, Drop(kMemA, "101700", "2\t2\n3\t3\n")));
  AwaitSum("2");
}

// At least one of the others comes before it, in whatever order the folders are listed.
TEST_F(RecoveryOfTheService, SixtyUndefinedFilesDelayNoOtherDatabaseByMoreThanFiveSeconds) {
  const auto drop_undefined = [](const std::string& id) {
    for (int file = 0; file < 60; ++file) {
      Drop("MEM_20121231_0004X", std::to_string(100'000 + file), "1\t1\n", id);
    }
  };
  drop_undefined("00000001");
  const std::string good = Drop(kMemA, "101500", "1\t1\n");
  drop_undefined("00000002");
  Run();
  EXPECT_TRUE(IsLoadedIn(5s, good));
}

}  // namespace
