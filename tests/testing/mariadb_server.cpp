#include "testing/mariadb_server.h"

#include <cstdio>
#include <set>
#include <sstream>

#include "testing/files.h"

MariadbServer& MariadbServer::Get() {
  static MariadbServer server;
  return server;
}

MYSQLAUTH MariadbServer::Auth(const std::string& database) const {
  MYSQLAUTH auth;
  auth.host = "127.0.0.1";
  auth.port = m_port;
  auth.user = "midtable";
  auth.password = auth.new_user_password = "secret";
  auth.dbname = database;
  return auth;
}

std::size_t MariadbServer::Mark() const { return ReadFile(m_folder + "/general.log").size(); }

// A log line reads "\t\t     5 Query\tselect 1", with a time before the first tab now and then.
std::vector<std::string> MariadbServer::Log(std::size_t mark, bool statements) const {
  std::istringstream log(ReadFile(m_folder + "/general.log").substr(mark));
  std::set<int> own;  // connections of the tools, which come as root
  std::vector<std::string> entries;
  bool wanted = false;
  for (std::string line; std::getline(log, line);) {
    const std::size_t head = line.find_first_not_of('\t', line.find('\t'));
    const std::size_t tab = line.find('\t', head);
    int id = 0;
    char command[16];
    if (tab != std::string::npos &&
        std::sscanf(line.c_str() + head, "%d %15[A-Za-z ]", &id, command) == 2) {
      const std::string text = line.substr(tab + 1);
      if (command == std::string("Connect") && text.rfind("root@", 0) == 0) own.insert(id);
      wanted = own.count(id) == 0 && (command == std::string("Query")) == statements;
      if (wanted) entries.push_back(statements ? text : std::string(command) + " " + text);
    } else if (line.find(", Version: ") != std::string::npos) {  // the server began again
      own.clear();
      wanted = false;
    } else if (wanted) {
      entries.back() += "\n" + line;  // a statement of several lines
    }
  }
  return entries;
}
