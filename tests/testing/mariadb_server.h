// The private MariaDB server of a test program.
#pragma once

#include "support/paths.h"
#include "testing/files.h"
#include "testing/private_server.h"

class MariadbServer : public PrivateServer {
 public:
  // The first call starts the server, for the rest of the program.
  static MariadbServer& Get() {
    static MariadbServer server;
    return server;
  }
  // Makes this the server of the service's settings.
  void WriteSettings() const {
    const MYSQLAUTH auth = Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password);
  }
  // A place in the general log, from which Statements() reads on. The log begins with the first
  // mark.
  std::size_t Mark() const {
    return std::stoul(Run("set global log_output = 'TABLE'; select count(*) " + kQueries).at(0));
  }
  // The statements that the server got since that mark, in its order, with line feeds as "\n".
  // Those of root, which is who Run() is, are left out.
  std::vector<std::string> Statements(std::size_t mark) const {
    return Run("select argument " + kQueries + " limit " + std::to_string(mark) + ", 9999");
  }

 private:
  MariadbServer() : PrivateServer("mariadb") {}

  const std::string kQueries =
      "from mysql.general_log where command_type = 'Query' and user_host not like '%root%'";
};
