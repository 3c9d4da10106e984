#include "spool/renames.h"

#include <dlfcn.h>

#include <cerrno>

#include "gmock/gmock.h"
#include "testing/run_log.h"

// What a file system does not offer: the errno of the calls below, which are in the C library's
// place; or 0.
static int g_no_free_rename = 0;
static int g_no_hard_link = 0;

extern "C" int renameat2(int from, const char* path, int to, const char* name,
                         unsigned int flags) noexcept {
  static const auto real = reinterpret_cast<decltype(&renameat2)>(dlsym(RTLD_NEXT, "renameat2"));
  errno = g_no_free_rename;
  return errno != 0 ? -1 : real(from, path, to, name, flags);
}

extern "C" int link(const char* path, const char* name) noexcept {
  static const auto real = reinterpret_cast<decltype(&link)>(dlsym(RTLD_NEXT, "link"));
  errno = g_no_hard_link;
  return errno != 0 ? -1 : real(path, name);
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

const std::string kFolder = "/tmp/renames";
const std::string kDat = kFolder + "/a.dat";
const std::string kErr = kFolder + "/a.err";

class RenamesTest : public testing::Test {
 protected:
  RenamesTest() {
    fs::remove_all(kFolder);
    WriteFile(kDat, "new");
    WriteFile(kErr, "old");
  }
};

TEST_F(RenamesTest, ReplaceNothingOnAnyFileSystem) {
  const std::pair<int, int> lacks[] = {{0, 0}, {EINVAL, 0}, {ENOSYS, EPERM}};
  for (const auto& [no_free_rename, no_hard_link] : lacks) {
    WriteFile(kDat, "new");
    g_no_free_rename = no_free_rename;
    g_no_hard_link = no_hard_link;
    EXPECT_FALSE(RenameToFreeName(kDat, kErr));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(ReadFile(kDat) + ReadFile(kErr), "newold");
    EXPECT_TRUE(RenameToFreeName(kDat, kFolder + "/a.mid"));
    EXPECT_THAT(ListFolder(kFolder), ElementsAre("a.err", "a.mid"));
    fs::remove(kFolder + "/a.mid");
  }
  g_no_free_rename = g_no_hard_link = 0;
}

TEST_F(RenamesTest, SetAsideWhatHadFailedAndFollowNoLink) {
  WriteFile(kErr + ".1", "older");
  EXPECT_THAT(LogOf([] { EXPECT_TRUE(MoveMemFile(kDat, kErr)); }),
              ElementsAre("<0>:file (/tmp/renames/a.err) is kept as (/tmp/renames/a.err.2)"));
  EXPECT_EQ(ReadFile(kErr) + ReadFile(kErr + ".1") + ReadFile(kErr + ".2"), "newolderold");
  fs::create_symlink(kErr, kDat);
  EXPECT_TRUE(MoveMemFile(kDat, kErr));
  EXPECT_TRUE(fs::is_symlink(kErr));
  EXPECT_EQ(ReadFile(kErr + ".3"), "new");
}

TEST_F(RenamesTest, KeepAFileUnderBothNamesAlsoWhenItHadThemBefore) {
  EXPECT_TRUE(KeepMemFile(kDat, kErr));
  EXPECT_TRUE(KeepMemFile(kDat, kErr));
  EXPECT_EQ(ReadFile(kDat) + ReadFile(kErr) + ReadFile(kErr + ".1"), "newnewold");
  EXPECT_EQ(ListFolder(kFolder).size(), 3U);
}

TEST_F(RenamesTest, KeepAFileUnderItsNewNameWhereThereAreNoHardLinks) {
  g_no_hard_link = EPERM;
  EXPECT_TRUE(KeepMemFile(kDat, kErr));
  g_no_hard_link = 0;
  EXPECT_THAT(ListFolder(kFolder), ElementsAre("a.err", "a.err.1"));
}

}  // namespace
