// The private MariaDB server of a test program.
#pragma once

#include "testing/private_server.h"

class MariadbServer : public PrivateServer {
 public:
  // Started by the first call, for the rest of the program.
  static MariadbServer& Get() {
    static MariadbServer server;
    return server;
  }
  // From where a later reading of the general log, which begins with the first mark, is to go on.
  std::size_t Mark() const {
    return std::stoul(Run("set global log_output = 'TABLE'; select count(*) " + kQueries).at(0));
  }
  // The statements that the server got since then, in its order and with line feeds as "\n"; those
  // of Run(), which is root, are left out.
  std::vector<std::string> Statements(std::size_t mark) const {
    return Run("select argument " + kQueries + " limit " + std::to_string(mark) + ", 9999");
  }

 private:
  MariadbServer() : PrivateServer("mariadb") {}

  const std::string kQueries =
      "from mysql.general_log where command_type = 'Query' and user_host not like '%root%'";
};
