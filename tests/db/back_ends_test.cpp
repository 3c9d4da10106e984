// What every back end owes its callers, asked of each on a real server; last, what only one does.
#include <malloc.h>

#include <functional>

#include "db/OracleBase.h"
#include "db/SqlFactory.h"
#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

using testing::ElementsAre, testing::HasSubstr;

namespace {

// What really differs.
struct BackEnd {
  std::string type;
  std::function<PrivateServer&()> server;
  std::function<void(std::string)> create;
  std::vector<std::string> columns;
  const char *begin, *many_rows, *breaks_off, *suicide, *denied;
};

const BackEnd kMysql = {
    "mysql",
    MariadbServer::Get,
    [](const auto& name) { MariadbServer::Get().Run("create or replace database " + name); },
    {},
    "start transaction",
    "select seq as v from seq_1_to_5000",
    "select 18446744073709547116 + seq from seq_1_to_5000",
    "select concat('kill ', connection_id()) as k",
    "connect failed, error:Access denied for user"};

class SqlContract : public testing::TestWithParam<BackEnd> {
 protected:
  SqlContract() {
    for (const std::string store : {"alpha", "beta"}) {
      m_is.create(store);
      m_server.Run("create table " + store + ".t (zeta int, Alpha int)");
    }
    m_auth.dbtype = m_is.type;
    if (IsOracle(m_auth)) m_auth.user = "alpha";
    m_sql = CreateSqlBase(m_auth);
    EXPECT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
  }
  int Do(const char* statement) { return m_sql->executeSQL(statement, 0); }
  std::string Value(const std::string& query) {
    EXPECT_EQ(0, m_sql->fetchRecordSet(query.c_str(), m_rows)) << m_sql->getLastError();
    return m_rows.size() == 1 ? m_rows[0].begin()->second : "not one row";
  }

