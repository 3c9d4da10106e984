// The private PostgreSQL server of a test program, in the place of an Oracle server.
#pragma once

#include "testing/private_server.h"

class PostgresServer : public PrivateServer {
 public:
  // The first call starts the server, for the rest of the program. From then on ODBC knows no data
  // sources but this server's.
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
