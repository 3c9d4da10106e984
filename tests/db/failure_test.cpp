// What a failure means: the same of every back end, asked of each on a real server; then, by
// server, the errors that can be brought on and those that can only be named.
#include <functional>
#include <thread>

#include "db/SqlFactory.h"
#include "db/mysql_failure.h"
#include "gmock/gmock.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

using testing::HasSubstr;

void PrintTo(SqlFailure meaning, std::ostream* out) {
  static constexpr const char* kNames[] = {"kNone",       "kStatement", "kData",
                                           "kConnection", "kServer",    "kPrivilege"};
  *out << kNames[static_cast<int>(meaning)];
}

namespace {

struct Server {
  std::string type;
  std::function<PrivateServer&()> get;
  std::function<void(const std::string&)> create;  // makes an empty database, or user
  const char* suicide;  // a query whose answer is the statement that ends the asking session
  const char* duplicate;
};

const Server kMysql = {
    "mysql", MariadbServer::Get,
    [](const auto& name) { MariadbServer::Get().Run("create or replace database " + name); },
    "select concat('kill ', connection_id()) as k", "insert into t values (1), (1)"};

// Connected to database alpha, which has an empty table t with a unique column.
class Failures : public testing::Test {
 protected:
  explicit Failures(const Server& server) : m_is(server) {
    m_is.create("alpha");
    m_server.Run("create table alpha.t (x int primary key)");
    m_auth.dbtype = m_is.type;
    if (IsOracle(m_auth)) m_auth.user = "alpha";
    Connect();
  }
  void Connect() {
    m_sql = CreateSqlBase(m_auth);
    EXPECT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
  }
  // What it means that the statement fails, as it must.
  SqlFailure Meaning(const std::string& statement) {
    EXPECT_EQ(-1, m_sql->executeSQL(statement.c_str(), 0)) << statement;
    return m_sql->lastFailure();
  }
  void Succeed(const std::string& statement) {
    EXPECT_EQ(0, m_sql->executeSQL(statement.c_str(), 0)) << m_sql->getLastError();
    EXPECT_EQ(SqlFailure::kNone, m_sql->lastFailure());
  }
  void LoseSession() {
    std::vector<SqlRecord> rows;
    ASSERT_EQ(0, m_sql->fetchRecordSet(m_is.suicide, rows));
    m_server.Run(rows.at(0).begin()->second);
  }

  const Server& m_is;
  PrivateServer& m_server = m_is.get();
  MYSQLAUTH m_auth = m_server.Auth("alpha");
  std::unique_ptr<CSqlBase> m_sql;
};

// --- of every back end

class FailureContract : public Failures, public testing::WithParamInterface<Server> {
 protected:
  FailureContract() : Failures(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Mysql, FailureContract, testing::Values(kMysql));
#ifdef MIDTABLE_ORACLE
const Server kOracle = {"oracle", PostgresServer::Get,
                        [](const auto& name) { PostgresServer::Get().CreateStore(name); },
                        "select concat('select pg_terminate_backend(', pg_backend_pid(), ')') as k",
                        "insert into t values (1), (1)"};
INSTANTIATE_TEST_SUITE_P(Oracle, FailureContract, testing::Values(kOracle));
#endif

TEST_P(FailureContract, AStatementThatIsWrongIsTheStatementsFault) {
  EXPECT_EQ(SqlFailure::kStatement, Meaning("nonsense"));
  EXPECT_EQ(SqlFailure::kStatement, Meaning("insert into t (no_column) values (1)"));
  std::vector<SqlRecord> rows;
  EXPECT_EQ(-1, m_sql->fetchRecordSet("delete from t", rows)) << "gives no rows";
  EXPECT_EQ(SqlFailure::kStatement, m_sql->lastFailure());
}

TEST_P(FailureContract, ADuplicateKeyIsTheRowsFault) {
  EXPECT_EQ(SqlFailure::kData, Meaning(m_is.duplicate));
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
  LoseSession();
  std::vector<SqlRecord> rows;
  unsigned int count = 0;
  const std::pair<const char*, std::function<bool()>> operations[] = {
      {"executeSQL", [&] { return m_sql->executeSQL("insert into t values (1)", 0) == 0; }},
      {"existDB", [&] { return m_sql->existDB("alpha"); }},
      {"existTable", [&] { return m_sql->existTable("t"); }},
      {"isDBAlive", [&] { return m_sql->isDBAlive(); }},
      {"fetchRecordSet", [&] { return m_sql->fetchRecordSet("select 1", rows) == 0; }},
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
}

TEST_P(FailureContract, AServerThatIsAwayIsTheConnectionsFault) {
  m_server.Kill();
  EXPECT_EQ(-1, m_sql->reconnectDB());
  EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure());
  m_server.Start();
}

// --- MySQL and MariaDB

class MysqlFailures : public Failures {
 protected:
  MysqlFailures() : Failures(kMysql) {}
  ~MysqlFailures() override { m_server.Run("drop user if exists plain"); }

