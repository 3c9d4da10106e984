// The engine on a real server: what it sends, in which order, and what is left on disk and in
// tables.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "gmock/gmock.h"
#include "midtable/Midtable.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string kSpool = paths::kSpool;
const std::string kDb = "WLAN_1a2b3c4d";
const std::string kMemA = "MEM_20121231_0004A";

const std::string kDay = "insert into T_AUTH1D_%s select count(*) from %s";
const std::string kMonth = "insert into T_AUTH1M_%.6s select count(*) from %s";

std::string Mid(int i, const std::string& name, const std::string& convert) {
  const std::string tag = "MidTab" + std::to_string(i) + ">";
  return "<" + tag + "<Always>1</Always><Name>" + name +
         "</Name><Create>create table if not exists %s " +
         "(n int) engine=InnoDB</Create><Convert>" + convert + "</Convert><Convert1>insert into " +
         name + "%s select -count(*) from %s</Convert1></" + tag;
}

void Define(const std::string& day, const std::string& month) {
  WriteFile(
      paths::kMysqlDefinitions,
      "<root><Mem><MidCnt>2</MidCnt><MidTab1><Name>A</Name><Create>create table %s (id int "
      "primary key, v int) engine=InnoDB</Create></MidTab1><MidTab2><Name>F</Name><Create>create "
      "table %s (id int primary key, u int unsigned, a text, b text, c text, d text, e text, f "
      "text, g text, h text, i mediumtext, flag int) engine=InnoDB</Create></MidTab2></Mem><Conv>"
      "<F><MidCnt>0</MidCnt></F><A><MidCnt>2</MidCnt>" +
          Mid(1, "T_AUTH1D_", day) + Mid(2, "T_AUTH1M_", month) + "</A></Conv></root>");
}

class Pipeline : public testing::Test {
 protected:
  Pipeline() {
    fs::remove_all(kSpool);
    fs::create_directories(kSpool);
    const MYSQLAUTH auth = server.Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password);
    WriteFile(paths::kLoaderTemplates, "<root/>");
    Define(kDay, kMonth);
    for (const std::string& name : server.Run("show databases like 'WLAN%'")) {
      server.Run("drop database " + name);
    }
    server.Run("create database WLAN_TUNE");
    g_nMainRun = 0;  // the registry's watcher ends at once: its statements are not looked at here
    engine = std::make_unique<CMidTable>();
    AwaitSingleThread();
    g_nMainRun = 1;
    EXPECT_TRUE(engine->Initialize());
    mark = server.Mark();
  }
  ~Pipeline() override { g_nMainRun = 0; }

  static std::string Drop(const std::string& table, const std::string& time,
                          const std::string& rows, const std::string& id = "1a2b3c4d") {
    const std::string stem = kSpool + id + "/" + id + "-" + table + "-20121231-" + time;
    WriteFile(stem + ".tmp", rows);
    fs::rename(stem + ".tmp", stem + ".dat");
    return stem;
  }
  std::vector<std::string> Sent() {
    const auto statements = server.Statements(mark);
    mark = server.Mark();
    return statements;
  }
  std::string Sum(const std::string& table, const std::string& db = kDb) {
    return server.Run("select ifnull(sum(n), 0) from " + db + "." + table).at(0);
  }

  MariadbServer& server = MariadbServer::Get();
  std::unique_ptr<CMidTable> engine;
  std::size_t mark = 0;
};

TEST_F(Pipeline, OneFilesWholeRoad) {
  const std::string stem = Drop(kMemA, "101500", "1\t5\n2\t6\n2\t7\n");
  EXPECT_TRUE(engine->MakeMidTable());
  const auto show = [](const std::string& table, const std::string& db = kDb) {
    return "show tables from " + db + " like \"" + table + "\"";
  };
  EXPECT_THAT(
      Sent(),
      ElementsAre("SHOW DATABASES LIKE 'WLAN_1a2b3c4d'", "create database WLAN_1a2b3c4d",
                  show(kMemA), "use WLAN_1a2b3c4d", "SHOW TABLES LIKE 'MEM_20121231_0004A'",
                  StartsWith("create table MEM_20121231_0004A"), show(kMemA + "_external"),
                  "load data infile \"" + stem + ".dat\" ignore into table " + kDb + "." + kMemA,
                  "use WLAN_1a2b3c4d", show(kMemA), "start transaction", show("T_AUTH1D_20121231"),
                  StartsWith("create table if not exists T_AUTH1D_20121231"),
                  show("T_AUTH1M_201212", "WLAN_TUNE"),
                  StartsWith("create table if not exists T_AUTH1M_201212"), "start transaction",
                  "insert into T_AUTH1D_20121231 select count(*) from MEM_20121231_0004A",
                  "insert into T_AUTH1M_201212 select count(*) from MEM_20121231_0004A", "commit",
                  "truncate table MEM_20121231_0004A"));
  EXPECT_THAT(ListFolder(kSpool + "1a2b3c4d"),
              ElementsAre(fs::path(stem).filename().string() + ".mid"));
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "2");
  EXPECT_THAT(server.Run("select * from " + kDb + "." + kMemA), testing::IsEmpty());
}

