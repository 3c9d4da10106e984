#include "spool/settled_files.h"

#include "gmock/gmock.h"
#include "testing/run_log.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre, testing::EndsWith, testing::IsEmpty;

const std::string kFolder = "/tmp/settled";
const std::string kAway = "/tmp/away";
const std::string kPath = kFolder + "/a.dat";

class SettledFilesTest : public testing::Test {
 protected:
  SettledFilesTest() {
    fs::remove_all(kFolder);
    WriteFile(kPath, "row\n");
    settled.Add(kPath, kFolder + "/a.mid", std::nullopt);
    EXPECT_TRUE(settled.Contains(kPath));
  }

  SettledFiles settled;
};

TEST_F(SettledFilesTest, AreSoNoLongerOnceTheyAreWrittenTo) {
  WriteFile(kPath, "row\nanother row\n");
  EXPECT_FALSE(settled.Contains(kPath));
  settled.RetryRenames();
  EXPECT_TRUE(fs::exists(kPath));
}

TEST_F(SettledFilesTest, AreRenamedAsSoonAsTheirFolderAllows) {
  fs::permissions(kFolder, fs::perms(0555));
  EXPECT_THAT(LogOf([this] { settled.RetryRenames(); }), IsEmpty());
  EXPECT_EQ(settled.RetryRenames().files, 1U);
  EXPECT_THAT(settled.RetryRenames().Reason(), EndsWith(": Permission denied"));
  fs::permissions(kFolder, fs::perms(0755));
  EXPECT_THAT(LogOf([this] { settled.RetryRenames(); }),
              ElementsAre("<0>:file (/tmp/settled/a.dat) renamed to (/tmp/settled/a.mid) at last"));
  EXPECT_THAT(ListFolder(kFolder), ElementsAre("a.mid"));
  EXPECT_EQ(settled.RetryRenames().files, 0U);
}

// It may come back on a file system that has another device number.
TEST_F(SettledFilesTest, OfAFolderOutOfReachAreKnownAfterItsReturn) {
  FileIdentity last_seen = IdentityOf(kPath).value();
  ++last_seen.device;
  fs::rename(kFolder, kAway);
  settled.RetryRenames();
  SettledFiles unseen;
  unseen.Add(kPath, "", last_seen);
  unseen.RetryRenames();
  fs::rename(kAway, kFolder);
  EXPECT_TRUE(settled.Contains(kPath));
  EXPECT_TRUE(unseen.Contains(kPath));
}

}  // namespace
