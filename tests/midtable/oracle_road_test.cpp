#include <sys/wait.h>

#include "midtable/engine_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class OracleRoad : public EngineTest {
 protected:
  OracleRoad() : EngineTest("oracle") {
    script.databases.clear();
    script.tables.clear();
    WriteFile(kFile, "row\n");
    WriteFile(paths::kNoRewriteFlag, "");
    WriteFile(paths::kOracleDefinitions,
              "<root><Mem><MidCnt>1</MidCnt><MidTab1><Name>F</Name><Create>mem %s</Create>"
              "</MidTab1></Mem><Sequence>sequence %s</Sequence><Conv><F><MidCnt>3</MidCnt>" +
                  Mid(1, "T_FLOW1D_", "day %s %s %s") +
                  Mid(2, "T_FLOW1M_", "month %s %s %d %d %d %d %d %d %d %d") +
                  Mid(3, "T_FLOW1Y_", "year %s %s %s %s %s %s") + "</F></Conv></root>");
    WriteFile(
        paths::kLoaderTemplates,
        "<root><sqlldr_ctl>no</sqlldr_ctl><sqlldr_ctl table='all'>load '%s' %s %s"
        "</sqlldr_ctl><external_merge table='MEM_F'>merge %s %s</external_merge>"
        "<external_load><create_memdir table='MEM_F'>dir %s %s '100%%'</create_memdir>"
        "<create_table table='MEM_F'>external %s %s %s</create_table></external_load></root>");
  }
  static std::string Mid(int i, const std::string& name, const std::string& convert) {
    return Element("MidTab" + std::to_string(i), "<Always>1</Always>" + Element("Name", name) +
                                                     "<Create>create %s</Create>" +
                                                     Element("ConvertOracle", convert));
  }
  std::string Asked(const std::string& name) const {
    return "select object_name from all_objects where owner= " + Table(kDb, name);
  }

  std::string table = kMem, database = kDb, path = kFile, user = "u";
};

TEST_F(OracleRoad, LoadsOverAnExternalTable) {
  script.fail = {{"create user", "exists"}};
  const auto load = [&] { return engine->LoadOneMemFile(kFile); };
  EXPECT_FALSE(load());  // the mem table is not found again by the load itself
  EXPECT_THAT(script.Take(),
              ElementsAre("existDB(WLAN_1a2b3c4d)", "create user WLAN_1a2b3c4d identified by np",
                          "alter user WLAN_1a2b3c4d identified by np", "grant dba to WLAN_1a2b3c4d",
                          Asked("MEM_20121231_0004F"), "changeDB(WLAN_1a2b3c4d,np)",
                          "existTable(MEM_20121231_0004F)", "mem MEM_20121231_0004F",
                          Asked("MEM_20121231_0004F_EXTERNAL"), "dir WLAN_1a2b3c4d 1a2b3c4d '100%'",
                          "external WLAN_1a2b3c4d.MEM_20121231_0004F_external WLAN_1a2b3c4d "
                          "1a2b3c4d-MEM_20121231_1004F-20121231-101500.dat",
                          Asked("MEM_20121231_0004F")));

  script.databases = {kDb};
  script.tables = {Table(kDb, kMem), Table(kDb, "MEM_20121231_0004F_EXTERNAL")};
  EXPECT_TRUE(load());
  EXPECT_THAT(script.Take({"exist", "select"}),
              ElementsAre("alter table WLAN_1a2b3c4d.MEM_20121231_0004F_external "
                          "location('1a2b3c4d-MEM_20121231_1004F-20121231-101500.dat')",
                          "merge WLAN_1a2b3c4d.MEM_20121231_0004F "
                          "WLAN_1a2b3c4d.MEM_20121231_0004F_external",
                          "drop table WLAN_1a2b3c4d.MEM_20121231_0004F_external"));

  script.fail["alter user"] = script.fail["grant"] = "E";
  script.databases.clear();
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:create db WLAN_1a2b3c4d error exists",
                                       "<2>:alter db WLAN_1a2b3c4d error E"));
  script.fail.erase("alter user");
  EXPECT_THAT(LogOf(load).back(), "<2>:grant db WLAN_1a2b3c4d error E");
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
  table = "MEM_20121231_0004";  // 17 characters
  script.tables = {Table(database, table)};
  script.Take();
  EXPECT_THAT(LogOf(create), ElementsAre("<2>:table name is error MEM_20121231_0004"));
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:table name is error MEM_20121231_0004"));
  EXPECT_EQ(script.Take().size(), 1U);
  table = "MEM_20121231_0004X";
  script.tables = {Table(database, table)};
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:get xml error"));

  // A failed merge keeps the external table.
  table = kMem, database = kDb, path = kFile;
  script.tables = {Table(kDb, kMem)};
  script.fail = {{"merge", "E"}, {"dir", "E"}};
  script.Take();
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:sql error E"));
  EXPECT_EQ(script.Take().size(), 2U);
  EXPECT_THAT(LogOf(create), ElementsAre("<2>:sql error E"));
}

