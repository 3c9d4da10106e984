// The run log where somebody removes its files, or the disk is full: it goes on by itself, and says
// what is missing.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "support/paths.h"
#include "testing/files.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

// What the log says of itself, as it stands in Texts().
std::string OutOfReach(const std::string& reason, int lines) {
  return "AlarmLog:run log was out of reach (" + reason + "), " + std::to_string(lines) +
         " lines are missing";
}

class RunLogTrouble : public testing::Test {
 protected:
  RunLogTrouble() {
    fs::remove_all("/vqlog/log");
    m_log.Init();
  }

  void Log(int level, const std::string& text) { m_log("u", 1, level, "%s", text.c_str()); }

  static std::string Path() { return paths::kRunLogDir + ListFolder(paths::kRunLogDir).at(0); }

  // The lines of the log's only file, each as "ErrLog:text"; one that is not whole stays as it is.
  static Lines Texts() {
    std::istringstream file(ReadFile(Path()));
    const std::regex form(R"(\[\w+:\d+\]\[\d\d:\d\d:\d\d\]\[(\w+)\](:.*))");
    Lines texts;
    for (std::string line; std::getline(file, line);) {
      texts.push_back(std::regex_replace(line, form, "$1$2"));
    }
    return texts;
  }

  CLOGER m_log;
};

TEST_F(RunLogTrouble, AlarmsAndErrorsAreInTheFileAtOnce) {
  Log(kAlarm, "alarm");
  EXPECT_THAT(Texts(), ElementsAre("AlarmLog:alarm"));
  Log(kError, "error");
  EXPECT_THAT(Texts(), ElementsAre("AlarmLog:alarm", "ErrLog:error"));
}

TEST_F(RunLogTrouble, OtherLinesAreInTheFileAfterFlush) {
  for (const int level : {kInfo, kDebug, kRealtime}) Log(level, "x");
  m_log.Flush();
  EXPECT_THAT(Texts(), ElementsAre("InfoLog:x", "DebugLog:x", "RealtimeLog:x"));
}

TEST_F(RunLogTrouble, ARemovedFolderComesBackWithTheNumberOfLinesThatAreMissing) {
  Log(kError, "seen by Flush");
  m_log.Flush();
  fs::remove_all("/vqlog/log");
  for (const char* text : {"one", "two", "three"}) Log(kError, text);
  Log(kInfo, "still in the buffer");
  m_log.Flush();
  EXPECT_THAT(Texts(), ElementsAre(OutOfReach("No such file or directory", 3),
                                   "InfoLog:still in the buffer"));
}

TEST_F(RunLogTrouble, ARemovedFileComesBackThoughNobodyCallsFlush) {
  fs::remove(Path());
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (ListFolder(paths::kRunLogDir).empty() && std::chrono::steady_clock::now() < end) {
    Log(kInfo, "x");
    usleep(100'000);
  }
  EXPECT_THAT(Texts().at(0), HasSubstr("run log was out of reach (No such file or directory)"));
}

TEST_F(RunLogTrouble, AFileThatWasMovedAsideIsLeftForANewOne) {
  const std::string path = Path();
  fs::rename(path, "/vqlog/aside");
  Log(kError, "aside");
  m_log.Flush();
  Log(kError, "here");
  EXPECT_THAT(Texts(), ElementsAre(OutOfReach("No such file or directory", 1), "ErrLog:here"));
  EXPECT_THAT(ReadFile("/vqlog/aside"), HasSubstr("aside"));
}

TEST_F(RunLogTrouble, LinesGoToStandardOutputWhileTheFolderCannotBeMade) {
  fs::remove_all("/vqlog/log");
  WriteFile("/vqlog/log", "in the way");
  CapturedStdout console;
  m_log.Flush();
  Log(kError, "on the console");
  EXPECT_THAT(console.text(), HasSubstr("[u:1]<2>:on the console\n"));
}

TEST_F(RunLogTrouble, TwoThreadsGoOnWhileTheFolderIsRemovedAgainAndAgain) {
  const auto write = [this] {
    for (int i = 0; i < 2000; ++i) Log(i % 3, "x");
  };
  std::thread one(write);
  std::thread other(write);
  for (int i = 0; i < 50; ++i) {
    std::error_code raced;
    fs::remove_all("/vqlog/log", raced);
    m_log.Flush();
  }
  one.join();
  other.join();
  m_log.Flush();
  Log(kError, "the end");
  EXPECT_EQ(Texts().back(), "ErrLog:the end");
}

// The log's folder on a file system of its own that other files fill.
class FullDisk : public RunLogTrouble {
 protected:
  FullDisk() {
    fs::remove_all("/full/log");
    fs::remove_all("/vqlog/log/midtable");
    fs::create_directory("/full/log");
    fs::create_directory_symlink("/full/log", "/vqlog/log/midtable");
    m_log.reopenfile();
    m_log.Flush();
    Log(kError, "before");
    m_before = Texts();
  }
  ~FullDisk() override { MakeRoom(); }

  static void Fill() {
    std::ofstream fill("/full/fill");
    while (fill << std::string(4096, 'x') << std::flush) {
    }
  }
  static void MakeRoom() { fs::remove("/full/fill"); }

  static std::string Numbered(int i) { return "line " + std::to_string(i); }
  void LogErrors(int count) {
    for (int i = 0; i < count; ++i) Log(kError, Numbered(i));
  }

  // The lines since the log's folder is on the small file system.
  Lines TextsAfterBefore() const {
    Lines texts = Texts();
    EXPECT_EQ(Lines(texts.begin(), texts.begin() + std::ssize(m_before)), m_before);
    texts.erase(texts.begin(), texts.begin() + std::ssize(m_before));
    return texts;
  }

  Lines m_before;
};

TEST_F(FullDisk, CostsWholeLinesOnlyAndTheLogSaysHowMany) {
  constexpr int kLogged = 10'000;
  Fill();
  CapturedStdout console;
  LogErrors(kLogged);
  console.text();
  MakeRoom();
  m_log.Flush();
  Log(kError, "after");

  const Lines texts = TextsAfterBefore();
  const int kept = static_cast<int>(texts.size()) - 2;
  Lines expected;
  for (int i = 0; i < kept; ++i) expected.push_back("ErrLog:" + Numbered(i));
  expected.push_back(OutOfReach("No space left on device", kLogged - kept));
  expected.emplace_back("ErrLog:after");
  EXPECT_EQ(texts, expected);
  EXPECT_LT(kept, kLogged);
}

}  // namespace
