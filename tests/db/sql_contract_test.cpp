// What every back end owes its callers, asked of each on a real server.
#include <malloc.h>

#include <functional>

#include "db/SqlFactory.h"
#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

using testing::HasSubstr;

namespace {

// What really differs.
struct BackEnd {
  std::string type, user;
  std::function<PrivateServer&()> server;
  std::function<void(std::string)> create;
  const char *begin, *missing, *columns, *many_rows, *breaks_off, *suicide;
};

const BackEnd kMysql = {
    "mysql",
    "midtable",
    MariadbServer::Get,
    [](const auto& name) { MariadbServer::Get().Run("create or replace database " + name); },
    "start transaction",
    "Table 'alpha.missing' doesn't exist",
    "",
    "select seq as v from seq_1_to_5000",
    "select 18446744073709547116 + seq from seq_1_to_5000",
    "select concat('kill ', connection_id()) as k"};

class SqlContract : public testing::TestWithParam<BackEnd> {
 protected:
  SqlContract() {
    for (const std::string store : {"alpha", "beta"}) {
      m_is.create(store);
      m_server.Run("create table " + store + ".t (zeta int, Alpha int)");
    }
    MYSQLAUTH auth = m_server.Auth("alpha");
    auth.user = m_is.user;
    auth.dbtype = m_is.type;
    m_sql = CreateSqlBase(auth);
    EXPECT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
  }
  int Do(const char* statement) { return m_sql->executeSQL(statement, 0); }
  std::string Value(const std::string& query) {
    EXPECT_EQ(0, m_sql->fetchRecordSet(query.c_str(), m_rows)) << m_sql->getLastError();
    return m_rows.size() == 1 ? m_rows[0].begin()->second : "not one row";
  }

