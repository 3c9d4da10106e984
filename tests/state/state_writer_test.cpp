// The file in which the service tells of itself, in a folder of 64 KiB.
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "state/state_file.h"
#include "support/paths.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

const std::string kPath = paths::kStateFile;
const std::string kDb = "WLAN_1a2b3c4d";

void Sleep(int ms) { std::this_thread::sleep_for(milliseconds(ms)); }

bool Eventually(const std::function<bool()>& done) {
  for (int i = 0; i < 500 && !done(); ++i) Sleep(20);
  return done();
}

// The text of the file, empty for a missing one.
std::string Text() {
  std::ifstream in(kPath);
  return {std::istreambuf_iterator<char>(in), {}};
}

nlohmann::json Json() { return nlohmann::json::parse(Text()); }

std::string RunLog() {
  g_loger.reopenfile();
  std::string text;
  for (const std::string& name : ListFolder(paths::kRunLogDir)) {
    text += ReadFile(paths::kRunLogDir + name);
  }
  return text;
}

std::size_t CountOf(const std::string& part, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

class StateWriter : public testing::Test {
 protected:
  StateWriter() {
    fs::remove_all(paths::kRunLogDir);
    fs::remove("/run/midtable/filler");
    fs::remove(kPath);
    g_loger.Init();
  }
  void Start() { file = std::make_unique<StateFile>(board, ServiceFacts{"once", 2, 1000}); }

  StateBoard board;
  std::unique_ptr<StateFile> file;
};

TEST_F(StateWriter, TheFileComesWithTheServiceAndGoesWithIt) {
  Start();
  ASSERT_TRUE(Eventually([] { return fs::exists(kPath); }));
  EXPECT_EQ(Json()["pid"], getpid());
  EXPECT_EQ(fs::status(kPath).permissions(), fs::perms(0640));
  file.reset();
  EXPECT_THAT(ListFolder(paths::kStateFolder), testing::IsEmpty());
}

// Each replacement is a new file. The reader of each moment gets a whole one.
TEST_F(StateWriter, IsReplacedWholeAndAtMostOnceASecond) {
  Start();
  std::size_t count = 0;
  ino_t last = 0;
  const auto end = steady_clock::now() + milliseconds(3500);
  for (std::size_t i = 1; steady_clock::now() < end; ++i) {
    board.SetWaiting(kDb, i, std::nullopt);
    struct stat status {};
    if (stat(kPath.c_str(), &status) != 0) continue;
    count += last == status.st_ino ? 0 : 1;
    last = status.st_ino;
    const std::string text = Text();
    EXPECT_TRUE(nlohmann::json::accept(text)) << text;
  }
  EXPECT_GE(count, 3U);
  EXPECT_LE(count, 5U);
}

TEST_F(StateWriter, IsLeftAloneWhileNothingChanges) {
  board.SetWaiting(kDb, 1, std::nullopt);
  Start();
  ASSERT_TRUE(Eventually([] { return fs::exists(kPath); }));
  const std::string before = Text();
  Sleep(2500);
  EXPECT_EQ(Text(), before);
}

TEST_F(StateWriter, AFullFolderIsOneLineAndIsOverWhenThereIsRoom) {
  {
    std::ofstream filler("/run/midtable/filler");
    while (filler << std::string(4096, 'x') << std::flush) {
    }
  }
  Start();
  for (std::size_t i = 1; i <= 3; ++i) {
    board.SetWaiting(kDb, i, std::nullopt);
    Sleep(1000);
  }
  const std::string line = "state file /run/midtable/state.json not written: No space left";
  EXPECT_EQ(CountOf(line, RunLog()), 1U);
  EXPECT_THAT(ListFolder(paths::kStateFolder), testing::ElementsAre("filler"));
  fs::remove("/run/midtable/filler");
  EXPECT_TRUE(
      Eventually([] { return fs::exists(kPath) && Json()["databases"][0]["waiting"] == 3; }));
}

TEST_F(StateWriter, HostileNamesMakeGoodJson) {
  board.Hold(kDb, "file (\"\n\\\xff</script>)", 1, std::string(5000, '\x01'));
  Start();
  ASSERT_TRUE(Eventually([] { return fs::exists(kPath); }));
  const auto held = Json()["databases"][0]["held_back"][0];
  EXPECT_EQ(held["what"], "file (\"\n\\\xef\xbf\xbd</script>)");
  EXPECT_EQ(held["reason"].get<std::string>().size(), 1000U);
}

}  // namespace
