// The private PostgreSQL server of a test program, in the place of an Oracle server.
#pragma once

#include <stdlib.h>

#include "config/dbinfo.h"
#include "testing/private_server.h"

class PostgresServer : public PrivateServer {
 public:
  // Started by the first call, for the rest of the program; ODBC's data sources are its own then.
  static PostgresServer& Get() {
    static PostgresServer server;
    return server;
  }
  // The Oracle record of a user who may do everything.
  static MYSQLAUTH Auth(const std::string& user = "midtable") {
    MYSQLAUTH auth;
    auth.user = user;
    auth.password = auth.new_user_password = "secret";
    auth.dbtype = "oracle";
    return auth;
  }
  // Makes user and schema `name`, empty, with the password "secret".
  void CreateStore(const std::string& name) const {
    Run("drop schema if exists " + name + " cascade; drop user if exists \"" + name +
        "\"; select create_store('" + name + "', 'secret')");
  }

 private:
  PostgresServer() : PrivateServer("postgres") {
    setenv("ODBCINI", (m_folder + "/odbc.ini").c_str(), 1);
    setenv("ODBCSYSINI", m_folder.c_str(), 1);
  }
};
