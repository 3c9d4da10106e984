#include "midtable/engine_fixture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class Conversion : public EngineTest {
 protected:
  Conversion() {
    Define(My(1, "T_FLOW1D_", "day %s %s") + My(2, "T_FLOW1M_", "month %s %s") +
               My(3, "T_FLOW1Y_", "year %s %s"),
           3);
    script.tables.insert(Table(kDb, "T_FLOW1D_20121231"));
  }
  static std::string My(int i, const std::string& name, const std::string& convert) {
    return Mid(i, name, "<Convert>" + convert + "</Convert><Convert1>again %s %s</Convert1>");
  }
  void Define(const std::string& mids, int count, const std::string& kind = "F") {
    definitions = "<root><Conv><" + kind + "><MidCnt>" + std::to_string(count) + "</MidCnt>" +
                  mids + "</" + kind + "></Conv></root>";
    WriteFile(paths::kMysqlDefinitions, definitions);
  }

  std::string definitions;
  const std::string converted = "<0>:convert memtable WLAN_1a2b3c4d.MEM_20121231_0004F ok!";
  const std::string failed = "<2>:convert memtable WLAN_1a2b3c4d.MEM_20121231_0004F failed!";
  const std::string ignored = std::string("<2>:convert ") + kFile + " error, ignore it";
  const std::string day = "day 20121231 MEM_20121231_0004F";
  const std::string month = "month 20121231 MEM_20121231_0004F";
  const std::string year = "year 20121231 MEM_20121231_0004F";
  const std::string empty = "truncate table MEM_20121231_0004F";
};

TEST_F(Conversion, CreatesFirstThenFillsAllMidTablesInOneTransaction) {
  EXPECT_THAT(ConvertFile(), ElementsAre("<0>:commit ok!", converted));
  EXPECT_THAT(script.Take(),
              ElementsAre("changeDB(WLAN_1a2b3c4d,np)", Table(kDb, kMem), "start transaction",
                          Table(kDb, "T_FLOW1D_20121231"), Table("WLAN_TUNE", "T_FLOW1M_201212"),
                          "create T_FLOW1M_201212", "start transaction", day, month, year, "commit",
                          empty));
  script.tables.insert(Table("WLAN_TUNE", "T_FLOW1M_201212"));
  ConvertFile();  // nothing to create: one begin is enough
  EXPECT_THAT(script.Take({"show", "change"}),
              ElementsAre("start transaction", day, month, year, "commit", empty));
}

TEST_F(Conversion, EveryFailedStatementRollsBackAndKeepsTheMemTable) {
  const struct {
    const char* failing;
    Lines log;
    std::string last;
  } cases[] = {
      {"start", {"<2>:sql start transaction error E", ignored}, "start transaction"},
      {"create",
       {"<2>:key</root/Conv/F/MidTab2/Create>Create table <create T_FLOW1M_201212> error E",
        "<2>:table name is T_FLOW1M_201212 is year table 0", failed, ignored},
       "rollback"},
      {"year", {"<2>:exe <" + year + "> error E", failed, ignored}, "rollback"},
      {"commit", {"<2>:sql commit error E", failed, ignored}, "rollback"},
      {"truncate", {"<0>:commit ok!", "<2>:sql " + empty + " error E", ignored}, empty}};
  for (const auto& [failing, log, last] : cases) {
    script.fail = {{failing, "E"}};
    EXPECT_EQ(ConvertFile(), log) << failing;
    EXPECT_EQ(script.Take().back(), last) << failing;
  }
  script.fail = {{"truncate", "x ORA-00942: gone"}};
  EXPECT_THAT(ConvertFile(), Not(Contains(ignored)));

  script.fail = {{"day", "E"}};  // kinds F and A have a second statement, others do not
  EXPECT_THAT(ConvertFile(),
              ElementsAre("<2>:exe <" + day + "> error E", "<0>:commit ok!", converted));
  EXPECT_THAT(script.Take(), Contains("again 20121231 MEM_20121231_0004F"));
  Define(My(1, "T_FLOW1D_", "day %s %s"), 1, "G");
  script.tables = {Table(kDb, "MEM_20121231_0004G")};
  ConvertFile("/x/1a2b3c4d-MEM_20121231_0004G-20121231-101500.dat");
  EXPECT_THAT(script.Take(), Not(Contains(HasSubstr("again"))));
}