TEST_F(OracleRoad, ConvertsWithSequencesDayNumbersAndCityValues) {
  script.tables = {Table(kDb, kMem)};
  const auto log = ConvertFile();
  const std::string month = "month 201212 MEM_20121231_0004F 31 31 31 31 31 31 31 31";
  const std::string year = "year 2012 MEM_20121231_0004F date'2012-12-31' 0 date'2012-12-31' 0";
  EXPECT_THAT(script.Take({"select", "change"}),
              ElementsAre("set transaction read write", "create T_FLOW1D_20121231",
                          "sequence T_FLOW1D_20121231", "create T_FLOW1M_201212",
                          "sequence T_FLOW1M_201212", "set transaction read write",
                          "day 20121231 MEM_20121231_0004F 20121231", month, year, "commit",
                          "truncate table MEM_20121231_0004F"));
  EXPECT_THAT(log, testing::IsSupersetOf({"<0>:convert sql is <" + month + ">",
                                          "<0>:convert sql is <" + year + ">"}));

  // The city value comes with one refresh; the day's fallback is the same statement once more.
  WriteFile(paths::kDeviceStates, "[1a2b3c4d]\ncity=X\n");
  script.fail = {{"day", "E"}};
  ConvertFile();
  EXPECT_EQ(script.Take().back(), "rollback");
  script.fail = {{"sequence", "E"}};
  EXPECT_THAT(ConvertFile(), testing::Contains(HasSubstr("Create Sequence <sequence")));
}

TEST_F(OracleRoad, StartsTheLoaderToolOnAControlFile) {
  const std::string tool = "/tmp/oracle/bin/sqlldr";
  WriteFile(tool, "#!/bin/sh\necho \"$*\" >/tmp/oracle/called\n");
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  setenv("ORACLE_HOME", "/tmp/oracle", 1);
  script.columns = {"id", "name", "ts"};
  const auto load = [&] { return engine->OracleLoadOneTable(table, user, path); };
  EXPECT_EQ(load(), 1);
  wait(nullptr);
  EXPECT_EQ(ReadFile("/tmp/oracle/called"),
            "u/pw control=/etc/morvan/midtable_sqlldr.ctl errors=-1 bad=/dev/null\n");
  EXPECT_EQ(ReadFile(paths::kLoaderControlFile),
            "load '" + path + "' MEM_20121231_0004F (id, name, ts)");

  script.fail = {{"GetColums", "E"}};
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:getlast error E"));
  script.fail.clear();
  WriteFile(paths::kLoaderTemplates, "<root><sqlldr_ctl>no</sqlldr_ctl></root>");
  EXPECT_EQ(load(), 1);  // an empty control file
  EXPECT_EQ(ReadFile(paths::kLoaderControlFile), "");
  wait(nullptr);
  std::filesystem::remove(paths::kLoaderControlFile);
  std::filesystem::create_directory(paths::kLoaderControlFile);
  EXPECT_THAT(LogOf(load), ElementsAre("<2>:/etc/morvan/midtable_sqlldr.ctl file open failed"));
  wait(nullptr);
  std::filesystem::remove(paths::kLoaderTemplates);
  EXPECT_THAT(LogOf([&] { EXPECT_EQ(load(), 0); }).back(),
              "<2>:parse xml file /etc/morvan/sqlldr_ctl.xml failed");
}

}  // namespace
