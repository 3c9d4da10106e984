// The private MariaDB server of a test program.
#pragma once

#include "config/dbinfo.h"
#include "testing/private_server.h"

class MariadbServer : public PrivateServer {
 public:
  // Started by the first call, for the rest of the program.
  static MariadbServer& Get();
  // Credentials of a user who may do everything, with `database` as dbname.
  MYSQLAUTH Auth(const std::string& database = "") const;

  // The place in the general log from which a later reading is to begin.
  std::size_t Mark() const;
  // The statements that the server got since then, in its order; those of Run() are left out.
  std::vector<std::string> Statements(std::size_t mark) const { return Log(mark, true); }
  // The same for all else: "Connect midtable@127.0.0.1 on ...", "Quit " and the like.
  std::vector<std::string> Sessions(std::size_t mark) const { return Log(mark, false); }

 private:
  MariadbServer() : PrivateServer("mariadb") {}
  std::vector<std::string> Log(std::size_t mark, bool statements) const;
};
