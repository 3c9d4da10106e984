#include "log/zux_center_log.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>

#include "gtest/gtest.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"

namespace fs = std::filesystem;

constexpr std::size_t kLine = sizeof "[t:1][00:00:00][InfoLog]:x";

// The file of the day that it is now in `zone`.
std::string PathIn(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
  char date[24];
  CLOGER::updatedate(date);
  return paths::kRunLogDir + std::string(date) + ".log";
}

void Repeat(CLOGER& log, int calls) {
  for (int i = 0; i < calls; ++i) log("t", 1, kInfo, "x");
}

// Opens the log, moves to `zone` and makes `calls` calls.
void Write(const char* zone, int calls) {
  CLOGER log;
  log.Init();
  PathIn(zone);
  Repeat(log, calls);
}

struct RunLog : testing::Test {
  RunLog() { fs::remove_all("/vqlog/log"); }
  const std::string m_path = PathIn("UTC0");
};

TEST_F(RunLog, ExpiryKeepsTheLast60Names) {
  signal(SIGCHLD, SIG_IGN);  // as in the service
  for (const std::size_t count : {0U, 30U, 31U, 59U, 60U, 61U, 65U}) {
    fs::remove_all(paths::kRunLogDir);
    std::vector<std::string> names;
    for (unsigned i = 0; i < count; ++i) {
      names.push_back(Format("2012%04u.log%s", i / 2, i % 2 == 0 ? "" : ".bak"));
      WriteFile(paths::kRunLogDir + names.back(), "");
    }
    CLOGER().rmexpirelog();
    if (count > 60) names.erase(names.begin(), names.end() - 60);
    EXPECT_EQ(ListFolder(paths::kRunLogDir), names) << count;
  }
}

TEST_F(RunLog, NewDayIsSeenAtThe1000thCall) {
  const std::string old_day = PathIn("EAST-14");
  Write("WEST12", 1000);  // 26 hours behind: another date at any time
  EXPECT_EQ(ReadFile(old_day).size(), 999 * kLine);
  EXPECT_EQ(ReadFile(PathIn("WEST12")).size(), kLine);
}

TEST_F(RunLog, FileAboveTheLimitReplacesTheBak) {
  for (const auto& [mark, excess] : {std::pair("kept", 0), {"first", 1}, {"second", 1}}) {
    WriteFile(m_path, mark);
    fs::resize_file(m_path, CLOGER::kMaxFileSize - 999 * kLine + static_cast<unsigned>(excess));
    Write("UTC0", 1000);
    EXPECT_TRUE(ReadFile(m_path + (excess == 0 ? "" : ".bak")).starts_with(mark));
    EXPECT_EQ(fs::file_size(m_path) == kLine, excess == 1);
  }
}

TEST_F(RunLog, LinesGoToTheFileOrToTheConsole) {
  CLOGER log;
  CapturedStdout console;
  log("dbinfo", 158, kError, "early %d", 1);
  log.Init();
  for (const int level : {1, 4, 7, -1, -2}) log("u", 12, level, "%s %d", "level", level);
  g_debug = 1;
  log("u", 12, kAlarm, "debugging");
  g_debug = 0;
  fs::remove_all("/vqlog/log");
  WriteFile("/vqlog/log", "no folder");
  log.Init();
  log("u", 1, kError, "still seen");
  EXPECT_EQ(console.text(),
            "[dbinfo:158]<2>:early 1\n[u:12]<-1>:level -1\n[u:12]<-2>:level -2\n"
            "[u:12]<1>:debugging\nerror open file errno 20[u:1]<2>:still seen\n");
}

TEST_F(RunLog, ThreadsNeverMixFileLines) {
  std::string expected =
      "[u:12 InfoLog]:level 0\n[u:12 AlarmLog]:level 1\n[u:12 ErrLog]:level 2\n"
      "[u:12 DebugLog]:level 3\n[u:12 RealtimeLog]:level 4\n[u:12 UnKnown]:level 7\n";
  for (int i = 0; i < 3000; ++i) expected += "[t:1 InfoLog]:x\n";
  {
    CLOGER log;
    log.Init();
    for (const int level : {0, 1, 2, 3, 4, 7}) log("u", 12, level, "%s %d", "level", level);
    const std::jthread other([&] { Repeat(log, 1500); });
    Repeat(log, 1500);
  }
  const std::regex time("\\]\\[[0-2]\\d:[0-5]\\d:[0-6]\\d\\]\\[");
  EXPECT_EQ(std::regex_replace(ReadFile(m_path), time, " "), expected);
}

TEST(FormatText, IsCutTo10238Characters) {
  for (const int size : {10238, 10239, 20000}) EXPECT_EQ(Format("%*d", size, 1).size(), 10238U);
}
