// The files of the run log: who may read them, what is refused in their place, what is deleted.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "support/file.h"
#include "support/paths.h"
#include "testing/files.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

unsigned ModeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

class Modes : public testing::TestWithParam<mode_t> {
 protected:
  Modes() : m_before(umask(GetParam())) { fs::remove_all("/vqlog/log"); }
  ~Modes() override { umask(m_before); }

  const mode_t m_before;
};
INSTANTIATE_TEST_SUITE_P(Umask, Modes, testing::Values(0, 022, 077));

TEST_P(Modes, OfWhatTheLogMakesAreTheSameWhateverTheUmask) {
  CLOGER().Init();
  EXPECT_EQ(ModeOf("/vqlog/log"), 0750U);
  EXPECT_EQ(ModeOf(paths::kRunLogDir), 0750U);
  EXPECT_EQ(ModeOf(paths::kRunLogDir + ListFolder(paths::kRunLogDir).at(0)), 0640U);
}

// What somebody may have put in the place of today's file.
struct Obstacle {
  const char* name;
  std::function<void(const char* path)> put;
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }

constexpr char kTarget[] = "/tmp/target";

const Obstacle kObstacles[] = {
    {"Link", [](const char* path) { fs::create_symlink(kTarget, path); }},
    {"Pipe", [](const char* path) { mkfifo(path, 0666); }},
    {"Folder", [](const char* path) { fs::create_directory(path); }},
};

class InThePlaceOfTheFile : public testing::Test {
 protected:
  InThePlaceOfTheFile() {
    fs::remove_all(paths::kRunLogDir);
    char date[24];
    CLOGER::updatedate(date);
    m_path = Format("%s%s.log", paths::kRunLogDir, date);
    fs::create_directories(paths::kRunLogDir);
  }
  ~InThePlaceOfTheFile() override {
    fs::remove_all(paths::kRunLogDir);
    fs::remove(kTarget);
  }

  std::string m_path;
  CLOGER m_log;
};

class Obstacles : public InThePlaceOfTheFile, public testing::WithParamInterface<Obstacle> {};
INSTANTIATE_TEST_SUITE_P(Each, Obstacles, testing::ValuesIn(kObstacles),
                         [](const auto& each) { return each.param.name; });

TEST_P(Obstacles, AreRefusedWithAClearLineAndLinesGoToTheConsole) {
  GetParam().put(m_path.c_str());
  CapturedStdout console;
  m_log.Init();
  m_log("u", 1, kError, "on the console");
  const std::string text = console.text();
  EXPECT_THAT(text, testing::StartsWith("error open file errno "));
  EXPECT_THAT(text, HasSubstr("\nrun log " + m_path + " is not a regular file\n"));
  EXPECT_THAT(text, HasSubstr("[u:1]<2>:on the console\n"));
}

TEST_F(InThePlaceOfTheFile, ALinkIsNotFollowed) {
  WriteFile(kTarget, "not the log's");
  fs::create_symlink(kTarget, m_path);
  CapturedStdout console;
  {
    CLOGER log;  // whose end writes out what is buffered
    log.Init();
    log("u", 1, kInfo, "x");
  }
  EXPECT_EQ(ReadFile(kTarget), "not the log's");
}

class Expiry : public testing::Test {
 protected:
  Expiry() {
    fs::remove_all(paths::kRunLogDir);
    fs::create_directories(paths::kRunLogDir);
  }
  // As many run logs as are kept, and `more` older ones.
  static void MakeLogs(int more) {
    for (int i = 0; i < 60 + more; ++i) Make(Format("%08d.log", 20120100 + i));
  }
  static void Make(const std::string& name) { WriteFile(paths::kRunLogDir + name, ""); }
  static bool IsThere(const std::string& name) { return fs::exists(paths::kRunLogDir + name); }
};

TEST_F(Expiry, NeitherCountsNorDeletesNamesThatAreNotTheLogs) {
  const char* const names[] = {"0",
                               "00000000",
                               "0000000.log",
                               "000000000.log",
                               "0000000a.log",
                               "00000000.log.gz",
                               "00000000.log.log",
                               "00000000.log.bak.bak",
                               "00000000.logx.log",
                               "00000000.LOG",
                               " 0000000.log",
                               "00000000.log ",
                               "00000000.log\n00000001.log"};
  MakeLogs(1);
  for (const char* name : names) Make(name);
  CLOGER().rmexpirelog();
  for (const char* name : names) EXPECT_TRUE(IsThere(name)) << name;
  EXPECT_FALSE(IsThere("20120100.log"));
  EXPECT_TRUE(IsThere("20120101.log"));
}

TEST_F(Expiry, DeletesNothingElsewhereForANameWithABlank) {
  MakeLogs(1);
  fs::current_path("/tmp");
  WriteFile("/tmp/victim", "");
  Make("0 victim");
  CLOGER().rmexpirelog();
  EXPECT_TRUE(fs::exists("/tmp/victim"));
}

}  // namespace
