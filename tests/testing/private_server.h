// A database server that belongs to one test program. One of the scripts tools/private-... runs it.
#pragma once

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "config/dbinfo.h"

// The server runs for the object's life. Where it does not obey, the program ends with a banner:
// the environment is at fault then, not the code under test.
class PrivateServer {
 public:
  // Starts it again, with the data and on the port that it had before, and with these options of
  // the server beside the script's.
  void Start(const std::vector<std::string>& options = {}) {
    m_port = std::stoi(Tool("start", options).at(0));
  }
  // Ends it as a crash would.
  void Kill() const { Tool("kill"); }
  pid_t Pid() const {
    pid_t pid = 0;
    std::ifstream(m_folder + "/pid") >> pid;
    return pid;
  }
  // Runs statements on a connection of their own and returns the rows that they give, the values of
  // each joined by tabs.
  std::vector<std::string> Run(const std::string& sql) const { return Tool("sql", {sql}); }
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

  // Runs the script and returns the lines that it prints. Several threads may do so at a time. The
  // lines come by way of a file, since a server that the script starts would keep a pipe open.
  std::vector<std::string> Tool(const std::string& verb,
                                const std::vector<std::string>& arguments = {}) const {
    static std::atomic<int> calls = 0;
    const std::string out = m_folder + ".out" + std::to_string(++calls);
    std::string command = MIDTABLE_TOOLS "/" + m_name + " " + verb + " " + m_folder;
    for (const std::string& argument : arguments) command += " " + Quoted(argument);
    command += " >" + out;
    if (system(command.c_str()) != 0) {
      std::cerr << "\n*** THE ENVIRONMENT IS AT FAULT, NOT THE CODE UNDER TEST ***\n*** failed: "
                << command << std::endl;
      std::_Exit(1);
    }
    std::ifstream in(out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::remove(out.c_str());
    return lines;
  }

 private:
  // As one word of a shell's.
  static std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
  }
};
