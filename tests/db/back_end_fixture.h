// A back end that is connected to a real server, and what really differs between the servers.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "db/SqlFactory.h"
#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

struct BackEnd {
  std::string type;
  std::function<PrivateServer&()> server;
  std::function<void(std::string)> create;  // makes an empty database of that name
  std::vector<std::string> columns;         // of table t, as GetColums names them
  // Statements: the begin of a transaction, 5000 rows, rows of which a late one fails, and the text
  // of a statement that ends this session.
  const char* begin;
  std::string many_rows;
  std::string breaks_off;
  const char* suicide;
  const char* denied;  // in the error of a wrong password
  const char* drop;    // the statement that removes database beta
  const char* where;   // a query for the current database
  friend void PrintTo(const BackEnd& back_end, std::ostream* out) { *out << back_end.type; }
};

inline const BackEnd kMysql = {
    "mysql",
    MariadbServer::Get,
    [](const auto& name) { MariadbServer::Get().MakeDatabases({name}); },
    {},
    "start transaction",
    "select seq as v from " + MariadbServer::Numbers(5000),
    "select 18446744073709547116 + seq from " + MariadbServer::Numbers(5000),
    "select concat('kill ', connection_id()) as k",
    "connect failed, error:Access denied for user",
    "drop database beta",
    "select database() as v"};

#ifdef MIDTABLE_ORACLE
inline const BackEnd kOracle = {
    "oracle",
    PostgresServer::Get,
    [](const auto& name) { PostgresServer::Get().CreateStore(name); },
    {"ZETA", "ALPHA"},
    " Set Transaction read write",
    "select v from generate_series(1, 5000) v",
    "select 1 / (4500 - v) from generate_series(1, 5000) v",
    "select concat('select pg_terminate_backend(', pg_backend_pid(), ')') as k",
    "password authentication failed",
    "drop schema beta cascade; drop user beta",
    "select current_user as v"};
inline const std::vector<BackEnd> kBackEnds = {kMysql, kOracle};
#else
inline const std::vector<BackEnd> kBackEnds = {kMysql};
#endif
inline constexpr auto kNameOfBackEnd = [](const auto& test) { return test.param.type; };

// Two databases, alpha and beta, with an empty table t each; m_sql is connected to alpha.
class BackEndTest : public testing::Test {
 protected:
  explicit BackEndTest(const BackEnd& back_end) : m_is(back_end) {
    for (const std::string database : {"alpha", "beta"}) {
      m_is.create(database);
      m_server.Run("create table " + database + ".t (zeta int, Alpha int)");
    }
    m_auth.dbtype = m_is.type;
    if (IsOracle(m_auth)) m_auth.user = "alpha";
    Connect();
  }
  void Connect() {
    m_sql = CreateSqlBase(m_auth);
    EXPECT_EQ(0, m_sql->connectDB()) << m_sql->getLastError();
  }
  // Connects to MySQL as an ordinary user, who may do no more than this.
  void ConnectAs(const std::string& grants) {
    MariadbServer::Get().MakeUser("plain", "'p'", grants);
    m_auth.user = "plain";
    m_auth.password = "p";
    Connect();
  }
  int Do(const char* statement) { return m_sql->executeSQL(statement, 0); }
  // The first value of a query's only row.
  std::string Value(const std::string& query) {
    EXPECT_EQ(0, m_sql->fetchRecordSet(query.c_str(), m_rows)) << m_sql->getLastError();
    return m_rows.size() == 1 ? m_rows[0].begin()->second : "not one row";
  }
  // How many rows are in alpha's table, as another session sees it.
  std::string CommittedRows() { return m_server.Run("select count(*) from alpha.t").at(0); }

  static constexpr char kInsert[] = "insert into t values (1, 2)";

  const BackEnd& m_is;
  PrivateServer& m_server = m_is.server();
  MYSQLAUTH m_auth = m_server.Auth("alpha");
  std::unique_ptr<CSqlBase> m_sql;
  std::vector<SqlRecord> m_rows;
};
