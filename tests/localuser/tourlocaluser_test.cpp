#include "localuser/tourlocaluser.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "gmock/gmock.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

namespace fs = std::filesystem;
using std::string_literals::operator""s;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

const std::string kIn = "/tmp/spool/in.dat", kOut = "/tmp/spool/in.mid", kBlocks = "/tmp/b.csv";

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
  }
  void LoadBlocks(const std::string& csv) {
    WriteFile(kBlocks, csv);
    ASSERT_EQ(m_registry.LoadConfig(kBlocks), 1);
  }
  void AwaitLocal(const std::string& name) {
    for (int i = 0; i < 1300 && m_registry.isLocalUser(name) == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(m_registry.isLocalUser(name), 1) << name;
  }
  // Rewrites the file; what was logged meanwhile.
  std::string Parse(const std::string& in = kIn, const std::string& out = kOut) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.ParseMemfile(in, out), 1);
    return log.text();
  }
  void ExpectRewritten(const std::string& content, const std::string& expected) {
    WriteFile(kIn, content);
    Parse();
    EXPECT_EQ(ReadFile(kOut), expected) << content.substr(0, 80);
  }
  SqlScript m_script;
  TourLocalUser m_registry{RecordingFactory(m_script)};
};

TEST_F(LocalUser, LooksUpBlocksOfEveryShape) {
  LoadBlocks("1380013,\xb1\xb1\n 0012345 ,x\n\"\",e\n138001x\n13800\n+123456\n\xb1\xb1\n");
  for (const std::string local :
       {"13800138000", "00123450000", "138001x0000", "+1234560000", "13800", "1380013", "", "北"}) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.isLocalUser(local), 1) << local;
    EXPECT_EQ(log.text().find("<2>:user_name is wrong") == std::string::npos, local.size() > 7);
  }
  for (const std::string other : {"13800148000", "12345000000", "138001X0000", "01234560000"}) {
    EXPECT_EQ(m_registry.isLocalUser(other), 0) << other;
  }
  for (const std::string bad : {"", "/tmp/none.csv", "/tmp"}) {
    ASSERT_EQ(m_registry.LoadConfig(kBlocks), 1);
    EXPECT_EQ(m_registry.LoadConfig(bad), bad == "/tmp" ? 1 : 0) << "a folder reads as empty";
    EXPECT_EQ(m_registry.isLocalUser("13800138000"), 0) << bad;
  }
  const std::pair<unsigned int, std::string> users[] = {
      {0x40000001, "14000000001"}, {0xC0000000, "18000000000"}, {0x3FFFFFFF, "131073741823"}};
  for (const auto& [code, name] : users) EXPECT_EQ(m_registry.GetUserName(code), name);
  EXPECT_DEATH(m_registry.GetUserName(0), "user_crc");
}

TEST_F(LocalUser, ConnectsAnewWhenTheServerDroppedTheConnection) {
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
  EXPECT_EQ(m_registry.OpenDB(), -1);
}

TEST_F(LocalUser, AsksForTheEnterpriseTable) {
  EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U) << "no row";
  EXPECT_EQ(m_script.Take().back(), "select count(*) as COUNT from vqcfg.T") << "server not known";
  EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U);
  EXPECT_EQ(m_script.Take().back(), "checksum table T");
  EXPECT_EQ(m_registry.GetEnterpriseUser(), 1);
  m_script.fail = {{"select crc, name from EnterpriseUser", "no table"}};
  EXPECT_EQ(m_registry.GetEnterpriseUser(), 0);
}

TEST_F(LocalUser, KeepsTheCityChecksumsWhenTheFileCannotBeRead) {
  std::map<std::string, std::string> cities{{"old", "1"}};
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n[B]\ncity = 北京\r\n[C]\nother=1\n");
  m_registry.GetCityCRC(cities, 0);
  EXPECT_TRUE(cities.empty()) << "not asked to refresh";
  for (const int result : {0, -1}) {
    EXPECT_EQ(m_registry.updateCityCRC(), result);
    m_registry.GetCityCRC(cities, 1);
    EXPECT_THAT(cities, ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "638544533"),
                                    Pair("WLAN_C", "4162066379")));
    fs::remove(CITYCRCFILE);
  }
}

TEST_F(LocalUser, WatcherReloadsWhatChangedAndStopsSoon) {
  WriteFile(LOGFILE, "1390013\n");
  ASSERT_EQ(m_registry.init(), 1);
  AwaitLocal("13900139000");
  // A time that goes back is a change too.
  WriteFile(LOGFILE, "1500013\n");
  fs::last_write_time(LOGFILE, fs::last_write_time(LOGFILE) - std::chrono::hours(1));
  AwaitLocal("15000139000");
  const auto stop = std::chrono::steady_clock::now();
  g_nMainRun = 0;
  m_registry.WaitExit();
  EXPECT_LT(std::chrono::steady_clock::now() - stop, std::chrono::milliseconds(2500));
  g_nMainRun = 1;
}

