#include "localuser/tourlocaluser.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "gmock/gmock.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

namespace fs = std::filesystem;
using testing::ContainsRegex, testing::ElementsAre, testing::HasSubstr, testing::Pair;

static const std::string kIn = "/tmp/spool/in.dat", kOut = "/tmp/spool/in.mid";

// In the place of the library's own, so that a second of the watcher's pause passes in 100 ms.
extern "C" unsigned int sleep(unsigned int seconds) { return usleep(seconds * 100'000) != 0; }

// A record of 11 fields; code 800138000 is the number 13800138000.
static std::string Record(const std::string& code) {
  return "a\t" + code + "\tc\td\te\tf\tg\th\ti\tj\tk";
}

class LocalUser : public testing::Test {
 protected:
  LocalUser() {
    fs::remove_all("/tmp/spool");
    WriteFile(paths::kSettingsFile, "dbname0=vq\ndbtype=mysql\nset_password=pw");
    LoadBlocks("1380013\n");
    WriteFile(kIn, Record("800138000"));
  }
  void LoadBlocks(const std::string& csv) {
    WriteFile("/tmp/b.csv", csv);
    ASSERT_EQ(m_registry.LoadConfig("/tmp/b.csv"), 1);
  }
  // Rewrites the file; what was logged meanwhile.
  std::string Parse(const std::string& in = kIn) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.ParseMemfile(in, kOut), 1);
    return log.text();
  }
  std::string ExpectRewritten(const std::string& content, const std::string& expected) {
    WriteFile(kIn, content);
    const std::string log = Parse();
    EXPECT_EQ(ReadFile(kOut), expected) << content.substr(0, 80);
    return log;
  }
  SqlScript m_script;
  TourLocalUser m_registry{RecordingFactory(m_script)};
  std::map<std::string, std::string> m_cities;
};

TEST_F(LocalUser, LooksUpBlocksOfEveryShape) {
  LoadBlocks("1380013,\xb1\xb1\n 0012345 ,x\n\"\",e\n138001x\n13800\n+123456\n\xb1\xb1\n");
  const std::vector<std::string> users[] = {
      {"13800148000", "12345000000", "138001X0000", "01234560000"},
      {"13800138000", "00123450000", "138001x0000", "+1234560000", "1380013", "13800", "", "北"}};
  for (const int local : {0, 1}) {
    for (const auto& user : users[local]) EXPECT_EQ(m_registry.isLocalUser(user), local) << user;
  }
  LoadBlocks("1380013\n" + std::string(300'000, 'x') + "\n1390013\n");
  for (const char* cut : {"/tmp/b.csv", "/tmp"}) {  // an overlong line, a folder
    CapturedStdout log;
    m_registry.LoadConfig(cut);
    EXPECT_NE(log.text().find("not read to its end"), std::string::npos) << cut;
  }
  EXPECT_EQ(m_registry.LoadConfig("/tmp/none.csv"), 0);
  EXPECT_EQ(m_registry.isLocalUser("13800138000"), 0);
}

TEST_F(LocalUser, ConnectsAnewWhenTheServerDroppedTheConnection) {
  const std::string alive = "isDBAlive()", use = "changeDB(vqcfg,pw)";
  for (const std::string query : {"select count(*) as COUNT from vqcfg.T", "checksum table T"}) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U);
    EXPECT_THAT(log.text(), HasSubstr("changed database: vqcfg"));
    EXPECT_THAT(m_script.Take(), ElementsAre(alive, use, query)) << "the first knows no server";
  }
  m_script.fail[alive] = "gone";
  CapturedStdout log;
  EXPECT_EQ(m_registry.GetEnterpriseUser(), 1);
  EXPECT_THAT(log.text(), HasSubstr("changed database not open: vqcfg"));
  EXPECT_THAT(m_script.Take({"select"}), ElementsAre(alive, "closeDB()", "connectDB()", use));
  m_script.fail["connectDB"] = "no server";
  EXPECT_EQ(m_registry.OpenDB(), -1);
  EXPECT_EQ(m_script.Take().back(), "connectDB()");
}

TEST_F(LocalUser, WatcherReloadsWhatChangedAndStopsSoon) {
  // The script is the watcher's until that has ended.
  TourLocalUser registry([this](const auto&) { return std::make_unique<RecordingSql>(m_script); });
  m_script.tables = {"EnterpriseUser"};
  m_script.row = {{"COUNT", "1"}, {"Checksum", "2"}};
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n[B]\nother=1\n");
  WriteFile(LOGFILE, "1500013\n");
  fs::permissions(LOGFILE, fs::perms::none);
  CapturedStdout log;
  registry.init();
  registry.AwaitFirstRound(30);
  EXPECT_THAT(log.text(), ContainsRegex("init failed.*not updated.*WLAN_B.*not updated"))
      << "deliberate: also after an update, of the cities";
  fs::permissions(LOGFILE, fs::perms::owner_all);
  fs::last_write_time(LOGFILE, fs::last_write_time(LOGFILE) - std::chrono::hours(1));
  const std::string user = "15000139000";  // a time that goes back is a change too
  for (int i = 0; i < 1500 && registry.isLocalUser(user) == 0; ++i) usleep(10'000);
  EXPECT_EQ(registry.isLocalUser(user), 1);
  const auto stop = std::chrono::steady_clock::now();
  g_nMainRun = 0;
  registry.WaitExit();
  g_nMainRun = 1;
  EXPECT_LT(std::chrono::steady_clock::now() - stop, std::chrono::milliseconds(500));
  const std::string reload = "select crc, name from EnterpriseUser";
  EXPECT_THAT(m_script.Take({"isDB", "change", "checksum"}),
              ElementsAre("select count(*) as COUNT from vqcfg.EnterpriseUser", reload, reload));
  WriteFile(CITYCRCFILE, "[D]\n");
  for (const int refresh : {0, 1}) {
    registry.GetCityCRC(m_cities, refresh);
    EXPECT_THAT(m_cities, ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "4162066379")));
    fs::remove(CITYCRCFILE);  // what cannot be read anew stays
  }
}

