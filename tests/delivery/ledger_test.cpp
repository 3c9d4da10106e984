// What the ledger is asked and told, and what it does not forget.
#include "delivery/delivery_fixture.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LedgerTest : public DeliveryTest {
 protected:
  LedgerTest() {
    EXPECT_EQ(sql.connectDB(), 0);
    EXPECT_TRUE(ledger.Create());
  }
  ~LedgerTest() override { Stop(); }

  std::vector<std::string> FilesIn(const std::string& condition) const {
    return server.Run("select name from WLAN_1a2b3c4d.midtable_ledger where kind = 'F' and " +
                      condition);
  }

  MYSQLAUTH auth = server.Auth(kDb);
  Connection sql{&auth};
  Ledger ledger{sql};
};

TEST_F(LedgerTest, AnUnreadableLedgerMeansWaitAndNotThatNothingIsCounted) {
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  fs::rename(stem + ".mid", stem + ".dat");
  ASSERT_TRUE(sql.Run("lock tables midtable_ledger write"));
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("held back, 1 files wait: Lock wait timeout"); }));
  EXPECT_TRUE(Exists(stem + ".dat"));
  ASSERT_TRUE(sql.Run("unlock tables"));
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(LedgerTest, ARenameThatFailsAfterTheCommitIsTriedUntilItWorks) {
  const std::string stem = Drop("101500", "1\t10\n");
  fs::create_directories(stem + ".mid/in the way");
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("rename to"); }));
  Stop();
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("is counted already"); })) << "after a restart too";
  std::this_thread::sleep_for(std::chrono::seconds(3));
  const std::string log = ReadLog();
  EXPECT_EQ(log.find("is counted already"), log.rfind("is counted already")) << log;
  fs::remove_all(stem + ".mid");
  EXPECT_TRUE(Eventually([&] { return fs::is_regular_file(stem + ".mid"); }));
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(LedgerTest, ABatchThatAnotherOvertookCountsNothing) {
  ASSERT_TRUE(ledger.AddMark("MEM_20121231_0000A"));
  bool taken = false;
  ASSERT_TRUE(ledger.TakeMark("MEM_20121231_0000A", "", "one", taken));
  EXPECT_TRUE(taken);
  ASSERT_TRUE(ledger.TakeMark("MEM_20121231_0000A", "", "two", taken));
  EXPECT_FALSE(taken);
  MemTableMark mark;
  ASSERT_TRUE(ledger.ReadMark("MEM_20121231_0000A", mark));
  EXPECT_EQ(mark.token, "one");
}

TEST_F(LedgerTest, TheOldestFilesLeaveItOnceTheyWereSeenUnderTheirFinalName) {
  server.Run(
      "insert into WLAN_1a2b3c4d.midtable_ledger (kind, name, size, modified, state, changed_at) "
      "select 'F', concat('old', seq), 1, 1, 'S', now() - interval seq second from " +
      server.Numbers(20'002));
  server.Run(
      "insert into WLAN_1a2b3c4d.midtable_ledger (kind, name, size, modified, changed_at) values "
      "('F', '1a2b3c4d-missing.dat', 1, 1, now() - interval 9 year)");
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid") && FilesIn("name = 'old20002'").empty(); });
  EXPECT_THAT(FilesIn("state = 'S'"), testing::SizeIs(20'000));
  EXPECT_THAT(FilesIn("name like '%101500.dat' and state = 'S'"), testing::SizeIs(1));
  EXPECT_THAT(FilesIn("state = ''"), ElementsAre("1a2b3c4d-missing.dat"));
}

TEST_F(LedgerTest, WhatAPowerLossCouldTakeIsNamedAtTheStart) {
  server.Run("set global innodb_flush_log_at_trx_commit = 2, sync_binlog = 1");
  RunUntil([] { return LogHas("innodb_flush_log_at_trx_commit is 2: a power loss"); });
  server.Run("set global innodb_flush_log_at_trx_commit = 1");
  const auto count = [] {
    const std::string log = ReadLog();
    return log.find("power loss") == log.rfind("power loss");
  };
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  EXPECT_TRUE(count()) << "not of a server that is set as it should be";
}

TEST_F(LedgerTest, RowsThatACrashLeftInATableWithoutFilesAreRemoved) {
  const std::string stem = Drop("101500", "1\t10\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  server.Run(
      "insert into WLAN_1a2b3c4d.MEM_20121231_0000A values (1, 10); update "
      "WLAN_1a2b3c4d.midtable_ledger set state = 'C' where kind = 'M'");
  RunUntil([&] { return RowsWaiting() == "0"; });
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

}  // namespace
