// What the back end for Oracle alone promises, asked of it on PostgreSQL.
#include "db/OracleBase.h"

#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/postgres_server.h"

class OracleBase : public testing::Test {
 protected:
  OracleBase() { m_server.CreateStore("WLAN_1a2b"); }

  PostgresServer& m_server = PostgresServer::Get();
  COracleBase m_sql{"WLAN_1a2b", "secret"};
};

TEST_F(OracleBase, LogsInAsTheUserThatADatabaseIs) {
  COracleBase sql("midtable", "wrong");
  EXPECT_EQ(0, sql.changeDB("WLAN_1a2b", "secret"));
  EXPECT_EQ(-1, sql.changeDB("midtable", "wrong"));
  EXPECT_EQ(0, sql.executeSQL("create table mine (x int)", 1)) << "the old session goes on";
  EXPECT_TRUE(sql.existTable("mine"));
  EXPECT_EQ(0, sql.changeDB("WLAN_1a2b")) << "with the password that was good";
}

TEST_F(OracleBase, FindsNamesInAnyCase) {
  m_server.Run("create table wlan_1a2b.mine (x int)");
  EXPECT_EQ(0, m_sql.connectDB());
  EXPECT_TRUE(m_sql.existTable("mine"));
  EXPECT_TRUE(m_sql.existTable("MINE"));
  EXPECT_TRUE(m_sql.existDB("wlan_1A2B"));
}

TEST_F(OracleBase, FailsWithCodeAndTextOfTheServerAndWritesNothing) {
  CapturedStdout out;
  EXPECT_EQ(0, m_sql.connectDB());
  EXPECT_EQ(-1, m_sql.executeSQL("nonsense", 1));
  EXPECT_THAT(m_sql.getLastError(), testing::HasSubstr("42601 ERROR: syntax error"));
  EXPECT_EQ("", out.text());
}

TEST_F(OracleBase, RollsBackAtItsEndWhatFollowsAFailedCommit) {
  m_server.Run("create table wlan_1a2b.t (x int unique deferrable initially deferred)");
  EXPECT_EQ(0, m_sql.connectDB());
  EXPECT_EQ(0, m_sql.executeSQL("set transaction read write", 1));
  EXPECT_EQ(0, m_sql.executeSQL("insert into t values (1), (1)", 1));
  EXPECT_EQ(-1, m_sql.executeSQL("commit", 1));
  EXPECT_EQ(0, m_sql.executeSQL("insert into t values (2)", 1));
  m_sql.closeDB();
  EXPECT_EQ("0", m_server.Run("select count(*) from wlan_1a2b.t").at(0));
}
