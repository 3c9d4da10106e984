// The Oracle road of a mem file through the real back end, with PostgreSQL in Oracle's place and
// loader templates in its SQL: a function makes the "external" table and fills it from the file.
#include <memory>

#include "gmock/gmock.h"
#include "midtable/Midtable.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/postgres_server.h"

namespace {

std::string Mid(int i, const std::string& name, const std::string& convert) {
  const std::string tag = "MidTab" + std::to_string(i);
  return "<" + tag + "><Always>1</Always><Name>" + name +
         "</Name><Create>create table if not exists %s (n int)" +
         "</Create><ConvertOracle>insert into " + name + convert + "</ConvertOracle></" + tag + ">";
}

TEST(OracleStandIn, AMemFileBecomesRowsOfDayMonthAndYearTables) {
  PostgresServer& server = PostgresServer::Get();
  const std::string store = "wlan_1a2b3c4d";
  server.CreateStore("WLAN_1a2b3c4d");
  server.Run("create table " + store + ".t_auth1y_2012 (n int)");
  server.Run(
      "create or replace function external_table(name text, db text, file text) returns void "
      "language plpgsql as $$ begin execute format('create table %s (id int, v int)', name); "
      "execute format('copy %s from ''/vqlog/log_data/midtable/%s/%s''', name, substr(db, 6), "
      "file); "
      "end $$");
  WriteFile(paths::kSettingsFile,
            "user=midtable\npassword=secret\nset_password=secret\ndbtype=oci8");
  WriteFile(
      paths::kLoaderTemplates,
      "<root><external_merge table='MEM_A'>insert into %s select * from %s on conflict do "
      "nothing</external_merge><external_load><create_memdir table='MEM_A'>create schema if "
      "not exists %s_%s</create_memdir><create_table table='MEM_A'>select external_table('%s', "
      "'%s', '%s')</create_table></external_load></root>");
  WriteFile(paths::kOracleDefinitions,
            "<root><Sequence>create sequence if not exists "
            "S_%s</Sequence><Mem><MidCnt>1</MidCnt><MidTab1><Name>A"
            "</Name><Create>create table %s (id int primary key, v int)</Create></MidTab1></Mem>"
            "<Conv><A><MidCnt>3</MidCnt>" +
                Mid(1, "T_AUTH1D_", "%s select count(*) from %s where '%s' = '20121231'") +
                Mid(2, "T_AUTH1M_", "%s select count(*) from %s having %d = 31 and %d = 31") +
                Mid(3, "T_AUTH1Y_",
                    "%s select sum(v) from %s where extract(day from %s) = 31 and "
                    "'%s' &lt;&gt; ''") +
                "</A></Conv></root>");
  const std::string folder = std::string(paths::kSpool) + "1a2b3c4d/";
  const std::string stem = folder + "1a2b3c4d-MEM_20121231_1004A-20121231-";

  g_nMainRun = 0;  // the watcher has nothing to do here, and ends
  auto engine = std::make_unique<CMidTable>();
  AwaitSingleThread();
  g_nMainRun = 1;
  ASSERT_TRUE(engine->Initialize());
  const auto total = [&](const std::string& table) {
    return server.Run("select sum(n) from " + store + "." + table).at(0);
  };
  for (const char* time : {"101500", "101600"}) {
    WriteFile(stem + time + ".dat", "1\t5\n2\t6\n2\t7\n");
    EXPECT_TRUE(engine->MakeMidTable());
  }
  g_nMainRun = 0;
  engine.reset();  // commits what the stand-in, unlike an Oracle server, left open
  EXPECT_EQ(total("t_auth1d_20121231"), "4");
  EXPECT_EQ(total("t_auth1m_201212"), "4");
  EXPECT_EQ(total("t_auth1y_2012"), "22");
  EXPECT_THAT(server.Run("select object_name from all_objects where owner = 'WLAN_1A2B3C4D' and "
                         "object_type = 'SEQUENCE' order by 1"),
              testing::ElementsAre("S_T_AUTH1D_20121231", "S_T_AUTH1M_201212"));
  EXPECT_THAT(server.Run("select * from " + store + ".mem_20121231_0004a"), testing::IsEmpty());
  EXPECT_THAT(ListFolder(folder), testing::Each(testing::EndsWith(".mid")));
}

}  // namespace
