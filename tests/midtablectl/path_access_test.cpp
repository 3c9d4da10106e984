// What is in another user's way to a file.
#include "midtablectl/path_access.h"

#include <sys/stat.h>
#include <unistd.h>

#include "testing/files.h"

namespace {

const std::string kFolder = "/tmp/on/the/way";
const std::string kFile = kFolder + "/file";
const ctl::Identity kMember{"a member of the group", getuid() + 1, {getgid()}};

class PathAccess : public testing::Test {
 protected:
  PathAccess() {
    umask(022);
    std::filesystem::remove_all("/tmp/on");
    WriteFile(kFile, "");
  }
};

TEST_F(PathAccess, FolderClosedToOthersOrToItsGroup) {
  const std::string mode = "folder " + kFolder + " has mode ";
  chmod(kFolder.c_str(), 0750);
  EXPECT_EQ(ctl::Obstacle(kFile, ctl::Identity::Nobody()),
            mode + "0750 and belongs to sandbox: another user cannot pass through it");
  EXPECT_EQ(ctl::Obstacle(kFile, kMember), "");
  chmod(kFolder.c_str(), 0705);
  EXPECT_EQ(ctl::Obstacle(kFile, kMember),
            mode + "0705 and belongs to sandbox: a member of the group cannot pass through it");
}

TEST_F(PathAccess, FileThatItsOwnerMayNotRead) {
  chmod(kFile.c_str(), 0044);
  ctl::Identity self = ctl::Identity::Nobody();
  ASSERT_TRUE(ctl::Identity::OfProcess(getpid(), self));
  const std::string told =
      "file " + kFile + " has mode 0044 and belongs to sandbox: sandbox cannot read it";
  EXPECT_EQ(ctl::Obstacle(kFile, self), told);
  EXPECT_EQ(ctl::Obstacle(kFile, ctl::Identity::OfUser(getuid())), told);
  EXPECT_EQ(ctl::Obstacle(kFile, ctl::Identity::OfUser(0)), "");
}

}  // namespace
