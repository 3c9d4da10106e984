// The lock file: its mode, what is refused in its place, who removes it, and how it comes back.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "gmock/gmock.h"
#include "main/service.h"
#include "support/file.h"
#include "support/paths.h"
#include "testing/files.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kLock = paths::kLockFile;
constexpr char kTarget[] = "/tmp/target";

// An instance in a process of its own, since a process is never in the way of its own locks.
class OtherInstance {
 public:
  // Returns when the instance has taken the lock, or has failed to.
  OtherInstance() {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const FileDescriptor in(ready[0]);
    FileDescriptor out(ready[1]);
    m_process = fork();
    if (m_process == 0) Live(out.get());
    out.reset(-1);
    char answer = 'n';
    EXPECT_EQ(read(in.get(), &answer, 1), 1);
    m_has_lock = answer == 'y';
  }
  ~OtherInstance() { Kill(); }
  OtherInstance(const OtherInstance&) = delete;
  OtherInstance& operator=(const OtherInstance&) = delete;

  bool HasLock() const { return m_has_lock; }
  void Stop() { End(SIGINT); }   // as the service stops
  void Kill() { End(SIGKILL); }  // leaves the lock file

 private:
  [[noreturn]] static void Live(int ready) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    {
      CCheckUnique unique;
      const char answer = unique.check_unique() ? 'y' : 'n';
      if (write(ready, &answer, 1) != 1) _exit(1);
      int caught = 0;
      sigwait(&stop, &caught);
    }
    _exit(0);
  }
  void End(int sig) {
    if (m_process <= 0) return;
    kill(m_process, sig);
    waitpid(m_process, nullptr, 0);
    m_process = 0;
  }

  pid_t m_process = 0;
  bool m_has_lock = false;
};

// The log's lines, which are on standard output as long as no file is open.
std::string LogOf(const std::function<void()>& action) {
  CapturedStdout out;
  action();
  return out.text();
}

class LockFile : public testing::Test {
 protected:
  LockFile() { fs::remove_all(kLock); }
  ~LockFile() override {
    fs::remove_all(kLock);
    fs::remove(kTarget);
  }

  std::string Renewed() {
    return LogOf([this] { m_unique.Renew(); });
  }

  CCheckUnique m_unique;
};

class LockFileMode : public LockFile, public testing::WithParamInterface<mode_t> {};
INSTANTIATE_TEST_SUITE_P(Umask, LockFileMode, testing::Values(0, 022, 077));

TEST_P(LockFileMode, Is0644WhateverTheUmask) {
  const mode_t before = umask(GetParam());
  EXPECT_TRUE(m_unique.check_unique());
  umask(before);
  struct stat status {};
  EXPECT_EQ(stat(kLock.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

// What somebody may have put in the place of the lock file.
struct Obstacle {
  const char* name;
  int error;
  void (*put)();
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }

class Obstacles : public LockFile, public testing::WithParamInterface<Obstacle> {};
INSTANTIATE_TEST_SUITE_P(
    Each, Obstacles,
    testing::Values(Obstacle{"LinkToAFile", ELOOP,
                             [] {
                               WriteFile(kTarget, "");
                               fs::create_symlink(kTarget, kLock);
                             }},
                    Obstacle{"LinkToNothing", ELOOP, [] { fs::create_symlink(kTarget, kLock); }},
                    Obstacle{"Pipe", ENXIO, [] { mkfifo(kLock.c_str(), 0666); }},
                    Obstacle{"Folder", EISDIR, [] { fs::create_directory(kLock); }}),
    [](const auto& each) { return each.param.name; });

TEST_P(Obstacles, AreRefusedWithAClearLine) {
  GetParam().put();
  alarm(60);  // ends the program, should a pipe hold it
  CapturedStdout out;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(m_unique.check_unique());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "midtable: lock file /tmp/midtable.lock is not a regular file\n");
  EXPECT_EQ(out.text(),
            "open file /tmp/midtable.lock failed errno " + std::to_string(GetParam().error));
  alarm(0);
}

TEST_F(LockFile, IsRemovedAtTheEnd) {
  { EXPECT_TRUE(CCheckUnique().check_unique()); }
  EXPECT_FALSE(fs::exists(kLock));
}

TEST_F(LockFile, OfSomebodyElseStaysAtTheEnd) {
  {
    CCheckUnique unique;
    EXPECT_TRUE(unique.check_unique());
    fs::remove(kLock);
    WriteFile(kLock, "");
  }
  EXPECT_TRUE(fs::exists(kLock));
}

TEST_F(LockFile, ThatWasRemovedIsPutBackLocked) {
  EXPECT_TRUE(m_unique.check_unique());
  fs::remove(kLock);
  EXPECT_THAT(Renewed(), HasSubstr("<1>:lock file /tmp/midtable.lock was removed and is put back"));
  EXPECT_TRUE(fs::exists(kLock));
  EXPECT_FALSE(OtherInstance().HasLock());
  EXPECT_THAT(Renewed(), IsEmpty());
}

TEST_F(LockFile, ThatAnotherInstanceTookMeanwhileIsToldAndLeftToIt) {
  EXPECT_TRUE(m_unique.check_unique());
  fs::remove(kLock);
  OtherInstance other;
  EXPECT_TRUE(other.HasLock());
  EXPECT_THAT(Renewed(), HasSubstr("put back, it is held by another instance\n"));
  EXPECT_THAT(Renewed(), IsEmpty()) << "told once";
  other.Stop();
  EXPECT_THAT(Renewed(), HasSubstr("was removed and is put back"));
}

}  // namespace
