// The program as a process, driven through a shell; the private MariaDB server is that of its
// settings.
#pragma once

#include <cstdio>
#include <filesystem>

#include "gmock/gmock.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;

// What a shell prints for commands, in which $M is the program and $L the run log's folder, and for
// the last one's status.
inline std::string Shell(const std::string& commands) {
  const std::string names = "export M=" MIDTABLE_PROGRAM " L=/vqlog/log/midtable\n";
  std::FILE* const pipe = popen((names + commands + "\necho $?").c_str(), "re");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  pclose(pipe);
  return text;
}

// Waits until a command succeeds, for 30 seconds at most.
inline void Eventually(const std::string& command) {
  const std::string loop = "until " + command + "; do sleep 0.02; done";
  EXPECT_EQ(Shell("timeout 30 sh -c '" + loop + "' >/dev/null 2>&1"), "0\n") << command;
}

// Begins without a run log. At its end no instance runs, and none has left its lock file.
class ProgramTest : public testing::Test {
 protected:
  ProgramTest() {
    m_server.WriteSettings();
    fs::create_directories(paths::kSpool);
    fs::remove_all("/vqlog/log");
  }
  ~ProgramTest() override {
    Shell("pid=$(pidof midtable) && kill -INT $pid");
    Eventually("! pidof midtable");
    EXPECT_FALSE(fs::exists(paths::kLockFile));
  }

  // Starts it in the foreground, with every line of its log in /tmp/out, and waits for one of them.
  static void StartAndAwait(const std::string& said) {
    Shell("rm -f /tmp/out; (timeout -s KILL 60 $M -apple debug=1; echo status $?) >/tmp/out &");
    Eventually("grep \"" + said + "\" /tmp/out");
  }
  static void Send(const std::string& signals) {
    const std::string loop =
        "for s in " + signals + "; do kill -$s $(pidof midtable) || exit; done";
    EXPECT_EQ(Shell(loop), "0\n") << signals;
  }
  // Stops an instance in the foreground, which must end in good order; what it printed.
  static std::string Stop() {
    Send("INT");
    Eventually("grep \"status 0\" /tmp/out");
    return ReadFile("/tmp/out");
  }

  MariadbServer& m_server = MariadbServer::Get();
};
