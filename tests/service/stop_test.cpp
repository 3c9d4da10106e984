// SIGINT ends the program soon, whatever its server does.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "db/MysqlBase.h"
#include "gmock/gmock.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/frozen_server.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kOutput[] = "/tmp/out";

// The program in the foreground, with every line of its log in kOutput.
class RunningProgram {
 public:
  RunningProgram() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, kOutput, O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    std::string program = MIDTABLE_PROGRAM, app = "-app", debug = "debug=1";
    char* const arguments[] = {program.data(), app.data(), debug.data(), nullptr};
    EXPECT_EQ(0, posix_spawn(&m_pid, program.c_str(), &actions, nullptr, arguments, environ));
    posix_spawn_file_actions_destroy(&actions);
  }
  ~RunningProgram() {
    if (m_pid <= 0) return;
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  // Waits until its output holds the text.
  static void Await(const std::string& text) {
    for (int i = 0; i < 1200; ++i, std::this_thread::sleep_for(milliseconds(25))) {
      if (fs::exists(kOutput) && ReadFile(kOutput).find(text) != std::string::npos) return;
    }
    FAIL() << "never said: " << text << "\n" << ReadFile(kOutput);
  }

  // How long it lives after SIGINT. It must end in good order, and within ten seconds.
  milliseconds Stop() {
    const auto begin = std::chrono::steady_clock::now();
    const auto passed = [begin] {
      return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
    };
    kill(m_pid, SIGINT);
    int status = -1;
    while (waitpid(m_pid, &status, WNOHANG) == 0) {
      if (passed() > std::chrono::seconds(10)) return passed();
      std::this_thread::sleep_for(milliseconds(5));
    }
    m_pid = 0;
    EXPECT_EQ(0, status);
    return passed();
  }

 private:
  pid_t m_pid = 0;
};

class Stop : public testing::Test {
 protected:
  Stop() {
    m_server.Run(
        "create or replace database vqcfg;"
        "create table vqcfg.EnterpriseUser (crc int, name text)");
    const MYSQLAUTH auth = m_server.Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password);
    fs::create_directories(std::string(paths::kSpool) + "1a2b3c4d");
    fs::remove(kOutput);
  }
  static constexpr milliseconds kSoon{3000};

  MariadbServer& m_server = MariadbServer::Get();
};

TEST_F(Stop, WhileTheServerIsAway) {
  RunningProgram program;
  program.Await("no file to load reconnect db");
  m_server.Kill();
  program.Await("reconnect db attempt 1 failed");
  const auto took = program.Stop();
  m_server.Start();
  EXPECT_LT(took, kSoon);
  EXPECT_THAT(ReadFile(kOutput), Not(HasSubstr("database not avaliable thread exit")));
  EXPECT_FALSE(fs::exists(paths::kLockFile));
}

TEST_F(Stop, WhileTheIdleServiceAsksAFrozenServer) {
  RunningProgram program;
  program.Await("no file to load reconnect db");
  const FrozenServer frozen(m_server);
  std::this_thread::sleep_for(milliseconds(1500));  // it works once a second
  EXPECT_LT(program.Stop(), kSoon);
  EXPECT_THAT(ReadFile(kOutput), Not(HasSubstr("reconnect db attempt")));
}

TEST_F(Stop, WhileTheServiceStartsOnAFrozenServer) {
  const FrozenServer frozen(m_server);
  RunningProgram program;
  program.Await("befor connect db");
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_LT(program.Stop(), kSoon);
  EXPECT_THAT(ReadFile(kOutput),
              HasSubstr("connect failed, error:stopped while waiting for the server"));
}

TEST_F(Stop, WhileTheRegistryWaitsForItsTable) {
  MYSQLAUTH auth = m_server.Auth("vqcfg");
  CMysqlBase holder(&auth);
  ASSERT_EQ(0, holder.connectDB());
  ASSERT_EQ(0, holder.executeSQL("lock tables EnterpriseUser write", 0));
  RunningProgram program;
  program.Await("changed database not open: vqcfg");
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_LT(program.Stop(), milliseconds(5000));
}

TEST_F(Stop, WhileTheRegistryAsksAFrozenServer) {
  MYSQLAUTH auth = m_server.Auth("vqcfg");
  CMysqlBase holder(&auth);
  ASSERT_EQ(0, holder.connectDB());
  ASSERT_EQ(0, holder.executeSQL("lock tables EnterpriseUser write", 0));
  RunningProgram program;
  program.Await("changed database not open: vqcfg");
  const FrozenServer frozen(m_server);
  EXPECT_LT(program.Stop(), kSoon);
}

}  // namespace
