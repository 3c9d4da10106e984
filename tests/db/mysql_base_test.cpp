// What only the MySQL back end does.
#include <dlfcn.h>

#include "db/MysqlBase.h"
#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

using testing::ElementsAre, testing::HasSubstr;

static bool g_init_fails = false;

// In the place of the library's own, which it calls unless a test says otherwise.
extern "C" MYSQL* STDCALL mysql_init(MYSQL* handle) {
  static const auto original = reinterpret_cast<MYSQL* (*)(MYSQL*)>(dlsym(RTLD_NEXT, "mysql_init"));
  return g_init_fails ? nullptr : original(handle);
}

namespace {

class MysqlBase : public testing::Test {
 protected:
  void SetUp() override {
    m_server.Run("create or replace database alpha; create table alpha.t (x int)");
    ASSERT_EQ(0, m_sql.connectDB()) << m_sql.getLastError();
    m_mark = m_server.Mark();
  }

  MariadbServer& m_server = MariadbServer::Get();
  MYSQLAUTH m_auth = m_server.Auth("alpha");
  CMysqlBase m_sql{&m_auth};
  std::vector<SqlRecord> m_rows;
  std::size_t m_mark = 0;
};

TEST_F(MysqlBase, SendsTheseStatementsAndNoOthers) {
  CapturedStdout out;
  unsigned int count = 0;
  EXPECT_TRUE(m_sql.isDBAlive() && m_sql.existDB("alpha") && m_sql.existTable("t"));
  EXPECT_EQ(0, m_sql.changeDB("alpha", "other"));
  EXPECT_EQ(0, m_sql.fetchRecordSet("select 5 as a, null as b", m_rows));
  EXPECT_EQ(1146, m_sql.RowsCountBySQL("select * from missing", &count));
  EXPECT_EQ(0, m_sql.connectDB());
  EXPECT_EQ(-1, m_sql.executeSQL("select * from quiet", 0));
  EXPECT_EQ(-1, m_sql.changeDB("nodb"));
  EXPECT_THAT(m_server.Statements(m_mark),
              ElementsAre("SHOW DATABASES LIKE 'alpha'", "SHOW TABLES LIKE 't'", "use alpha",
                          "select 5 as a, null as b", "select * from missing",
                          "select * from quiet", "use nodb"));
  EXPECT_THAT(out.text(), testing::MatchesRegex(
                              "sql is select 5 as a, null as b\nfield.name 0x.*\\(a\\) value "
                              "\\(5\\)\n.*\\(b\\) value \\(NULL\\)\n\\[MysqlBase:114]<2>:execute "
                              "use nodb failed, error:Unknown database 'nodb'\n"));
}

// Deliberate: a name is a pattern, and only the first match counts.
TEST_F(MysqlBase, LooksAtTheFirstMatchOnly) {
  m_server.Run("create or replace database a_c; create table alpha.p_q (x int)");
  EXPECT_TRUE(m_sql.existDB("a_c") && m_sql.existTable("p_q"));
  m_server.Run("create or replace database aXc; create table alpha.pXq (x int)");
  EXPECT_FALSE(m_sql.existDB("a_c") || m_sql.existTable("p_q"));
  EXPECT_TRUE(m_sql.existDB("INFORMATION_SCHEMA")) << "letter case does not count";
}

TEST_F(MysqlBase, StreamsRows) {
  SqlRecord record;
  EXPECT_EQ(0, m_sql.fetchRecordSet("select seq as v from seq_1_to_2"));
  EXPECT_EQ(0, m_sql.fetchRecord(record));
  EXPECT_EQ(-1, m_sql.executeSQL("select 1", 0)) << "the second row is on its way";
  m_sql.clearRecordSet();
  EXPECT_EQ(0, m_sql.fetchRecord(record)) << "no read is open";
  EXPECT_EQ("1", record["v"]);
}

TEST_F(MysqlBase, TellsWhyItFails) {
  const std::string longer = "select " + std::string(20000, '1') + " from missing";
  EXPECT_EQ(-1, m_sql.executeSQL(longer.c_str(), 0));
  EXPECT_EQ("execute " + longer + " failed, error:Table 'alpha.missing' doesn't exist",
            m_sql.getLastError());
  m_sql.closeDB();
  for (const bool fails : {true, false}) {  // a refused handle is not tried again
    g_init_fails = fails;
    EXPECT_EQ(-1, m_sql.connectDB());
    EXPECT_EQ("mysql_init() error", m_sql.getLastError());
  }
  m_auth.password = "wrong";
  EXPECT_EQ(1, m_sql.setAuth(&m_auth));
  EXPECT_EQ(-1, m_sql.reconnectDB());
  EXPECT_THAT(m_sql.getLastError(), HasSubstr("connect failed, error:Access denied for user"));
}

}  // namespace
