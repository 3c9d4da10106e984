// What a failure means: the same of every back end, asked of each on a real server; then, by
// server, the errors that can be brought on and those that can only be named.
#include <functional>

#include "db/back_end_fixture.h"
#include "db/mysql_failure.h"

using testing::HasSubstr;

namespace {

// Connected to database alpha, which also has an empty table of one unique column.
class Failures : public BackEndTest {
 protected:
  explicit Failures(const BackEnd& back_end) : BackEndTest(back_end) {
    m_server.Run("create table alpha.keyed (x int primary key)");
  }
  // What it means that the statement fails, as it must.
  SqlFailure Meaning(const std::string& statement) {
    EXPECT_EQ(-1, Do(statement.c_str())) << statement;
    return m_sql->lastFailure();
  }
};

// --- of every back end

class FailureContract : public Failures, public testing::WithParamInterface<BackEnd> {
 protected:
  FailureContract() : Failures(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Of, FailureContract, testing::ValuesIn(kBackEnds), kNameOfBackEnd);

TEST_P(FailureContract, AStatementThatIsWrongIsTheStatementsFault) {
  EXPECT_EQ(SqlFailure::kStatement, Meaning("nonsense"));
  EXPECT_EQ(SqlFailure::kStatement, Meaning("insert into t (no_column) values (1)"));
  EXPECT_EQ(-1, m_sql->fetchRecordSet("delete from t", m_rows)) << "gives no rows";
  EXPECT_EQ(SqlFailure::kStatement, m_sql->lastFailure());
}

TEST_P(FailureContract, ADuplicateKeyIsTheRowsFault) {
  EXPECT_EQ(SqlFailure::kData, Meaning("insert into keyed values (1), (1)"));
}

TEST_P(FailureContract, NotThereIsNoFailure) {
  Meaning("nonsense");
  EXPECT_FALSE(m_sql->existDB("gamma"));
  EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure());
  Meaning("nonsense");
  EXPECT_FALSE(m_sql->existTable("missing"));
  EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure());
}

TEST_P(FailureContract, WhereNobodyCouldBeAskedEveryOperationSaysSo) {
  m_server.Run(Value(m_is.suicide));
  unsigned int count = 0;
  const std::pair<const char*, std::function<bool()>> operations[] = {
      {"executeSQL", [&] { return Do(kInsert) == 0; }},
      {"existDB", [&] { return m_sql->existDB("alpha"); }},
      {"existTable", [&] { return m_sql->existTable("t"); }},
      {"isDBAlive", [&] { return m_sql->isDBAlive(); }},
      {"fetchRecordSet", [&] { return m_sql->fetchRecordSet("select 1", m_rows) == 0; }},
      {"RowsCountBySQL", [&] { return m_sql->RowsCountBySQL("select 1", &count) == 0; }}};
  for (const auto& [name, succeeds] : operations) {
    EXPECT_FALSE(succeeds()) << name;
    EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure()) << name;
  }
  m_sql->closeDB();
  EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure()) << "closing succeeds always";
  for (const auto& [name, succeeds] : operations) {
    EXPECT_FALSE(succeeds()) << name << " when closed";
    EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure()) << name << " when closed";
  }
  EXPECT_EQ(0, m_sql->reconnectDB());
  EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure());
}

TEST_P(FailureContract, ALoginThatIsRefusedIsTheConnectionsFault) {
  m_auth.password = "wrong";
  m_sql = CreateSqlBase(m_auth);
  EXPECT_EQ(-1, m_sql->connectDB());
  EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure());
  EXPECT_THAT(m_sql->getLastError(), HasSubstr(m_is.denied));
}

// --- MySQL and MariaDB

class MysqlFailures : public Failures {
 protected:
  MysqlFailures() : Failures(kMysql) {}
};

TEST_F(MysqlFailures, StatementsThatAreWrong) {
  for (const char* statement :
       {"selec 1", "select x.x from t, t as x where x = 1", "use gamma", "drop table missing",
        "select * from gamma.t", "create table t (x int)", "insert into t values (1, 2, 3)",
        "load data infile '/tmp/missing' into table t"}) {
    EXPECT_EQ(SqlFailure::kStatement, Meaning(statement)) << m_sql->getLastError();
  }
}

