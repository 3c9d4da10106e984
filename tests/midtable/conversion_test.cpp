#include "midtable/engine_fixture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Conversion : public EngineTest {
 protected:
  Conversion() {
    Define(Mid(1, "T_FLOW1D_", "day %s %s") + Mid(2, "T_FLOW1M_", "month %s %s") +
               Mid(3, "T_FLOW1Y_", "year %s %s"),
           3);
    script.tables.insert(Table(kDb, "T_FLOW1D_20121231"));
  }

  static std::string Mid(int i, const std::string& name, const std::string& convert) {
    return Element("MidTab" + std::to_string(i),
                   "<Always>1</Always>" + Element("Name", name) + "<Create>create %s</Create>" +
                       Element("Convert", convert) + "<Convert1>again %s %s</Convert1>");
  }
  void Define(const std::string& mids, int count, const std::string& kind = "F") {
    definitions = "<root><Conv>" + Element(kind, Element("MidCnt", std::to_string(count)) + mids) +
                  "</Conv></root>";
    WriteFile(paths::kMysqlDefinitions, definitions);
  }

  std::string definitions;
  const std::string failed = "<2>:convert memtable WLAN_1a2b3c4d.MEM_20121231_0004F failed!";
  const std::string ignored = std::string("<2>:convert ") + kFile + " error, ignore it";
};

TEST_F(Conversion, CreatesFirstThenFillsAllMidTablesInOneTransaction) {
  EXPECT_THAT(
      ConvertFile(),
      ElementsAre("<0>:commit ok!", "<0>:convert memtable WLAN_1a2b3c4d.MEM_20121231_0004F ok!"));
  EXPECT_THAT(
      script.Take(),
      ElementsAre("changeDB(WLAN_1a2b3c4d,np)", Table(kDb, kMem), "start transaction",
                  Table(kDb, "T_FLOW1D_20121231"), Table("WLAN_TUNE", "T_FLOW1M_201212"),
                  "create T_FLOW1M_201212", "start transaction", "day 20121231 MEM_20121231_0004F",
                  "month 20121231 MEM_20121231_0004F", "year 20121231 MEM_20121231_0004F", "commit",
                  "truncate table MEM_20121231_0004F"));
  EXPECT_THAT(engine->filesToConvert(), IsEmpty());

  // Nothing to create: one begin is enough.
  script.tables.insert(Table("WLAN_TUNE", "T_FLOW1M_201212"));
  ConvertFile();
  EXPECT_THAT(script.Take({"show", "change", "day", "month"}),
              ElementsAre("start transaction", "year 20121231 MEM_20121231_0004F", "commit",
                          "truncate table MEM_20121231_0004F"));
}

TEST_F(Conversion, EveryFailedStatementRollsBackAndKeepsTheMemTable) {
  const struct {
    const char* failing;
    std::vector<std::string> log;
    std::vector<std::string> calls;
  } cases[] = {
      {"start", {"<2>:sql start transaction error E", ignored}, {"start transaction"}},
      {"create",
       {"<2>:key</root/Conv/F/MidTab2/Create>Create table <create T_FLOW1M_201212> error E",
        "<2>:table name is T_FLOW1M_201212 is year table 0", failed, ignored},
       {"start transaction", "create T_FLOW1M_201212", "rollback"}},
      {"year",
       {"<2>:exe <year 20121231 MEM_20121231_0004F> error E", failed, ignored},
       {"start transaction", "create T_FLOW1M_201212", "start transaction",
        "day 20121231 MEM_20121231_0004F", "month 20121231 MEM_20121231_0004F",
        "year 20121231 MEM_20121231_0004F", "rollback"}},
      {"commit", {"<2>:sql commit error E", failed, ignored}, {}},
      {"truncate",
       {"<0>:commit ok!", "<2>:sql truncate table MEM_20121231_0004F error E", ignored},
       {}},
  };
  for (const auto& expected : cases) {
    script.fail = {{expected.failing, "E"}};
    EXPECT_EQ(ConvertFile(), expected.log) << expected.failing;
    const auto calls = script.Take({"show", "change"});
    if (!expected.calls.empty()) {
      EXPECT_EQ(calls, expected.calls);
    }
    const bool rolled_back = std::count(calls.begin(), calls.end(), "rollback") == 1;
    EXPECT_EQ(rolled_back, expected.log[expected.log.size() - 2] == failed) << expected.failing;
  }
  script.fail = {{"truncate", "x ORA-00942: gone"}};
  EXPECT_THAT(ConvertFile(), Not(Contains(ignored)));
}

