// The files of the run log: what is refused in their place, what is deleted.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "support/paths.h"
#include "testing/files.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

TEST(RunLogFile, IsRefusedWithAClearLineWhereItIsNoRegularFile) {
  const std::string target = "/tmp/target";
  char date[24];
  CLOGER::updatedate(date);
  const std::string path = paths::kRunLogDir + std::string(date) + ".log";
  const std::function<void()> obstacles[] = {[&] { fs::create_symlink(target, path); },
                                             [&] { mkfifo(path.c_str(), 0666); },
                                             [&] { fs::create_directory(path); }};
  for (const auto& put : obstacles) {
    fs::remove_all(paths::kRunLogDir);
    fs::create_directories(paths::kRunLogDir);
    WriteFile(target, "not the log's");
    put();
    CapturedStdout console;
    {
      CLOGER log;  // whose end writes out what is buffered
      log.Init();
      log("u", 1, kError, "on the console");
    }
    const std::string text = console.text();
    EXPECT_THAT(text, testing::StartsWith("error open file errno "));
    EXPECT_THAT(text, HasSubstr("\nrun log " + path + " is not a regular file\n"));
    EXPECT_THAT(text, HasSubstr("[u:1]<2>:on the console\n"));
    EXPECT_EQ(ReadFile(target), "not the log's");
  }
}

// Deletes by exact names, and in the log's folder only: not what a shell would read out of a name.
TEST(Expiry, KeepsTheLast60LogsAndAllNamesThatAreNotTheLogs) {
  const char* const names[] = {"0",
                               "0 victim",
                               "0000000.log",
                               "000000000.log",
                               "0000000a.log",
                               "00000000.log.gz",
                               "00000000.log.bak.bak",
                               "00000000.LOG",
                               "00000000.log ",
                               "00000000.log\n00000001.log"};
  const std::string folder = paths::kRunLogDir;
  fs::remove_all(folder);
  for (int i = 0; i < 63; ++i) WriteFile(folder + Format("%08d.log", 20120100 + i), "");
  for (const char* name : names) WriteFile(folder + name, "");
  WriteFile("/tmp/victim", "");
  fs::current_path("/tmp");
  CLOGER().rmexpirelog();
  for (const char* name : names) EXPECT_TRUE(fs::exists(folder + name)) << name;
  EXPECT_FALSE(fs::exists(folder + "20120102.log"));
  EXPECT_TRUE(fs::exists(folder + "20120103.log"));
  EXPECT_EQ(ListFolder(folder).size(), 60 + std::size(names));
  EXPECT_TRUE(fs::exists("/tmp/victim"));
}

}  // namespace
