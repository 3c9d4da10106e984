// The private MariaDB server of a test program. The environment variable MIDTABLE_SERVER names
// another one, "mysql" for instance: any of the scripts tools/private-... by what follows the dash.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

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
  const std::string& Folder() const { return m_folder; }
  // Each empty, whether it was there or not.
  void MakeDatabases(std::initializer_list<std::string> names) const {
    for (const std::string& name : names) {
      Run("drop database if exists " + name + "; create database " + name);
    }
  }
  // A user of that name, with a password and other words of "create user", and no rights but these.
  void MakeUser(const std::string& name, const std::string& words,
                const std::string& grants = "") const {
    Run("drop user if exists " + name + "; create user " + name + " identified by " + words + "; " +
        grants);
  }
  bool IsMysql() const {
    return Run("select version()").at(0).find("MariaDB") == std::string::npos;
  }
  // From now on new connections are shown the certificate that lies in its place.
  void ReloadCertificates() const { Run(IsMysql() ? "alter instance reload tls" : "flush ssl"); }
  void EndSessionsOf(const std::string& user) const {
    for (const std::string& id :
         Run("select id from information_schema.processlist where user = '" + user + "'")) {
      Run("kill " + id);
    }
  }
  // A table for "from" with the numbers 1 to `last` in its column seq.
  static std::string Numbers(int last) {
    return "json_table(concat('[0', repeat(',0', " + std::to_string(last - 1) +
           "), ']'), '$[*]' columns (seq for ordinality)) as numbers";
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
  MariadbServer() : PrivateServer(Name()) {}
  static std::string Name() {
    const char* const other = std::getenv("MIDTABLE_SERVER");
    return other == nullptr ? "mariadb" : other;
  }

  const std::string kQueries =
      "from mysql.general_log where command_type = 'Query' and user_host not like '%root%'";
};
