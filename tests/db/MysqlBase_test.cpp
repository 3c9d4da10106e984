// What the back end for MySQL alone promises.
#include "db/back_end_fixture.h"
#include "log/zux_center_log.h"

using testing::ElementsAre;

class MysqlBase : public BackEndTest {
 protected:
  MysqlBase() : BackEndTest(kMysql) {}
};

// Of an ordinary user: the server runs no init_connect for those with all privileges.
TEST_F(MysqlBase, CommitsEachStatementWhateverTheServersDefault) {
  ConnectAs("grant all on alpha.* to plain");
  for (const auto& [setting, value] :
       {std::pair("autocommit", "0"), {"init_connect", "'set autocommit = 0'"}}) {
    m_server.Run(Format("set global %s = %s; truncate table alpha.t", setting, value));
    EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
    EXPECT_TRUE(m_sql->existDB("alpha")) << "its answer tells of init_connect";
    EXPECT_EQ(0, Do(kInsert));
    m_sql->closeDB();
    m_server.Run(Format("set global %s = default", setting));
    EXPECT_EQ("1", CommittedRows()) << setting;
  }
}

TEST_F(MysqlBase, SendsTheseStatementsAndNoOthers) {
  const std::size_t mark = MariadbServer::Get().Mark();
  unsigned int count = 0;
  EXPECT_TRUE(m_sql->isDBAlive());
  EXPECT_TRUE(m_sql->existDB("alpha"));
  EXPECT_TRUE(m_sql->existTable("t"));
  EXPECT_EQ(0, m_sql->changeDB("alpha", "other"));
  EXPECT_EQ("NULL", Value("select null as b"));
  EXPECT_EQ(1146, m_sql->RowsCountBySQL("select * from missing", &count));
  EXPECT_EQ(-1, Do("select * from quiet"));
  EXPECT_EQ(-1, m_sql->changeDB("nodb"));
  EXPECT_THAT(
      MariadbServer::Get().Statements(mark),
      ElementsAre("SHOW DATABASES LIKE 'alpha'", "SHOW TABLES LIKE 't'", "use alpha",
                  "select null as b", "select * from missing", "select * from quiet", "use nodb"));
}

TEST_F(MysqlBase, DeliberatelyTakesANameForAPatternAndLooksAtItsFirstMatchOnly) {
  MariadbServer::Get().MakeDatabases({"a_c"});
  m_server.Run("create table alpha.p_q (x int)");
  EXPECT_TRUE(m_sql->existDB("a_c"));
  EXPECT_TRUE(m_sql->existTable("p_q"));
  MariadbServer::Get().MakeDatabases({"aXc"});
  m_server.Run("create table alpha.pXq (x int)");
  EXPECT_FALSE(m_sql->existDB("a_c"));
  EXPECT_FALSE(m_sql->existTable("p_q"));
}
