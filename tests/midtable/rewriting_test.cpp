#include "midtable/rewriting.h"

#include "midtable/engine_fixture.h"

static std::function<void()> g_while_rewriting = [] {};

// In the place of the C library's, which a rewriting calls once it has opened the file.
extern "C" int fchown(int, uid_t, gid_t) noexcept {
  g_while_rewriting();
  return 0;
}

namespace {

using testing::Contains, testing::ElementsAre;

const std::string kRow = "a\t0\tc\td\te\tf\tg\th\ti\tj\tk";
const std::string kFlagged = kRow + "\t2\n";
const std::string kDamaged = "damaged line\n" + kRow;  // comes out smaller

class Rewriting : public StepTest {
 protected:
  bool Rewrite(const std::string& path = kFile) {
    return Logged([&] { return RewriteMemFile(path, registry); });
  }
  const std::string stem = kFile.substr(0, kFile.rfind('.'));
};

TEST_F(Rewriting, KeepsAnOriginalThatLostLines) {
  const std::pair<std::string, std::string> cases[] = {
      {kDamaged, ".err"}, {"x\n" + kRow, ".orig"}};  // whose flag outweighs the lost line
  for (const auto& [original, ending] : cases) {
    WriteFile(kFile, original);
    EXPECT_TRUE(Rewrite());
    EXPECT_THAT(log, Contains("<3>:file " + kFile + " line 1 not correct, ignore it"));
    EXPECT_EQ(ReadFile(kFile) + ReadFile(stem + ending), kFlagged + original);
  }
}

TEST_F(Rewriting, KeepsTheOriginalOnceAndWhatHadItsNameBefore) {
  WriteFile(kFile, kDamaged);
  fs::create_hard_link(kFile, stem + ".err");  // by a run that was killed
  EXPECT_TRUE(Rewrite());
  EXPECT_EQ(ReadFile(kFile) + ReadFile(stem + ".err"), kFlagged + kDamaged);
  EXPECT_EQ(ListFolder(kFolder).size(), 2U);
  WriteFile(kFile, kDamaged);
  EXPECT_TRUE(Rewrite());
  EXPECT_EQ(ReadFile(stem + ".err") + ReadFile(stem + ".err.1"), kDamaged + kDamaged);
}

TEST_F(Rewriting, LeavesAFileThatIsWrittenToMeanwhile) {
  WriteFile(kFile, kDamaged);
  g_while_rewriting = [] { std::ofstream(kFile, std::ios::app) << "late"; };
  EXPECT_FALSE(Rewrite());
  g_while_rewriting = [] {};
  EXPECT_THAT(log, Contains("<2>:file (" + kFile + ") changed while it was rewritten"));
  EXPECT_EQ(ReadFile(kFile), kDamaged + "late");
}

// The second file's ending is that of its folder, so its copy is in another one.
TEST_F(Rewriting, LeavesAFileThatCannotBeRenamed) {
  for (const std::string& path : {kFile, std::string("/vqlog/x.y/file")}) {
    const fs::path folder = fs::path(path).parent_path();
    WriteFile(path, kDamaged);
    fs::permissions(folder, fs::perms(0555));
    EXPECT_FALSE(Rewrite(path));
    fs::permissions(folder, fs::perms(0755));
    EXPECT_EQ(ReadFile(path), kDamaged);
    EXPECT_EQ(ListFolder(folder).size(), 1U);
  }
  EXPECT_THAT(ListFolder("/vqlog"), ElementsAre("log_data", "x.y"));
}

}  // namespace
