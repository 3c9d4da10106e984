// What every back end owes its callers, asked of each on a real server. A traits type names what
// really differs.
#include <malloc.h>

#include "db/SqlFactory.h"
#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

using testing::HasSubstr;

namespace {

struct OnMysql {
  static MariadbServer& Server() { return MariadbServer::Get(); }
  static MYSQLAUTH Auth() { return Server().Auth("alpha"); }
  static void Create(const std::string& name) {
    Server().Run("create or replace database " + name);
  }
  static constexpr char kBegin[] = "start transaction";
  static constexpr char kMissing[] = "Table 'alpha.missing' doesn't exist";
  static constexpr char kColumns[] = "";
  static constexpr char kManyRows[] = "select seq as v from seq_1_to_5000";
  static constexpr char kBreaksOff[] = "select 18446744073709547116 + seq from seq_1_to_5000";
  static constexpr char kSuicide[] = "select concat('kill ', connection_id()) as k";
};

#ifdef MIDTABLE_ORACLE
struct OnOracle {
  static PostgresServer& Server() { return PostgresServer::Get(); }
  static MYSQLAUTH Auth() { return Server().Auth("alpha"); }
  static void Create(const std::string& name) { Server().CreateStore(name); }
  static constexpr char kBegin[] = " Set Transaction read write";
  static constexpr char kMissing[] = "42P01 ERROR: relation \"missing\" does not exist";
  static constexpr char kColumns[] = "ZETA ALPHA ";
  static constexpr char kManyRows[] = "select v from generate_series(1, 5000) v";
  static constexpr char kBreaksOff[] = "select 1 / (4500 - v) from generate_series(1, 5000) v";
  static constexpr char kSuicide[] =
      "select concat('select pg_terminate_backend(', pg_backend_pid(), ')') as k";
};
using BackEnds = testing::Types<OnMysql, OnOracle>;
#else
using BackEnds = testing::Types<OnMysql>;
#endif

template <class Traits>
class SqlContract : public testing::Test {
 protected:
  void SetUp() override {
    for (const std::string store : {"alpha", "beta"}) {
      Traits::Create(store);
      m_server.Run("create table " + store + ".t (zeta int, Alpha int)");
    }
    ASSERT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
  }
  int Do(const char* statement) { return m_sql->executeSQL(statement, 0); }
  std::string Value(const std::string& query) {
    EXPECT_EQ(0, m_sql->fetchRecordSet(query.c_str(), m_rows)) << m_sql->getLastError();
    return m_rows.size() == 1 ? m_rows[0].begin()->second : "not one row";
  }
  std::string Kept() { return m_server.Run("select count(*) from alpha.t").at(0); }  // committed

