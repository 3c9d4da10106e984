// The engine on a real server: what it sends, in which order, and what is left on disk and in
// tables.
#include <unistd.h>

#include <fstream>

#include "service/pipeline_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(Pipeline, SendsTheseStatementsForAFileAndNoOthers) {
  const std::string stem = Drop(kMemA, "101500", "1\t5\n2\t6\n2\t7\n");
  EXPECT_TRUE(engine->MakeMidTable());
  const auto show = [](const std::string& table, const std::string& db = kDb) {
    return "show tables from " + db + " like \"" + table + "\"";
  };
  EXPECT_THAT(
      Sent(),
      // The first look is for rows that an earlier run left, once for each database.
      ElementsAre("SHOW DATABASES LIKE 'WLAN_1a2b3c4d'", "SHOW DATABASES LIKE 'WLAN_1a2b3c4d'",
                  "create database WLAN_1a2b3c4d", show(kMemA), "use WLAN_1a2b3c4d",
                  "SHOW TABLES LIKE 'MEM_20121231_0004A'",
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
  EXPECT_THAT(MemRows(), IsEmpty());
}

// The engine with a file of two rows and definitions of which one may fail.
class FailedConversion : public Pipeline {
 protected:
  const std::string kBroken = "insert into nowhere select 1";

  std::vector<std::string> Convert(const std::string& day, const std::string& month) {
    Define(day, month);
    Drop(kMemA, "101500", "1\t5\n2\t6\n");
    engine->MakeMidTable();
    return Sent();
  }
};

TEST_F(FailedConversion, TriesTheFallback) {
  Convert(kBroken, kMonth);
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "-2");
  EXPECT_EQ(Sum("T_AUTH1M_201212"), "2");
}

TEST_F(FailedConversion, RollsAllBackWhereTheFallbackFailsToo) {
  const auto sent = Convert(kDay, kBroken);
  EXPECT_THAT(sent, Contains("insert into T_AUTH1M_20121231 select -count(*) from " + kMemA));
  EXPECT_EQ(sent.back(), "rollback");
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "0");
  EXPECT_THAT(MemRows(), testing::SizeIs(2));
}

TEST_F(FailedConversion, IsMadeUpForWithTheNextFile) {
  Convert(kDay, kBroken);
  Define(kDay, kMonth);
  Drop(kMemA, "101600", "3\t5\n");
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "3");
  EXPECT_EQ(Sum("T_AUTH1M_201212"), "3");
}

TEST_F(FailedConversion, OfABadMidTableIsToldAtThe101stTime) {
  Convert(kDay, kMonth);
  server.Run("drop table " + kDb + ".T_AUTH1D_20121231");
  server.Run("create table " + kDb + ".T_AUTH1D_20121231 (x date not null, y date not null)");
  for (int i = 1; i <= 102; ++i) {
    CapturedStdout out;
    engine->AddToConvert("1a2b3c4d-" + kMemA + "-20121231-101500.dat");
    engine->Convert();
    const bool told = out.text().find("midtable " + kDb + "T_AUTH1D_20121231 is bad, skipped!") !=
                      std::string::npos;
    EXPECT_EQ(told, i == 101) << i;
  }
}

TEST_F(Pipeline, TwoDatabasesInOnePass) {
  Drop("MEM_20121231_0001A", "101500", "1\t5\n");
  Drop("MEM_20121231_0005A", "101500", "1\t5\n", "5e6f7a8b");
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_EQ(Sum("T_AUTH1D_20121231", "WLAN_5e6f7a8b"), "1");
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "1");
}

TEST_F(Pipeline, AFileThatCannotBeLoadedLeavesTheOthersToTheNextPass) {
  server.Run("create database " + kDb);
  server.Run("create view " + kDb + ".aA as select 1");
  const std::string bad = Drop("aA", "101500", "1\n");
  const std::string good = Drop("bA", "101500", "1\t5\n");
  EXPECT_FALSE(engine->MakeMidTable());
  EXPECT_THAT(Sent(), Contains(HasSubstr("into table " + kDb + ".aA")));
  EXPECT_TRUE(fs::exists(bad + ".err"));
  EXPECT_TRUE(fs::exists(good + ".dat"));
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_TRUE(fs::exists(good + ".mid"));
}

TEST_F(Pipeline, AFileOfRubbishDoesNotStay) {
  for (const std::string& rows : {std::string(), std::string("\x01\xff\0\x80\t\t\n\n'\"\\", 10)}) {
    const std::string stem = Drop(kMemA, "101500", rows);
    engine->MakeMidTable();
    EXPECT_FALSE(fs::exists(stem + ".dat"));
    fs::remove_all(kSpool + "1a2b3c4d");
  }
}

TEST_F(Pipeline, AFolderThatCannotBeReadIsNamedInTheLog) {
  const std::string folder = kSpool + "00000000";
  fs::create_directory(folder);
  fs::permissions(folder, fs::perms::none);
  Drop(kMemA, "101500", "1\t5\n");
  CapturedStdout out;
  EXPECT_TRUE(engine->MakeMidTable()) << "others are not disturbed";
  EXPECT_THAT(out.text(), HasSubstr("scan dir " + folder + " errno 13"));
  fs::permissions(folder, fs::perms::all);
}

TEST_F(Pipeline, AFileOf200MBTakesNoMemory) {
  const std::string stem = Drop("MEM_20121231_0004F", "101500", "");
  {
    std::ofstream out(stem + ".dat");
    for (int i = 0; i < 3200; ++i) {
      out << i << "\t1\ta\tb\tc\td\te\tf\tg\th\t" << std::string(65'536, 'x') << '\n';
    }
  }
  ASSERT_GT(fs::file_size(stem + ".dat"), 200'000'000U);
  const auto peak_kib = [] {
    const std::string status = ReadFile("/proc/self/status");
    return std::stol(status.substr(status.find("VmHWM:") + 6));
  };
  const long before = peak_kib();
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_LT(peak_kib() - before, 10'000);
  EXPECT_TRUE(fs::exists(stem + ".mid"));
}
