// What `midtablectl check` finds when it loads a file from each folder of the spool.

#include "midtablectl/check_fixture.h"

namespace {

using CheckLoad = CheckOnServerTest;

TEST_F(CheckLoad, WithoutPrivilegeToReadFiles) {
  LogInAsOneWhoMay("select, insert, update, create, drop on *.*")();
  const std::string grant = "grant file on *.* to poor@'%'";
  Finds(
      {"server: error: no load: this user lacks the privilege FILE; the server's words: {load data "
       "infile '/nowhere' into table probe} -> " +
       grant});
  server.Run(grant);
  Finds({});
}

// The program may pass through the folder, the server may not.
TEST_F(CheckLoad, FromAFolderThatIsClosedToTheServer) {
  fs::permissions(kFolder, fs::perms(0600));
  const std::string folder = kFolder.substr(0, kFolder.size() - 1);
  const Outcome run = Shell("unshare --map-current-user --keep-caps " MIDTABLECTL " check");
  std::smatch file;
  EXPECT_TRUE(std::regex_search(run.output, file, std::regex(R"(\.midtablectl-probe-\d+)")));
  ExpectFindings(
      run, WithWords({kFolder + ": warning: this user cannot rename files in it",
                      kFolder + ": error: no load: folder " + folder +
                          " has mode 0600 and belongs to sandbox: sandbox cannot pass through it; "
                          "the server's words: {load data infile \"" +
                          kFolder + file.str() + "\" ignore into table probe}"}));
}

}  // namespace
