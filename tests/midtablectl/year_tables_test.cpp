// The year tables that `midtablectl year-tables` makes, and the scripts that it takes apart.
#include "midtablectl/setup/creation_script.h"
#include "midtablectl/setup_fixture.h"

namespace {

using testing::HasSubstr;

// --- scripts

// The statements that a script stands for; the error alone where there is one.
Words Statements(const std::string& script) {
  std::string error;
  Words statements;
  for (const ctl::Creation& one : ctl::ParseCreations(script, error)) {
    statements.push_back(one.Statement());
  }
  return error.empty() ? statements : Words{"error: " + error};
}

TEST(CreationScript, StatementsAreSplitWhereSqlDoes) {
  EXPECT_EQ(
      Statements("-- a; b\ncreate table if not exists a (n int comment 'x;--y') ; # c\n"
                 "CREATE  Database\nif not exists `d-e`;/* ; */;"
                 "create table if not exists d.`t` (n int)"),
      (Words{"create table if not exists `a` (n int comment 'x;--y')",
             "create database if not exists `d-e`", "create table if not exists `d`.`t` (n int)"}));
}

TEST(CreationScript, AnythingElseIsRefused) {
  for (const std::string statement :
       {"drop table a", "create table a (n int)", "create table if not exists", "create view a",
        "create table if not exists 'a' (n int)", "insert into a values (1)", "x",
        "create or replace table a (n int)", "create table if not exists `a``; drop table b; --`",
        "create table if not exists a. (n int)"}) {
    EXPECT_THAT(Statements(statement).at(0), testing::StartsWith("error: \"")) << statement;
  }
}

TEST(CreationScript, EveryTruncationEnds) {
  const std::string script = ReadFile(std::string(MIDTABLE_DEMO) + "year_tables.sql");
  for (std::size_t size = 0; size <= script.size(); ++size) Statements(script.substr(0, size));
  EXPECT_EQ(Statements(script).size(), 2U);
}

// --- the command

class YearTablesTest : public SetupTest {
 protected:
  YearTablesTest() {
    ExpectReady(RunSetup({"--yes", "--devices", "1a2b3c4d"}));
    server.Run("create database WLAN_5e6f7a8b; create database WLAN_other");
  }
  Words TablesOf(const std::string& id, int ahead) const {
    return server.Run("show tables in WLAN_" + id + " like '%" + Year(ahead) + "'");
  }
};

TEST_F(YearTablesTest, EachDeviceGetsThoseOfTheNextYear) {
  server.Run("drop table WLAN_1a2b3c4d.T_AUTH1Y_" + Year(1));
  const Outcome run = Midtablectl({"year-tables", "--next"});
  EXPECT_TRUE(run.status == 0 && run.errors.empty()) << run;
  EXPECT_THAT(run.output, testing::EndsWith("2 devices: 3 statements done, all else is there for " +
                                            Year(1) + "\n"));
  EXPECT_EQ(TablesOf("1a2b3c4d", 1).size(), 2U);
  EXPECT_EQ(TablesOf("5e6f7a8b", 1).size(), 2U);
  EXPECT_EQ(server.Run("show tables in WLAN_other"), Words());
}

TEST_F(YearTablesTest, ASecondRunChangesNothing) {
  Midtablectl({"year-tables", "--year", "2012"});
  const Words before = State();
  EXPECT_EQ(Midtablectl({"year-tables", "--year", "2012"}),
            (Outcome{0, "2 devices: 0 statements done, all else is there for 2012\n"}));
  EXPECT_EQ(State(), before);
}

TEST_F(YearTablesTest, ADryRunLeavesNothing) {
  const Words before = State();
  const Outcome run = Midtablectl({"year-tables", "--year", "2012", "--dry-run"});
  EXPECT_THAT(run.output, HasSubstr("create table if not exists `WLAN_5e6f7a8b`.`T_AUTH1Y_2012`"));
  EXPECT_EQ(State(), before);
}

TEST_F(YearTablesTest, TheOperatorsDefinitionsAreTaken) {
  WriteFile(kYearTables, "create table if not exists T_FLOW1Y_YYYY (mine_YYYY int);");
  const Outcome run = Midtablectl({"year-tables", "--year", "2012"});
  EXPECT_EQ(run,
            (Outcome{1, run.output,
                     kYearTables + ": warning: makes no T_AUTH1Y_2012, which the table "
                                   "definitions fill -> add its create table if not exists\n"}));
  EXPECT_THAT(server.Run("describe WLAN_1a2b3c4d.T_FLOW1Y_2012").at(0),
              testing::StartsWith("mine_2012\t"));
}

TEST_F(YearTablesTest, ADatabaseThatFailsKeepsNoOtherFromItsTables) {
  WriteFile(kYearTables,
            "create table if not exists T_FLOW1Y_YYYY (name varchar(20000));"
            "create table if not exists T_AUTH1Y_YYYY (n int);");
  // So long a column is too much for characters of four bytes.
  server.Run(
      "alter database WLAN_1a2b3c4d charset utf8mb4; alter database WLAN_5e6f7a8b charset latin1");
  const Outcome run = Midtablectl({"year-tables", "--year", "2012"});
  EXPECT_EQ(run.status, 3) << run;
  EXPECT_THAT(run.errors, testing::StartsWith("WLAN_1a2b3c4d: \"create table if not exists "
                                              "`WLAN_1a2b3c4d`.`T_FLOW1Y_2012`"));
  EXPECT_EQ(server.Run("show tables in WLAN_5e6f7a8b like '%2012'").size(), 2U);
}

TEST_F(YearTablesTest, AServerThatIsNotThereIsNamed) {
  Replace(kSettings, "port=" + port, "port=1");
  const Outcome run = Midtablectl({"year-tables", "--next"});
  EXPECT_EQ(run.status, 2) << run;
  EXPECT_THAT(run.errors, testing::StartsWith("no login as reporter: "));
}

}  // namespace
