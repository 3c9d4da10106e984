// Several statements in one journey to a MySQL server.
#include "db/MysqlBase.h"
#include "gmock/gmock.h"
#include "testing/mariadb_server.h"

namespace {

using testing::ElementsAre, testing::HasSubstr, testing::IsEmpty;

class Bytes : public LoadBytes {
 public:
  explicit Bytes(std::string text) : m_text(std::move(text)) {}
  int Read(char* buffer, unsigned int size) override {
    const std::size_t part = m_text.copy(buffer, size);
    m_text.erase(0, part);
    return static_cast<int>(part);
  }
  std::string error() const override { return {}; }

 private:
  std::string m_text;
};

class Script : public testing::Test {
 protected:
  Script() {
    m_server.Run("create or replace database play; create table play.t (a int primary key)");
    m_sql.allowLocalLoads();
    m_sql.allowScripts();
    m_sql.logNothing();
    EXPECT_EQ(m_sql.connectDB(), 0);
    EXPECT_EQ(m_sql.changeDB("play"), 0);
  }
  std::size_t Run(const std::vector<std::string>& statements) {
    return m_sql.runScript(statements, &m_bytes, m_replies);
  }
  std::vector<std::string> Rows() { return m_server.Run("select a from play.t order by a"); }

  MariadbServer& m_server = MariadbServer::Get();
  MYSQLAUTH m_auth = m_server.Auth("mysql");
  CMysqlBase m_sql{&m_auth};
  Bytes m_bytes{"7\n8\n"};
  std::vector<SqlReply> m_replies;
};

TEST_F(Script, RunsAllInOrderAndTellsWhatEachCameTo) {
  EXPECT_EQ(Run({"insert into t values (1), (2)", "select a, null as b from t where a = 2",
                 "load data local infile 'x' into table t", "select count(*) as n from t"}),
            4U);
  EXPECT_EQ(m_sql.lastFailure(), SqlFailure::kNone);
  EXPECT_EQ(m_replies[0].affected, 2U);
  EXPECT_THAT(m_replies[1].rows, ElementsAre(SqlRecord{{"a", "2"}, {"b", "NULL"}}));
  EXPECT_EQ(m_replies[3].rows.at(0).at("n"), "4");
}

TEST_F(Script, EndsAtTheFirstStatementThatFails) {
  EXPECT_EQ(
      Run({"start transaction", "insert into t values (1)", "insert into t values (1)", "commit"}),
      2U);
  EXPECT_EQ(m_sql.lastFailure(), SqlFailure::kData);
  EXPECT_THAT(m_sql.getLastError(), HasSubstr("Duplicate entry"));
  EXPECT_EQ(m_sql.executeSQL("rollback", 0), 0);
  EXPECT_THAT(Rows(), IsEmpty());
}

TEST_F(Script, LeavesTheSessionReadyForTheNextStatementAfterALoadThatFails) {
  EXPECT_EQ(Run({"load data local infile 'x' into table missing", "do 1"}), 0U);
  EXPECT_EQ(m_sql.executeSQL("insert into t values (5)", 0), 0) << m_sql.getLastError();
  EXPECT_THAT(Rows(), ElementsAre("5"));
}

TEST_F(Script, SendsNothingWhenAStatementHoldsASemicolon) {
  const std::size_t mark = m_server.Mark();
  EXPECT_EQ(Run({"insert into t values (1)", "do 1; drop table t"}), 0U);
  EXPECT_EQ(m_sql.lastFailure(), SqlFailure::kStatement);
  EXPECT_THAT(m_server.Statements(mark), IsEmpty());
}

TEST_F(Script, TakesCommentsAndSemicolonsAtTheEndOfStatements) {
  EXPECT_EQ(Run({"insert into t values (1) -- the first", "insert into t values (2); \n"}), 2U);
  EXPECT_THAT(Rows(), ElementsAre("1", "2"));
}

TEST_F(Script, ASingleStatementIsNeverTwoOfThem) {
  EXPECT_EQ(m_sql.executeSQL("insert into t values (1); insert into t values (2)", 0), -1);
  EXPECT_EQ(m_sql.lastFailure(), SqlFailure::kStatement);
  EXPECT_THAT(Rows(), IsEmpty());
  EXPECT_EQ(Run({"insert into t values (3)", "insert into t values (4)"}), 2U) << "afterwards";
}

}  // namespace
