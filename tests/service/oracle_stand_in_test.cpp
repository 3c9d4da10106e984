// The Oracle road of a mem file through the real back end, with PostgreSQL in Oracle's place and
// loader templates in its SQL: a function makes the "external" table and fills it from the file.
#include <memory>

#include "gmock/gmock.h"
#include "midtable/Midtable.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/postgres_server.h"

constexpr char kExternalTable[] = R"(
    create or replace function external_table(name text, db text, file text) returns void
    language plpgsql as $$ begin
      execute format('create table %s (id int, v int)', name);
      execute format('copy %s from ''/vqlog/log_data/midtable/%s/%s''', name, substr(db, 6), file);
    end $$)";

constexpr char kTemplates[] = R"(<root>
    <external_merge table='MEM_A'>
      insert into %s select * from %s on conflict do nothing
    </external_merge>
    <external_load>
      <create_memdir table='MEM_A'>create schema if not exists %s_%s</create_memdir>
      <create_table table='MEM_A'>select external_table('%s', '%s', '%s')</create_table>
    </external_load></root>)";

// The definition of mid table i; `values` stand behind the date in its name.
std::string MidTable(int i, const std::string& name, const std::string& values) {
  const std::string tag = "MidTab" + std::to_string(i) + ">";
  return "<" + tag + "<Always>1</Always><Name>" + name +
         "</Name><Create>create table if not exists %s (n int)</Create><ConvertOracle>insert "
         "into " +
         name + "%s select " + values + "</ConvertOracle></" + tag;
}

const std::string kDefinitions =
    "<root><Sequence>create sequence if not exists S_%s</Sequence>"
    "<Mem><MidCnt>1</MidCnt><MidTab1><Name>A</Name>"
    "<Create>create table %s (id int primary key, v int)</Create></MidTab1></Mem>"
    "<Conv><A><MidCnt>3</MidCnt>" +
    MidTable(1, "T_AUTH1D_", "count(*) from %s where '%s' = '20121231'") +
    MidTable(2, "T_AUTH1M_", "count(*) from %s having %d = 31 and %d = 31") +
    MidTable(3, "T_AUTH1Y_",
             "sum(v) from %s where extract(day from %s) = 31 and '%s' &lt;&gt; ''") +
    "</A></Conv></root>";

class OracleStandIn : public testing::Test {
 protected:
  OracleStandIn() {
    m_server.CreateStore("WLAN_1a2b3c4d");
    m_server.Run("create table wlan_1a2b3c4d.t_auth1y_2012 (n int)");
    m_server.Run(kExternalTable);
    WriteFile(paths::kSettingsFile,
              "user=midtable\npassword=secret\nset_password=secret\ndbtype=oci8");
    WriteFile(paths::kLoaderTemplates, kTemplates);
    WriteFile(paths::kOracleDefinitions, kDefinitions);
    g_nMainRun = 0;  // the watcher has nothing to do here, and ends
    m_engine = std::make_unique<CMidTable>();
    AwaitSingleThread();
    g_nMainRun = 1;
    EXPECT_TRUE(m_engine->Initialize());
  }
  // Commits what the stand-in, unlike an Oracle server, left open.
  void EndEngine() {
    g_nMainRun = 0;
    m_engine.reset();
  }
  std::string Sum(const std::string& table) {
    return m_server.Run("select sum(n) from wlan_1a2b3c4d." + table).at(0);
  }

  PostgresServer& m_server = PostgresServer::Get();
  std::unique_ptr<CMidTable> m_engine;
};

TEST_F(OracleStandIn, MemFilesBecomeRowsOfDayMonthAndYearTables) {
  const std::string folder = std::string(paths::kSpool) + "1a2b3c4d/";
  for (const std::string time : {"101500", "101600"}) {
    WriteFile(folder + "1a2b3c4d-MEM_20121231_1004A-20121231-" + time + ".dat",
              "1\t5\n2\t6\n2\t7\n");
    EXPECT_TRUE(m_engine->MakeMidTable());
  }
  EndEngine();
  EXPECT_EQ(Sum("t_auth1d_20121231"), "4");
  EXPECT_EQ(Sum("t_auth1m_201212"), "4");
  EXPECT_EQ(Sum("t_auth1y_2012"), "22");
  EXPECT_THAT(m_server.Run("select object_name from all_objects where owner = 'WLAN_1A2B3C4D' and "
                           "object_type = 'SEQUENCE' order by 1"),
              testing::ElementsAre("S_T_AUTH1D_20121231", "S_T_AUTH1M_201212"));
  EXPECT_THAT(m_server.Run("select * from wlan_1a2b3c4d.mem_20121231_0004a"), testing::IsEmpty());
  EXPECT_THAT(ListFolder(folder), testing::Each(testing::EndsWith(".mid")));
}
