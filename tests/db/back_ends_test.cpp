// What every back end owes its callers, asked of each on a real server.
#include <malloc.h>

#include "db/back_end_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;

class SqlContract : public BackEndTest, public testing::WithParamInterface<BackEnd> {
 protected:
  SqlContract() : BackEndTest(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Of, SqlContract, testing::ValuesIn(kBackEnds), kNameOfBackEnd);

TEST_P(SqlContract, ReadsEveryValueAsText) {
  Value(
      "select null as a, 'NULL' as b, '' as c, 'first' as id, 'second' as id, -1.50 as d,"
      " 'größe 用户 ?{fn x} %s' as e");
  const SqlRecord expected = {{"a", "NULL"},  {"b", "NULL"},   {"c", ""},
                              {"d", "-1.50"}, {"id", "first"}, {"e", "größe 用户 ?{fn x} %s"}};
  EXPECT_THAT(m_rows, ElementsAre(expected));
}

// The lengths are around the size of the pieces in which a driver hands out long values.
TEST_P(SqlContract, ReadsLongValuesWhole) {
  CapturedStdout long_traces;
  for (const std::size_t size : {8190U, 8191U, 16382U, 300000U}) {
    const auto query = "select concat(repeat('x', " + std::to_string(size) + "), 'y') as v";
    EXPECT_TRUE(Value(query) == std::string(size, 'x') + "y") << size;
  }
}

TEST_P(SqlContract, ReadsAndCountsManyRows) {
  CapturedStdout long_traces;
  EXPECT_EQ(0, m_sql->fetchRecordSet(m_is.many_rows.c_str(), m_rows));
  EXPECT_EQ(5000U, m_rows.size());
  EXPECT_EQ("5000", m_rows.back()["v"]);
  unsigned int count = 0;
  EXPECT_EQ(0, m_sql->RowsCountBySQL(m_is.many_rows.c_str(), &count));
  EXPECT_EQ(5000U, count);
}

TEST_P(SqlContract, KeepsTheServersTextOfItsLastFailure) {
  EXPECT_EQ(-1, Do("insert into missing values (1)"));
  EXPECT_EQ("1", Value("select 1"));
  EXPECT_THAT(m_sql->getLastError(), HasSubstr("missing")) << "a success does not clear it";
}

TEST_P(SqlContract, AQueryThatFailsGivesAnErrorAndNoRows) {
  CapturedStdout long_traces;
  for (const char* query : {"select * from nowhere", m_is.breaks_off.c_str(), "delete from t"}) {
    EXPECT_EQ(-1, Do("insert into missing values (1)"));
    EXPECT_EQ(-1, m_sql->fetchRecordSet(query, m_rows)) << query;
    EXPECT_THAT(m_sql->getLastError(), testing::Not(HasSubstr("missing"))) << query;
    EXPECT_TRUE(m_rows.empty()) << query;
  }
}

TEST_P(SqlContract, ACountThatFailsLeavesNumberAndLastError) {
  for (const char* query : {"select * from nowhere", m_is.breaks_off.c_str(), "delete from t"}) {
    EXPECT_EQ(-1, Do("insert into missing values (1)"));
    unsigned int count = 7;
    EXPECT_NE(0, m_sql->RowsCountBySQL(query, &count)) << query;
    EXPECT_EQ(7U, count) << query;
    EXPECT_THAT(m_sql->getLastError(), HasSubstr("missing")) << query;
  }
}

TEST_P(SqlContract, KeepsWhatIsCommittedOrOutsideOfTransactions) {
  const auto reconnect = [this] { return m_sql->reconnectDB(); };
  const struct {
    const char* begin;
    std::function<int()> end;
    std::string rows;
  } steps[] = {{m_is.begin, [this] { return Do("rollback"); }, "0"},
               {m_is.begin, [this] { return Do(" \tCOMMIT\n"); }, "1"},
               {m_is.begin, reconnect, "1"},
               {kInsert, reconnect, "3"},
               {kInsert, [this] { return m_sql->changeDB("beta", "secret"); }, "5"}};
  for (const auto& [begin, end, rows] : steps) {
    EXPECT_EQ(0, Do(begin));
    EXPECT_EQ(0, Do(kInsert));
    EXPECT_EQ(-1, Do("insert into missing values (1)")) << "does not spoil the rest";
    EXPECT_EQ(0, end());
    EXPECT_EQ(rows, CommittedRows());
  }
}

TEST_P(SqlContract, AChangeToNoDatabaseLeavesAllAsItWas) {
  EXPECT_FALSE(m_sql->existDB("gamma"));
  EXPECT_EQ(-1, m_sql->changeDB("gamma", "secret"));
  EXPECT_EQ(0, Do(kInsert));
  EXPECT_EQ(0, m_sql->closeDB());
  EXPECT_EQ("1", CommittedRows());
}

TEST_P(SqlContract, ChangesDatabases) {
  m_server.Run("create table beta.only_there (x int)");
  EXPECT_FALSE(m_sql->existTable("only_there"));
  EXPECT_EQ(0, m_sql->changeDB("beta", "secret"));
  EXPECT_EQ(0, m_sql->reconnectDB()) << "to the new one";
  EXPECT_TRUE(m_sql->existDB("beta"));
  EXPECT_TRUE(m_sql->existTable("only_there"));
  EXPECT_EQ(0, m_sql->changeDB("alpha"));
  EXPECT_FALSE(m_sql->existTable("only_there"));
}

TEST_P(SqlContract, NamesTheColumnsOfATable) {
  std::vector<std::string> columns;
  EXPECT_EQ(1, m_sql->GetColums("t", columns));
  EXPECT_EQ(1, m_sql->GetColums("none", columns)) << "which adds nothing";
  EXPECT_EQ(m_is.columns, columns);
}

TEST_P(SqlContract, ASecondConnectDoesNothing) {
  const std::string session = Value(m_is.suicide);
  EXPECT_EQ(0, m_sql->connectDB());
  EXPECT_EQ(session, Value(m_is.suicide));
}

TEST_P(SqlContract, NoticesThatItsSessionIsGoneAndComesBack) {
  m_server.Run(Value(m_is.suicide));
  EXPECT_FALSE(m_sql->isDBAlive());
  EXPECT_EQ(-1, Do(kInsert)) << "no connection is made by itself";
  EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
  EXPECT_TRUE(m_sql->isDBAlive());
}

TEST_P(SqlContract, LeaksNothingWhileTheServerIsAway) {
  m_server.Kill();
  EXPECT_EQ(-1, m_sql->reconnectDB());
  const std::size_t files = ListFolder("/proc/self/fd").size();
  const std::size_t memory = mallinfo2().uordblks;
  for (int i = 0; i < 200; ++i) EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ(files, ListFolder("/proc/self/fd").size());
  EXPECT_LT(mallinfo2().uordblks, memory + 20000);
  m_server.Start();
}

#ifndef MIDTABLE_ORACLE
TEST(BackEndWithoutOracle, DoesNotConnectAndSaysWhy) {
  MYSQLAUTH auth;
  auth.dbtype = "oracle";
  const auto sql = CreateSqlBase(auth);
  EXPECT_EQ(-1, sql->connectDB());
  EXPECT_EQ("Oracle is not built in: build the program with -DMIDTABLE_ODBC=ON",
            sql->getLastError());
}
#endif
