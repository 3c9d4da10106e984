#include <sys/wait.h>

#include "midtable/engine_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kExternal[] = "WLAN_1a2b3c4d.MEM_20121231_0004F_external";
constexpr char kName[] = "1a2b3c4d-MEM_20121231_1004F-20121231-101500.dat";

class OracleRoad : public EngineTest {
 protected:
  OracleRoad() : EngineTest("oracle") {
    script.databases.clear();
    script.tables.clear();
    WriteFile(kFile, "row\n");
    WriteFile(paths::kNoRewriteFlag, "");
    WriteFile(
        paths::kOracleDefinitions,
        "<root><Mem><MidCnt>1</MidCnt><MidTab1><Name>F</Name><Create>mem %s</Create></MidTab1>"
        "</Mem><Sequence>sequence %s</Sequence><Conv><F><MidCnt>3</MidCnt>" +
            Ora(1, "T_FLOW1D_", "day %s %s %s") +
            Ora(2, "T_FLOW1M_", "month %s %s %d %d %d %d %d %d %d %d") +
            Ora(3, "T_FLOW1Y_", "year %s %s %s %s %s %s") + "</F></Conv></root>");
    WriteFile(
        paths::kLoaderTemplates,
        "<root><sqlldr_ctl>no</sqlldr_ctl><sqlldr_ctl table='all'>load '%s' %s %s</sqlldr_ctl>"
        "<external_merge table='MEM_F'>merge %s %s</external_merge><external_load>"
        "<create_memdir table='MEM_F'>dir %s %s '100%%'</create_memdir>"
        "<create_table table='MEM_F'>external %s %s %s</create_table></external_load></root>");
  }
  static std::string Ora(int i, const std::string& name, const std::string& convert) {
    return Mid(i, name, "<ConvertOracle>" + convert + "</ConvertOracle>");
  }
  std::string Asked(const std::string& name) const {
    return "select object_name from all_objects where owner= " + Table(kDb, name);
  }

  std::string table = kMem, database = kDb, path = kFile;
};

TEST_F(OracleRoad, LoadsOverAnExternalTable) {
  const auto load = [&] { return engine->LoadOneMemFile(kFile); };
  script.fail = {{"create user", "exists"}};
  EXPECT_FALSE(load());  // the load itself does not find the mem table that was made
  EXPECT_THAT(
      script.Take(),
      ElementsAre("existDB(WLAN_1a2b3c4d)", "create user WLAN_1a2b3c4d identified by np",
                  "alter user WLAN_1a2b3c4d identified by np", "grant dba to WLAN_1a2b3c4d",
                  Asked(kMem), "changeDB(WLAN_1a2b3c4d,np)", "existTable(MEM_20121231_0004F)",
                  "mem MEM_20121231_0004F", Asked("MEM_20121231_0004F_EXTERNAL"),
                  "dir WLAN_1a2b3c4d 1a2b3c4d '100%'",
                  std::string("external ") + kExternal + " WLAN_1a2b3c4d " + kName, Asked(kMem)));

  script.fail = {{"create user", "exists"}, {"alter user", "E"}, {"grant", "E"}};
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:create db WLAN_1a2b3c4d error exists",
                                       "<2>:alter db WLAN_1a2b3c4d error E"));
  script.fail = {{"grant", "E"}};
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:grant db WLAN_1a2b3c4d error E"));
  std::string& password = ProcessPolicy().getDBPolicy()->new_user_password;
  script.Take(), password = "n p";
  EXPECT_THAT(LogOf(load), ElementsAre(HasSubstr("set_password is not safe")));
  EXPECT_THAT(script.Take(), ElementsAre("existDB(WLAN_1a2b3c4d)"));
  password = "np";

  script.databases = {kDb};
  script.tables = {Table(kDb, kMem), Table(kDb, "MEM_20121231_0004F_EXTERNAL")};
  script.Take();
  EXPECT_TRUE(load());
  EXPECT_THAT(script.Take({"exist", "select"}),
              ElementsAre(std::string("alter table ") + kExternal + " location('" + kName + "')",
                          std::string("merge WLAN_1a2b3c4d.MEM_20121231_0004F ") + kExternal,
                          std::string("drop table ") + kExternal));
}

