// What `midtablectl check` finds on the server: login, privileges, databases, year tables, modes.

#include "midtablectl/check_fixture.h"

namespace {

const std::string kDrop = "drop database if exists WLAN_midtablectl";
const std::string kYearTable = "WLAN_1a2b3c4d.T_FLOW1Y_";
const std::string kNotTried = "; definitions and loads were not tried -> ";
const std::string kGrant = "grant select, insert, update, create, drop on `WLAN\\_%`.* to poor@'%'";

class CheckServer : public CheckOnServerTest {};

TEST_P(CheckServer, Finds) {
  GetParam().SetUp();
  Finds(GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Where, CheckServer,
    testing::Values(
        Case("TheDatabaseToLogInToIsClosed", {LogInAsOneWhoMay("file on *.*")},
             "server: error: no login as poor at 127.0.0.1 port PORT: {} -> grant select on "
             "vqcfg.* to 'poor'@'%'"),
        Case("NothingMayBeChanged",
             {LogInAsOneWhoMay("select, insert, update, create, drop, file on *.*"),
              Sql("set global read_only = 1")},
             "server: error: \"" + kDrop + "\" fails: {" + kDrop + "}" + kNotTried +
                 "the server takes no changes (read_only): is it a replica?"),
        Case("ThereAreNoEnterpriseUsers", {Sql("drop table vqcfg.EnterpriseUser")},
             "server: error: vqcfg.EnterpriseUser cannot be read ({update vqcfg.EnterpriseUser set "
             "crc = 1}); two error lines every 10 seconds"),
        Case("ThereIsNoYearTableOfAFile", {Write(kFile + ".dat")},
             "server: error: year table " + kYearTable +
                 "2012 is missing: rows of kind F stay in their mem tables"),
        Case("ThereIsNoYearTableOfNextYear", {Sql("drop table " + kYearTable + Year(1))},
             "server: warning: year table " + kYearTable + Year(1) + " is not there yet")),
    kNameOfCase);

TEST_F(CheckOnServerTest, LeavesNothing) {
  server.Run("create database WLAN_midtablectl; create table WLAN_midtablectl.probe (a int)");
  Finds({});
  EXPECT_EQ(server.Run("show databases like '%midtablectl'"), Words());
  EXPECT_EQ(ListFolder(kFolder), Words());
}

TEST_F(CheckOnServerTest, IsRefusedWhileAnotherCheckIsAtWork) {
  const auto other = CreateSqlBase(server.Auth());
  ASSERT_EQ(0, other->connectDB());
  EXPECT_EQ(0, other->executeSQL("do get_lock('midtablectl', 0)", 0));
  EXPECT_EQ(
      Midtablectl({"check"}),
      (Outcome{2, "", "another check is at work on this server: run this one when it is done\n"}));
}

TEST_F(CheckOnServerTest, NamesPrivilegesThatAreEnough) {
  LogInAsOneWhoMay("file on *.*")();
  server.Run("grant select on vqcfg.* to 'poor'@'%';" + kGrant);
  Finds({});
}

TEST_F(CheckOnServerTest, FindsTheSamplesInOrder) {
  const std::string demo = MIDTABLE_DEMO;
  WriteFile(kSettings, ReadFile(demo + "dbinfo.conf"));
  Replace(kSettings, "port=3306", "port=" + port);
  Replace(kSettings, "password=change-me", "password=secret");
  WriteFile(kDefinitions, ReadFile(demo + "vqlog.xml"));
  WriteFile(kTemplates, ReadFile(demo + "sqlldr_ctl.xml"));
  WriteFile(kBlocks, ReadFile(demo + "localtour.csv"));
  server.Run("drop database vqcfg; drop database WLAN_TUNE;" + ReadFile(demo + "setup.sql"));
  server.MakeDatabases({"WLAN_1a2b3c4d"});
  const std::string tables = "use WLAN_1a2b3c4d;" + ReadFile(demo + "year_tables.sql");
  server.Run(std::regex_replace(tables, std::regex("_YYYY"), "_" + Year(0)));
  server.Run(std::regex_replace(tables, std::regex("_YYYY"), "_" + Year(1)));
  server.Run("set global innodb_flush_log_at_trx_commit = 1, sync_binlog = 1");
  Finds({});
}

}  // namespace
