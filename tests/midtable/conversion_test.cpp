#include "midtable/conversion.h"

#include "midtable/engine_fixture.h"

namespace {

using testing::Contains, testing::ElementsAre, testing::IsEmpty, testing::Not, testing::StartsWith;
using Result = ConversionResult;

const std::string kDay = "day 20121231 MEM_20121231_0004F";
const std::string kMonth = "month 20121231 MEM_20121231_0004F";
const std::string kYear = "year 20121231 MEM_20121231_0004F";
const std::string kBegin = "start transaction";
const std::string kEmpty = "truncate table MEM_20121231_0004F";
const std::string kCommitted = "<0>:commit ok!";
const std::string kConverted = "<0>:convert memtable " + kTable + " ok!";
const std::string kFailed = "<2>:convert memtable " + kTable + " failed!";

class Conversion : public StepTest {
 protected:
  static constexpr bool kCounts = true;

  Conversion() {
    Define(Conversions("F", "3",
                       Mid(1, "T_FLOW1D_", "day %s %s") + Mid(2, "T_FLOW1M_", "month %s %s") +
                           Mid(3, "T_FLOW1Y_", "year %s %s")));
    script.tables.insert(day_table);
  }
  // A mid table, with its conversion and the statement to try after that failed.
  static std::string Mid(int number, const std::string& name, const std::string& convert) {
    return MidTab(
        number, name,
        Xml("Create", "create %s") + Xml("Convert", convert) + Xml("Convert1", "again %s %s"));
  }
  static void DefineOne(const std::string& name, const std::string& convert,
                        const std::string& count = "1", const std::string& kind = "F") {
    Define(Conversions(kind, count, Mid(1, name, convert)));
  }
  void ConvertAHundredTimes(bool counts = kCounts) {
    for (int i = 0; i < 100; ++i) Convert(kFile, counts);
  }

