// A database server that belongs to one test program.
#pragma once

#include <string>
#include <vector>

// Starts a server with one of the tools/private-... scripts and stops it at the end of its life. A
// server that does not start ends the program with a banner: the environment is at fault then, not
// the code under test.
class PrivateServer {
 public:
  PrivateServer(const PrivateServer&) = delete;
  PrivateServer& operator=(const PrivateServer&) = delete;

  int Port() const { return m_port; }
  const std::string& Folder() const { return m_folder; }  // below it lies all that it owns

  void Start();  // again, on the port it had before
  void Stop() const { Tool("stop"); }
  void Kill() const { Tool("kill"); }

  // For set-up and checks, on a connection of its own: runs one statement and gives its rows, the
  // values of each joined by tabs. A failure ends the program like one to start.
  std::vector<std::string> Run(const std::string& sql) const;

 protected:
  explicit PrivateServer(const std::string& name);  // as in tools/private-<name>
  ~PrivateServer() { Stop(); }

 private:
  std::vector<std::string> Tool(const std::string& verb, const std::string& argument = "") const;

  std::string m_name;
  std::string m_folder;
  int m_port = 0;
};
