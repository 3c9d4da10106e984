// The watcher: when it reads the registry's sources again, and what lookups see meanwhile.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "localuser/registry_fixture.h"
#include "support/housekeeping.h"
#include "support/run_state.h"

// What happens in each second that the watcher sleeps.
static std::function<void()> g_on_sleep;

// In the place of the library's own, so that a second of the watcher's pauses passes in 50 ms.
extern "C" unsigned int sleep(unsigned int seconds) {
  if (g_on_sleep) g_on_sleep();
  return usleep(seconds * 50'000) != 0;
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::Pair;

constexpr char kUser[] = "13800138000";
constexpr char kOtherUser[] = "13900138000";

// What the watcher of an earlier case has read is remembered, so each case has sources of another
// time, in whole seconds, and another state of the table.
class Watcher : public RegistryTest {
 protected:
  Watcher() {
    static int cases = 0;
    const auto days = std::chrono::hours(24 * ++cases);
    m_time = std::chrono::floor<std::chrono::seconds>(fs::file_time_type::clock::now() - days);
    m_script.tables = {"EnterpriseUser"};
    m_script.row = {{"COUNT", std::to_string(2 * cases)},
                    {"Checksum", std::to_string(2 * cases + 1)}};
    WriteSource(LOGFILE, "1380013\n", m_time);
    WriteSource(CITYCRCFILE, "[A]\ncity=X\n[B]\n", m_time);
  }
  ~Watcher() override { Stop(); }

  // Writes over the file that is there.
  static void WriteSource(const std::string& path, const std::string& content,
                          fs::file_time_type time) {
    WriteFile(path, content);
    fs::last_write_time(path, time);
  }
  void Start() {
    m_watched.init();
    m_watched.AwaitFirstRound(10);
  }
  void Stop() {
    g_nMainRun = 0;
    m_watched.WaitExit();
    g_nMainRun = 1;
    g_on_sleep = nullptr;
  }
  // Waits for 15 s at most.
  static bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 1500 && !condition(); ++i) usleep(10'000);
    return condition();
  }
  bool IsLocal(const std::string& user) { return m_watched.isLocalUser(user) == 1; }

  fs::file_time_type m_time;
  // The script is the watcher's until that has ended.
  TourLocalUser m_watched{[this](const auto&) { return std::make_unique<RecordingSql>(m_script); }};
};

TEST_F(Watcher, LoadsBlocksAndCitiesInItsFirstRound) {
  Start();
  EXPECT_TRUE(IsLocal(kUser));
  std::map<std::string, std::string> cities;
  m_watched.GetCityCRC(cities, 0);
  EXPECT_THAT(cities, ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "4162066379")));
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

TEST_F(Watcher, LoadsBlocksAgainWhateverHasChangedOfTheirFile) {
  fs::file_time_type time = m_time;
  const auto rewrite = [&](std::chrono::nanoseconds later) {
    WriteSource(LOGFILE, "1390013\n", time + later);
  };
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"time, within the second", [&] { rewrite(std::chrono::nanoseconds(1)); }},
      {"time, which goes back", [&] { rewrite(-std::chrono::hours(9999)); }},
      {"size", [&] { WriteSource(LOGFILE, "1390013,x\n", time); }},
      {"inode", [&] {
         WriteSource(LOGFILE + ".new", "1390013\n", time);
         fs::rename(LOGFILE + ".new", LOGFILE);
       }}};
  Start();
  for (const auto& [changed, change] : changes) {
    EXPECT_TRUE(Eventually([this] { return IsLocal(kUser); })) << changed;
    change();
    EXPECT_TRUE(Eventually([this] { return IsLocal(kOtherUser); })) << changed;
    EXPECT_FALSE(IsLocal(kUser)) << changed;
    time += std::chrono::hours(1);
    WriteSource(LOGFILE, "1380013\n", time);
  }
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
  EXPECT_TRUE(Eventually([this] { return IsLocal(kOtherUser); }));
  EXPECT_TRUE(IsLocal("13800340000")) << "the last row comes with the first";
  EXPECT_FALSE(writing);
}

// The first round counts rows, later ones have the server's checksum: that differs, once.
TEST_F(Watcher, LoadsEnterpriseUsersWhenTheirTableHasAnotherChecksum) {
  std::atomic<int> checksums{0};
  m_script.before_call = [&](const auto& call) {
    checksums += call.starts_with("checksum") ? 1 : 0;
  };
  Start();
  EXPECT_TRUE(Eventually([&] { return checksums > 1; }));
  Stop();
  const std::string load = "select crc, name from EnterpriseUser";
  EXPECT_THAT(m_script.Take({"isDB", "change", "checksum"}),
              ElementsAre("select count(*) as COUNT from vqcfg.EnterpriseUser", load, load));
}

TEST_F(Watcher, SaysNotUpdatedOfAFailureAndDeliberatelyOfUpdatedCities) {
  fs::permissions(LOGFILE, fs::perms::none);
  CapturedStdout log;
  Start();
  EXPECT_THAT(log.text(), testing::ContainsRegex("init failed.*not updated.*WLAN_B.*not updated"));
  fs::permissions(LOGFILE, fs::perms::owner_all);
}

// The engine's thread may be busy with one load for an hour.
TEST_F(Watcher, KeepsHouse) {
  std::promise<void> done;
  bool first = true;
  const Housekeeping house([&] {
    if (std::exchange(first, false)) done.set_value();
  });
  Start();
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  Stop();
}

// --- lookups beside a reload

using Reloads = RegistryTest;

TEST_F(Reloads, NeverTurnALocalUsersRowsIntoAVisitorsNorShowHalfOfTheCities) {
  std::string blocks;
  for (int number = 1'300'000; number <= 1'380'013; ++number) blocks += Format("%d\n", number);
  LoadBlocks(blocks);
  WriteFile(kIn, Record("800138000"));
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n");
  m_registry.updateCityCRC();
  std::atomic<bool> reloaded = false;
  const std::jthread reloads([&] {
    for (int i = 0; i < 10; ++i) {
      LoadBlocks(blocks);
      m_registry.updateCityCRC();
    }
    reloaded = true;
  });
  while (!reloaded) {
    Rewrite(kIn);
    ASSERT_EQ(ReadFile(kOut), Record("800138000") + "\t1\n");
    std::map<std::string, std::string> cities;
    m_registry.GetCityCRC(cities, 1);
    ASSERT_THAT(cities, ElementsAre(Pair("WLAN_A", "367211210")));
  }
}

}  // namespace
