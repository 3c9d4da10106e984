// What `midtablectl retry` gives its waiting name back, what it leaves alone, and what it says.

#include "midtablectl/midtablectl_fixture.h"

namespace {

const std::string kErr = kFile + ".err";
const std::string kMoved = "1 file moved, 0 kept";

std::string Move(const std::string& stem) {
  return "move  " + stem + ".err -> " + stem.substr(stem.rfind('/') + 1) + ".dat";
}

class RetryTest : public MidtablectlTest, public testing::WithParamInterface<Case> {
 protected:
  // The log tells why the file failed, or it would stay where it is.
  RetryTest() {
    Log("Midtable", "ErrLog",
        "ret (0) (execute load data infile \"" + kFile + ".dat\" failed, error:The table is full)");
  }
  // Expects a run whose lines begin so, and that the file has its waiting name back if the last
  // says so.
  static void Expect(const Outcome& run, const Words& lines) {
    const bool moved = lines.back() == kMoved;
    EXPECT_TRUE(run.status == (moved ? 0 : 1) && run.errors.empty()) << run;
    std::istringstream output(run.output);
    std::string found;
    for (const std::string& line : lines)
      EXPECT_TRUE(std::getline(output, found) && found.starts_with(line)) << line << "\n" << run;
    EXPECT_FALSE(std::getline(output, found)) << run;
    EXPECT_EQ(fs::exists(kFile + ".dat") && !fs::exists(kErr), moved);
  }
};

// --- which files, and whether

TEST_F(RetryTest, WithoutAnswer) {
  WriteFile(kErr, "");
  Expect(Midtablectl({"retry", "--all"}),
         {Move(kFile), "Nothing done. With --yes they are moved."});
}

TEST_F(RetryTest, WithTheAnswerYes) {
  WriteFile(kErr, "");
  Expect(AnswerYes("retry --all"), {Move(kFile), "Move 1 file? [y/N] y", kMoved});
}

// The question may stand for long.
TEST_F(RetryTest, OfAFileThatWaitsAgainWhenTheAnswerComes) {
  WriteFile(kErr, "old");
  Expect(AnswerYes("retry --all", "echo new >" + kFile + ".dat"),
         {Move(kFile), "Move 1 file? [y/N] y", "0 files moved, 1 kept"});
  EXPECT_EQ(ReadFile(kFile + ".dat"), "new\n");
}

// --- what is moved, and what is left alone

const std::string kWarning = "      WARNING: ";
const std::string kRefused = kFolder + "1a2b3c4d-MEM_20121230(id)F-20121230-080000.err";
const std::string kFields = "kind F with 12 fields and without the mark of a rewritten file: every";
const std::string kLost = "the server may have loaded it: its answer was lost. Look for its rows";
const std::string kDropped = "lines were dropped from it, so it may be the file as it came, kept";

const Step kFailed = Write(kErr);
const Step kTwelveFields = Write(kErr, "1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t12\n");
Step Loaded(const std::string& stem, const std::string& words) {
  const std::string load = "execute load data infile \"" + stem + ".dat\" failed, error:" + words;
  return [=] { Log("MysqlBase", "ErrLog", load); };
}
Step Dropped(int lines, int days_ago = 0) {
  const std::string text = "file " + kFile + ".dat local 1 visitors 0 without user 0 dropped ";
  return [=] { Log("tourlocaluser", "InfoLog", text + std::to_string(lines), days_ago); };
}
const Step kAnswerLost = Loaded(kFile, "Lost connection to server during query");
std::string Keep(const std::string& path, const std::string& why) {
  return "keep  " + path + ": " + why;
}
const std::string kLog = kRunLog + FormatTime(std::time(nullptr), "%Y%m%d") + ".log";
const Step kNoLog = SetMode(kLog, 0);
const std::string kUnknown =
    "failed for a reason that nobody can tell while the run log cannot be read (" + kLog +
    ": Permission denied): its rows may be loaded.";

class RetryAll : public RetryTest {};

TEST_P(RetryAll, Files) {
  GetParam().SetUp();
  Expect(Midtablectl({"retry", "--yes", "--all"}), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    That, RetryAll,
    testing::Values(
        Case("Failed", {kFailed}, Move(kFile), kMoved),
        Case("CannotBeRenamed", {kFailed, SetMode(kFolder, 0500)}, Move(kFile),
             Keep(kErr, "Permission denied"), "0 files moved, 1 kept"),
        Case("StandBesideLoadedLines", {kFailed, Write(kFile + ".mid")},
             Keep(kErr, "stands beside its .mid: the good lines of it are loaded and would count")),
        Case("AreAsTheyCame", {Write(kFile + ".orig"), Write(kFile + ".orig.1")},
             Keep(kFile + ".orig", "is the file as it came"),
             Keep(kFile + ".orig.1", "is the file as it came")),
        Case("AreNoFiles", {MakeFolder(kErr)}, Keep(kErr, "is no regular file")),
        Case("StandBesideAFileThatWaits", {kFailed, Write(kFile + ".dat")},
             Keep(kErr, "has a .dat beside it, which waits; try again when that is gone")),
        Case("WereSetAside", {Write(kErr + ".1")},
             Keep(kErr + ".1", "is an earlier failure of its name, set aside")),
        Case("WouldBeRefused", {Write(kRefused)},
             Keep(kRefused, "would be refused for its name again")),
        Case("HaveTwelveFields", {kTwelveFields}, Keep(kErr, kFields)),
        Case("HaveTwelveFieldsAndTheMark", {kTwelveFields, SetMode(kErr, 01600), Dropped(2)},
             Move(kFile), kMoved),
        Case("GotNoAnswer", {kFailed, kAnswerLost}, Keep(kErr, kLost)),
        Case("GotAnAnswer",
             {kFailed, Loaded(kFile, "The table is full"),
              Loaded(kFile + "1", "MySQL server has gone away"), Dropped(0)},
             Move(kFile), kMoved),
        Case("LostLines", {kFailed, Dropped(2, 1)}, Keep(kErr, kDropped)),
        Case("HaveALogThatCannotBeRead", {kFailed, Dropped(0), kNoLog}, Keep(kErr, kUnknown))),
    kNameOfCase);

// --- by its own name a file is moved where nothing but a doubt is in the way

TEST_F(RetryTest, OfOneFileThatGotNoAnswer) {
  kFailed();
  kAnswerLost();
  Expect(Midtablectl({"retry", "--yes", kErr}), {Move(kFile), kWarning + kLost, kMoved});
}

TEST_F(RetryTest, OfOneFileThatLostLines) {
  kFailed();
  Dropped(2)();
  Expect(Midtablectl({"retry", "--yes", kErr}), {Move(kFile), kWarning + kDropped, kMoved});
}

TEST_F(RetryTest, OfFilesThatAreNoFailures) {
  const std::string elsewhere = "/vqlog/" + kErr.substr(kFolder.size());
  const std::string never = kFolder + "1a2b3c4d-A-2012-080000.err";
  WriteFile(never, "");
  Expect(Midtablectl({"retry", elsewhere, kFile + ".mid", kErr, never}),
         {Keep(elsewhere, "is not in a folder of " + kSpool), Keep(kFile + ".mid", "is no .err"),
          Keep(kErr, "No such file or directory"), Keep(never, "would never be taken")});
}

}  // namespace
