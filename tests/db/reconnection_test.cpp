// Where a reconnection goes when the database that was used last is gone.
#include "db/back_end_fixture.h"

namespace {

// Made for database alpha, and switched to beta.
class Reconnection : public BackEndTest, public testing::WithParamInterface<BackEnd> {
 protected:
  Reconnection() : BackEndTest(GetParam()) {
    EXPECT_EQ(0, m_sql->changeDB("beta", "secret")) << m_sql->getLastError();
  }
};
INSTANTIATE_TEST_SUITE_P(Of, Reconnection, testing::ValuesIn(kBackEnds), kNameOfBackEnd);

TEST_P(Reconnection, GoesToItsOwnDatabaseWhenTheLastOneIsGone) {
  m_server.Run(m_is.drop);
  for (const char* when : {"at once", "and from then on"}) {
    EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
    EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure());
    EXPECT_EQ("alpha", Value(m_is.where)) << when;
  }
}

TEST_P(Reconnection, KeepsTheLastDatabaseOverAnOutage) {
  m_server.Kill();
  EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ(-1, m_sql->changeDB("alpha", "secret"));
  EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure());
  m_server.Start();
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_EQ("beta", Value(m_is.where));
}

class MysqlReconnection : public BackEndTest {
 protected:
  MysqlReconnection() : BackEndTest(kMysql) {}
};

TEST_F(MysqlReconnection, GoesToItsOwnDatabaseWhenTheLastOneIsClosedToTheUser) {
  ConnectAs("grant all on alpha.* to plain; grant all on beta.* to plain");
  EXPECT_EQ(0, m_sql->changeDB("beta"));
  m_server.Run("revoke all on beta.* from plain");
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_EQ("alpha", Value(m_is.where));
}

}  // namespace
