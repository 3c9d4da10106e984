#include <random>

#include "midtable/engine_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// The engine with clocks of the test's, which also stamp the folder, in whole steps.
struct Discovery : SpoolSystem, EngineTest {
  Discovery() : EngineTest("mysql", *this) {}
  std::chrono::nanoseconds WallClock() const override { return now + set; }
  std::chrono::nanoseconds SteadyClock() const override { return now; }
  bool IsLocal(int /*folder*/) const override { return local; }
  bool Stamp(const std::string& folder, FolderStamp& stamp) const override {
    return SpoolSystem::Stamp(folder, stamp) && (stamp.changed = changed, true);
  }
  std::chrono::milliseconds now = 1000s, set = 0s, changed = 0s, step = 1ms;
  bool local = true;
};

TEST_F(Discovery, ChoosesWhatASortedListingOfTheWholeFolderWouldChoose) {
  const std::string folder = "/vqlog/log_data/midtable/1a2b3c4d/";
  std::mt19937 random(20121231);
  const auto any = [&](std::size_t below) { return static_cast<int>(random() % below); };
  script.databases.insert("WLAN_ffffffff");
  script.tables = {"WLAN"};  // every one
  EXPECT_THAT(
      LogOf([&] { engine->GetMemFiles("1a2b3c4d"), engine->GetMemFiles("1a2b3c4d"); }),
      testing::ElementsAre("<2>:scan dir /vqlog/log_data/midtable/1a2b3c4d errno 2", testing::_));
  fs::create_directories(folder);
  const CapturedStdout quiet;
  for (auto due = now; now < 5000s; now += any(1200) * 1ms) {
    const int event = any(8);
    if (event == 0) set += (any(7) - 3) * 1s;
    if (event == 1) {
      fs::rename(folder, "/vqlog/" + std::to_string(now.count()));
      local = any(3) > 0, step = any(2) == 0 ? 4ms : 2000ms;
    }
    for (int i = any(3); event < 4 && event > 0 && i >= 0; --i) {
      const char* const id = any(9) == 0 ? "ffffffff" : "1a2b3c4d";
      const char* const table[] = {"A", "B", "MEM_20121231_1004G", "MEM_20121231_1104G", "x"};
      WriteFile(folder + Format("%s-%s-20121231-%06d.%s", id, table[any(5)], any(99),
                                any(6) == 0 ? "mid" : "dat"),
                "");
      if (event > 1) due = now + 1s;
    }
    const auto names = ListFolder(folder);
    if (event == 4 && !names.empty()) fs::remove(folder + names[random() % names.size()]);
    if (event > 0 && event < 5 && local) changed = (now + set) / step * step;
    now += any(1200) * 1ms;

    std::list<std::string> expected = engine->filesToLoad();
    const auto all = ListFolder(folder);
    for (auto name = all.rbegin(); name != all.rend() && expected.size() < 2; ++name) {
      if (CMidTable::IsLoadFile(*name) &&
          !CMidTable::IsTableNameConflict(expected, folder + *name)) {
        expected.push_front(folder + *name);
      }
    }
    EXPECT_EQ(engine->GetMemFiles("1a2b3c4d"), !expected.empty());
    ASSERT_TRUE(now < due || engine->filesToLoad() == expected) << now.count();
    script.fail = {{any(4) == 0 ? "load" : "none", "E"}};
    if (any(4) > 0 && engine->LoadMemFiles() && local) changed = (now + set) / step * step;
    script.Take();
  }
}

}  // namespace
