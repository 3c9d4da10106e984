// Where a reconnection goes when the database that was used last is gone.
#include <functional>

#include "db/SqlFactory.h"
#include "gmock/gmock.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

namespace {

struct Server {
  std::string type;
  std::function<PrivateServer&()> get;
  std::function<void(const std::string&)> create;  // makes an empty database, or user
  std::string drop;                                // the statement for database, or user, beta
  const char* where;                               // a query for the current one
};

const Server kMysql = {
    "mysql", MariadbServer::Get,
    [](const auto& name) { MariadbServer::Get().Run("create or replace database " + name); },
    "drop database beta", "select database() as v"};

// Made for database alpha, and switched to beta.
class Reconnection : public testing::TestWithParam<Server> {
 protected:
  Reconnection() {
    for (const char* database : {"alpha", "beta"}) m_is.create(database);
    m_auth.dbtype = m_is.type;
    if (IsOracle(m_auth)) m_auth.user = "alpha";
    m_sql = CreateSqlBase(m_auth);
    EXPECT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
    EXPECT_EQ(0, m_sql->changeDB("beta", "secret")) << m_sql->getLastError();
  }
  std::string Where() {
    std::vector<SqlRecord> rows;
    EXPECT_EQ(0, m_sql->fetchRecordSet(m_is.where, rows)) << m_sql->getLastError();
    return rows.size() == 1 ? rows[0].begin()->second : "not one row";
  }

  const Server& m_is = GetParam();
  PrivateServer& m_server = m_is.get();
  MYSQLAUTH m_auth = m_server.Auth("alpha");
  std::unique_ptr<CSqlBase> m_sql;
};
INSTANTIATE_TEST_SUITE_P(Mysql, Reconnection, testing::Values(kMysql));
#ifdef MIDTABLE_ORACLE
const Server kOracle = {"oracle", PostgresServer::Get,
                        [](const auto& name) { PostgresServer::Get().CreateStore(name); },
                        "drop schema beta cascade; drop user beta", "select current_user as v"};
INSTANTIATE_TEST_SUITE_P(Oracle, Reconnection, testing::Values(kOracle));
#endif

TEST_P(Reconnection, GoesToTheDatabaseThatWasUsedLast) {
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_EQ("beta", Where());
}

TEST_P(Reconnection, GoesToItsOwnDatabaseWhenTheLastOneIsGone) {
  m_server.Run(m_is.drop);
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure());
  EXPECT_EQ("alpha", Where());
  EXPECT_EQ(0, m_sql->reconnectDB()) << "and stays there";
  EXPECT_EQ("alpha", Where());
}

TEST_P(Reconnection, KeepsTheLastDatabaseOverAnOutage) {
  m_server.Kill();
  EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure());
  m_server.Start();
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_EQ("beta", Where());
}

using MysqlReconnection = Reconnection;
INSTANTIATE_TEST_SUITE_P(Only, MysqlReconnection, testing::Values(kMysql));

TEST_P(MysqlReconnection, FailsWhenItsOwnDatabaseIsGoneToo) {
  m_server.Run("drop database beta; drop database alpha");
  EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ("connect failed, error:Unknown database 'alpha'", m_sql->getLastError());
  EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure());
}

TEST_P(MysqlReconnection, GoesToItsOwnDatabaseWhenTheLastOneIsClosedToTheUser) {
  m_server.Run(
      "create or replace user plain identified by 'p'; grant all on alpha.* to plain;"
      "grant all on beta.* to plain");
  m_auth.user = "plain";
  m_auth.password = "p";
  m_sql = CreateSqlBase(m_auth);
  EXPECT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
  EXPECT_EQ(0, m_sql->changeDB("beta"));
  m_server.Run("revoke all on beta.* from plain");
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_EQ("alpha", Where());
}

}  // namespace
