// The run log where somebody removes its files, or the disk is full: it goes on by itself, and says
// what is missing.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "support/paths.h"
#include "testing/run_log.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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

// The log's folder is on a file system of its own, which another file fills.
TEST_F(RunLogTrouble, AFullDiskCostsWholeLinesOnlyAndTheLogSaysHowMany) {
  constexpr int kLogged = 10'000;
  const auto numbered = [](int i) { return "line " + std::to_string(i); };
  fs::remove_all("/vqlog/log/midtable");
  fs::create_directory("/full/log");
  fs::create_directory_symlink("/full/log", "/vqlog/log/midtable");
  m_log.Flush();
  const std::ptrdiff_t before = std::ssize(Texts());
  for (std::ofstream fill("/full/fill"); fill << std::string(4096, 'x') << std::flush;) continue;
  {
    const CapturedStdout console;
    for (int i = 0; i < kLogged; ++i) Log(kError, numbered(i));
  }
  fs::remove("/full/fill");
  m_log.Flush();
  Log(kError, "after");

  const Lines texts = Texts();
  const int kept = static_cast<int>(std::ssize(texts) - before) - 2;
  Lines expected(texts.begin(), texts.begin() + before);
  for (int i = 0; i < kept; ++i) expected.push_back("ErrLog:" + numbered(i));
  expected.push_back(OutOfReach("No space left on device", kLogged - kept));
  expected.emplace_back("ErrLog:after");
  EXPECT_EQ(texts, expected);
  EXPECT_LT(kept, kLogged);
}

}  // namespace
