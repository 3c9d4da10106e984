// What `midtablectl check` finds in the spool and the folder of the run log.

#include "midtablectl/check_fixture.h"

namespace {

class CheckSpool : public CheckTest {};

TEST_P(CheckSpool, Finds) {
  GetParam().SetUp();
  Finds(GetParam().lines);
}

const std::string kShort = kFolder + "1a2b3c4d-MEM_20121230_080F-20121230-080000.dat";

INSTANTIATE_TEST_SUITE_P(
    With, CheckSpool,
    testing::Values(
        Case("FilesInEachState", {Write(kFile + ".dat"), Write(kFile + ".err.1"),
                                  Write(kFile + ".orig"), Write(kSecondFile + ".mid")}),
        Case("FolderThatTakesNoRename", {SetMode(kFolder, 0500)},
             kFolder + ": warning: this user cannot rename files in it"),
        Case("FolderByTheNameOfAFile", {MakeFolder(kFile + ".dat")},
             kFile + ".dat: error: is no regular file; it will become .err"),
        Case("RewritingSwitchedOff", {Write(paths::kNoRewriteFlag)},
             "/tmp/mem_table_f.flag: warning: a service started now loads files of kind F without "
             "local flags"),
        Case("TooShortATableOnOracle", {UseOracle, Write(kShort)},
             kShort + ": error: its table has less than 18 characters; it will become .err"),
        Case("RunLogThatIsNotWritable", {SetMode(kRunLog, 0500)},
             kRunLog + ": warning: this user cannot write in it")),
    kNameOfCase);

// A file in the folder, and what is found of it.
Case File(const char* case_name, const std::string& file, const std::string& found) {
  const std::string path = kFolder + file;
  return {
      case_name, {Write(path)}, std::regex_replace(path, std::regex("\033"), "?") + ": " + found};
}
INSTANTIATE_TEST_SUITE_P(
    WithFile, CheckSpool,
    testing::Values(
        File("WithoutTime", "1a2b3c4d-A-20121230-0800.dat",
             "warning: is never taken: no time of 6 digits follows the date"),
        File("WithAControlCharacter", "1a2b3c4d-A\033X-20121230-080000.dat",
             "error: has a character in its name that could change a statement; it will become "
             ".err"),
        File("OfAnUndefinedKind", "1a2b3c4d-MEM_20121230_0800X-20121230-080000.dat",
             "error: is of kind X, which is not defined; it will become .err"),
        File("OfAnotherDatabase", "5e6f7a8b-MEM_20121230_0800F-20121230-080000.dat",
             "warning: goes to database WLAN_5e6f7a8b by its name")),
    kNameOfCase);

TEST_F(MidtablectlTest, RoomOfTheRunLogIsUsedUp) {
  ExpectFindings(
      Shell("unshare --map-root-user --mount sh -c 'mount -t tmpfs -o size=1m none " + kRunLog +
            " && head -c 1M /dev/zero >" + kRunLog + "x && exec " MIDTABLECTL " check --offline'"),
      {kRunLog + ": error: its file system is full"});
}

}  // namespace
