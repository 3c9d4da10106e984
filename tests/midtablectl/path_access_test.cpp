// What is in another user's way to a file.
#include "midtablectl/path_access.h"

#include <sys/stat.h>
#include <unistd.h>

#include "testing/files.h"

namespace {

const std::string kFolder = "/tmp/on/the/way";
const std::string kFile = kFolder + "/file";
const ctl::Identity kMember{"a member of the group", getuid() + 1, {getgid()}};

TEST(PathAccess, NamesTheFirstObstacleAndWhoseItIs) {
  ctl::Identity self = ctl::Identity::Nobody();
  ASSERT_TRUE(ctl::Identity::OfProcess(getpid(), self));
  const std::string folder = "folder " + kFolder + " has mode ";
  const std::string file = "file " + kFile + " has mode ";
  const struct {
    mode_t folder, file;
    ctl::Identity who;
    std::string told;
  } cases[] = {
      {0755, 0644, ctl::Identity::Nobody(), ""},
      {0750, 0644, ctl::Identity::Nobody(),
       folder + "0750 and belongs to sandbox: another user cannot pass through it"},
      {0750, 0644, kMember, ""},
      {0705, 0644, kMember,
       folder + "0705 and belongs to sandbox: a member of the group cannot pass through it"},
      {0755, 0044, self, file + "0044 and belongs to sandbox: sandbox cannot read it"},
      {0755, 0044, ctl::Identity::OfUser(0), ""}};
  WriteFile(kFile, "");
  for (const auto& [folder_mode, file_mode, who, told] : cases) {
    chmod(kFile.c_str(), file_mode);
    chmod(kFolder.c_str(), folder_mode);
    EXPECT_EQ(ctl::Obstacle(kFile, who), told);
  }
}

}  // namespace
