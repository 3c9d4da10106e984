// What `midtablectl check` finds when it runs the table definitions on the server.

#include "midtablectl/check_fixture.h"

namespace {

const std::string kFails = ":9: error: Convert of T_FLOW1D_ fails on the server: ";
const std::string kOlder = " has other columns than its Create gives";
const std::string kMemOfToday = "WLAN_1a2b3c4d.MEM_" + Today() + "_0000F";
const std::string kDayOfToday = "WLAN_1a2b3c4d.T_FLOW1D_" + Today();

Step Xml(const std::string& part, const std::string& by) { return Edit(kDefinitions, part, by); }

class CheckRehearsal : public CheckOnServerTest {};

TEST_P(CheckRehearsal, Finds) {
  server.Run("set global default_storage_engine = MyISAM");
  GetParam().SetUp();
  Finds(Of(kDefinitions, GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(
    Of, CheckRehearsal,
    testing::Values(
        Case("Convert", {Xml("select c, 1", "select z, 1")},
             kFails + "{insert into probe select z from probe}"),
        // The last conversion of a kind may empty the mem table, without a table of its own.
        Case("ConvertWithoutTable",
             {Xml("Cnt>3<", "Cnt>4<"),
              Xml("</F>",
                  "<MidTab4><Always>1</Always><Name>T_DONE1Y_</Name><Convert>delete from "
                  "%.0s%s</Convert></MidTab4></F>")}),
        Case("LocalFlag", {Xml(", l int)", ")")},
             ":4: warning: the mem table of kind F has 11 columns; its files are loaded with 12, "
             "the last being the local flag"),
        Case("EngineOfAMemTable", {Xml("l int) engine = InnoDB", "l int)")},
             ":4: error: mem table has engine myisam, which keeps half of what failed"),
        Case("TablesOfToday",
             {Sql("create table " + kMemOfToday + " (a int); create table " + kDayOfToday +
                  " (hour int)")},
             ":4: warning: " + kMemOfToday + kOlder, ":9: warning: " + kDayOfToday + kOlder)),
    kNameOfCase);

// --- statements that could act outside of the scratch database

const std::string kNotTried = ":9: note: Convert of T_FLOW1D_ is not tried on the server: it ";
const std::string kReport = kNotTried + "names database report";

class CheckTriesNothing : public CheckRehearsal {};

TEST_P(CheckTriesNothing, Beyond) {
  server.MakeDatabases({"Report"});
  server.Run("create table Report.log select 1, 2");
  GetParam().SetUp();
  Finds(Of(kDefinitions, GetParam().lines));
  EXPECT_EQ(server.Run("select * from Report.log"), Words{"1\t2"});
}

Step Convert(const std::string& beginning) {
  return Xml("insert into T_FLOW1D_%s select c, 1 from %s", beginning + " 'T_FLOW1D_%s', '%s'");
}

INSTANTIATE_TEST_SUITE_P(
    In, CheckTriesNothing,
    testing::Values(
        Case("AQuotedDatabase", {Convert("replace into`Report` . log select")}, kReport),
        Case("ADatabaseBeforeAComment", {Convert("replace into Report/**/.log select")}, kReport),
        Case("ACommentThatIsExecuted", {Convert("replace into /*!50000Report*/.log select")},
             kNotTried + "has a comment that the server executes"),
        Case("AStatementOfAnotherKind", {Convert("drop database Report -- ")},
             ":11: error: \"drop\" ends the transaction: rows would be counted twice on a failure "
             "-> fill the table with insert or update alone",
             kNotTried + "is no create table, insert, replace, update or delete")),
    kNameOfCase);

}  // namespace