  // Connects as a user who may only read, but for what `grants` gives beyond.
  void ConnectAsReader(const std::string& grants = "") {
    m_server.Run(
        "create or replace user plain identified by 'p';"
        "grant select on alpha.* to plain;" +
        grants);
    m_auth.user = "plain";
    m_auth.password = "p";
    Connect();
  }
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
      " foreign key (id) references alpha.t (x)) engine=InnoDB;"
      "create table alpha.parts (x int) partition by list (x) (partition p values in (1));"
      "create table alpha.guarded (x int);"
      "create trigger alpha.guard before insert on alpha.guarded for each row"
      " signal sqlstate '45000' set mysql_errno = 30001, message_text = 'not this row'");
  for (const char* statement :
       {"insert into fussy (id) values (99999999999)", "insert into fussy (id) values (null)",
        "insert into fussy (id) values ('x')", "insert into fussy (short) values ('x')",
        "insert into fussy (id, short) values (1, 'xyz')", "insert into fussy (id) values (9)",
        "insert into fussy (id, day) values (1, '2012-13-01')", "insert into fussy (id) values (1)",
        "insert into parts values (2)", "insert into guarded values (1)",
        "insert into t values (18446744073709551615 + 1)"}) {
    EXPECT_EQ(SqlFailure::kData, Meaning(statement)) << m_sql->getLastError();
  }
}

TEST_F(MysqlFailures, MissingPrivileges) {
  m_server.Run("set global local_infile = 0");
  ConnectAsReader();
  for (const char* statement :
       {"insert into t values (1)", "use mysql", "create table more (x int)", "drop database alpha",
        "load data infile '/etc/passwd' into table t", "set global read_only = 0",
        "load data local infile '/etc/passwd' into table t"}) {
    EXPECT_EQ(SqlFailure::kPrivilege, Meaning(statement)) << m_sql->getLastError();
  }
  m_server.Run("set global local_infile = default");
}

TEST_F(MysqlFailures, AServerThatOnlyReads) {
  ConnectAsReader("grant insert on alpha.* to plain");
  m_server.Run("set global read_only = 1");
  EXPECT_EQ(SqlFailure::kServer, Meaning("insert into t values (1)"));
  m_server.Run("set global read_only = 0");
  Succeed("insert into t values (1)");
  Succeed("start transaction read only");
  EXPECT_EQ(SqlFailure::kServer, Meaning("insert into t values (2)"));
}

// A statement that would take hours.
class EndedFromOutside : public MysqlFailures {
 protected:
  const std::string kLong =
      "insert into t select max(a.seq ^ b.seq) from mysql.seq_1_to_9999999 a,"
      " mysql.seq_1_to_9999999 b";