  const std::string day_table = Table(kDb, "T_FLOW1D_20121231");
  const std::string month_table = Table("WLAN_TUNE", "T_FLOW1M_201212");
};

TEST_F(Conversion, FillsAllMidTablesInOneTransactionOnceNoneIsMissing) {
  EXPECT_EQ(Convert(), Result::kDone);
  EXPECT_THAT(log, ElementsAre(kCommitted, kConverted));
  EXPECT_THAT(script.Take(), ElementsAre("changeDB(WLAN_1a2b3c4d,np)", Table(kDb, kMem), kBegin,
                                         day_table, month_table, "create T_FLOW1M_201212", kBegin,
                                         kDay, kMonth, kYear, "commit", kEmpty));
  script.tables.insert(month_table);
  Convert();
  EXPECT_THAT(script.Take({"show", "change"}),
              ElementsAre(kBegin, kDay, kMonth, kYear, "commit", kEmpty));
}

TEST_F(Conversion, AFailedStatementRollsBackAndKeepsTheRows) {
  const struct {
    const char* failing;
    Lines log;
    std::string last;
  } cases[] = {
      {"start", {"<2>:sql start transaction error E"}, kBegin},
      {"create",
       {"<2>:key</root/Conv/F/MidTab2/Create>Create table <create T_FLOW1M_201212> error E",
        "<2>:table name is T_FLOW1M_201212 is year table 0", kFailed},
       "rollback"},
      {"year", {"<2>:exe <" + kYear + "> error E", kFailed}, "rollback"},
      {"commit", {"<2>:sql commit error E", kFailed}, "rollback"}};
  for (const auto& [failing, expected_log, last] : cases) {
    SCOPED_TRACE(failing);
    FailNoMore();
    Fail(failing);
    EXPECT_EQ(Convert(), Result::kByDefinition);
    EXPECT_EQ(log, expected_log);
    EXPECT_EQ(script.Take().back(), last);
  }
}

TEST_F(Conversion, AMemTableThatCannotBeEmptiedIsRemembered) {
  Fail("truncate");
  EXPECT_EQ(Convert(), Result::kNotEmptied);
  EXPECT_THAT(log, ElementsAre(kCommitted, "<2>:sql " + kEmpty + " error E"));
  EXPECT_FALSE(not_emptied.Empty(store, kTable));
  script.fail = {{"truncate", "x ORA-00942: gone"}};
  EXPECT_EQ(Convert(), Result::kDone) << "a table that is gone has no rows";
}

TEST_F(Conversion, KindsFAndAHaveASecondStatementAndOthersNot) {
  Fail("day");
  for (const std::string kind : {"F", "A", "G"}) {
    const std::string table = "MEM_20121231_0004" + kind;
    script.tables = {Table(kDb, table), day_table};
    DefineOne("T_FLOW1D_", "day %s %s", "1", kind);
    Convert("/x/1a2b3c4d-" + table + "-20121231-101500.dat");
    EXPECT_EQ(log.front(), "<2>:exe <day 20121231 " + table + "> error E");
    const std::string next = kind == "G" ? "rollback" : "again 20121231 " + table;
    EXPECT_EQ(script.Take({"show", "change"})[2], next);
  }
}

TEST_F(Conversion, ATransactionThatTheServerEndedGetsNoSecondStatement) {
  Fail("day", SqlFailure::kServer);
  script.transaction_ended = true;
  EXPECT_EQ(Convert(), Result::kByServer);
  EXPECT_THAT(log,
              ElementsAre("<2>:exe <" + kDay + "> error E",
                          "<2>:memtable " + kTable + " transaction ended by the server", kFailed));
  EXPECT_EQ(script.Take().back(), "rollback");
}

// --- faulty definitions

TEST_F(Conversion, AMissingElementIsNamed) {
  const std::string whole = ReadFile(paths::kMysqlDefinitions);
  for (const std::string element : {"Always", "Name", "Create", "Convert"}) {
    std::string broken = whole;
    const std::size_t begins = broken.find("<" + element + ">", broken.find("<MidTab2>"));
    broken.insert(broken.find("</" + element + ">", begins) + 2, "No").insert(begins + 1, "No");
    WriteFile(paths::kMysqlDefinitions, broken);
    EXPECT_EQ(Convert(), Result::kByDefinition);
    EXPECT_THAT(log,
                ElementsAre("<2>:get node /root/Conv/F/MidTab2/" + element + " failed", kFailed));
    EXPECT_EQ(script.Take().back(), "rollback");
  }
}

TEST_F(Conversion, ATemplateThatDoesNotFitIsAFailedStatement) {
  DefineOne("T_FLOW1D_", " ");
  EXPECT_EQ(Convert(), Result::kDone) << "by the second statement";
  EXPECT_THAT(log, ElementsAre("<2>:exe < > error template is empty, see "
                               "/root/Conv/F/MidTab1/Convert of /etc/morvan/vqlog.xml",
                               kCommitted, kConverted));
}

TEST_F(Conversion, ACountThatIsNoNumberKeepsTheRowsAndZeroDoesNot) {
  for (const char* count : {"", " ", "3x", "many", "-1"}) {
    DefineOne("T_FLOW1D_", "day %s %s", count);
    EXPECT_EQ(Convert(), Result::kByDefinition);
    EXPECT_THAT(log, ElementsAre("<2>:xml file /etc/morvan/vqlog.xml: /root/Conv/F/MidCnt is no "
                                 "number, table " +
                                 kTable + " not converted"));
    EXPECT_THAT(script.Take(), Not(Contains(kEmpty))) << count;
  }
  DefineOne("T_FLOW1D_", "day %s %s", "0");
  EXPECT_EQ(Convert(), Result::kDone);
  EXPECT_THAT(script.Take({"show", "change"}), ElementsAre(kBegin, "commit", kEmpty));
}

TEST_F(Conversion, AMidTableNameThatCouldEndAStatementIsRefused) {
  DefineOne("T_\"W1D_", "day %s %s");
  EXPECT_EQ(Convert(), Result::kByDefinition);
  EXPECT_THAT(log, ElementsAre("<2>:xml file /etc/morvan/vqlog.xml: /root/Conv/F/MidTab1/Name is "
                               "not safe in a statement",
                               kFailed));
}

TEST_F(Conversion, DefinitionsThatCannotBeReadKeepTheRows) {
  const std::string cut_off = ReadFile(paths::kMysqlDefinitions).substr(0, 200);
  const std::string hostile = "<!DOCTYPE r [<!ENTITY e SYSTEM '/etc/passwd'>]><root/>";
  for (const std::string& text : {std::string(), cut_off, std::string("<root/>"), hostile}) {
    WriteFile(paths::kMysqlDefinitions, text);
    EXPECT_EQ(Convert(), Result::kByDefinition) << text;
    EXPECT_THAT(script.Take({"show", "change"}), IsEmpty()) << text;
  }
}

// --- names and places

TEST_F(Conversion, OfATableThatIsNotThereIsDone) {
  script.tables.clear();
  EXPECT_EQ(Convert(), Result::kDone);
  EXPECT_THAT(log, ElementsAre("<3>:table " + kTable + " not exist, ignore"));
}

// --- whose fault a failure is

TEST_F(Conversion, ALostConnectionIsSaidWhereverItIsNoticedAndEndsAllTries) {
  for (const std::string& noticed_at :
       {std::string("changeDB"), Table(kDb, kMem), kBegin, day_table, month_table,
        std::string("create"), kDay, std::string("commit")}) {
    SCOPED_TRACE(noticed_at);
    FailNoMore();
    Fail(noticed_at, SqlFailure::kConnection);
    EXPECT_EQ(Convert(), Result::kConnectionLost);
    EXPECT_THAT(script.Take(), Not(Contains(testing::AnyOf(kEmpty, StartsWith("again")))));
  }
}

TEST_F(Conversion, AMidTableThatCouldNotBeLookedUpIsNotCreated) {
  Fail(month_table, SqlFailure::kServer);
  EXPECT_EQ(Convert(), Result::kByServer);
  EXPECT_THAT(script.Take({"show", "change"}), ElementsAre(kBegin, "rollback"));
}

TEST_F(Conversion, OnlyAMidTablesOwnFaultCountsTowardGivingItUp) {
  for (const SqlFailure failure : {SqlFailure::kStatement, SqlFailure::kData, SqlFailure::kServer,
                                   SqlFailure::kConnection, SqlFailure::kPrivilege}) {
    const bool is_own = failure == SqlFailure::kStatement || failure == SqlFailure::kData;
    for (const char* failing : {"create", "day", "again"}) Fail(failing, failure);
    failures = {};
    script.tables.erase(month_table);
    ConvertAHundredTimes();
    EXPECT_EQ(failures.IsBad("WLAN_1a2b3c4dT_FLOW1M_201212"), is_own) << "its creation";
    script.tables.insert(month_table);
    ConvertAHundredTimes();
    EXPECT_EQ(failures.IsBad("WLAN_1a2b3c4dT_FLOW1D_20121231"), is_own) << "its conversion";
  }
}

TEST_F(Conversion, AMidTableThatFailedAHundredTimesIsSkipped) {
  Fail("day");
  Fail("again");
  ConvertAHundredTimes(!kCounts);
  ConvertAHundredTimes();
  EXPECT_EQ(log.back(), kFailed) << "the retries before did not count";
  EXPECT_EQ(Convert(), Result::kDone);
  EXPECT_THAT(log, ElementsAre("<2>:midtable WLAN_1a2b3c4dT_FLOW1D_20121231 is bad, skipped!",
                               kCommitted, kConverted));
  Convert();
  EXPECT_THAT(log, ElementsAre(kCommitted, kConverted)) << "said once";
}

}  // namespace
