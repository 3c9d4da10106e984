// A database server that belongs to one test program, run by one of the tools/private-... scripts.
#pragma once

#include <string>
#include <vector>

// Runs for the object's life. A server that does not obey ends the program with a banner: the
// environment is at fault then, not the code under test.
class PrivateServer {
 public:
  void Start();  // again, on the port it had before
  void Stop() const { Tool("stop"); }
  void Kill() const { Tool("kill"); }
  // For set-up and checks, on a connection of its own: runs statements and gives their rows, the
  // values of each joined by tabs.
  std::vector<std::string> Run(const std::string& sql) const { return Tool("sql", sql); }

 protected:
  explicit PrivateServer(const std::string& name);  // as in tools/private-<name>
  ~PrivateServer() { Stop(); }

  const std::string m_name;
  const std::string m_folder;
  int m_port = 0;

 private:
  std::vector<std::string> Tool(const std::string& verb, const std::string& argument = "") const;
};
