#include "midtable/discovery.h"

#include <random>

#include "midtable/engine_fixture.h"
#include "support/names.h"
#include "testing/scripted_system.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre, testing::IsEmpty;

class DiscoveryTest : public ScriptedServer {
 protected:
  DiscoveryTest() : ScriptedServer("mysql") {}

  // A new file for this table; its name.
  static std::string Put(const std::string& table, const std::string& id = "1a2b3c4d") {
    const std::string name = id + "-" + table + "-20121231-101500.dat";
    WriteFile(kFolder + name, "");
    return name;
  }
  // The names that a pass would load, in its order.
  Lines Queued() {
    MemFileQueue queue;
    log = LogOf([&] { discovery.QueueFiles("1a2b3c4d", queue); });
    Lines names;
    for (const MemFile& file : queue) names.emplace_back(FileNameOf(file.path));
    return names;
  }
  Lines Databases() {
    std::list<std::string> names;
    log = LogOf([&] { discovery.ListDatabases(names); });
    return {names.begin(), names.end()};
  }

  ScriptedSystem system;
  Discovery discovery{system};
};

TEST_F(DiscoveryTest, QueuesTheTwoGreatestNamesTheLessOfThemFirst) {
  Put("A");
  const std::string less = Put("B");
  const std::string greatest = Put("C");
  EXPECT_THAT(Queued(), ElementsAre(less, greatest));
}

TEST_F(DiscoveryTest, OfFilesForOneMemTableQueuesTheGreatest) {
  Put("MEM_20121231_1004G");
  const std::string greatest = Put("MEM_20121231_1104G");
  const std::string of_other_database = Put("MEM_20121231_1104G", "5e6f7a8b");
  EXPECT_THAT(Queued(), ElementsAre(greatest, of_other_database));
}

TEST_F(DiscoveryTest, PassesASettledFileForTheNextOfItsTable) {
  const std::string next = Put("MEM_20121231_1004G");
  discovery.settled().Add(kFolder + Put("MEM_20121231_1104G"), "", std::nullopt);
  EXPECT_THAT(Queued(), ElementsAre(next));
}

TEST_F(DiscoveryTest, FindsTheFilesOfAFolderThatReplacedAnother) {
  Put("A");
  Queued();
  fs::rename(kFolder, "/vqlog/away");
  EXPECT_THAT(Queued(), IsEmpty());
  EXPECT_THAT(log, ElementsAre("<2>:scan dir /vqlog/log_data/midtable/1a2b3c4d errno 2"));
  const std::string file = Put("B");
  EXPECT_THAT(Queued(), ElementsAre(file));
}

TEST_F(DiscoveryTest, FoldersOfEightHexadecimalDigitsAreDatabases) {
  EXPECT_THAT(Databases(), IsEmpty());
  EXPECT_THAT(log, ElementsAre("<2>:open dir (/vqlog/log_data/midtable/) failed errno (2)"));
  for (const std::string name : {"0a1B2c3D", "0a1B2c3", "0a1B2c3G", "0a1B2c3D4"}) {
    fs::create_directories(paths::kSpool + name);
  }
  EXPECT_THAT(Databases(), ElementsAre("0a1B2c3D"));
}

TEST_F(DiscoveryTest, ADatabaseWhoseFileFailedComesLastUntilItIsServed) {
  for (const std::string name : {"00000001", "00000002", "00000003"}) {
    fs::create_directories(paths::kSpool + name);
  }
  const Lines listed = Databases();
  for (const std::string& failed : {listed[1], listed[0], listed[1]}) {
    discovery.PutLast({paths::kSpool + failed + "/file", "", ""});
  }
  EXPECT_THAT(Databases(), ElementsAre(listed[2], listed[0], listed[1]));
  discovery.Served(listed[0]);
  EXPECT_THAT(Databases(), ElementsAre(listed[0], listed[2], listed[1]));
}

// --- at random

// A folder to which everything happens that may in years, and an engine that works on it.
class RandomFolder : public ScriptedSystem, public EngineTest {
 protected:
  RandomFolder() : EngineTest("mysql", static_cast<ScriptedSystem&>(*this)) {
    script.databases = {kDb, "WLAN_ffffffff"};
    script.tables = {"WLAN"};  // every one
    fs::create_directories(kFolder);
  }
  int Any(std::size_t below) { return static_cast<int>(random() % below); }

  void ReplaceTheFolder() {
    fs::rename(kFolder, "/vqlog/" + std::to_string(now.count()));
    fs::create_directory(kFolder);
    local = Any(3) > 0;
    stamp_step = Any(2) == 0 ? 4ms : 2000ms;
  }
  void PutFiles() {
    for (int left = Any(3); left >= 0; --left) {
      const char* const tables[] = {"A", "B", "MEM_20121231_1004G", "MEM_20121231_1104G", "x"};
      const char* const id = Any(9) == 0 ? "ffffffff" : "1a2b3c4d";
      const char* const end = Any(6) == 0 ? "mid" : "dat";
      WriteFile(kFolder + Format("%s-%s-20121231-%06d.%s", id, tables[Any(5)], Any(99), end), "");
    }
  }
  void RemoveAFile() {
    const Lines names = ListFolder(kFolder);
    if (!names.empty()) fs::remove(kFolder + names[random() % names.size()]);
  }
  void StampTheFolder() {
    if (local) changed = (now + set) / stamp_step * stamp_step;
  }
  std::list<std::string> Queued() const {
    std::list<std::string> queued;
    for (const MemFile& file : engine->filesToLoad()) queued.push_back(file.path);
    return queued;
  }
  // What is queued, and what a sorted listing of the whole folder would add to it.
  std::list<std::string> Expected() const {
    std::list<std::string> expected = Queued();
    const Lines names = ListFolder(kFolder);
    for (auto name = names.rbegin(); name != names.rend() && expected.size() < 2; ++name) {
      if (!CMidTable::IsLoadFile(*name)) continue;
      const std::string path = kFolder + *name;
      if (!CMidTable::IsTableNameConflict(expected, path)) expected.push_front(path);
    }
    return expected;
  }

  std::mt19937 random{20121231};
  std::chrono::milliseconds stamp_step = 1ms;
};

TEST_F(RandomFolder, IsSeenAsASortedListingOfItWouldShowIt) {
  const CapturedStdout quiet;
  for (auto all_shows_from = now; now < 5000s; now += Any(1200) * 1ms) {
    const int event = Any(8);
    if (event == 0) set += (Any(7) - 3) * 1s;
    if (event == 1) ReplaceTheFolder();
    if (event >= 1 && event <= 3) PutFiles();
    if (event == 2 || event == 3) all_shows_from = now + 1s;
    if (event == 4) RemoveAFile();
    if (event >= 1 && event <= 4) StampTheFolder();
    now += Any(1200) * 1ms;
    const std::list<std::string> expected = Expected();
    engine->GetMemFiles("1a2b3c4d");
    ASSERT_TRUE(now < all_shows_from || Queued() == expected) << now.count();
    FailNoMore();
    if (Any(4) == 0) Fail("load");
    if (Any(4) > 0 && engine->LoadMemFiles()) StampTheFolder();
    script.Take();
  }
}

}  // namespace
