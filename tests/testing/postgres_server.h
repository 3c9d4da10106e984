// The private PostgreSQL server of a test program, in the place of an Oracle server.
#pragma once

#include "testing/private_server.h"

class PostgresServer : public PrivateServer {
 public:
  // Started by the first call, for the rest of the program; ODBC's data sources are its own then.
  static PostgresServer& Get() {
    static PostgresServer server;
    return server;
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
