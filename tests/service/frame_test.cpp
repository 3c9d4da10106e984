// The program as a process: options, lock, signals, daemon; the modes of what it makes, and what it
// puts back while it runs.
#include <sys/stat.h>

#include "service/program_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

using Frame = ProgramTest;

TEST_F(Frame, EndsWithoutSettingsWhateverItIsAsked) {
  fs::remove(paths::kSettingsFile);
  EXPECT_EQ(Shell("$M -v"), "[dbinfo:158]<2>:dbinfo.readConfig(" +
                                std::string(paths::kSettingsFile) + ") error. exit\n1\n");
}

TEST_F(Frame, AnswersTheVersionAndTakesNoLock) {
  EXPECT_THAT(Shell("$M -v && $M -app x -verbose"),
              testing::MatchesRegex("(midtable, version 1.0\nauthor: [^\n]+\nhistory:\n"
                                    "build date : Jan 28 2013\n\n){2}0\n"));
  EXPECT_FALSE(fs::exists(paths::kLockFile));
}

TEST_F(Frame, NeverTakesTheLockFileForItsStandardOutput) {
  EXPECT_EQ(Shell("timeout -s KILL 1 $M -app >&-; wc -c </tmp/midtable.lock"), "0\n0\n");
  fs::remove(paths::kLockFile);
}

TEST_F(Frame, StopsOnSigintOnly) {
  StartAndAwait("no file to load");  // lines reach a file as they are written
  Send("TERM PIPE");
  const std::string out = Stop();
  EXPECT_THAT(out, HasSubstr("[main:12]<-1>:Recv signal:2 ... \n"));
  EXPECT_THAT(out, Not(HasSubstr("signal:15")));
  EXPECT_THAT(out, Not(HasSubstr("daemon")));
}

TEST_F(Frame, LeavesFilesAloneWhereTheServerCannotProveWhoItIs) {
  WriteFile("/tmp/client.cnf", "[midtable]\nssl\n");
  Shell(std::string("echo '\nclient_options=/tmp/client.cnf' >>") + paths::kSettingsFile);
  const std::string file =
      paths::kSpool + std::string("1a2b3c4d/1a2b3c4d-MEM_20121231_1000A-20121231-100000.dat");
  WriteFile(file, "1\n");
  StartAndAwait("connect db err reason connect failed, error:TLS/SSL error: .*; ");
  Eventually("! pidof midtable");
  EXPECT_TRUE(fs::exists(file));
}

// --- in the background

class Daemon : public ProgramTest {
 protected:
  static void Start() {
    Shell("$M");
    Eventually("grep starting $L/*.log");
  }
};

// The daemon's parent must leave the pipe, or its reader would wait for the daemon's end.
class DaemonsOutput : public Daemon, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(IntoFileAndPipe, DaemonsOutput,
                         testing::Values("$M >/tmp/out && cat /tmp/out", "$M"));

TEST_P(DaemonsOutput, IsOneLineBeforeItDetachesAndStopsOnSigint) {
  EXPECT_EQ(Shell(GetParam()), "start daemon OK\n0\n");
  Eventually("test -e $L/*.log");
  Eventually("test $(pidof midtable | wc -w) -eq 1");  // its parent may still be ending
  EXPECT_EQ(Shell("cd /proc/$(pidof midtable) && readlink cwd fd/1 && grep Umask status"),
            "/\n/dev/null\nUmask:\t0000\n0\n");
  Send("HUP ABRT PIPE TERM INT");
  Eventually("! pidof midtable");
  EXPECT_THAT(Shell("cat $L/*.log"), HasSubstr("[InfoLog]:make mid table service is starting\n"));
}

class DaemonsModes : public Daemon, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Umask, DaemonsModes, testing::Values("0", "022", "077"));

TEST_P(DaemonsModes, AreTheSameWhateverTheUmask) {
  Shell(std::string("umask ") + GetParam() + "; $M");
  Eventually("test -e $L/*.log -a -e /tmp/midtable.lock");
  EXPECT_EQ(Shell("stat -c %a /vqlog/log $L $L/*.log /tmp/midtable.lock"),
            "750\n750\n640\n644\n0\n");
}

TEST_F(Daemon, TellsTheRunLogWhatIsInPlaceOfTheLock) {
  EXPECT_EQ(mkfifo(paths::kLockFile, 0666), 0);
  Shell("$M");
  Eventually("grep \"ErrLog.:lock file /tmp/midtable.lock is not a regular file\" $L/*.log");
  fs::remove(paths::kLockFile);
}

TEST_F(Daemon, HasItsLinesInTheFileWhenItIsIdle) {
  Start();
  Eventually("grep \"no file to load\" $L/*.log");
}

TEST_F(Daemon, PutsARemovedRunLogBack) {
  Start();
  fs::remove_all("/vqlog/log");
  Eventually("grep \"AlarmLog.:run log was out of reach (No such file\" $L/*.log");
  EXPECT_EQ(Shell("stat -c %a /vqlog/log $L $L/*.log"), "750\n750\n640\n0\n");
}

TEST_F(Daemon, PutsARemovedLockBackAndIsStillTheOnlyOne) {
  Start();
  fs::remove(paths::kLockFile);
  Eventually("test -e /tmp/midtable.lock");
  EXPECT_EQ(Shell("$M -app"), "\nanother process maybe running exit!\n1\n");
  EXPECT_TRUE(fs::exists(paths::kLockFile)) << "the other one leaves it";
  Eventually("grep \"AlarmLog.:lock file .* was removed and is put back\" $L/*.log");
}

TEST_F(Daemon, TellsNobodyThePassword) {
  m_server.MakeUser("quiet", "'Unheard-Of'", "grant all on *.* to quiet");
  Shell(std::string("sed -i 's/=midtable/=quiet/; s/=secret/=Unheard-Of/' ") +
        paths::kSettingsFile);
  Shell("$M >/tmp/out 2>&1");
  Eventually("grep \"no file to load\" $L/*.log");
  const std::string all = Shell("cat /proc/$(pidof midtable)/cmdline $L/*.log /tmp/out");
  EXPECT_THAT(all, HasSubstr("starting"));
  EXPECT_THAT(all, Not(HasSubstr("Unheard-Of")));
}

}  // namespace
