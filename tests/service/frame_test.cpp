#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include "gmock/gmock.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;
using testing::AnyOf, testing::HasSubstr, testing::MatchesRegex, testing::Not;

constexpr char kOut[] = "/tmp/out";
constexpr char kNoSettings[] =
    "[dbinfo:158]<2>:dbinfo.readConfig(/virus/apache/rnweb/inc/dbinfo.conf) error. exit\n";
constexpr char kVersion[] =
    "midtable, version 1.0\nauthor: [^\n]+\nhistory:\nbuild date : Jan 28 2013\n\n";
constexpr char kSecond[] = "\nanother process maybe running exit!\n";

// Runs the program in a shell, its output in kOut, and gives its exit status.
int Midtable(const std::string& arguments) {
  const std::string command = std::string(MIDTABLE_PROGRAM " ") + arguments + " >" + kOut;
  return WEXITSTATUS(std::system(command.c_str()));
}

void Eventually(const char* what, const std::function<bool()>& holds) {
  for (int i = 0; i < 600 && !holds(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_TRUE(holds()) << what;
}

// The process that holds the lock file, or 0.
pid_t Holder() {
  const int fd = open(paths::kLockFile, O_RDWR);
  struct flock lock = {F_WRLCK, SEEK_SET, 0, 0, 0};
  const bool answered = fd != -1 && fcntl(fd, F_GETLK, &lock) == 0;
  close(fd);
  return answered && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

TEST(Frame, EndsWithoutSettingsThenAnswersTheVersionThenWantsItsLock) {
  EXPECT_EQ(Midtable("-v"), 1);
  EXPECT_EQ(ReadFile(kOut), kNoSettings);
  WriteFile(paths::kSettingsFile, "host=h\n\nport=1");
  EXPECT_EQ(Midtable("-app"), 1);
  EXPECT_EQ(ReadFile(kOut), kNoSettings);
  WriteFile(paths::kSettingsFile, "host=h");
  for (const char* arguments : {"-v", "-app x -verbose"}) {
    EXPECT_EQ(Midtable(arguments), 0);
    EXPECT_THAT(ReadFile(kOut), MatchesRegex(kVersion));
    EXPECT_FALSE(fs::exists(paths::kLockFile));
  }
  fs::create_directory(paths::kLockFile);
  EXPECT_EQ(Midtable("-app"), 1);
  EXPECT_EQ(ReadFile(kOut), std::string("open file /tmp/midtable.lock failed errno 21") + kSecond);
  fs::remove(paths::kLockFile);
}

void LaySettings() {
  const MYSQLAUTH auth = MariadbServer::Get().Auth();
  WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                      "\nuser=" + auth.user + "\npassword=" + auth.password);
  fs::create_directories(paths::kSpool);
}

TEST(RunningFrame, ForegroundStopsOnSigintOnly) {
  LaySettings();
  std::thread service([] { EXPECT_EQ(Midtable("-apple debug=1"), 0); });
  // Whole lines reach a file as they are written.
  Eventually("a pass", [] { return ReadFile(kOut).find("no file to load") != std::string::npos; });
  const pid_t pid = Holder();
  for (const int sig : {SIGTERM, SIGPIPE}) EXPECT_EQ(kill(pid, sig), 0);
  EXPECT_EQ(std::system((MIDTABLE_PROGRAM " -app >/tmp/second")), 1 << 8);
  EXPECT_EQ(ReadFile("/tmp/second"), kSecond);
  EXPECT_EQ(Holder(), pid);
  kill(pid, SIGINT);
  service.join();
  EXPECT_THAT(ReadFile(kOut), HasSubstr("[main:12]<-1>:Recv signal:2 ... \n"));
  EXPECT_THAT(ReadFile(kOut), Not(AnyOf(HasSubstr("signal:15"), HasSubstr("daemon"))));
  EXPECT_FALSE(fs::exists(paths::kLockFile));
}

TEST(RunningFrame, DetachesWithOneLineIntoFileAndPipe) {
  LaySettings();
  for (const char* output : {"", "| cat "}) {
    fs::remove_all(paths::kRunLogDir);
    EXPECT_EQ(Midtable(output), 0);
    EXPECT_EQ(ReadFile(kOut), "start daemon OK\n");
    Eventually("started", [&] { return !ListFolder(paths::kRunLogDir).empty(); });
    const pid_t pid = Holder();
    const std::string process = "/proc/" + std::to_string(pid);
    EXPECT_EQ(fs::read_symlink(process + "/cwd"), "/");
    EXPECT_EQ(fs::read_symlink(process + "/fd/1"), "/dev/null");
    EXPECT_THAT(ReadFile(process + "/status"), HasSubstr("Umask:\t0000\n"));
    for (const int sig : {SIGHUP, SIGABRT, SIGPIPE, SIGTERM}) EXPECT_EQ(kill(pid, sig), 0);
    kill(pid, SIGINT);
    Eventually("ended", [&] { return kill(pid, 0) != 0; });
    EXPECT_FALSE(fs::exists(paths::kLockFile));
    EXPECT_THAT(ReadFile(paths::kRunLogDir + ListFolder(paths::kRunLogDir).at(0)),
                HasSubstr("[InfoLog]:make mid table service is starting\n"));
  }
}
