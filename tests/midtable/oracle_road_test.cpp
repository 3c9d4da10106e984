#include <sys/stat.h>
#include <sys/wait.h>

#include "midtable/engine_fixture.h"
#include "midtable/loading.h"

namespace {

using testing::Contains, testing::ElementsAre, testing::IsEmpty;

const std::string kExternal = kTable + "_external";

// --- over an external table

class OracleRoad : public StepTest {
 protected:
  OracleRoad() : StepTest("oracle") {
    WriteFile(kFile, "row\n");
    Define(
        "<external_merge table='MEM_F'>merge %s %s</external_merge><external_load>"
        "<create_memdir table='MEM_F'>dir %s %s '100%%'</create_memdir>"
        "<create_table table='MEM_F'>external %s %s %s</create_table></external_load>",
        paths::kLoaderTemplates);
  }
  std::string Asked(const std::string& table) const {
    return "select object_name from all_objects where owner= " + Table(kDb, table);
  }
  bool Load() {
    return Logged([this] {
      return MemFileLoading(store, registry, not_emptied, false, MemFile::Parse(kFile)).Run();
    });
  }

  const std::string merge = "merge " + kTable + " " + kExternal;
  const std::string drop = "drop table " + kExternal;
};

TEST_F(OracleRoad, DeclaresFolderAndFileThenMergesTheRows) {
  EXPECT_TRUE(Load());
  EXPECT_THAT(
      script.Take(),
      ElementsAre("existDB(WLAN_1a2b3c4d)", Asked(kMem), Asked("MEM_20121231_0004F_EXTERNAL"),
                  "dir WLAN_1a2b3c4d 1a2b3c4d '100%'",
                  "external " + kExternal + " WLAN_1a2b3c4d " + kName, Asked(kMem), merge, drop));
}

TEST_F(OracleRoad, PointsAnExternalTableThatIsThereToTheFile) {
  script.tables.insert(Table(kDb, "MEM_20121231_0004F_EXTERNAL"));
  EXPECT_TRUE(Load());
  EXPECT_THAT(script.Take({"exist", "select"}),
              ElementsAre("alter table " + kExternal + " location('" + kName + "')", merge, drop));
}

TEST_F(OracleRoad, MakesTheMemTableBeforeTheExternalOne) {
  script.tables.clear();
  Define(Xml("Mem", Xml("MidCnt", "1") + MidTab(1, "F", Xml("Create", "mem %s"))),
         paths::kOracleDefinitions);
  EXPECT_FALSE(Load());
  EXPECT_EQ(log.front(), "<2>:table MEM_20121231_0004F not exist") << "though it was made";
  EXPECT_THAT(script.Take({"select"}),
              ElementsAre("existDB(WLAN_1a2b3c4d)", "changeDB(WLAN_1a2b3c4d,np)",
                          "existTable(MEM_20121231_0004F)", "mem MEM_20121231_0004F",
                          "dir WLAN_1a2b3c4d 1a2b3c4d '100%'",
                          "external " + kExternal + " WLAN_1a2b3c4d " + kName));
}

TEST_F(OracleRoad, AFailedStatementEndsTheStep) {
  Fail("merge");
  EXPECT_FALSE(Load());
  EXPECT_THAT(log, ElementsAre("<2>:sql error E", "<2>:ret (0) (E)"));
  EXPECT_EQ(script.Take().back(), merge) << "the external table stays";
  Fail("dir");
  EXPECT_FALSE(Load());
  EXPECT_THAT(script.Take({"exist", "select"}),
              ElementsAre("dir WLAN_1a2b3c4d 1a2b3c4d '100%'", merge));
}

// --- through the loader tool

class LoaderTool : public EngineTest {
 protected:
  LoaderTool() : EngineTest("oracle") {
    const std::string tool = "/tmp/oracle/bin/sqlldr";
    WriteFile(tool, "#!/bin/sh\necho \"$*\" >/tmp/oracle/called\n");
    fs::permissions(tool, fs::perms::owner_all);
    setenv("ORACLE_HOME", "/tmp/oracle", 1);
    const std::string template_text = "<sqlldr_ctl table='all'>load '%s' %s %s</sqlldr_ctl>";
    Define("<sqlldr_ctl>no</sqlldr_ctl>" + template_text, paths::kLoaderTemplates);
    script.columns = {"id", "name", "ts"};
  }
  bool Start(const std::string& user = "u") {
    return Logged([&] {
      const bool started = engine->OracleLoadOneTable(kMem, user, kFile) == 1;
      if (started) wait(nullptr);
      return started;
    });
  }
};

TEST_F(LoaderTool, IsStartedOnAControlFileWithThePasswordOfTheUser) {
  const std::string options = " control=/etc/morvan/midtable_sqlldr.ctl errors=-1 bad=/dev/null\n";
  EXPECT_TRUE(Start("u"));
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(ReadFile("/tmp/oracle/called"), "u/pw" + options);
  EXPECT_TRUE(Start("WLAN_1a2b3c4d"));
  EXPECT_EQ(ReadFile("/tmp/oracle/called"), "WLAN_1a2b3c4d/np" + options);
  EXPECT_EQ(ReadFile(paths::kLoaderControlFile),
            "load '" + kFile + "' MEM_20121231_0004F (id, name, ts)");
}

TEST_F(LoaderTool, IsNotStartedWithoutColumnsOrTemplates) {
  Fail("GetColums");
  EXPECT_FALSE(Start());
  EXPECT_THAT(log, ElementsAre("<2>:getlast error E"));
  fs::remove(paths::kLoaderTemplates);
  EXPECT_FALSE(Start());
  EXPECT_EQ(log.back(), "<2>:parse xml file /etc/morvan/sqlldr_ctl.xml failed");
}

TEST_F(LoaderTool, HasAControlFileOfMode0640WhateverTheUmask) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    fs::remove(paths::kLoaderControlFile);
    const mode_t before = umask(mask);
    Start();
    umask(before);
    EXPECT_EQ(fs::status(paths::kLoaderControlFile).permissions(), fs::perms(0640));
  }
}

