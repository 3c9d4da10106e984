#include "log/zux_center_log.h"

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>

#include "gtest/gtest.h"
#include "support/paths.h"
#include "testing/files.h"

namespace fs = std::filesystem;

// Makes calls, whose lines are in the file afterwards.
void Repeat(CLOGER& log, int calls) {
  for (int i = 0; i < calls; ++i) log("t", 1, kInfo, "x");
  log.reopenfile();
}

TEST(RunLog, DayAndSizeOfTheFileAreSeenAtEvery1000thCall) {
  fs::remove_all("/vqlog/log");
  CapturedStdout console;
  CLOGER log;
  log("dbinfo", 158, kError, "early %d", 1);
  setenv("TZ", "EAST-14", 1);
  tzset();
  log.Init();
  for (const int level : {0, 1, 2, 3, 4, 7, -1, -2}) log("u", 12, level, "level %d", level);
  std::thread other(Repeat, std::ref(log), 49'400);
  Repeat(log, 49'400);
  other.join();
  setenv("TZ", "WEST12", 1);  // 26 hours behind: another date at any time
  tzset();
  Repeat(log, 191);
  std::string expected =
      "[u:12 InfoLog]:level 0\n[u:12 AlarmLog]:level 1\n[u:12 ErrLog]:level 2\n"
      "[u:12 DebugLog]:level 3\n[u:12 RealtimeLog]:level 4\n[u:12 UnKnown]:level 7\n";
  for (int i = 0; i < 98'990; ++i) expected += "[t:1 InfoLog]:x\n";
  const std::regex time("\\]\\[[0-2]\\d:[0-5]\\d:[0-6]\\d\\]\\[");
  const auto names = ListFolder(paths::kRunLogDir);  // the new date is the smaller one
  EXPECT_EQ(std::regex_replace(ReadFile(paths::kRunLogDir + names.at(1)), time, " "), expected);

  const std::string path = paths::kRunLogDir + names[0];
  const std::size_t line = fs::file_size(path);
  for (const unsigned excess : {0U, 1U, 1U}) {
    fs::resize_file(path, CLOGER::kMaxFileSize - 999 * line + excess);
    log.reopenfile();
    Repeat(log, 1000);
    EXPECT_EQ(fs::file_size(path), line + (excess == 0 ? CLOGER::kMaxFileSize : 0));
  }
  EXPECT_EQ(fs::file_size(path + ".bak"), CLOGER::kMaxFileSize + 1U);
  EXPECT_EQ(Format("%10239d", 7), std::string(10238, ' '));
  EXPECT_EQ(console.text(), "[dbinfo:158]<2>:early 1\n[u:12]<-1>:level -1\n[u:12]<-2>:level -2\n");
}

TEST(RunLog, ExpiryKeepsTheLast60Names) {
  for (const unsigned count : {1U, 30U, 31U, 59U, 60U, 61U, 65U}) {
    fs::remove_all(paths::kRunLogDir);
    for (unsigned i = 0; i < count; ++i) WriteFile(Format("%s%08u.log", paths::kRunLogDir, i), "");
    CLOGER().rmexpirelog();
    const auto names = ListFolder(paths::kRunLogDir);
    EXPECT_EQ(names.size(), std::min(count, 60U));
    EXPECT_EQ(names.at(0), Format("%08u.log", std::max(count, 60U) - 60));
  }
}
