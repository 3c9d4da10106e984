// What delivery=once promises, on a real server.
#include <sys/inotify.h>
#include <sys/stat.h>

#include "delivery/delivery_fixture.h"
#include "testing/frozen_server.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Once = DeliveryTest;

TEST_F(Once, FilesOfOneTableAreCountedTogetherAndBecomeMid) {
  const std::string first = Drop("101500", "1\t10\n2\t20\n");
  const std::string second = Drop("101600", "2\t20\n3\t30\n");
  RunUntil([&] { return Exists(first + ".mid") && Exists(second + ".mid"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1", "2:2", "3:1"));
  EXPECT_EQ(RowsWaiting(), "0");
  EXPECT_THAT(server.Run("select name, file_rows from WLAN_1a2b3c4d.midtable_ledger where kind = "
                         "'F' order by name"),
              ElementsAre("1a2b3c4d-MEM_20121231_1000A-20121231-101500.dat\t2",
                          "1a2b3c4d-MEM_20121231_1000A-20121231-101600.dat\t2"));
}

TEST_F(Once, AFileThatComesWhileItRunsIsSeenByTheWatch) {
  Start();
  ASSERT_TRUE(Eventually([] { return ReadLog().find("delivery is once") != std::string::npos; }));
  const std::string stem = Drop("101500", "1\t10\n");
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
  fs::create_directories(std::string(paths::kSpool) + "ffffffff");
  const std::string other =
      std::string(paths::kSpool) + "ffffffff/ffffffff-MEM_20121231_1000F-20121231-101500";
  WriteFile(other + ".dat", "");
  EXPECT_TRUE(Eventually([&] { return Exists(other + ".mid"); })) << "a new device's folder";
}

TEST_F(Once, ACountedFileThatGetsItsOldNameBackIsNotCountedAgain) {
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  fs::rename(stem + ".mid", stem + ".dat");
  RunUntil([&] { return Exists(stem + ".mid"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
  EXPECT_THAT(ReadLog(), HasSubstr("file (" + stem + ".dat) is counted already"));
}

TEST_F(Once, AnotherFileOfACountedNameIsCounted) {
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  Drop("101500", "1\t10\n2\t20\n");
  RunUntil([&] { return !Exists(stem + ".dat"); });
  EXPECT_THAT(Counted(), ElementsAre("1:2", "2:1"));
}

TEST_F(Once, ARowWhoseKeyAnotherFileHasIsCountedAsInFileAfterFile) {
  Define("create table %s (id int not null primary key, v int not null) engine=InnoDB", kConvert);
  const std::string first = Drop("101500", "1\t10\n2\t20\n");
  const std::string second = Drop("101600", "2\t20\n3\t30\n3\t31\n");
  const std::string third = Drop("101700", "4\t40\n");
  RunUntil([&] { return Exists(third + ".mid") && Exists(second + ".mid"); });
  EXPECT_TRUE(Exists(first + ".mid"));
  EXPECT_THAT(Counted(), ElementsAre("1:1", "2:2", "3:1", "4:1"));
}

TEST_F(Once, RowsThatTheOtherWayOfWorkingLeftAreCountedOnce) {
  server.Run(
      "create table WLAN_1a2b3c4d.MEM_20121231_0000A (id int not null, v int not null) "
      "engine=InnoDB; insert into WLAN_1a2b3c4d.MEM_20121231_0000A values (7, 1), (7, 2)");
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1", "7:2"));
}

TEST_F(Once, AFileThatATriggerRefusesIsSetAsideAndTheOthersAreCounted) {
  server.Run(
      "create table WLAN_1a2b3c4d.MEM_20121231_0000A (id int not null, v int not null) "
      "engine=InnoDB");
  RefuseInserts("MEM_20121231_0000A", "new.id = 9",
                "sqlstate '45000' set message_text = 'no nine'");
  const std::string good = Drop("101500", "1\t10\n");
  const std::string bad = Drop("101600", "2\t20\n9\t90\n");
  const std::string late = Drop("101700", "3\t30\n");
  RunUntil([&] { return Exists(late + ".mid") && Exists(bad + ".err"); });
  EXPECT_TRUE(Exists(good + ".mid"));
  EXPECT_THAT(Counted(), ElementsAre("1:1", "3:1"));
  EXPECT_THAT(ReadLog(), HasSubstr("file (" + bad + ".dat) set aside: no nine"));
}

TEST_F(Once, AFileThatOnlyAConversionRefusesIsSetAsideOnceAnotherHasPassed) {
  Define(kCreateMem,
         " select id, 10 div (id != 9) + count(*) - 10 from %s group by 1 on duplicate key update "
         "n = n + values(n)");
  server.Run("set global sql_mode = 'STRICT_ALL_TABLES,ERROR_FOR_DIVISION_BY_ZERO'");
  const std::string bad = Drop("101500", "9\t90\n");
  const std::string good = Drop("101600", "1\t10\n");
  RunUntil([&] { return Exists(good + ".mid") && Exists(bad + ".err"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(Once, TablesThatCannotBeRolledBackAreRefusedByNameBeforeARowMoves) {
  server.Run("alter table WLAN_1a2b3c4d.T_KIND1Y_A2012 engine=MyISAM");
  const std::string stem = Drop("101500", "1\t10\n");
  Start();
  EXPECT_TRUE(Eventually([] {
    return ReadLog().find(
               "table WLAN_1a2b3c4d.T_KIND1Y_A2012 has engine MyISAM, which cannot be "
               "rolled back") != std::string::npos;
  }));
  Stop();
  EXPECT_TRUE(Exists(stem + ".dat"));
  EXPECT_THAT(server.Run("select * from WLAN_1a2b3c4d.MEM_20121231_0000A"), IsEmpty());
}

TEST_F(Once, WhatIsNoRegularFileOrOfUnknownKindIsSetAsideUnread) {
  const std::string stem = kFolder + "1a2b3c4d-MEM_20121231_1000A-20121231-";
  fs::create_symlink(paths::kSettingsFile, stem + "101500.dat");
  ASSERT_EQ(mkfifo((stem + "101600.dat").c_str(), 0600), 0);
  fs::create_directories(stem + "101700.dat");
  const std::string unsafe = Drop("101900'", "1\t10\n");
  const std::string unknown = Drop("101500", "1\n", "Z");
  const std::string good = Drop("101800", "1\t10\n");
  RunUntil([&] { return Exists(good + ".mid") && Exists(unknown + ".err"); });
  EXPECT_TRUE(Exists(unsafe + ".err"));
  for (const char* time : {"101500", "101600", "101700"}) {
    EXPECT_NE(fs::symlink_status(stem + time + ".err").type(), fs::file_type::not_found) << time;
  }
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(Once, RecordsOfKindFGetTheirFlagsOnTheWayAndTheFileStaysAsItCame) {
  WriteFile(paths::kLocalNumberBlocks, "1380013\n");
  const auto record = [](const char* user) {
    return std::string("a\t") + user + "\tc\td\te\tf\tg\th\ti\tj\tk\n";
  };
  const std::string rows =
      record("800138000") + record("1") + record("0") + "a line that is no record\n";
  const std::string stem = Drop("101500", rows, "F");
  RunUntil([&] { return Exists(stem + ".mid"); });
  EXPECT_THAT(server.Run("select * from WLAN_1a2b3c4d.T_FLAG1D_20121231 order by 1"),
              ElementsAre("0\t1", "1\t1", "2\t1"));
  EXPECT_EQ(ReadFile(stem + ".mid"), rows);
  EXPECT_THAT(ListFolder(kFolder), testing::SizeIs(1)) << "no copy, no .orig";
  EXPECT_THAT(ReadLog(), HasSubstr("local 1 visitors 1 without user 1 dropped 1"));
  EXPECT_THAT(ReadLog(), HasSubstr("lines left out: 1"));
}

TEST_F(Once, TheServerIsWaitedForAtTheStartToo) {
  server.Kill();
  const std::string stem = Drop("101500", "1\t10\n");
  Start();
  EXPECT_TRUE(Eventually(
      [] { return ReadLog().find("server held back, 1 files wait: ") != std::string::npos; }));
  server.Start();
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(Once, TwoHundredFiftySixFilesAreOneLoadAndOneTransactionAndAFileOfMoreThan8MiBIsOne) {
  for (int i = 0; i < 260; ++i) Drop(std::to_string(101'000 + i), std::to_string(i) + "\t1\n");
  std::string rows;
  while (rows.size() < 9 << 20) rows += "7\t1\n";
  const std::string large = Drop("200000", rows);
  const std::size_t mark = server.Mark();
  RunUntil([&] { return Exists(large + ".mid"); });
  EXPECT_THAT(LoadsOfCommits(mark), ElementsAre(1, 1, 1));
  EXPECT_THAT(server.Run("select count(*) from WLAN_1a2b3c4d.midtable_ledger where kind = 'F' and "
                         "file_rows = 1"),
              ElementsAre("260"));
}

TEST_F(Once, ALastLineWithoutAnEndDoesNotRunIntoTheNextFile) {
  Drop("101500", "1\t10");
  Drop("101600", "2\t20\n");
  const std::string last = Drop("101700", "3\t30");
  const std::size_t mark = server.Mark();
  RunUntil([&] { return Exists(last + ".mid"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1", "2:1", "3:1"));
  EXPECT_THAT(LoadsOfCommits(mark), ElementsAre(1));
}

TEST_F(Once, AnEscapedEndOfAFileDoesNotTakeTheNextFilesLineWithIt) {
  Drop("101500", "1\t10\\");
  const std::string last = Drop("101600", "2\t20\n");
  const std::size_t mark = server.Mark();
  RunUntil([&] { return Exists(last + ".mid"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1", "2:1"));
  // A text for a far server ends with a commit, which this one does not get to.
  const std::vector<int> near = {3};
  const std::vector<int> far = {1, 2};
  EXPECT_EQ(LoadsOfCommits(mark), far_line == nullptr ? near : far) << "together, then each";
}

TEST_F(Once, WhereNothingCanBeWatchedFilesAreFoundByLookingEachSecond) {
  std::vector<FileDescriptor> taken;  // all that a user may have
  do taken.emplace_back(inotify_init1(IN_CLOEXEC));
  while (taken.back());
  Start();
  ASSERT_TRUE(Eventually([] { return LogHas("delivery is once"); }));
  const std::string stem = Drop("101500", "1\t10\n");
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
}

TEST_F(Once, AFileThatIsWrittenToWhileItIsReadIsNotTaken) {
  const std::string path = Drop("101500", "1\t10\n") + ".dat";
  LoadSource source(MemFile::Parse(path), nullptr);
  ASSERT_EQ(source.Open(), LoadSource::Opened::kReady);
  EXPECT_FALSE(source.HasChanged());
  std::ofstream(path, std::ios::app) << "2\t20\n";
  EXPECT_TRUE(source.HasChanged());
}

TEST_F(Once, AStopInTheMiddleOfALargeFileTakesASecondAndLeavesNothing) {
  std::string rows;
  while (rows.size() < 64 << 20) rows += std::to_string(rows.size()) + "\t1\n";
  const std::string stem = Drop("101500", rows);
  Start();
  ASSERT_TRUE(Eventually([&] {
    return !server.Run("select 1 from information_schema.processlist where info like 'load%'")
                .empty();
  }));
  EXPECT_LT(MeasureStop(), kStopLimit);
  EXPECT_TRUE(Exists(stem + ".dat"));
  EXPECT_TRUE(Eventually([&] { return RowsWaiting() == "0"; })) << "the server takes it back";
}

TEST_F(Once, AStopTakesASecondWhileTheServerDoesNotAnswer) {
  const std::string first = Drop("101500", "1\t10\n");
  Start();
  ASSERT_TRUE(Eventually([&] { return Exists(first + ".mid"); }));
  const FrozenServer frozen(server);
  Drop("101600", "2\t20\n");
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(MeasureStop(), kStopLimit);
}

TEST_F(Once, AnIdleServicePutsNoStatementAndWritesNoLine) {
  const std::string stem = Drop("101500", "1\t10\n");
  Start();
  ASSERT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const std::size_t mark = server.Mark();
  const std::string log = ReadLog();
  std::this_thread::sleep_for(std::chrono::seconds(3));
  EXPECT_THAT(server.Statements(mark), IsEmpty());
  EXPECT_EQ(ReadLog(), log);
}

TEST(LocalLoads, TheServerGetsNothingOutsideOfALoad) {
  MYSQLAUTH auth = MariadbServer::Get().Auth("mysql");
  Connection sql(&auth);
  ASSERT_EQ(sql.connectDB(), 0);
  ASSERT_TRUE(sql.Run("create temporary table t (line text)"));
  EXPECT_FALSE(sql.Run("load data local infile '/etc/passwd' into table t"));
  EXPECT_EQ(sql.Reason(), "no load is at work");
  std::vector<SqlRecord> rows;
  EXPECT_TRUE(sql.Query("select * from t", rows));
  EXPECT_THAT(rows, IsEmpty());
}

}  // namespace
