// midtablectl where every row is counted exactly once (delivery=once).
#include <thread>

#include "gmock/gmock.h"
#include "midtablectl/check_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kTable = "table WLAN_1a2b3c4d.MEM_20121230_0000F";

// The service says that the table's files wait, and why.
void LogHeldBack(const std::string& reason) {
  Log("Midtable", "ErrLog", kTable + " held back, 3 files wait: " + reason);
}

class OnceTest : public MidtablectlServerTest {
 protected:
  OnceTest() {
    Replace(kSettings, "dbtype=mysql", "dbtype=mysql\ndelivery=once");
    server.Run("set global innodb_flush_log_at_trx_commit = 1, sync_binlog = 1, local_infile = 1");
  }
};

TEST_F(OnceTest, StatusShowsWhatIsHeldBackUntilItGoesOn) {
  LogHeldBack("Unknown column 'x'");
  const Outcome held = Midtablectl({"status"});
  EXPECT_EQ(held.status, 1);
  EXPECT_THAT(held.output,
              HasSubstr("held back: " + kTable + ", 3 files wait: Unknown column 'x'\n"));
  EXPECT_THAT(held.output, HasSubstr("\nWhat to do: midtablectl why\n"));
  EXPECT_THAT(Midtablectl({"status", "--json"}).output, HasSubstr("\"reason\": \"Unknown column"));
  Log("Midtable", "InfoLog", kTable + " goes on");
  const Outcome over = Midtablectl({"status"});
  EXPECT_EQ(over.status, 0);
  EXPECT_THAT(over.output, Not(HasSubstr("held back")));
}

TEST_F(OnceTest, ThePageSaysWhatToDoAboutWhatIsHeldBack) {
  fs::create_directories("/tmp/metrics");
  LogHeldBack("local_infile of the server is off, no file can be loaded");
  Midtablectl({"status", "--html", "/tmp/metrics/page.html"});
  EXPECT_THAT(ReadFile("/tmp/metrics/page.html"),
              HasSubstr("To do: set global local_infile = 1 on the server, and local_infile=1"));
}

TEST_F(OnceTest, StatusShowsTheBatchAtWork) {
  std::thread work([this] { server.Run("use WLAN_1a2b3c4d; select sleep(3)"); });
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const std::string output = Midtablectl({"status"}).output;
  work.join();
  EXPECT_THAT(output, HasSubstr("at work: WLAN_1a2b3c4d for "));
  EXPECT_THAT(output, HasSubstr(" s: select sleep(3)\n"));
}

TEST_F(OnceTest, ACollectorIsToldWhatIsHeldBackAsLongAsTheRunLogCanBeRead) {
  LogHeldBack("Unknown column 'x'");
  EXPECT_THAT(Samples(), HasSubstr("midtable_held_back 1\n"));
  fs::permissions(kRunLog + Today() + ".log", fs::perms::none);
  EXPECT_THAT(Samples(), Not(HasSubstr("midtable_held_back")));
}

TEST_F(OnceTest, ACollectorIsToldOfTheLedgerApartFromMemTables) {
  server.Run("create table WLAN_1a2b3c4d.midtable_ledger select 1 union select 2");
  const std::string samples = Samples();
  EXPECT_THAT(samples, HasSubstr("midtable_ledger_rows{database=\"WLAN_1a2b3c4d\"} 2\n"));
  EXPECT_THAT(samples, HasSubstr("midtable_mem_table_rows{database=\"WLAN_1a2b3c4d\"} 0\n"));
}

TEST_F(OnceTest, WhyTellsWhatAFileWaitsFor) {
  WriteFile(kFile + ".dat", "");
  LogHeldBack("Unknown column 'x'");
  const Outcome why = Midtablectl({"why", kFile + ".dat"});
  EXPECT_EQ(why.status, 0);
  EXPECT_THAT(why.output, HasSubstr("held back, 3 files wait: Unknown column 'x'\n"));
  EXPECT_THAT(why.output, HasSubstr("It is counted as soon as that has ended"));
}

TEST_F(OnceTest, WhyOfAFileThatOnlyWaitsForItsTurn) {
  WriteFile(kFile + ".dat", "");
  Log("Midtable", "ErrLog", "table WLAN_1a2b3c4d.MEM_20121231_0000F held back, 1 files wait: x");
  EXPECT_THAT(Midtablectl({"why", kFile + ".dat"}).output, HasSubstr("it waits for its turn"));
}

TEST_F(OnceTest, RetrySaysThatItHasNothingToSortOut) {
  EXPECT_THAT(Midtablectl({"retry", "--all"}).output,
              HasSubstr("With delivery=once there is nothing to sort out"));
}

class CheckOnce : public OnceTest, public testing::WithParamInterface<Case> {};

TEST_P(CheckOnce, Finds) {
  GetParam().SetUp();
  const Words expected = WithWords(GetParam().lines);
  ExpectFindings(Midtablectl({"check"}), expected);
}

INSTANTIATE_TEST_SUITE_P(
    That, CheckOnce,
    testing::Values(
        Case("AllIsInOrder", {}),
        Case("NeitherFileNorEnterpriseUsersAreNeeded",
             {Sql("drop table vqcfg.EnterpriseUser"),
              LogInAsOneWhoMay("select, insert, update, delete, create, drop on *.*")}),
        Case("LocalFilesAreOff", {Sql("set global local_infile = 0")},
             "server: error: local_infile is off: no file can be loaded, all of them wait"),
        Case("APowerLossMayTakeCommits", {Sql("set global innodb_flush_log_at_trx_commit = 2")},
             "server: warning: innodb_flush_log_at_trx_commit is 2: a power loss of the server may "
             "lose counted rows"),
        Case("TheLedgerCannotBeKeptSmall",
             {LogInAsOneWhoMay("select, insert, update, create, drop on *.*")},
             "server: error: \"delete from probe\" fails: {delete from WLAN_midtablectl.probe}"),
        Case("AYearTableCannotBeRolledBack",
             {Sql("alter table WLAN_1a2b3c4d.T_FLOW1Y_" + Year(0) + " engine = MyISAM")},
             kDefinitions + ":17: error: WLAN_1a2b3c4d.T_FLOW1Y_" + Year(0) +
                 " has engine myisam, which cannot be rolled back: its files wait")),
    kNameOfCase);

}  // namespace