  // What it means that another session runs `kill` meanwhile.
  SqlFailure MeaningAfter(const std::string& kill) {
    std::thread killer([&] {
      const char* const runs =
          "select 1 from information_schema.processlist where info like '%9999999%'"
          " and user = 'midtable'";
      while (m_server.Run(runs).empty()) {
      }
      m_server.Run(kill);
    });
    const SqlFailure meaning = Meaning(kLong);
    killer.join();
    return meaning;
  }
};

TEST_F(EndedFromOutside, ASessionThatIsKilled) {
  EXPECT_EQ(SqlFailure::kConnection, MeaningAfter("kill user midtable"));
}

TEST_F(MysqlFailures, LocksThatAnotherSessionHolds) {
  const auto holder = CreateSqlBase(m_auth);
  ASSERT_EQ(0, holder->connectDB());
  m_sql->setLockWaitSeconds(1);
  ASSERT_EQ(0, m_sql->reconnectDB());
  Succeed("insert into t values (1)");

  // The lock of a row; that of a table's definition; that of everything, as a dump takes it.
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"start transaction", "update t set x = 2", "update t set x = 3", "rollback"},
      {"start transaction", "update t set x = 2", "alter table t add y int", "rollback"},
      {"do 0", "flush tables with read lock", "insert into t values (4)", "unlock tables"}};
  for (const auto& [begin, lock, refused, release] : cases) {
    EXPECT_EQ(0, holder->executeSQL(begin, 0)) << holder->getLastError();
    EXPECT_EQ(0, holder->executeSQL(lock, 0)) << holder->getLastError();
    EXPECT_EQ(SqlFailure::kServer, Meaning(refused)) << refused;
    EXPECT_THAT(m_sql->getLastError(), HasSubstr("Lock wait timeout exceeded"));
    EXPECT_EQ(0, holder->executeSQL(release, 0)) << holder->getLastError();
  }
}

TEST_F(MysqlFailures, ADeadlock) {
  m_server.Run("insert into alpha.t values (1), (2)");
  const auto other = CreateSqlBase(m_auth);
  ASSERT_EQ(0, other->connectDB());
  for (CSqlBase* session : {m_sql.get(), other.get()}) {
    ASSERT_EQ(0, session->executeSQL("start transaction", 0));
    const char* own = session == other.get() ? "update t set x = 20 where x = 2"
                                             : "update t set x = 10 where x = 1";
    ASSERT_EQ(0, session->executeSQL(own, 0));
  }
  std::thread meanwhile([&] { other->executeSQL("update t set x = 11 where x = 1", 0); });
  m_sql->executeSQL("update t set x = 22 where x = 2", 0);
  // The server picks its victim; the other one of the two goes on once that has ended.
  if (m_sql->lastFailure() == SqlFailure::kNone) m_sql->executeSQL("rollback", 0);
  meanwhile.join();
  const bool mine = m_sql->lastFailure() != SqlFailure::kNone;
  CSqlBase& victim = mine ? *m_sql : *other;
  EXPECT_EQ(SqlFailure::kServer, victim.lastFailure());
  EXPECT_THAT(victim.getLastError(), HasSubstr("Deadlock found"));
}

TEST(MysqlErrors, AreSortedByNumberThenStateThenTheSystemsNumberInTheText) {
  const std::tuple<unsigned int, const char*, const char*, SqlFailure> cases[] = {
      {0, "00000", "", SqlFailure::kNone},
      {1047, "08S01", "WSREP has not yet prepared node", SqlFailure::kServer},
      {1114, "HY000", "The table 't' is full", SqlFailure::kServer},
      {1290, "HY000", "running with the --secure-file-priv option", SqlFailure::kPrivilege},
      {1290, "HY000", "running with the --read-only option", SqlFailure::kServer},
      {1040, "08004", "Too many connections", SqlFailure::kConnection},
      {1053, "08S01", "Server shutdown in progress", SqlFailure::kConnection},
      {2013, "HY000", "Lost connection to server during query", SqlFailure::kConnection},
      {2026, "HY000", "TLS/SSL error", SqlFailure::kConnection},
      {1153, "08S01", "bigger than 'max_allowed_packet'", SqlFailure::kStatement},
      {3819, "HY000", "Check constraint 'c' is violated.", SqlFailure::kData},
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

// The stand-in's own errors, by their SQL states.
TEST_F(OracleFailures, AreSortedByTheirState) {
  EXPECT_EQ(SqlFailure::kData, Meaning("insert into t values (99999999999)"));
  EXPECT_EQ(SqlFailure::kData, Meaning("insert into t values (null)"));
  Succeed("set lock_timeout = 100");
  const auto holder = CreateSqlBase(m_auth);
  ASSERT_EQ(0, holder->connectDB());
  ASSERT_EQ(0, holder->executeSQL("lock table t in exclusive mode", 0));
  EXPECT_EQ(SqlFailure::kServer, Meaning("insert into t values (1)"));
  Succeed("set role pg_monitor");
  EXPECT_EQ(SqlFailure::kPrivilege, Meaning("select * from pg_authid"));
}

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
