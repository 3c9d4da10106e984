#include <chrono>
#include <filesystem>
#include <thread>

#include "gmock/gmock.h"
#include "localuser/tourlocaluser.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

constexpr char kBlocks[] = "/tmp/blocks.csv";

class Registry : public testing::Test {
 protected:
  Registry() { WriteFile(paths::kSettingsFile, "dbname0=vq\ndbtype=mysql\nset_password=pw"); }
  void AwaitLocal(const std::string& name) {
    for (int i = 0; i < 1300 && m_registry.isLocalUser(name) == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(m_registry.isLocalUser(name), 1) << name;
  }
  SqlScript m_script;
  TourLocalUser m_registry{RecordingFactory(m_script)};
};

TEST_F(Registry, NamesUsers) {
  EXPECT_EQ(m_registry.GetUserName(0x40000001), "14000000001");
  EXPECT_EQ(m_registry.GetUserName(0x80000000), "15000000000");
  EXPECT_EQ(m_registry.GetUserName(0xC0000000), "18000000000");
  EXPECT_EQ(m_registry.GetUserName(0x3FFFFFFF), "131073741823");
  EXPECT_DEATH(m_registry.GetUserName(0), "user_crc");
}

TEST_F(Registry, LooksUpBlocksOfEveryShape) {
  WriteFile(kBlocks, "1380013,\xb1\xb1\n 0012345 ,x\n\"\",e\n138001x\n13800\n+123456\n\xb1\xb1\n");
  ASSERT_EQ(m_registry.LoadConfig(kBlocks), 1);
  const std::pair<std::string, int> cases[] = {{"13800138000", 1},
                                               {"13800148000", 0},
                                               {"00123450000", 1},
                                               {"12345000000", 0},
                                               {"138001x0000", 1},
                                               {"138001X0000", 0},
                                               {"+1234560000", 1},
                                               {"01234560000", 0},
                                               {"13800", 1},
                                               {"1380013", 1},
                                               {"", 1},
                                               {"北", 1}};
  for (const auto& [name, local] : cases) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.isLocalUser(name), local) << name;
    EXPECT_EQ(log.text().find("<2>:user_name is wrong") == std::string::npos, name.size() > 7);
  }
  for (const std::string bad : {"", "/tmp/none.csv", "/tmp"}) {
    ASSERT_EQ(m_registry.LoadConfig(kBlocks), 1);
    EXPECT_EQ(m_registry.LoadConfig(bad), bad == "/tmp" ? 1 : 0) << "a folder reads as empty";
    EXPECT_EQ(m_registry.isLocalUser("13800138000"), 0) << bad;
  }
}

TEST_F(Registry, ConnectsAnewWhenTheServerDroppedTheConnection) {
  const std::string alive = "isDBAlive()", use = "changeDB(vqcfg,pw)";
  EXPECT_EQ(m_registry.OpenDB(), 0);
  EXPECT_THAT(m_script.Take(), ElementsAre(alive, use));
  m_script.fail = {{alive, "gone"}};
  EXPECT_EQ(m_registry.OpenDB(), 0);
  EXPECT_THAT(m_script.Take(), ElementsAre(alive, "closeDB()", "connectDB()", use));
  m_script.fail = {{alive, "gone"}, {"connectDB", "no server"}};
  EXPECT_EQ(m_registry.OpenDB(), -1);
  EXPECT_THAT(m_script.Take(), ElementsAre(alive, "closeDB()", "connectDB()"));
  m_script.fail = {{use, "no database"}};
  CapturedStdout log;
  EXPECT_EQ(m_registry.OpenDB(), -1);
  EXPECT_THAT(log.text(), HasSubstr("<2>:changeDB db err reason no database\n"));
}

TEST_F(Registry, AsksForTheEnterpriseTable) {
  EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U) << "no row";
  EXPECT_EQ(m_script.Take().back(), "select count(*) as COUNT from vqcfg.T") << "server not known";
  EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U);
  EXPECT_EQ(m_script.Take().back(), "checksum table T");
  EXPECT_EQ(m_registry.GetEnterpriseUser(), 1);
  m_script.fail = {{"select crc, name from EnterpriseUser", "no table"}};
  EXPECT_EQ(m_registry.GetEnterpriseUser(), 0);
  fs::remove(paths::kSettingsFile);
  EXPECT_EQ(TourLocalUser().OpenDB(), -1);
}

TEST_F(Registry, KeepsTheCityChecksumsWhenTheFileCannotBeRead) {
  std::map<std::string, std::string> cities{{"old", "1"}};
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n[B]\ncity = 北京\r\n[C]\nother=1\n");
  m_registry.GetCityCRC(cities, 0);
  EXPECT_TRUE(cities.empty()) << "not asked to refresh";
  m_registry.GetCityCRC(cities, 1);
  const auto expected = ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "638544533"),
                                    Pair("WLAN_C", "4162066379"));
  EXPECT_THAT(cities, expected);
  fs::remove(CITYCRCFILE);
  EXPECT_EQ(m_registry.updateCityCRC(), -1);
  m_registry.GetCityCRC(cities, 1);
  EXPECT_THAT(cities, expected);
}

TEST_F(Registry, WatcherReloadsWhatChangedAndStopsSoon) {
  WriteFile(LOGFILE, "1380013\n");
  ASSERT_EQ(m_registry.init(), 1);
  AwaitLocal("13800138000");
  // A time that goes back is a change too.
  WriteFile(LOGFILE, "1390013\n");
  fs::last_write_time(LOGFILE, fs::last_write_time(LOGFILE) - std::chrono::hours(1));
  AwaitLocal("13900139000");
  EXPECT_EQ(m_registry.isLocalUser("13800138000"), 0);
  const auto stop = std::chrono::steady_clock::now();
  g_nMainRun = 0;
  m_registry.WaitExit();
  EXPECT_LT(std::chrono::steady_clock::now() - stop, std::chrono::milliseconds(2500));
  g_nMainRun = 1;
}

TEST_F(Registry, ReloadsBesideLookups) {
  std::map<std::string, std::string> cities;
  WriteFile(kBlocks, "1380013\n1390013\n");
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n");
  WriteFile("/tmp/race.dat", "a\t800138000\tc\td\te\tf\tg\th\ti\tj\tk\n");
  std::thread reloads([this] {
    for (int i = 0; i < 300; ++i) m_registry.LoadConfig(kBlocks), m_registry.updateCityCRC();
  });
  for (int i = 0; i < 300; ++i) {
    m_registry.ParseMemfile("/tmp/race.dat", "/tmp/race.mid");
    m_registry.isLocalUser("13900139000");
    m_registry.GetCityCRC(cities, i % 2);
  }
  reloads.join();
  EXPECT_EQ(m_registry.isLocalUser("13900139000"), 1);
  EXPECT_EQ(cities.size(), 1U);
}

}  // namespace
