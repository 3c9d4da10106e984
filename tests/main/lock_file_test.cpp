// The lock file: what is refused in its place, who removes it, and how it comes back.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "gmock/gmock.h"
#include "main/service.h"
#include "support/paths.h"
#include "testing/run_log.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kLock = paths::kLockFile;
const std::string kPutBack = "<1>:lock file /tmp/midtable.lock was removed and is put back";

// An instance in a process of its own, since a process is never in the way of its own locks. It is
// killed with this object, and leaves the lock file then.
class OtherInstance {
 public:
  // Returns when the instance has taken the lock, or has failed to.
  OtherInstance() {
    int answer[2];
    EXPECT_EQ(pipe(answer), 0);
    m_process = fork();
    if (m_process == 0) {
      CCheckUnique unique;
      const bool has_lock = unique.check_unique();
      if (write(answer[1], &has_lock, 1) == 1) pause();
      _exit(1);
    }
    EXPECT_EQ(read(answer[0], &m_has_lock, 1), 1);
    for (const int end : answer) close(end);
  }
  ~OtherInstance() {
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
  }
  OtherInstance(const OtherInstance&) = delete;
  OtherInstance& operator=(const OtherInstance&) = delete;

  bool HasLock() const { return m_has_lock; }

 private:
  pid_t m_process = 0;
  bool m_has_lock = false;
};

class LockFile : public testing::Test {
 protected:
  LockFile() { fs::remove_all(kLock); }
  ~LockFile() override { fs::remove_all(kLock); }

  Lines Renewed() {
    return LogOf([this] { m_unique.Renew(); });
  }

  CCheckUnique m_unique;
};

TEST_F(LockFile, IsRefusedWithAClearLineWhereItIsNoRegularFile) {
  const std::pair<int, std::function<void()>> obstacles[] = {
      {ELOOP, [] { fs::create_symlink("/tmp/nothing", kLock); }},
      {ELOOP, [] { fs::create_symlink(paths::kSettingsFile, kLock); }},
      {ENXIO, [] { mkfifo(kLock.c_str(), 0666); }},
      {EISDIR, [] { fs::create_directory(kLock); }}};
  WriteFile(paths::kSettingsFile, "");
  for (const auto& [error, put] : obstacles) {
    fs::remove(kLock);
    put();
    CapturedStdout out;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(m_unique.check_unique());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "midtable: lock file /tmp/midtable.lock is not a regular file\n");
    EXPECT_EQ(out.text(), "open file /tmp/midtable.lock failed errno " + std::to_string(error));
  }
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
  EXPECT_THAT(Renewed(), ElementsAre(kPutBack));
  EXPECT_TRUE(fs::exists(kLock));
  EXPECT_FALSE(OtherInstance().HasLock());
  EXPECT_THAT(Renewed(), IsEmpty());
}

TEST_F(LockFile, ThatAnotherInstanceTookMeanwhileIsToldAndLeftToIt) {
  EXPECT_TRUE(m_unique.check_unique());
  fs::remove(kLock);
  {
    const OtherInstance other;
    EXPECT_TRUE(other.HasLock());
    EXPECT_THAT(Renewed(), ElementsAre(testing::EndsWith("it is held by another instance")));
    EXPECT_THAT(Renewed(), IsEmpty()) << "told once";
  }
  fs::remove(kLock);
  EXPECT_THAT(Renewed(), ElementsAre(kPutBack));
}

}  // namespace