TEST_F(LocalUser, ReloadsBesideLookups) {
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n");
  m_registry.updateCityCRC();
  const std::jthread reloads([this] {
    for (int i = 0; i < 300; ++i) LoadBlocks("1380013\n"), m_registry.updateCityCRC();
  });
  for (int i = 0; i < 300; ++i) {
    Parse(), m_registry.GetCityCRC(m_cities, i % 2);
    EXPECT_THAT(ReadFile(kOut), testing::MatchesRegex(Record("800138000") + "\t[01]\n"));
    EXPECT_THAT(m_cities, ElementsAre(Pair("WLAN_A", "367211210"))) << "never half of them";
  }
}

TEST_F(LocalUser, FlagsAUserByTheBlockOfTheName) {
  std::string blocks;
  for (const std::string text :
       {"999999999", "1000000000", "1073741823", "1073741825", "2147483648", "4294967295",
        " +800138000x", "-3494829296", "0x2fb12d90", "4294967296", " "}) {
    const auto code = static_cast<unsigned int>(std::strtoul(text.c_str(), nullptr, 10));
    const std::string block = code == 0 ? "-" : m_registry.GetUserName(code).substr(0, 7);
    LoadBlocks(block + "\n");
    ExpectRewritten(Record(text), Record(text) + (code == 0 ? "\t2\n" : "\t1\n"));
    blocks += block + " ";
  }
  EXPECT_EQ(blocks, "1399999 1310000 1310737 1400000 1500000 1810737 1380013 1380013 - - - ");
  EXPECT_EQ(m_registry.GetUserName(0x3FFFFFFF), "131073741823");
  EXPECT_DEATH(m_registry.GetUserName(0), "requirement user_crc failed");
}

TEST_F(LocalUser, CopiesWellFormedRecordsWithFlagAndMode) {
  const std::string record = Record("800138000"), visitor = Record("1"), nobody = Record("0");
  fs::permissions(kIn, fs::perms(0664));
  fs::create_symlink("/tmp/spool/other", kOut);
  umask(077);
  const std::string log = ExpectRewritten(
      visitor + "\n\n" + nobody + "\n\r\n" + Record("") + "\n" + Record("1\t2") + "\n" + record,
      visitor + "\t0\n" + nobody + "\t2\n" + record + "\t1\n");
  EXPECT_THAT(log, HasSubstr("<3>:file " + kIn + " line 2 not correct, ignore it\n"));
  EXPECT_THAT(log, HasSubstr("file " + kIn + " local 1 visitors 1 without user 1 dropped 4\n"));
  EXPECT_EQ(fs::symlink_status(kOut).permissions(), fs::perms(0664)) << "and no link";
  ExpectRewritten(record + '\0' + "\r\n", record + '\0' + "\r\t1\n");
  ExpectRewritten("\t\t" + Record("800138000\t") + "\t\n", record + "\t1\n");
  const std::string too_long = visitor + std::string(1 << 20, '\t') + visitor;
  ExpectRewritten(too_long + "\n" + record + "\n" + too_long, record + "\t1\n");
}

TEST_F(LocalUser, LeavesNoCopyThatIsNotWhole) {
  WriteFile(kIn, Record("1") + "\n" + Record("2") + "\n");
  ASSERT_EQ(mkfifo("/tmp/spool/fifo", 0600), 0);
  fs::create_symlink(kIn, "/tmp/spool/link");
  // The own memory is a regular file whose first page gives a read error.
  for (const char* in : {"/tmp/spool", "/tmp/spool/fifo", "/tmp/spool/link", "/proc/self/mem"}) {
    WriteFile(kOut, "left by an earlier run");
    EXPECT_THAT(Parse(in), HasSubstr(in));
    EXPECT_FALSE(fs::exists(kOut)) << in;
  }
  Parse("/tmp/spool/nothing");
  EXPECT_EQ(ReadFile(kOut), "") << "nothing can be lost of a file that does not exist";
  // A write that is cut short in the second record, then refused: what a full disk does.
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{fs::file_size(kIn) - 1, RLIM_INFINITY}, no_limit{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  m_registry.ParseMemfile(kIn, kOut);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &no_limit), 0);
  EXPECT_FALSE(fs::exists(kOut));
}
