#include "testing/mariadb_server.h"

#include <regex>
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

std::vector<std::string> MariadbServer::Log(std::size_t mark, bool statements) const {
  static const std::regex kEntry(R"((?:\d{6} [ \d]\d:\d\d:\d\d)?\t+ *(\d+) (\w+(?: DB)?)\t(.*))");
  std::istringstream log(ReadFile(m_folder + "/general.log").substr(mark));
  std::set<std::string> own;  // connections of the tools, which come as root
  std::vector<std::string> entries;
  bool wanted = false;
  for (std::string line; std::getline(log, line);) {
    std::smatch entry;
    if (std::regex_match(line, entry, kEntry)) {
      const std::string id = entry[1], command = entry[2], text = entry[3];
      if (command == "Connect" && text.rfind("root@", 0) == 0) own.insert(id);
      wanted = own.count(id) == 0 && (command == "Query") == statements;
      if (wanted) entries.push_back(statements ? text : command + " " + text);
    } else if (line.find(", Version: ") != std::string::npos) {  // the server began again
      own.clear();
      wanted = false;
    } else if (wanted) {
      entries.back() += "\n" + line;  // a statement of several lines
    }
  }
  return entries;
}