TEST_F(Conversion, OnlyKindsFAndAHaveASecondChanceAndYearTablesNone) {
  script.fail = {{"day", "E"}};
  EXPECT_EQ(ConvertFile().front(), "<2>:exe <day 20121231 MEM_20121231_0004F> error E");
  EXPECT_THAT(script.Take(), Contains("again 20121231 MEM_20121231_0004F"));
  Define(Mid(1, "T_FLOW1D_", "day %s %s"), 1, "G");
  script.tables = {Table(kDb, "MEM_20121231_0004G")};
  ConvertFile("/x/1a2b3c4d-MEM_20121231_0004G-20121231-101500.dat");
  EXPECT_THAT(script.Take(), Not(Contains(HasSubstr("again"))));
}

TEST_F(Conversion, EveryMissingNodeAndFaultyTemplateIsALineAndARollback) {
  for (const char* node : {"Always", "Name", "Create", "Convert"}) {
    const std::string end = std::string("</") + node + ">";
    std::string broken = definitions;
    const std::size_t second = broken.find("MidTab2");
    const std::size_t at = broken.find(std::string("<") + node + ">", second);
    broken.erase(at, broken.find(end, at) + end.size() - at);
    WriteFile(paths::kMysqlDefinitions, broken);
    EXPECT_THAT(ConvertFile(),
                ElementsAre(std::string("<2>:get node /root/Conv/F/MidTab2/") + node + " failed",
                            failed, ignored));
    EXPECT_EQ(script.Take().back(), "rollback");
  }
  for (const char* fault : {"%s %s %s", "%n", "%d", "50%", "%s %1$s"}) {
    Define(Mid(1, "T_FLOW1D_", fault), 1);
    const auto log = ConvertFile();  // the fallback is sound
    EXPECT_THAT(log.front(), HasSubstr(std::string("<2>:exe <") + fault + "> error template "));
    EXPECT_EQ(log.back(), "<0>:convert memtable WLAN_1a2b3c4d.MEM_20121231_0004F ok!");
  }
  const std::string whole = definitions;
  script.Take();
  for (const std::string& text :
       {std::string(), whole.substr(0, whole.size() / 2), std::string("<root/>"),
        std::string("<!DOCTYPE r [<!ENTITY e SYSTEM "
                    "'/etc/passwd'>]><root>&e;</root>")}) {
    WriteFile(paths::kMysqlDefinitions, text);
    EXPECT_EQ(ConvertFile().back(), ignored) << text;
    EXPECT_THAT(script.Take(), Not(Contains("start transaction"))) << text;
  }
}

TEST_F(Conversion, NamesTooShortForTheirFixedPositionsAreOrdinaryNames) {
  Define(Mid(1, "T_FLO", "day '%s' %s"), 1);
  script.tables = {Table(kDb, "abF")};
  ConvertFile("/x/1a2b3c4d-abF-20121231-101500.dat");
  EXPECT_THAT(script.Take({"show", "change"}),
              ElementsAre("start transaction", "create T_FLO", "start transaction", "day '' abF",
                          "commit", "truncate table abF"));
}

TEST_F(Conversion, LeavesAloneWhatItCannotReach) {
  script.fail = {{"changeDB", "no such database"}};
  EXPECT_THAT(ConvertFile().front(), HasSubstr("not converted, change db error no such database"));
  EXPECT_THAT(script.Take(), ElementsAre("changeDB(WLAN_1a2b3c4d,np)", Table(kDb, kMem)));

  script.tables.clear();
  EXPECT_THAT(ConvertFile(),
              ElementsAre("<3>:table WLAN_1a2b3c4d.MEM_20121231_0004F not exist, ignore"));

  g_nMainRun = 0;  // a stop keeps the list
  engine->AddToConvert(kFile);
  EXPECT_EQ(engine->Convert(), 0);
  EXPECT_EQ(engine->filesToConvert().size(), 1U);
}

}  // namespace