  decltype(Traits::Server()) m_server = Traits::Server();
  std::unique_ptr<CSqlBase> m_sql = CreateSqlBase(Traits::Auth());
  std::vector<SqlRecord> m_rows;
};
TYPED_TEST_SUITE(SqlContract, BackEnds);

TYPED_TEST(SqlContract, ReadsEveryValueAsText) {
  CapturedStdout long_traces;
  this->Value(
      "select null as a, 'NULL' as b, '' as c, 'first' as id, 'second' as id, -1.50 as d,"
      " 'größe 用户 ?{fn x} %s' as e");
  const SqlRecord expected = {{"a", "NULL"},  {"b", "NULL"},   {"c", ""},
                              {"d", "-1.50"}, {"id", "first"}, {"e", "größe 用户 ?{fn x} %s"}};
  EXPECT_THAT(this->m_rows, testing::ElementsAre(expected));
  // Around the size of the pieces in which a driver hands out long values.
  for (const std::size_t size : {8190U, 8191U, 8192U, 16382U, 16383U, 300000U}) {
    const auto query = "select concat(repeat('x', " + std::to_string(size) + "), 'y') as v";
    EXPECT_TRUE(this->Value(query) == std::string(size, 'x') + "y") << size;
  }
  this->Value(TypeParam::kManyRows);
  EXPECT_EQ(5000U, this->m_rows.size());
  EXPECT_EQ("5000", this->m_rows.back()["v"]);
  this->Value("select zeta from t");
  EXPECT_TRUE(this->m_rows.empty());
}

TYPED_TEST(SqlContract, FailsWithTheServersTextAndNumber) {
  EXPECT_EQ("", this->m_sql->getLastError());
  EXPECT_EQ(-1, this->Do("insert into missing values (1)"));
  EXPECT_EQ("1", this->Value("select 1"));
  EXPECT_THAT(this->m_sql->getLastError(), HasSubstr(TypeParam::kMissing)) << "never cleared";
  unsigned int count = 7;
  this->m_rows.clear();
  for (const char* query : {"select * from nowhere", TypeParam::kBreaksOff, "delete from t"}) {
    EXPECT_EQ(-1, this->m_sql->fetchRecordSet(query, this->m_rows)) << query;
    const std::string error = this->m_sql->getLastError();
    EXPECT_THAT(error, testing::Not(HasSubstr(TypeParam::kMissing))) << query;
    EXPECT_NE(0, this->m_sql->RowsCountBySQL(query, &count)) << query;
    EXPECT_EQ(error, this->m_sql->getLastError()) << "counting leaves it";
  }
  EXPECT_TRUE(this->m_rows.empty());
  EXPECT_EQ(7U, count);
  EXPECT_EQ(0, this->m_sql->RowsCountBySQL(TypeParam::kManyRows, &count));
  EXPECT_EQ(5000U, count);
}

TYPED_TEST(SqlContract, KeepsWhatIsCommitted) {
  const auto insert = [this](bool begin) {
    EXPECT_EQ(0, begin ? this->Do(TypeParam::kBegin) : 0);
    EXPECT_EQ(0, this->Do("insert into t values (1, 2)"));
    EXPECT_EQ(-1, this->Do("insert into missing values (1)")) << "does not spoil the rest";
  };
  insert(true), insert(false);
  EXPECT_EQ(0, this->Do("rollback"));
  insert(true), insert(false);
  EXPECT_EQ("2", this->Value("select count(*) from t"));
  EXPECT_EQ("0", this->Kept());
  EXPECT_EQ(0, this->Do(" \tCOMMIT\n"));
  EXPECT_EQ("2", this->Kept());
  insert(true);
  EXPECT_EQ(0, this->m_sql->reconnectDB());
  EXPECT_EQ("2", this->Kept()) << "an open transaction ends with its session";
  insert(false);
  EXPECT_EQ(0, this->m_sql->reconnectDB());
  insert(false);
  EXPECT_EQ(0, this->m_sql->changeDB("beta", "secret"));
  EXPECT_EQ("4", this->Kept()) << "outside of transactions nothing is lost";
}

TYPED_TEST(SqlContract, ChangesDatabases) {
  CSqlBase& sql = *this->m_sql;
  this->m_server.Run("create table beta.only_there (x int)");
  EXPECT_TRUE(sql.existDB("beta"));
  EXPECT_FALSE(sql.existDB("gamma") || sql.existTable("only_there"));
  EXPECT_EQ(-1, sql.changeDB("gamma", "secret"));
  EXPECT_THAT(sql.getLastError(), HasSubstr("gamma"));
  EXPECT_EQ(0, this->Do("insert into t values (1, 2)")) << "all stays as it was";
  for (const bool with_password : {true, false}) {
    EXPECT_EQ(0, with_password ? sql.changeDB("beta", "secret") : sql.changeDB("beta"));
    EXPECT_EQ(0, sql.reconnectDB()) << "to the new one";
    EXPECT_TRUE(sql.existTable("only_there"));
    EXPECT_EQ(0, sql.changeDB("alpha"));
    EXPECT_FALSE(sql.existTable("only_there"));
  }
  std::vector<std::string> columns;
  EXPECT_TRUE(sql.GetColums("t", columns) == 1 && sql.GetColums("missing", columns) == 1);
  std::string listed;
  for (const auto& column : columns) listed += column + " ";
  EXPECT_EQ(TypeParam::kColumns, listed);
}

TYPED_TEST(SqlContract, NoticesAKilledSessionAndComesBack) {
  const std::string suicide = this->Value(TypeParam::kSuicide);
  EXPECT_EQ(0, this->m_sql->connectDB());
  EXPECT_EQ(suicide, this->Value(TypeParam::kSuicide)) << "a second connect does nothing";
  this->m_server.Run(suicide);
  EXPECT_FALSE(this->m_sql->isDBAlive());
  EXPECT_EQ(0, this->m_sql->reconnectDB());
  this->m_server.Run(this->Value(TypeParam::kSuicide));
  EXPECT_EQ(-1, this->Do("insert into t values (1, 2)"));
  EXPECT_EQ(0, this->m_sql->reconnectDB()) << this->m_sql->getLastError();
  EXPECT_TRUE(this->m_sql->isDBAlive());
}

TYPED_TEST(SqlContract, LeaksNothingWhileTheServerIsDown) {
  this->m_server.Kill();
  EXPECT_EQ(-1, this->m_sql->reconnectDB());
  const std::size_t files = ListFolder("/proc/self/fd").size();
  const std::size_t memory = mallinfo2().uordblks;
  for (int i = 0; i < 200; ++i) EXPECT_EQ(-1, this->m_sql->reconnectDB());
  EXPECT_EQ(files, ListFolder("/proc/self/fd").size());
  EXPECT_LT(mallinfo2().uordblks, memory + 20000);
  unsigned int count = 0;
  CSqlBase& sql = *this->m_sql;
  EXPECT_FALSE(sql.isDBAlive() || sql.existDB("alpha") || sql.existTable("t"));
  EXPECT_NE(0, sql.RowsCountBySQL("select 1", &count));
  EXPECT_TRUE(this->Do("select 1") == -1 && sql.changeDB("beta", "secret") == -1 &&
              sql.fetchRecordSet("select 1", this->m_rows) == -1);
  this->m_server.Start();
  EXPECT_EQ(0, this->m_sql->reconnectDB()) << this->m_sql->getLastError();
}

}  // namespace