TEST_F(Pipeline, AFailedConversionLosesNothingAndCountsNothingTwice) {
  Define(kDay, "insert into nowhere select 1");
  Drop(kMemA, "101500", "1\t5\n2\t6\n");
  engine->MakeMidTable();  // the month table's fallback fails too
  const auto sent = Sent();
  EXPECT_THAT(sent, Contains("insert into T_AUTH1M_20121231 select -count(*) from " + kMemA));
  EXPECT_EQ(sent.back(), "rollback");
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "0");
  EXPECT_THAT(server.Run("select * from " + kDb + "." + kMemA), testing::SizeIs(2));

  Define("insert into nowhere select 1", kMonth);  // the day table's fallback works
  Drop(kMemA, "101600", "3\t5\n");
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "-3");
  EXPECT_EQ(Sum("T_AUTH1M_201212"), "3");

  server.Run("drop table " + kDb + ".T_AUTH1D_20121231");
  server.Run("create table " + kDb + ".T_AUTH1D_20121231 (x date not null, y date not null)");
  for (int i = 0; i < 102; ++i) {
    CapturedStdout out;
    engine->AddToConvert("1a2b3c4d-" + kMemA + "-20121231-101500.dat");
    engine->Convert();
    const bool told = out.text().find("midtable " + kDb + "T_AUTH1D_20121231 is bad, skipped!") !=
                      std::string::npos;
    EXPECT_EQ(told, i == 100) << i;
  }
}

TEST_F(Pipeline, TwoDatabasesInOnePassAndLeftoversInTheNext) {
  Drop("MEM_20121231_0001A", "101500", "1\t5\n");
  Drop("MEM_20121231_0005A", "101500", "1\t5\n", "5e6f7a8b");
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_EQ(Sum("T_AUTH1D_20121231", "WLAN_5e6f7a8b"), "1");
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "1");

  server.Run("create view " + kDb + ".aA as select 1");  // cannot be loaded into
  const std::string bad = Drop("aA", "101500", "1\n");
  const std::string good = Drop("bA", "101500", "1\t5\n");
  EXPECT_FALSE(engine->MakeMidTable());
  EXPECT_THAT(Sent(), Contains(HasSubstr("into table " + kDb + ".aA")));
  EXPECT_TRUE(fs::exists(bad + ".err") && fs::exists(good + ".dat"));
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_TRUE(fs::exists(good + ".mid"));
}

TEST_F(Pipeline, BadInputIsAFileSetAsideAndMemoryStaysFlat) {
  for (const std::string& rows : {std::string(), std::string("\x01\xff\0\x80\t\t\n\n'\"\\", 10)}) {
    const std::string stem = Drop(kMemA, "101500", rows);
    engine->MakeMidTable();
    EXPECT_FALSE(fs::exists(stem + ".dat"));
    fs::remove_all(kSpool + "1a2b3c4d");
  }
  fs::create_directory(kSpool + "00000000");
  fs::permissions(kSpool + "00000000", fs::perms::none);
  const std::string big = Drop("MEM_20121231_0004F", "101500", "");
  {
    std::ofstream out(big + ".dat");
    for (int i = 0; i < 3200; ++i) {
      out << i << "\t1\ta\tb\tc\td\te\tf\tg\th\t" << std::string(65'536, 'x') << '\n';
    }
  }
  ASSERT_GT(fs::file_size(big + ".dat"), 200'000'000U);
  const auto peak_kib = [] {
    const std::string status = ReadFile("/proc/self/status");
    return std::stol(status.substr(status.find("VmHWM:") + 6));
  };
  const long before = peak_kib();
  CapturedStdout out;
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_LT(peak_kib() - before, 10'000);
  EXPECT_THAT(out.text(), HasSubstr("scan dir " + kSpool + "00000000 errno 13"));
  EXPECT_TRUE(fs::exists(big + ".mid"));
  fs::permissions(kSpool + "00000000", fs::perms::all);
}

TEST_F(Pipeline, ServerAwayForLessAndForMoreThanElevenAttempts) {
  int result = -1;
  std::thread runner([&] { result = engine->Run(); });
  server.Kill();
  const std::string stem = Drop(kMemA, "101500", "1\t5\n");
  sleep(2);
  server.Start();
  for (int i = 0; i < 200 && !fs::exists(stem + ".mid"); ++i) usleep(50'000);
  EXPECT_TRUE(fs::exists(stem + ".mid"));
  CapturedStdout out;
  server.Kill();
  runner.join();
  server.Start();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(g_nMainRun, 0);
  const std::string text = out.text();
  for (int left = 9; left >= 0; --left) {
    EXPECT_THAT(text, HasSubstr("database not avaliable thread tried " + std::to_string(left)));
  }
  EXPECT_THAT(text, HasSubstr("database not avaliable thread exit\n"));
}

}  // namespace
