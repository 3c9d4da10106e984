// The engine on a real server: what it sends, in which order, and what is left on disk and in
// tables.
#include "service/pipeline_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(Pipeline, SendsTheseStatementsForAFileAndNoOthers) {
  const std::string stem = Drop(kMemA, "101500", "1\t5\n2\t6\n2\t7\n");
  EXPECT_TRUE(engine->MakeMidTable());
  const auto show = [](const std::string& table, const std::string& db = kDb) {
    return "show tables from " + db + " like \"" + table + "\"";
  };
  EXPECT_THAT(
      Sent(),
      // The first look is for rows that an earlier run left, once for each database.
      ElementsAre("SHOW DATABASES LIKE 'WLAN_1a2b3c4d'", "SHOW DATABASES LIKE 'WLAN_1a2b3c4d'",
                  "create database WLAN_1a2b3c4d", show(kMemA), "use WLAN_1a2b3c4d",
                  "SHOW TABLES LIKE 'MEM_20121231_0004A'",
                  StartsWith("create table MEM_20121231_0004A"), show(kMemA + "_external"),
                  "load data infile \"" + stem + ".dat\" ignore into table " + kDb + "." + kMemA,
                  "use WLAN_1a2b3c4d", show(kMemA), "start transaction", show("T_AUTH1D_20121231"),
                  StartsWith("create table if not exists T_AUTH1D_20121231"),
                  show("T_AUTH1M_201212", "WLAN_TUNE"),
                  StartsWith("create table if not exists T_AUTH1M_201212"), "start transaction",
                  "insert into T_AUTH1D_20121231 select count(*) from MEM_20121231_0004A",
                  "insert into T_AUTH1M_201212 select count(*) from MEM_20121231_0004A", "commit",
                  "truncate table MEM_20121231_0004A"));
  EXPECT_THAT(ListFolder(kSpool + "1a2b3c4d"),
              ElementsAre(fs::path(stem).filename().string() + ".mid"));
  EXPECT_EQ(Sum("T_AUTH1D_20121231"), "2");
  EXPECT_THAT(MemRows(), IsEmpty());
}
