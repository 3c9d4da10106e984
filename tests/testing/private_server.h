// A database server that belongs to one test program, run by one of the tools/private-... scripts.
#pragma once

#include <stdlib.h>

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "config/dbinfo.h"

// Runs for the object's life. A server that does not obey ends the program with a banner: the
// environment is at fault then, not the code under test.
class PrivateServer {
 public:
  void Start() { m_port = std::stoi(Tool("start").at(0)); }  // again, on the port it had before
  void Kill() const { Tool("kill"); }
  // For set-up and checks, on a connection of its own: runs statements and gives their rows, the
  // values of each joined by tabs.
  std::vector<std::string> Run(const std::string& sql) const { return Tool("sql", sql); }
  // Credentials of a user who may do everything, with `database` as dbname.
  MYSQLAUTH Auth(const std::string& database = "") const {
    MYSQLAUTH auth;
    auth.host = "127.0.0.1";
    auth.port = m_port;
    auth.user = "midtable";
    auth.password = auth.new_user_password = "secret";
    auth.dbname = database;
    return auth;
  }

 protected:
  explicit PrivateServer(const std::string& name) : m_name("private-" + name) { Start(); }
  ~PrivateServer() { Tool("stop"); }

  const std::string m_name;
  const std::string m_folder = "/tmp/" + m_name;
  int m_port = 0;

  std::vector<std::string> Tool(const std::string& verb, const std::string& sql = "") const {
    setenv("SQL", sql.c_str(), 1);
    const std::string command = MIDTABLE_TOOLS "/" + m_name + " " + verb + " " + m_folder +
                                (sql.empty() ? "" : " \"$SQL\"") + " >" + m_folder + ".out";
    if (system(command.c_str()) != 0) {
      std::cerr << "\n*** THE ENVIRONMENT IS AT FAULT, NOT THE CODE UNDER TEST ***\n*** failed: "
                << command << " " << sql << std::endl;
      std::_Exit(1);
    }
    std::ifstream in(m_folder + ".out");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
};