  const BackEnd& m_is = GetParam();
  PrivateServer& m_server = m_is.server();
  std::unique_ptr<CSqlBase> m_sql;
  std::vector<SqlRecord> m_rows;
};
INSTANTIATE_TEST_SUITE_P(Mysql, SqlContract, testing::Values(kMysql));

#ifdef MIDTABLE_ORACLE
const BackEnd kOracle = {
    "oracle",
    "alpha",
    PostgresServer::Get,
    [](const auto& name) { PostgresServer::Get().CreateStore(name); },
    " Set Transaction read write",
    "42P01 ERROR: relation \"missing\" does not exist",
    "ZETA ALPHA ",
    "select v from generate_series(1, 5000) v",
    "select 1 / (4500 - v) from generate_series(1, 5000) v",
    "select concat('select pg_terminate_backend(', pg_backend_pid(), ')') as k"};
INSTANTIATE_TEST_SUITE_P(Oracle, SqlContract, testing::Values(kOracle));
#endif

TEST_P(SqlContract, ReadsEveryValueAsText) {
  CapturedStdout long_traces;
  Value(
      "select null as a, 'NULL' as b, '' as c, 'first' as id, 'second' as id, -1.50 as d,"
      " 'größe 用户 ?{fn x} %s' as e");
  const SqlRecord expected = {{"a", "NULL"},  {"b", "NULL"},   {"c", ""},
                              {"d", "-1.50"}, {"id", "first"}, {"e", "größe 用户 ?{fn x} %s"}};
  EXPECT_THAT(m_rows, testing::ElementsAre(expected));
  // Around the size of the pieces in which a driver hands out long values.
  for (const std::size_t size : {8190U, 8191U, 16382U, 300000U}) {
    const auto query = "select concat(repeat('x', " + std::to_string(size) + "), 'y') as v";
    EXPECT_TRUE(Value(query) == std::string(size, 'x') + "y") << size;
  }
  Value(m_is.many_rows);
  EXPECT_EQ(5000U, m_rows.size());
  EXPECT_EQ("5000", m_rows.back()["v"]);
  Value("select zeta from t");
  EXPECT_TRUE(m_rows.empty());
}

TEST_P(SqlContract, FailsWithTheServersTextAndNumber) {
  EXPECT_EQ(-1, Do("insert into missing values (1)"));
  EXPECT_EQ("1", Value("select 1"));
  EXPECT_THAT(m_sql->getLastError(), HasSubstr(m_is.missing)) << "never cleared";
  unsigned int count = 7;
  for (const char* query : {"select * from nowhere", m_is.breaks_off, "delete from t"}) {
    m_rows.clear();
    EXPECT_EQ(-1, m_sql->fetchRecordSet(query, m_rows)) << query;
    EXPECT_TRUE(m_rows.empty());
    const std::string error = m_sql->getLastError();
    EXPECT_THAT(error, testing::Not(HasSubstr(m_is.missing))) << query;
    EXPECT_NE(0, m_sql->RowsCountBySQL(query, &count)) << query;
    EXPECT_EQ(error, m_sql->getLastError()) << "counting leaves it";
  }
  EXPECT_EQ(7U, count);
  EXPECT_EQ(0, m_sql->RowsCountBySQL(m_is.many_rows, &count));
  EXPECT_EQ(5000U, count);
}

TEST_P(SqlContract, KeepsWhatIsCommittedOrOutsideOfTransactions) {
  const char* insert = "insert into t values (1, 2)";
  const auto reconnect = [this] { return m_sql->reconnectDB(); };
  const std::tuple<const char*, std::function<int()>, std::string> steps[] = {
      {m_is.begin, [this] { return Do("rollback"); }, "0"},
      {m_is.begin, [this] { return Do(" \tCOMMIT\n"); }, "1"},
      {m_is.begin, reconnect, "1"},
      {insert, reconnect, "3"},
      {insert, [this] { return m_sql->changeDB("beta", "secret"); }, "5"}};
  for (const auto& [begin, end, kept] : steps) {
    EXPECT_TRUE(Do(begin) == 0 && Do(insert) == 0);
    EXPECT_EQ(-1, Do("insert into missing values (1)")) << "does not spoil the rest";
    EXPECT_EQ(0, end());
    EXPECT_EQ(kept, m_server.Run("select count(*) from alpha.t").at(0));
  }
}

TEST_P(SqlContract, ChangesDatabases) {
  m_server.Run("create table beta.only_there (x int)");
  EXPECT_FALSE(m_sql->existDB("gamma") || m_sql->existTable("only_there"));
  EXPECT_EQ(-1, m_sql->changeDB("gamma", "secret"));
  EXPECT_THAT(m_sql->getLastError(), HasSubstr("gamma"));
  EXPECT_EQ(0, Do("insert into t values (1, 2)")) << "all stays as it was";
  for (const bool with_password : {true, false}) {
    EXPECT_EQ(0, with_password ? m_sql->changeDB("beta", "secret") : m_sql->changeDB("beta"));
    EXPECT_EQ(0, m_sql->reconnectDB()) << "to the new one";
    EXPECT_TRUE(m_sql->existDB("beta") && m_sql->existTable("only_there"));
    EXPECT_EQ(0, m_sql->changeDB("alpha"));
  }
  std::vector<std::string> columns;
  EXPECT_TRUE(m_sql->GetColums("t", columns) == 1 && m_sql->GetColums("none", columns) == 1);
  std::string listed;
  for (const auto& column : columns) listed += column + " ";
  EXPECT_EQ(m_is.columns, listed);
}

TEST_P(SqlContract, NoticesAKilledSessionAndComesBack) {
  const std::string suicide = Value(m_is.suicide);
  EXPECT_EQ(0, m_sql->connectDB());
  EXPECT_EQ(suicide, Value(m_is.suicide)) << "a second connect does nothing";
  m_server.Run(suicide);
  EXPECT_FALSE(m_sql->isDBAlive());
  EXPECT_EQ(0, m_sql->reconnectDB());
  m_server.Run(Value(m_is.suicide));
  EXPECT_EQ(-1, Do("insert into t values (1, 2)"));
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_TRUE(m_sql->isDBAlive());
}

TEST_P(SqlContract, LeaksNothingWhileTheServerIsDown) {
  m_server.Kill();
  EXPECT_EQ(-1, m_sql->reconnectDB());
  const std::size_t files = ListFolder("/proc/self/fd").size();
  const std::size_t memory = mallinfo2().uordblks;
  for (int i = 0; i < 200; ++i) EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ(files, ListFolder("/proc/self/fd").size());
  EXPECT_LT(mallinfo2().uordblks, memory + 20000);
  EXPECT_FALSE(m_sql->isDBAlive() || m_sql->existDB("alpha") || m_sql->existTable("t"));
  unsigned int count = 0;
  EXPECT_NE(0, m_sql->RowsCountBySQL("select 1", &count));
  EXPECT_TRUE(Do("select 1") == -1 && m_sql->changeDB("beta", "secret") == -1 &&
              m_sql->fetchRecordSet("select 1", m_rows) == -1);
  m_server.Start();
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
}

}  // namespace