TEST_F(Conversion, EveryMissingNodeAndFaultyTemplateIsALineAndARollback) {
  const std::string whole = definitions;
  for (const std::string node : {"Always", "Name", "Create", "Convert"}) {
    std::string broken = whole;
    const std::size_t at = broken.find("<" + node + ">", broken.find("MidTab2"));
    broken.replace(at, node.size() + 1, "<" + node + "x");
    broken.replace(broken.find("</" + node + ">", at), node.size() + 2, "</" + node + "x");
    WriteFile(paths::kMysqlDefinitions, broken);
    EXPECT_THAT(ConvertFile(), ElementsAre("<2>:get node /root/Conv/F/MidTab2/" + node + " failed",
                                           failed, ignored));
    EXPECT_EQ(script.Take().back(), "rollback");
  }
  for (const std::string fault : {"%s %s %s", "%n", "%d", "50%", "%s %1$s", " "}) {
    Define(My(1, "T_FLOW1D_", fault), 1);  // its second statement is sound
    EXPECT_THAT(ConvertFile(),
                ElementsAre(AllOf(HasSubstr("<2>:exe <" + fault + "> error template "),
                                  EndsWith(", see /root/Conv/F/MidTab1/Convert of "
                                           "/etc/morvan/vqlog.xml")),
                            "<0>:commit ok!", converted));
  }
  const std::pair<std::string, std::string> bad[] = {
      {"MidCnt>3x<",
       "<1>:xml file /etc/morvan/vqlog.xml: /root/Conv/F/MidCnt is no number, taken as 3"},
      {"Name>T_\"W1D_<",
       "<2>:xml file /etc/morvan/vqlog.xml: /root/Conv/F/MidTab1/Name is not safe"}};
  for (const auto& [text, line] : bad) {
    WriteFile(paths::kMysqlDefinitions,
              std::regex_replace(whole, std::regex(text.substr(0, text.find('>')) + ">[^<]*<"),
                                 text, std::regex_constants::format_first_only));
    EXPECT_THAT(ConvertFile().front(), HasSubstr(line));
  }
  script.Take();
  for (const std::string& text :
       {std::string(), whole.substr(0, whole.size() / 2), std::string("<root/>"),
        std::string("<!DOCTYPE r [<!ENTITY e SYSTEM '/etc/passwd'>]><root/>")}) {
    WriteFile(paths::kMysqlDefinitions, text);
    EXPECT_EQ(ConvertFile().back(), ignored) << text;
    EXPECT_THAT(script.Take(), Not(Contains("start transaction"))) << text;
  }
}

TEST_F(Conversion, LeavesAloneWhatItCannotReachAndTakesShortNamesAsTheyAre) {
  script.fail = {{"changeDB", "no such database"}};
  EXPECT_THAT(ConvertFile().front(), HasSubstr("not converted, change db error no such database"));
  EXPECT_THAT(script.Take(), ElementsAre("changeDB(WLAN_1a2b3c4d,np)", Table(kDb, kMem)));
  script.tables = {Table(kDb, "abF")};
  EXPECT_THAT(ConvertFile(),
              ElementsAre("<3>:table WLAN_1a2b3c4d.MEM_20121231_0004F not exist, ignore"));

  script.fail.clear();
  Define(My(1, "T_FLO", "day '%s' %s"), 1);
  script.Take();
  ConvertFile("/x/1a2b3c4d-abF-20121231-101500.dat");
  EXPECT_THAT(script.Take({"show", "change"}),
              ElementsAre("start transaction", "create T_FLO", "start transaction", "day '' abF",
                          "commit", "truncate table abF"));
  g_nMainRun = 0;  // a stop keeps the list
  engine->AddToConvert(kFile);
  EXPECT_EQ(engine->Convert(), 0);
  EXPECT_EQ(engine->filesToConvert().size(), 1U);
}

}  // namespace