  const BackEnd& m_is = GetParam();
  PrivateServer& m_server = m_is.server();
  MYSQLAUTH m_auth = m_server.Auth("alpha");
  std::unique_ptr<CSqlBase> m_sql;
  std::vector<SqlRecord> m_rows;
};
INSTANTIATE_TEST_SUITE_P(Mysql, SqlContract, testing::Values(kMysql));

class MysqlBase : public SqlContract {};
INSTANTIATE_TEST_SUITE_P(Only, MysqlBase, testing::Values(kMysql));

#ifdef MIDTABLE_ORACLE
const BackEnd kOracle = {
    "oracle",
    PostgresServer::Get,
    [](const auto& name) { PostgresServer::Get().CreateStore(name); },
    {"ZETA", "ALPHA"},
    " Set Transaction read write",
    "select v from generate_series(1, 5000) v",
    "select 1 / (4500 - v) from generate_series(1, 5000) v",
    "select concat('select pg_terminate_backend(', pg_backend_pid(), ')') as k",
    "password authentication failed"};
INSTANTIATE_TEST_SUITE_P(Oracle, SqlContract, testing::Values(kOracle));
#endif

TEST_P(SqlContract, ReadsEveryValueAsText) {
  CapturedStdout long_traces;
  Value(
      "select null as a, 'NULL' as b, '' as c, 'first' as id, 'second' as id, -1.50 as d,"
      " 'größe 用户 ?{fn x} %s' as e");
  const SqlRecord expected = {{"a", "NULL"},  {"b", "NULL"},   {"c", ""},
                              {"d", "-1.50"}, {"id", "first"}, {"e", "größe 用户 ?{fn x} %s"}};
  EXPECT_THAT(m_rows, ElementsAre(expected));
  // Around the size of the pieces in which a driver hands out long values.
  for (const std::size_t size : {8190U, 8191U, 16382U, 300000U}) {
    const auto query = "select concat(repeat('x', " + std::to_string(size) + "), 'y') as v";
    EXPECT_TRUE(Value(query) == std::string(size, 'x') + "y") << size;
  }
  Value(m_is.many_rows);
  EXPECT_EQ(5000U, m_rows.size());
  EXPECT_EQ("5000", m_rows.back()["v"]);
}

TEST_P(SqlContract, FailsWithTheServersTextAndNumber) {
  EXPECT_EQ(-1, Do("insert into missing values (1)"));
  EXPECT_EQ("1", Value("select 1"));
  EXPECT_THAT(m_sql->getLastError(), HasSubstr("missing")) << "never cleared";
  unsigned int count = 7;
  for (const char* query : {"select * from nowhere", m_is.breaks_off, "delete from t"}) {
    EXPECT_EQ(-1, m_sql->fetchRecordSet(query, m_rows)) << query;
    const std::string error = m_sql->getLastError();
    EXPECT_THAT(error, testing::Not(HasSubstr("missing"))) << query;
    EXPECT_NE(0, m_sql->RowsCountBySQL(query, &count)) << query;
    EXPECT_EQ(error, m_sql->getLastError()) << "counting leaves it";
  }
  EXPECT_TRUE(m_rows.empty() && count == 7);
  EXPECT_TRUE(m_sql->RowsCountBySQL(m_is.many_rows, &count) == 0 && count == 5000);
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
  EXPECT_EQ(0, Do("insert into t values (1, 2)")) << "all stays as it was";
  EXPECT_EQ(0, m_sql->changeDB("beta", "secret"));
  EXPECT_EQ(0, m_sql->reconnectDB()) << "to the new one";
  EXPECT_TRUE(m_sql->existDB("beta") && m_sql->existTable("only_there"));
  EXPECT_EQ(0, m_sql->changeDB("alpha"));
  EXPECT_FALSE(m_sql->existTable("only_there"));
  std::vector<std::string> columns;
  EXPECT_TRUE(m_sql->GetColums("t", columns) == 1 && m_sql->GetColums("none", columns) == 1);
  EXPECT_EQ(m_is.columns, columns);
}

TEST_P(SqlContract, NoticesThatItsSessionOrItsServerIsGoneAndComesBack) {
  const std::string suicide = Value(m_is.suicide);
  EXPECT_EQ(0, m_sql->connectDB());
  EXPECT_EQ(suicide, Value(m_is.suicide)) << "a second connect does nothing";
  m_server.Run(suicide);
  EXPECT_FALSE(m_sql->isDBAlive());
  EXPECT_EQ(-1, Do("insert into t values (1, 2)"));
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_TRUE(m_sql->isDBAlive());

  m_server.Kill();
  EXPECT_EQ(-1, m_sql->reconnectDB());
  const std::size_t files = ListFolder("/proc/self/fd").size(), memory = mallinfo2().uordblks;
  for (int i = 0; i < 200; ++i) EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ(files, ListFolder("/proc/self/fd").size()) << "nothing leaks";
  EXPECT_LT(mallinfo2().uordblks, memory + 20000);
  unsigned int count = 0;
  EXPECT_FALSE(m_sql->isDBAlive() || m_sql->existDB("alpha") || m_sql->existTable("t") ||
               m_sql->RowsCountBySQL("select 1", &count) == 0 || Do("select 1") == 0 ||
               m_sql->changeDB("beta") == 0 || m_sql->fetchRecordSet("select 1", m_rows) == 0);
  m_server.Start();
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  m_auth.password = "wrong";
  m_sql = CreateSqlBase(m_auth);
  EXPECT_EQ(-1, m_sql->connectDB());
  EXPECT_THAT(m_sql->getLastError(), HasSubstr(m_is.denied));
}

TEST_P(MysqlBase, CommitsEachStatementWhateverTheServersDefault) {
  m_server.Run("create or replace user plain identified by 'p'");
  m_server.Run("grant all on alpha.* to plain");
  m_auth.user = "plain", m_auth.password = "p";
  m_sql = CreateSqlBase(m_auth);
  for (const std::string setting : {"autocommit", "init_connect"}) {
    m_server.Run("set global " + setting + " = " +
                 (setting == "autocommit" ? "0" : "'set autocommit = 0'"));
    EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
    EXPECT_TRUE(m_sql->existDB("alpha"));
    EXPECT_EQ(0, Do("insert into t values (1, 2)"));
    m_sql->closeDB();
    m_server.Run("set global " + setting + " = default");
    EXPECT_EQ("1", m_server.Run("select count(*) from alpha.t").at(0)) << setting;
    m_server.Run("truncate table alpha.t");
  }
}

TEST_P(MysqlBase, SendsTheseStatementsAndNoOthers) {
  const std::size_t mark = MariadbServer::Get().Mark();
  CapturedStdout out;
  unsigned int count = 0;
  EXPECT_TRUE(m_sql->isDBAlive() && m_sql->existDB("alpha") && m_sql->existTable("t"));
  EXPECT_EQ(0, m_sql->changeDB("alpha", "other"));
  EXPECT_EQ("NULL", Value("select null as b"));
  EXPECT_EQ(1146, m_sql->RowsCountBySQL("select * from missing", &count));
  EXPECT_EQ(-1, Do("select * from quiet"));
  EXPECT_EQ(-1, m_sql->changeDB("nodb"));
  EXPECT_THAT(
      MariadbServer::Get().Statements(mark),
      ElementsAre("SHOW DATABASES LIKE 'alpha'", "SHOW TABLES LIKE 't'", "use alpha",
                  "select null as b", "select * from missing", "select * from quiet", "use nodb"));
  const std::string text = out.text();
  EXPECT_THAT(text, testing::StartsWith("sql is select null as b\nfield.name 0x"));
  EXPECT_THAT(text, testing::EndsWith("(b) value (NULL)\n[MysqlBase:114]<2>:execute use nodb "
                                      "failed, error:Unknown database 'nodb'\n"));
  const std::string longer = "select " + std::string(20000, '1') + " from missing";
  EXPECT_EQ(-1, Do(longer.c_str()));
  EXPECT_EQ("execute " + longer + " failed, error:Table 'alpha.missing' doesn't exist",
            m_sql->getLastError());
}

// Deliberate: a name is a pattern, and only the first match counts.
TEST_P(MysqlBase, LooksAtTheFirstMatchOnly) {
  m_server.Run("create or replace database a_c; create table alpha.p_q (x int)");
  EXPECT_TRUE(m_sql->existDB("a_c") && m_sql->existTable("p_q"));
  m_server.Run("create or replace database aXc; create table alpha.pXq (x int)");
  EXPECT_FALSE(m_sql->existDB("a_c") || m_sql->existTable("p_q"));
}

#ifdef MIDTABLE_ORACLE
TEST(OracleBase, LogsInAsTheUserThatADatabaseIs) {
  PostgresServer::Get().CreateStore("WLAN_1a2b");
  CapturedStdout out;
  COracleBase sql("midtable", "wrong");
  EXPECT_EQ(0, sql.changeDB("WLAN_1a2b", "secret"));
  EXPECT_EQ(-1, sql.changeDB("midtable", "wrong"));
  EXPECT_EQ(-1, sql.executeSQL("nonsense", 1));
  EXPECT_THAT(sql.getLastError(), HasSubstr("42601 ERROR: syntax error"));
  EXPECT_EQ(0, sql.executeSQL("create table mine (x int)", 1));
  EXPECT_TRUE(sql.existTable("mine") && sql.existTable("MINE") && sql.existDB("wlan_1A2B"));
  EXPECT_EQ(0, sql.changeDB("WLAN_1a2b")) << "with the password that was good";
  EXPECT_EQ("", out.text()) << "it writes nothing anywhere";
}

TEST(OracleBase, RollsBackAtItsEndWhatFollowsAFailedCommit) {
  PostgresServer& server = PostgresServer::Get();
  server.CreateStore("alpha");
  server.Run("create table alpha.t (x int unique deferrable initially deferred)");
  COracleBase sql("alpha", "secret");
  EXPECT_EQ(0, sql.connectDB());
  EXPECT_EQ(0, sql.executeSQL("set transaction read write", 1));
  EXPECT_EQ(0, sql.executeSQL("insert into t values (1), (1)", 1));
  EXPECT_EQ(-1, sql.executeSQL("commit", 1));
  EXPECT_EQ(0, sql.executeSQL("insert into t values (2)", 1));
  sql.closeDB();
  EXPECT_EQ("0", server.Run("select count(*) from alpha.t").at(0));
}
#endif

}  // namespace
