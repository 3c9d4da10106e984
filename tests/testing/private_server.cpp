#include "testing/private_server.h"

#include <stdlib.h>

#include <iostream>

#include "support/file.h"

PrivateServer::PrivateServer(const std::string& name)
    : m_name(name), m_folder("/tmp/private-" + name) {
  Start();
}

void PrivateServer::Start() { m_port = std::stoi(Tool("start").at(0)); }

std::vector<std::string> PrivateServer::Tool(const std::string& verb,
                                             const std::string& argument) const {
  setenv("ARGUMENT", argument.c_str(), 1);
  const std::string command = MIDTABLE_TOOLS "/private-" + m_name + " " + verb + " " + m_folder +
                              (argument.empty() ? "" : " \"$ARGUMENT\"");
  std::FILE* pipe = popen(command.c_str(), "re");
  std::vector<std::string> lines;
  for (char line[65536]; pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr;) {
    lines.emplace_back(line).pop_back();
  }
  if (pipe != nullptr && pclose(pipe) == 0) return lines;
  std::cerr << "\n*** THE ENVIRONMENT IS AT FAULT, NOT THE CODE UNDER TEST ***\n*** failed: "
            << command << " " << argument << std::endl;
  std::_Exit(1);
}
