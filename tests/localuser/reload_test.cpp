// What lookups see while the registry's sources are read again, and when that happens.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "gmock/gmock.h"
#include "localuser/tourlocaluser.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

namespace fs = std::filesystem;

// What happens in each second that the watcher sleeps.
static std::function<void()> g_on_sleep;

// In the place of the library's own, so that a second of the watcher's pauses passes in 50 ms.
extern "C" unsigned int sleep(unsigned int seconds) {
  if (g_on_sleep) g_on_sleep();
  return usleep(seconds * 50'000) != 0;
}

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

// Of block 1380013, and the code that stands for the number.
constexpr char kUser[] = "13800138000";
constexpr char kUserCode[] = "800138000";

std::string Block(int number) { return Format("%07d\n", number); }

TEST(ReloadingBlocks, AnswersFromTheBlocksBeforeUntilAllAreRead) {
  std::string blocks;
  for (int number = 1'300'000; number <= 1'380'013; ++number) blocks += Block(number);
  WriteFile("/tmp/blocks.csv", blocks);
  TourLocalUser registry;
  registry.LoadConfig("/tmp/blocks.csv");
  std::atomic<bool> reloaded = false;
  const std::jthread reloads([&] {
    for (int i = 0; i < 10; ++i) registry.LoadConfig("/tmp/blocks.csv");
    reloaded = true;
  });
  int lookups = 0;
  int visitors = 0;
  for (; !reloaded; ++lookups) visitors += registry.isLocalUser(kUser) == 0 ? 1 : 0;
  EXPECT_EQ(visitors, 0) << "of " << lookups << " lookups";
}

TEST(ReloadingBlocks, LeavesNoneOfTheBlocksBefore) {
  TourLocalUser registry;
  WriteFile("/tmp/blocks.csv", "1380013\n");
  registry.LoadConfig("/tmp/blocks.csv");
  WriteFile("/tmp/blocks.csv", "1390013\n");
  registry.LoadConfig("/tmp/blocks.csv");
  EXPECT_EQ(registry.isLocalUser(kUser), 0);
  EXPECT_EQ(registry.isLocalUser("13900138000"), 1);
}

TEST(ReloadingBlocks, NeverTurnsALocalUsersRowsIntoAVisitors) {
  const std::string record = std::string("a\t") + kUserCode + "\tc\td\te\tf\tg\th\ti\tj\tk";
  std::string records;
  std::string flagged;
  for (int i = 0; i < 2'000; ++i) {
    records += record + '\n';
    flagged += record + "\t1\n";
  }
  WriteFile("/tmp/in.dat", records);
  WriteFile("/tmp/blocks.csv", "1380013\n");
  TourLocalUser registry;
  registry.LoadConfig("/tmp/blocks.csv");
  std::atomic<bool> rewritten = false;
  const std::jthread reloads([&] {
    while (!rewritten) registry.LoadConfig("/tmp/blocks.csv");
  });
  registry.ParseMemfile("/tmp/in.dat", "/tmp/in.mid");
  rewritten = true;
  EXPECT_TRUE(ReadFile("/tmp/in.mid") == flagged);
}

// The watcher of one registry. What the watcher of an earlier case has read is remembered, so each
// case has sources of another time, in whole seconds.
class Watcher : public testing::Test {
 protected:
  Watcher() {
    static int cases = 0;
    const auto days = std::chrono::hours(24 * ++cases);
    m_time = std::chrono::floor<std::chrono::seconds>(fs::file_time_type::clock::now() - days);
    WriteFile(paths::kSettingsFile, "dbname0=vq\ndbtype=mysql\nset_password=pw");
    WriteBlocks("1380013\n", m_time);
    WriteFile(CITYCRCFILE, "[A]\ncity=X\n");
    fs::last_write_time(CITYCRCFILE, m_time);
  }
  ~Watcher() override {
    g_nMainRun = 0;
    m_registry.WaitExit();
    g_nMainRun = 1;
    g_on_sleep = nullptr;
  }

  void Start() {
    m_registry.init();
    m_registry.AwaitFirstRound(10);
  }
  // Writes over the file that is there.
  static void WriteBlocks(const std::string& content, fs::file_time_type time) {
    WriteFile(LOGFILE, content);
    fs::last_write_time(LOGFILE, time);
  }
  // Waits for 15 s at most.
  static bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 1500 && !condition(); ++i) usleep(10'000);
    return condition();
  }
  bool IsLocal(const std::string& user) { return m_registry.isLocalUser(user) == 1; }

  SqlScript m_script;
  TourLocalUser m_registry{
      [this](const auto&) { return std::make_unique<RecordingSql>(m_script); }};
  fs::file_time_type m_time;
};

TEST_F(Watcher, SeesBlocksThatWereFinishedWithinTheSecondOfTheirReading) {
  Start();
  WriteBlocks("1390013\n", m_time + std::chrono::nanoseconds(1));
  EXPECT_TRUE(Eventually([this] { return IsLocal("13900138000"); }));
}

TEST_F(Watcher, SeesAnotherFileOfTheSameTimeAndSize) {
  const std::string other = LOGFILE + ".new";
  WriteFile(other, "1390013\n");
  fs::last_write_time(other, m_time);
  Start();
  fs::rename(other, LOGFILE);
  EXPECT_TRUE(Eventually([this] { return IsLocal("13900138000"); }));
}

// The file grows by a row a second, for two and a half rounds.
TEST_F(Watcher, TakesNoBlocksOfAFileThatIsBeingWritten) {
  std::atomic<bool> writing = false;
  int rows = 0;
  g_on_sleep = [&] {
    if (!writing) return;
    std::ofstream(LOGFILE, std::ios::app) << "13800" << 10 + rows << '\n';
    if (++rows == 25) writing = false;
  };
  Start();
  WriteFile(LOGFILE, "1390013\n");
  writing = true;
  EXPECT_TRUE(Eventually([this] { return IsLocal("13900138000"); }));
  EXPECT_TRUE(IsLocal("13800340000")) << "the last row comes with the first";
  EXPECT_FALSE(writing);
}

TEST_F(Watcher, ReadsItsFilesWhileTheServerIsFrozen) {
  std::promise<void> thaw;
  m_script.before_call = [thawed = thaw.get_future().share()](const auto&) { thawed.wait(); };
  const auto start = std::chrono::steady_clock::now();
  Start();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_TRUE(IsLocal(kUser));
  thaw.set_value();
}

}  // namespace