TEST_F(OracleRoad, TheExternalStepsRefuseWhatTheyCannotName) {
  const auto create = [&] { engine->CreateOneExternalMemTable(table, database, path); };
  const auto load = [&] { engine->ExternalLoadOneMemFile(table, database, path); };
  path = "no slash";
  EXPECT_THAT(LogOf(create), ElementsAre("<2>:path error no slash"));
  EXPECT_EQ(script.Take().size(), 1U);  // the directory statement has run
  database = "WLAN_";
  EXPECT_THAT(LogOf(create), IsEmpty());
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:table MEM_20121231_0004F not exist"));
  for (const std::string name : {"MEM_20121231_0004", "MEM_20121231_0004X"}) {
    table = name;
    script.tables = {Table(database, table)};
    script.Take();
    const bool is_short = table.size() < 18;
    const std::string refusal = "<2>:table name is error " + table;
    EXPECT_EQ(LogOf(create), is_short ? Lines{refusal} : Lines{});
    EXPECT_EQ(LogOf(load), Lines{is_short ? refusal : "<2>:get xml error"});
    EXPECT_EQ(script.Take().size(), 1U);  // whether the mem table is there
  }
  table = kMem, database = kDb, path = kFile;
  script.tables = {Table(kDb, kMem)};
  script.fail = {{"merge", "E"}, {"dir", "E"}};
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:sql error E"));
  EXPECT_EQ(script.Take().size(), 2U);  // the external table stays
  EXPECT_THAT(LogOf(create), ElementsAre("<2>:sql error E"));
}

TEST_F(OracleRoad, ConvertsWithSequencesDayNumbersAndCityValues) {
  script.tables = {Table(kDb, kMem)};
  const std::string month = "month 201212 MEM_20121231_0004F 31 31 31 31 31 31 31 31";
  const std::string year = "year 2012 MEM_20121231_0004F date'2012-12-31' 0 date'2012-12-31' 0";
  EXPECT_THAT(ConvertFile(), testing::IsSupersetOf({"<0>:convert sql is <" + month + ">",
                                                    "<0>:convert sql is <" + year + ">"}));
  EXPECT_THAT(script.Take({"select", "change"}),
              ElementsAre("set transaction read write", "create T_FLOW1D_20121231",
                          "sequence T_FLOW1D_20121231", "create T_FLOW1M_201212",
                          "sequence T_FLOW1M_201212", "set transaction read write",
                          "day 20121231 MEM_20121231_0004F 20121231", month, year, "commit",
                          "truncate table MEM_20121231_0004F"));
  // The first look for another database's city refreshes the table. The CRC is that of "/X/".
  const std::string other = "/x/5e6f7a8b-MEM_20121231_0004F-20121231-101500.dat";
  WriteFile(paths::kDeviceStates, "[5e6f7a8b]\ncity=X\n");
  script.tables = {Table("WLAN_5e6f7a8b", kMem)};
  ConvertFile(other);
  EXPECT_THAT(script.Take(), testing::Contains("year 2012 MEM_20121231_0004F date'2012-12-31' "
                                               "367211210 date'2012-12-31' 367211210"));
  script.fail = {{"day", "E"}};  // the second statement is the first once more
  ConvertFile(other);
  EXPECT_EQ(script.Take().back(), "rollback");
  script.fail = {{"sequence", "E"}};
  EXPECT_THAT(ConvertFile(other), testing::Contains(HasSubstr("Create Sequence <sequence")));
}

TEST_F(OracleRoad, StartsTheLoaderToolOnAControlFile) {
  const std::string tool = "/tmp/oracle/bin/sqlldr";
  WriteFile(tool, "#!/bin/sh\necho \"$*\" >/tmp/oracle/called\n");
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  setenv("ORACLE_HOME", "/tmp/oracle", 1);
  script.columns = {"id", "name", "ts"};
  int started = 0;
  const auto load = [&] {
    started = engine->OracleLoadOneTable(table, "u", path);
    if (started == 1) wait(nullptr);
  };
  EXPECT_THAT(LogOf(load), IsEmpty());
  EXPECT_EQ(ReadFile("/tmp/oracle/called"),
            "u/pw control=/etc/morvan/midtable_sqlldr.ctl errors=-1 bad=/dev/null\n");
  EXPECT_EQ(ReadFile(paths::kLoaderControlFile),
            "load '" + path + "' MEM_20121231_0004F (id, name, ts)");
  script.fail = {{"GetColums", "E"}};
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:getlast error E"));
  EXPECT_EQ(started, 0);
  script.fail.clear();
  WriteFile(paths::kLoaderTemplates, "<root><sqlldr_ctl>no</sqlldr_ctl></root>");
  EXPECT_THAT(LogOf(load), IsEmpty());
  EXPECT_EQ(ReadFile(paths::kLoaderControlFile), "");  // no template: started all the same
  std::filesystem::remove(paths::kLoaderControlFile);
  std::filesystem::create_directory(paths::kLoaderControlFile);
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:/etc/morvan/midtable_sqlldr.ctl file open failed"));
  EXPECT_EQ(started, 1);
  std::filesystem::remove(paths::kLoaderTemplates);
  EXPECT_EQ(LogOf(load).back(), "<2>:parse xml file /etc/morvan/sqlldr_ctl.xml failed");
  EXPECT_EQ(started, 0);
}

}  // namespace
