// The watcher, and reloads beside lookups.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "localuser/registry_fixture.h"
#include "support/run_state.h"

// In the place of the library's own, so that a second of the watcher's pause passes in 100 ms.
extern "C" unsigned int sleep(unsigned int seconds) { return usleep(seconds * 100'000) != 0; }

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::Pair;

// Sources that no watcher of an earlier case has seen: what one has loaded, no other loads again.
class Watcher : public RegistryTest {
 protected:
  Watcher() {
    static int cases = 0;
    ++cases;
    m_script.tables = {"EnterpriseUser"};
    m_script.row = {{"COUNT", std::to_string(2 * cases)},
                    {"Checksum", std::to_string(2 * cases + 1)}};
    WriteSource(LOGFILE, "1500013\n", cases);
    WriteSource(CITYCRCFILE, "[A]\ncity=X\n[B]\n", cases);
  }
  ~Watcher() override { Stop(); }

  static void WriteSource(const std::string& path, const std::string& content, int days_ago) {
    WriteFile(path + ".new", content);
    fs::last_write_time(path + ".new",
                        fs::file_time_type::clock::now() - std::chrono::hours(24 * days_ago));
    fs::rename(path + ".new", path);
  }
  void Start() {
    m_watched.init();
    m_watched.AwaitFirstRound(30);
  }
  void Stop() {
    g_nMainRun = 0;
    m_watched.WaitExit();
    g_nMainRun = 1;
  }
  // Waits for 15 s at most.
  static void Await(const std::function<bool()>& condition) {
    for (int i = 0; i < 1500 && !condition(); ++i) usleep(10'000);
    EXPECT_TRUE(condition());
  }

  // The script is the watcher's until that has ended.
  TourLocalUser m_watched{[this](const auto&) { return std::make_unique<RecordingSql>(m_script); }};
};

TEST_F(Watcher, LoadsBlocksAndCitiesInItsFirstRound) {
  Start();
  EXPECT_EQ(m_watched.isLocalUser("15000139000"), 1);
  std::map<std::string, std::string> cities;
  m_watched.GetCityCRC(cities, 0);
  EXPECT_THAT(cities, ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "4162066379")));
}

// The first round counts rows, later ones have the server's checksum: that differs, once.
TEST_F(Watcher, LoadsEnterpriseUsersWhenTheirTableHasAnotherChecksum) {
  std::atomic<int> checksums{0};
  m_script.before_call = [&](const auto& call) {
    checksums += call.starts_with("checksum") ? 1 : 0;
  };
  Start();
  Await([&] { return checksums > 1; });
  Stop();
  const std::string load = "select crc, name from EnterpriseUser";
  EXPECT_THAT(m_script.Take({"isDB", "change", "checksum"}),
              ElementsAre("select count(*) as COUNT from vqcfg.EnterpriseUser", load, load));
}

TEST_F(Watcher, LoadsBlocksAgainAlsoWhenTheirTimeGoesBack) {
  Start();
  WriteSource(LOGFILE, "1600013\n", 999);
  Await([this] { return m_watched.isLocalUser("16000139000") == 1; });
  EXPECT_EQ(m_watched.isLocalUser("15000139000"), 0);
}

TEST_F(Watcher, SaysNotUpdatedOfAFailureAndDeliberatelyOfUpdatedCities) {
  fs::permissions(LOGFILE, fs::perms::none);
  CapturedStdout log;
  Start();
  EXPECT_THAT(log.text(), testing::ContainsRegex("init failed.*not updated.*WLAN_B.*not updated"));
}

TEST_F(Watcher, StopsSoon) {
  Start();
  const auto stop = std::chrono::steady_clock::now();
  Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - stop, std::chrono::milliseconds(500));
}

using Reloads = RegistryTest;

TEST_F(Reloads, DoNotDisturbLookupsBesideThem) {
  LoadBlocks("1380013\n");
  WriteFile(kIn, Record("800138000"));
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n");
  m_registry.updateCityCRC();
  const std::jthread reloads([this] {
    for (int i = 0; i < 300; ++i) {
      LoadBlocks("1380013\n");
      m_registry.updateCityCRC();
    }
  });
  for (int i = 0; i < 300; ++i) {
    Rewrite(kIn);
    EXPECT_THAT(ReadFile(kOut), testing::MatchesRegex(Record("800138000") + "\t[01]\n"));
    std::map<std::string, std::string> cities;
    m_registry.GetCityCRC(cities, i % 2);
    EXPECT_THAT(cities, ElementsAre(Pair("WLAN_A", "367211210"))) << "never half of them";
  }
}
