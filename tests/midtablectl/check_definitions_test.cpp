// What `midtablectl check` finds in table definitions and loader templates without a server.

#include "midtablectl/check_fixture.h"

namespace {

Step Xml(const std::string& part, const std::string& by) { return Edit(kDefinitions, part, by); }

class CheckDefinitions : public CheckTest {};

TEST_P(CheckDefinitions, Finds) {
  GetParam().SetUp();
  Finds(Of(kDefinitions, GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(
    WithTree, CheckDefinitions,
    testing::Values(
        Case("InOrder", {}),
        Case("NotWellFormed", {Xml("</Mem>\n", "")},
             ":21: error: cannot be used: Opening and ending tag mismatch: Mem line 2 and root; "
             "every mem file fails"),
        Case("WithTooLowACount", {Xml("<MidCnt>3<", "<MidCnt>2<")},
             ":8: error: MidCnt is 2 for 3 MidTab elements, those beyond it are not looked at: "
             "their rows are lost"),
        Case("WithTooLongAKind", {Xml("<Name>F<", "<Name> F<")},
             ":3: error: Name \" F\" is not one character and never matches a mem table",
             ":7: error: kind  F has a mem table but no conversion: its rows stay there",
             ":8: error: kind F has conversions but no mem table: its files fail"),
        Case("WithANameThatTellsNoPeriod", {Xml("<Name>T_FLOW1M_<", "<Name>T_FLOW_M_<")},
             ":13: warning: Name \"T_FLOW_M_\" counts as a day table: its 7th and 8th character "
             "are \"_M\"",
             ":15: error: Convert does not use its table T_FLOW_M_20001231",
             ":16: error: Convert1 does not use its table T_FLOW_M_20001231")),
    kNameOfCase);

INSTANTIATE_TEST_SUITE_P(
    WithStatement, CheckDefinitions,
    testing::Values(
        Case("WithAForbiddenPlaceholder", {Xml("select d, 1", "select date_format(d, '%e'), 1")},
             ":15: error: Convert: template has the conversion \"%e\", which is not allowed"),
        Case("OfAMonthTableByTheDay", {Xml("T_FLOW1M_%.6s select", "T_FLOW1M_%s select")},
             ":15: error: Convert does not use its table T_FLOW1M_200012"),
        Case("WithoutMemTable", {Xml("select c, 1 from %s", "select 1, 1")},
             ":11: error: Convert does not use its table MEM_20001231_0000F"),
        Case("ThatEndsTheTransaction", {Xml("<Convert>insert into", "<Convert>Create table")},
             ":11: error: \"create\" ends the transaction: rows would be counted twice on a "
             "failure"),
        Case("ToFallBackToMissing",
             {Xml("<Convert1>insert into T_FLOW1D_%s (hour) select c from %s</Convert1>", "")},
             ":9: warning: no Convert1, which kinds F and A fall back to when Convert fails"),
        Case("WithTheEngineOfAMemTable", {Xml("l int) engine = InnoDB", "l int) engine = Aria")},
             ":4: error: engine aria keeps half of a load that failed, and rows that it altered"),
        Case("ThatAddsUpWithoutKey", {Xml("hour int primary key", "hour int")},
             ":11: error: T_FLOW1D_ has no key, although its Convert says \"on duplicate key\": "
             "nothing is added up"),
        Case("ThatMakesAMonthTableAgain", {Xml("create table if not exists", "create table")},
             ":14: error: the month table is created again with every conversion, and without \"if "
             "not exists\" fails from the second on")),
    kNameOfCase);

TEST_F(CheckTest, FindsTheSamplesForOracleInOrder) {
  UseOracle();
  WriteFile(kOracleDefinitions, ReadFile(MIDTABLE_DEMO "oracle/oracle_vqlog.xml"));
  WriteFile(kTemplates, ReadFile(MIDTABLE_DEMO "oracle/sqlldr_ctl.xml"));
  Finds({});
}

}  // namespace
