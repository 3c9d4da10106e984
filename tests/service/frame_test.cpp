// The program as a process: options, lock, signals, daemon.
#include <cstdio>
#include <filesystem>
#include <thread>

#include "gmock/gmock.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

const std::string kSecond = "\nanother process maybe running exit!\n1\n";

// What a shell prints for commands, in which $M is the program, and for the last one's status.
std::string Shell(const std::string& commands) {
  std::FILE* const pipe = popen(("M=" MIDTABLE_PROGRAM ";" + commands + ";echo $?").c_str(), "re");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  pclose(pipe);
  return text;
}

void Eventually(const std::string& command) {
  const std::string loop = "until " + command + " >/dev/null; do sleep 0.05; done";
  EXPECT_EQ(Shell("timeout 30 sh -c '" + loop + "'"), "0\n") << command;
}

void Send(const std::string& signals) {
  const std::string loop = "for s in " + signals + "; do kill -$s $(pidof midtable) || exit; done";
  EXPECT_EQ(Shell(loop), "0\n") << signals;
}

TEST(Frame, EndsWithoutSettingsWhateverItIsAsked) {
  fs::remove(paths::kSettingsFile);
  EXPECT_EQ(Shell("$M -v"), "[dbinfo:158]<2>:dbinfo.readConfig(" +
                                std::string(paths::kSettingsFile) + ") error. exit\n1\n");
}

TEST(Frame, AnswersTheVersionAndTakesNoLock) {
  WriteFile(paths::kSettingsFile, "host=h");
  EXPECT_THAT(Shell("$M -v && $M -app x -verbose"),
              testing::MatchesRegex("(midtable, version 1.0\nauthor: [^\n]+\nhistory:\n"
                                    "build date : Jan 28 2013\n\n){2}0\n"));
  EXPECT_FALSE(fs::exists(paths::kLockFile));
}

TEST(Frame, EndsWhereItsLockFileCannotBeOpened) {
  WriteFile(paths::kSettingsFile, "host=h");
  fs::create_directory(paths::kLockFile);
  EXPECT_EQ(Shell("$M -app"), "open file /tmp/midtable.lock failed errno 21" + kSecond);
  fs::remove(paths::kLockFile);
}

class FrameWithServer : public testing::Test {
 protected:
  FrameWithServer() {
    const MYSQLAUTH auth = MariadbServer::Get().Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password);
    fs::create_directories(paths::kSpool);
    fs::remove("/tmp/out");  // what an earlier case waited for there
  }
  ~FrameWithServer() override { EXPECT_FALSE(fs::exists(paths::kLockFile)); }
};

TEST_F(FrameWithServer, NeverTakesTheLockFileForItsStandardOutput) {
  EXPECT_EQ(Shell("timeout -s KILL 1 $M -app >&-; wc -c </tmp/midtable.lock"), "0\n0\n");
  fs::remove(paths::kLockFile);
}

class ForegroundFrame : public FrameWithServer {
 protected:
  ForegroundFrame() {
    Eventually("grep \"no file to load\" /tmp/out");  // lines reach a file as they are written
  }
  void Stop() {
    Send("INT");
    m_service.join();
  }
  std::thread m_service{[] { EXPECT_EQ(Shell("$M -apple debug=1 >/tmp/out"), "0\n"); }};
};

TEST_F(ForegroundFrame, StopsOnSigintOnly) {
  Send("TERM PIPE");
  Stop();
  const std::string out = ReadFile("/tmp/out");
  EXPECT_THAT(out, HasSubstr("[main:12]<-1>:Recv signal:2 ... \n"));
  EXPECT_THAT(out, Not(HasSubstr("signal:15")));
  EXPECT_THAT(out, Not(HasSubstr("daemon")));
}

TEST_F(ForegroundFrame, LetsNoSecondOneRun) {
  EXPECT_EQ(Shell("$M -app"), kSecond);
  EXPECT_TRUE(fs::exists(paths::kLockFile));
  Stop();
}

// The daemon's parent must leave the pipe, or its reader would wait for the daemon's end.
class Daemon : public FrameWithServer, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(IntoFileAndPipe, Daemon,
                         testing::Values("$M >/tmp/out && cat /tmp/out", "$M"));

TEST_P(Daemon, DetachesWithOneLineAndStopsOnSigint) {
  fs::remove_all(paths::kRunLogDir);
  EXPECT_EQ(Shell(GetParam()), "start daemon OK\n0\n");
  Eventually("test -e /vqlog/log/midtable/*.log");
  Eventually("test $(pidof midtable | wc -w) -eq 1");  // its parent may still be ending
  EXPECT_EQ(Shell("cd /proc/$(pidof midtable) && readlink cwd fd/1 && grep Umask status"),
            "/\n/dev/null\nUmask:\t0000\n0\n");
  Send("HUP ABRT PIPE TERM INT");
  Eventually("! pidof midtable");
  EXPECT_THAT(Shell("cat /vqlog/log/midtable/*.log"),
              HasSubstr("[InfoLog]:make mid table service is starting\n"));
}