TEST_F(LocalUser, ReloadsBesideLookups) {
  std::map<std::string, std::string> cities;
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n");
  WriteFile(kIn, Record("800138000"));
  std::thread reloads([this] {
    for (int i = 0; i < 300; ++i) m_registry.LoadConfig(kBlocks), m_registry.updateCityCRC();
  });
  for (int i = 0; i < 300; ++i) {
    m_registry.ParseMemfile(kIn, kOut);
    m_registry.GetCityCRC(cities, i % 2);
  }
  reloads.join();
  EXPECT_EQ(m_registry.isLocalUser("13800138000"), 1);
  EXPECT_EQ(cities.size(), 1U);
}

TEST_F(LocalUser, FlagsWellFormedRecordsAndDropsOthers) {
  const std::string record = Record("800138000"), out = record + "\t1\n", visitor = Record("1");
  ExpectRewritten("", "");
  ExpectRewritten(visitor + "\n" + record + "\r\n", visitor + "\t0\n" + record + "\r\t1\n");
  ExpectRewritten(record + "\0\n"s, record + "\0\t1\n"s);
  ExpectRewritten("\t\t" + Record("800138000\t") + "\t\n", out);
  ExpectRewritten("\n\r\n" + Record("") + "\n" + Record("1\t2") + "\nb\n" + record, out);
  ExpectRewritten(visitor + std::string(3'000'000, '\t') + "\n" + record + "\n", out);
  ExpectRewritten(record + "\n" + std::string(2 << 20, 'x'), out);
  // The code is read as strtoul reads it, cut to 32 bits.
  for (const std::string code : {" +800138000x", "5095105296", "-3494829296", "00800138000"}) {
    ExpectRewritten(Record(code), Record(code) + "\t1\n");
  }
  for (const std::string code : {"+-800138000", "0x2fb12d90", " ", "4294967296"}) {
    ExpectRewritten(Record(code), Record(code) + "\t2\n");
  }
}

TEST_F(LocalUser, AgreesWithTheLookupByName) {
  std::mt19937 random(20130128);
  std::vector<unsigned int> codes{999'999'999, 1'000'000'000, 0x3FFFFFFF, 0xFFFFFFFF, 0x40000000};
  while (codes.size() < 4000) codes.push_back(static_cast<unsigned int>(random()) | 1U);
  std::string blocks, in, out;
  for (std::size_t i = 0; i < codes.size(); i += 2) {
    blocks += m_registry.GetUserName(codes[i]).substr(0, 7) + "\n";
  }
  LoadBlocks(blocks);
  for (const unsigned int code : codes) {
    const int local = m_registry.isLocalUser(m_registry.GetUserName(code));
    in += Record(std::to_string(code)) + "\n";
    out += Record(std::to_string(code)) + "\t" + std::to_string(local) + "\n";
  }
  ExpectRewritten(in, out);
}

TEST_F(LocalUser, LogsDroppedLinesAndCountsAndKeepsTheMode) {
  WriteFile(kIn, Record("800138000") + "\n\n" + Record("7") + "\n" + Record("0") + "\nbad\n");
  ASSERT_EQ(chmod(kIn.c_str(), 0664), 0);
  fs::create_symlink("/tmp/spool/other", kOut);
  const mode_t old = umask(077);
  const std::string log = Parse();
  umask(old);
  EXPECT_THAT(log, HasSubstr("<3>:file " + kIn + " line 2 not correct, ignore it\n"));
  EXPECT_THAT(log, HasSubstr("<3>:file " + kIn + " line 5 not correct, ignore it\n"));
  EXPECT_THAT(log, HasSubstr("file " + kIn + " local 1 visitors 1 without user 1 dropped 2\n"));
  struct stat status {};
  ASSERT_EQ(lstat(kOut.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0664)) << "or written through a link";
}

TEST_F(LocalUser, LeavesNoCopyThatIsNotWhole) {
  WriteFile(kIn, Record("1") + "\n" + Record("2") + "\n");
  WriteFile("/tmp/spool/secret", Record("1"));
  fs::permissions("/tmp/spool/secret", fs::perms::none);
  ASSERT_EQ(mkfifo("/tmp/spool/fifo", 0600), 0);
  fs::create_symlink(kIn, "/tmp/spool/link");
  // The own memory is a regular file whose first page gives a read error.
  for (const std::string in : {"/tmp/spool", "/tmp/spool/secret", "/tmp/spool/fifo",
                               "/tmp/spool/link", "/proc/self/mem"}) {
    WriteFile(kOut, "left by an earlier run");
    EXPECT_THAT(Parse(in), HasSubstr(in));
    EXPECT_FALSE(fs::exists(kOut)) << in;
  }
  Parse("/tmp/spool/nothing");
  EXPECT_EQ(ReadFile(kOut), "") << "nothing can be lost of a file that does not exist";
  EXPECT_THAT(Parse(kIn, "/tmp/none/x"), HasSubstr("<2>:cannot create /tmp/none/x, errno 2 "));
  // A write that is cut short in the second record, then refused: what a full disk does.
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{fs::file_size(kIn) - 1, RLIM_INFINITY}, no_limit{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  m_registry.ParseMemfile(kIn, kOut);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &no_limit), 0);
  EXPECT_FALSE(fs::exists(kOut));
}
