#include "log/zux_center_log.h"

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>

#include "gtest/gtest.h"
#include "support/paths.h"
#include "testing/files.h"

namespace fs = std::filesystem;

void SetTimeZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

class RunLog : public testing::Test {
 protected:
  RunLog() {
    fs::remove_all(paths::kRunLogDir);
    SetTimeZone("EAST-14");
    m_log.Init();
    m_path = Files().at(0);
  }
  void Write(int lines) {
    for (int i = 0; i < lines; ++i) m_log("t", 1, kInfo, "x");
  }
  // The log's files in the order of their dates, with all that was written.
  std::vector<std::string> Files() {
    m_log.reopenfile();
    std::vector<std::string> paths = ListFolder(paths::kRunLogDir);
    for (std::string& path : paths) path.insert(0, paths::kRunLogDir);
    return paths;
  }
  // What the first file holds, with a blank in the place of each "][hh:mm:ss][".
  std::string WithoutTimes() {
    const std::regex time("\\]\\[[0-2]\\d:[0-5]\\d:[0-6]\\d\\]\\[");
    return std::regex_replace(ReadFile(Files().at(0)), time, " ");
  }
  // Writes 1000 lines. The check at the last one, which is written behind it, finds that size.
  void CheckAFileAboveTheLimitBy(unsigned excess) {
    fs::resize_file(m_path, CLOGER::kMaxFileSize - 999 * kLine + excess);
    m_log.reopenfile();
    Write(1000);
    m_log.reopenfile();
  }

  static constexpr std::size_t kLine = sizeof "[t:1][hh:mm:ss][InfoLog]:x\n" - 1;
  CLOGER m_log;
  std::string m_path;
};

TEST_F(RunLog, NamesTheLevelInTheFileAndSendsNegativeOnesToTheConsole) {
  CapturedStdout console;
  for (const int level : {0, 1, 2, 3, 4, 7, -1, -2}) m_log("u", 12, level, "level %d", level);
  EXPECT_EQ(console.text(), "[u:12]<-1>:level -1\n[u:12]<-2>:level -2\n");
  EXPECT_EQ(WithoutTimes(),
            "[u:12 InfoLog]:level 0\n[u:12 AlarmLog]:level 1\n[u:12 ErrLog]:level 2\n"
            "[u:12 DebugLog]:level 3\n[u:12 RealtimeLog]:level 4\n[u:12 UnKnown]:level 7\n");
}

TEST_F(RunLog, TakesWholeLinesFromTwoThreads) {
  std::thread other([this] { Write(50'000); });
  Write(50'000);
  other.join();
  std::string expected;
  for (int i = 0; i < 100'000; ++i) expected += "[t:1 InfoLog]:x\n";
  EXPECT_TRUE(WithoutTimes() == expected);
}

TEST_F(RunLog, LooksAtTheDateDeliberatelyAtEvery1000thCallOnly) {
  Write(1500);
  SetTimeZone("WEST12");  // 26 hours behind: another date at any time
  Write(499);
  EXPECT_EQ(Files(), std::vector{m_path});
  Write(1);
  EXPECT_EQ(Files().size(), 2U);
  EXPECT_EQ(WithoutTimes(), "[t:1 InfoLog]:x\n") << "in the file of the earlier date";
}

TEST_F(RunLog, GoesOnWithAFileAtTheLimit) {
  CheckAFileAboveTheLimitBy(0);
  EXPECT_EQ(fs::file_size(m_path), CLOGER::kMaxFileSize + kLine);
}

TEST_F(RunLog, SetsAFileAboveTheLimitAsideInThePlaceOfTheOneBefore) {
  for (const unsigned excess : {2U, 1U}) {
    CheckAFileAboveTheLimitBy(excess);
    EXPECT_EQ(fs::file_size(m_path), kLine);
    EXPECT_EQ(fs::file_size(m_path + ".bak"), CLOGER::kMaxFileSize + excess);
  }
}
