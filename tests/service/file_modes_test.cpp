// The program as a process: the modes of what it makes, what it refuses to write to, and what it
// puts back while it runs.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "gmock/gmock.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

// What a shell prints for commands, in which $M is the program and $L the run log's folder, and for
// the last one's status.
std::string Shell(const std::string& commands) {
  const std::string names = "M=" MIDTABLE_PROGRAM "; L=/vqlog/log/midtable; ";
  std::FILE* const pipe = popen((names + commands + "; echo $?").c_str(), "re");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  pclose(pipe);
  return text;
}

// Whether a shell command succeeds within 30 seconds.
bool Soon(const std::string& command) {
  const std::string loop = "until " + command + "; do sleep 0.05; done";
  return Shell("export L; timeout 30 sh -c '" + loop + "' >/dev/null 2>&1") == "0\n";
}

void Stop() {
  Shell("pid=$(pidof midtable) && kill -INT $pid");
  EXPECT_TRUE(Soon("! pidof midtable"));
}

class Frame : public testing::Test {
 protected:
  Frame() {
    fs::remove_all("/vqlog/log");
    WriteFile(paths::kSettingsFile, "host=127.0.0.1\nport=1\nuser=u\npassword=p");
  }
  ~Frame() override {
    Stop();
    fs::remove_all(paths::kLockFile);
  }
};

TEST_F(Frame, ADaemonTellsTheRunLogWhatIsInPlaceOfTheLock) {
  EXPECT_EQ(mkfifo(paths::kLockFile, 0666), 0);
  Shell("$M");
  EXPECT_TRUE(Soon("grep \"ErrLog.:lock file /tmp/midtable.lock is not a regular file\" $L/*.log"));
}

class Daemon : public Frame {
 protected:
  Daemon() {
    const MYSQLAUTH auth = MariadbServer::Get().Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password);
    fs::create_directories(paths::kSpool);
  }
  static void Start() {
    Shell("$M");
    EXPECT_TRUE(Soon("grep starting $L/*.log"));
  }
};

class DaemonModes : public Daemon, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Umask, DaemonModes, testing::Values("0", "022", "077"));

TEST_P(DaemonModes, AreTheSameWhateverTheUmask) {
  Shell(std::string("umask ") + GetParam() + "; $M");
  EXPECT_TRUE(Soon("test -e $L/*.log -a -e /tmp/midtable.lock"));
  EXPECT_EQ(Shell("stat -c %a /vqlog/log $L $L/*.log /tmp/midtable.lock"),
            "750\n750\n640\n644\n0\n");
}

TEST_F(Daemon, HasItsLinesInTheFileWhenItIsIdle) {
  Start();
  EXPECT_TRUE(Soon("grep \"no file to load\" $L/*.log"));
}

TEST_F(Daemon, PutsARemovedRunLogBack) {
  Start();
  fs::remove_all("/vqlog/log");
  EXPECT_TRUE(Soon("grep \"AlarmLog.:run log was out of reach (No such file\" $L/*.log"));
  EXPECT_EQ(Shell("stat -c %a /vqlog/log $L $L/*.log"), "750\n750\n640\n0\n");
}

TEST_F(Daemon, PutsARemovedLockBackAndIsStillTheOnlyOne) {
  Start();
  fs::remove(paths::kLockFile);
  EXPECT_TRUE(Soon("test -e /tmp/midtable.lock"));
  EXPECT_EQ(Shell("$M -app"), "\nanother process maybe running exit!\n1\n");
  EXPECT_TRUE(Soon("grep \"AlarmLog.:lock file .* was removed and is put back\" $L/*.log"));
}

}  // namespace