TEST_F(LoaderTool, HasNoControlFileWrittenThroughALink) {
  WriteFile("/etc/morvan/target", "another's");
  fs::create_symlink("/etc/morvan/target", paths::kLoaderControlFile);
  EXPECT_TRUE(Start());
  EXPECT_THAT(log, ElementsAre("<2>:/etc/morvan/midtable_sqlldr.ctl file open failed"));
  EXPECT_EQ(ReadFile("/etc/morvan/target"), "another's");
}

// --- conversions

class OracleConversion : public StepTest {
 protected:
  OracleConversion() : StepTest("oracle") {
    const auto mid = [](int number, const std::string& name, const std::string& convert) {
      return MidTab(number, name, Xml("Create", "create %s") + Xml("ConvertOracle", convert));
    };
    Define(Xml("Sequence", "sequence %s") +
               Conversions("F", "3",
                           mid(1, "T_FLOW1D_", "day %s %s %s") +
                               mid(2, "T_FLOW1M_", "month %s %s %d %d %d %d %d %d %d %d") +
                               mid(3, "T_FLOW1Y_", "year %s %s %s %s %s %s")),
           paths::kOracleDefinitions);
  }

  const std::string begin = "set transaction read write";
  const std::string day = "day 20121231 MEM_20121231_0004F 20121231";
  const std::string month = "month 201212 MEM_20121231_0004F 31 31 31 31 31 31 31 31";
  // That of a device without a city, and of one whose city is "X"; the number is the CRC of "/X/".
  const std::string year = "year 2012 MEM_20121231_0004F date'2012-12-31' 0 date'2012-12-31' 0";
  const std::string year_of_x =
      "year 2012 MEM_20121231_0004F date'2012-12-31' 367211210 date'2012-12-31' 367211210";
};

TEST_F(OracleConversion, HasSequencesDayNumbersAndCityValues) {
  EXPECT_EQ(Convert(), ConversionResult::kDone);
  EXPECT_THAT(log, testing::IsSupersetOf({"<0>:convert sql is <" + month + ">",
                                          "<0>:convert sql is <" + year + ">"}));
  EXPECT_THAT(script.Take({"select", "change"}),
              ElementsAre(begin, "create T_FLOW1D_20121231", "sequence T_FLOW1D_20121231",
                          "create T_FLOW1M_201212", "sequence T_FLOW1M_201212", begin, day, month,
                          year, "commit", "truncate table MEM_20121231_0004F"));
}

TEST_F(OracleConversion, ACityThatIsEnteredLaterCountsFromThenOn) {
  Convert();
  EXPECT_THAT(script.Take(), Contains(year));
  WriteFile(paths::kDeviceStates, "[1a2b3c4d]\ncity=X\n");
  Convert();
  EXPECT_THAT(script.Take(), Contains(year_of_x));
}

TEST_F(OracleConversion, TriesAFailedStatementOnceMore) {
  Fail("day");
  Convert();
  EXPECT_THAT(script.Take({"select", "change", "create", "sequence", "set"}),
              ElementsAre(day, day, "rollback"));
}

}  // namespace