TEST_F(MysqlFailures, RowsThatAreRefused) {
  m_server.Run(
      "create table alpha.fussy (id int not null, short char(2), day date, check (id < 9),"
      " foreign key (id) references alpha.keyed (x)) engine=InnoDB");
  for (const char* statement :
       {"insert into fussy (id) values (99999999999)", "insert into fussy (id) values (null)",
        "insert into fussy (id) values ('x')", "insert into fussy (short) values ('x')",
        "insert into fussy (id, short) values (1, 'xyz')", "insert into fussy (id) values (9)",
        "insert into fussy (id, day) values (1, '2012-13-01')", "insert into fussy (id) values (1)",
        "insert into keyed values (18446744073709551615 + 1)"}) {
    EXPECT_EQ(SqlFailure::kData, Meaning(statement)) << m_sql->getLastError();
  }
}

TEST_F(MysqlFailures, MissingPrivileges) {
  m_server.Run("set global local_infile = 0");
  ConnectAs("grant select on alpha.* to plain");
  for (const char* statement :
       {kInsert, "use mysql", "create table more (x int)", "drop database alpha",
        "load data infile '/etc/passwd' into table t", "set global read_only = 0",
        "load data local infile '/etc/passwd' into table t"}) {
    EXPECT_EQ(SqlFailure::kPrivilege, Meaning(statement)) << m_sql->getLastError();
  }
  m_server.Run("set global local_infile = default");
}

TEST(MysqlErrors, AreSortedByNumberThenStateThenTheSystemsNumberInTheText) {
  const std::tuple<unsigned int, const char*, const char*, SqlFailure> cases[] = {
      {0, "00000", "", SqlFailure::kNone},
      {1290, "HY000", "running with the --secure-file-priv option", SqlFailure::kPrivilege},
      {1290, "HY000", "running with the --read-only option", SqlFailure::kServer},
      {1040, "08004", "Too many connections", SqlFailure::kConnection},
      {1053, "08S01", "Server shutdown in progress", SqlFailure::kConnection},
      {2026, "HY000", "TLS/SSL error", SqlFailure::kConnection},
      {4031, "HY000", "disconnected by the server because of inactivity", SqlFailure::kConnection},
      {1153, "08S01", "bigger than 'max_allowed_packet'", SqlFailure::kStatement},
      {3, "HY000", "Error writing file (Errcode: 28 \"No space\")", SqlFailure::kServer},
      {13, "HY000", "Can't get stat (Errcode: 13 \"Permission\")", SqlFailure::kPrivilege},
      {29, "HY000", "File not found (Errcode: 2 \"No such file\")", SqlFailure::kStatement},
      {1005, "HY000", "Can't create table (errno: 150 \"Foreign\")", SqlFailure::kStatement},
      {65000, "40001", "of a future server", SqlFailure::kServer},
      {65000, "HY000", "of a future server", SqlFailure::kStatement}};
  for (const auto& [number, state, text, meaning] : cases) {
    EXPECT_EQ(meaning, MeaningOfMysqlError(number, state, text)) << number << " " << text;
  }
}

// --- Oracle

#ifdef MIDTABLE_ORACLE
class OracleFailures : public Failures {
 protected:
  OracleFailures() : Failures(kOracle) {}
};

// An Oracle server's codes, in texts that the stand-in sends on demand.
TEST_F(OracleFailures, AreSortedByTheCodesInTheirText) {
  const std::pair<const char*, SqlFailure> cases[] = {
      {"ORA-00001: unique constraint (A.B) violated", SqlFailure::kData},
      {"ORA-00054: resource busy", SqlFailure::kServer},
      {"ORA-00060: deadlock detected while waiting for resource", SqlFailure::kServer},
      {"ORA-00942: table or view does not exist", SqlFailure::kStatement},
      {"ORA-01031: insufficient privileges", SqlFailure::kPrivilege},
      {"ORA-01555: snapshot too old", SqlFailure::kServer},
      {"ORA-01653: unable to extend table A.B by 8 in tablespace USERS", SqlFailure::kServer},
      {"ORA-00604: error at recursive SQL level 1\nORA-01653: unable", SqlFailure::kServer},
      {"ORA-03113: end-of-file on communication channel", SqlFailure::kConnection},
      {"ORA-03114: not connected to ORACLE", SqlFailure::kConnection},
      {"ORA-12541: TNS:no listener", SqlFailure::kConnection},
      {"ORA-12899: value too large for column", SqlFailure::kData},
      {"ORA-20001: not this row\nORA-06512: at \"A.GUARD\", line 2", SqlFailure::kData}};
  for (const auto& [text, meaning] : cases) {
    EXPECT_EQ(meaning, Meaning(std::string("do $$ begin raise exception '") + text + "'; end $$"));
    EXPECT_THAT(m_sql->getLastError(), HasSubstr(text));
  }
}
#endif

}  // namespace
