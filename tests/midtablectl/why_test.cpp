// What `midtablectl why` tells of a mem file: the run log's lines, what to do, how to go on.

#include "midtablectl/advice.h"
#include "midtablectl/midtablectl_fixture.h"

namespace {

const std::string kErr = kFile + ".err";
const std::string kMid = kFile + ".mid";
const std::string kNotMade = "table (MEM_20121230_0000F) create failed not load";

// --- what is told

const std::string kDo = "\nWhat to do:\n";
const std::string kMakeRoom = "  - the server's disk or its tablespace is full: make room\n";
const std::string kMended = "When it is mended: midtablectl retry " + kErr + "\n";
const std::string kSettled = "When that is settled: midtablectl retry " + kErr + "\n";
const std::string kTryAgain =
    "Its newest lines may not be written yet. Try again in a minute, or stop the service and look "
    "again;\nmidtablectl check may tell the reason too.\n\n";
const std::string kUntold =
    "retry leaves it alone, since it failed for a reason that the run log does not tell: its rows "
    "may be loaded. Look for them first, see \"After a crash\" in operations.md; where they are "
    "not "
    "in, rename it to .dat by hand.\n";
const std::string kNoLog =
    "The run log says nothing of it: there is none of that day.\n" + kTryAgain;
const std::string kRowsStay =
    "The file is loaded; its rows stay in the mem table WLAN_1a2b3c4d.MEM_20121230_0000F.\n"
    "The service tries them again with the next file of it, when the definition file has changed, "
    "at its next\nstart and, where the server was at fault, once a minute.\n";

// What docs/messages.md has to say of a line of this form.
std::string Explained(const std::string& text, const std::string& form) {
  const std::string shown = text.size() > 60 ? text.substr(0, 60) + "..." : text;
  for (const ctl::Message& row : ctl::Messages()) {
    if (row.format == form)
      return "  - \"" + shown + "\": " + row.meaning + " " + row.action + "\n";
  }
  return "no message " + form;
}

// How the answer begins.
std::string Head(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return path + (path.ends_with(".mid") ? "\nloaded" : "\nfailed") +
         FormatTime(status.st_ctime, " %Y-%m-%d at %H:%M:%S, or was touched then\n\n");
}

// Expects this behind the beginning of the answer for a file, which is made where there is none.
void Tells(const std::string& path, const std::string& told, int status = 0) {
  WriteFile(path, "");
  EXPECT_EQ(Midtablectl({"why", path}), (Outcome{status, Head(path) + told}));
}

class WhyTest : public MidtablectlTest {
 protected:
  static std::string LogError(const std::string& text) { return Log("Midtable", "ErrLog", text); }
  // What is logged when the server refuses a file with these words. The second line, which alone
  // is shown, has all of the first.
  std::string LogFailedLoad(const std::string& words, const std::string& stem = kFile) {
    const std::string text = "execute load data infile \"" + stem + ".dat\" failed, error:" + words;
    Log("MysqlBase", "ErrLog", text);
    m_explained = Explained("ret (0) (" + text + ")", "ret (%d) (%s)");
    return LogError("ret (0) (" + text + ")");
  }
  std::string m_explained;  // the last failed load
};

TEST_F(WhyTest, NameThatAShellReadsOtherwise) {
  const std::string path = kFile + "$(id).err";
  const std::string told = kNoLog + kUntold;
  Tells(path, told, 1);
  EXPECT_EQ(Midtablectl({"why", path.substr(kFolder.size())}), (Outcome{1, Head(path) + told}));
}

TEST_F(WhyTest, LoadWhoseAnswerWasLost) {
  const std::string shown = LogFailedLoad("Lost connection to server during query");
  const std::string broke =
      "  - the connection broke, see the server's error log; the file may be loaded all the same: "
      "see \"After a crash\" in operations.md before it is tried again\n";
  Tells(kErr,
        shown + kDo + broke + m_explained +
            "WARNING: the server may have loaded it: its answer was lost. Look for its rows first, "
            "see \"After a crash\" in operations.md; where they are in, rename it to .mid.\n" +
            kSettled);
}

TEST_F(WhyTest, FailuresOfOtherFiles) {
  LogFailedLoad("The table is full", kFile + "1");
  LogError("table (MEM_20121230_0001F) create failed not load");
  Tells(kErr, "The run log says nothing of it (yet).\n" + kTryAgain + kUntold, 1);
}

TEST_F(WhyTest, OtherLinesOfThatMoment) {
  LogError("get node /root/Mem/MidTab9 failed");
  Log("Midtable", "DebugLog", "load table (WLAN_1a2b3c4d.MEM_20121230_0000A) success");
  std::string shown =
      Log("Midtable", "DebugLog", "before convert file size (" + kFile + ".dat)(1)");
  Log("tourlocaluser", "ErrLog", "dbinfo.readConfig() error.");
  shown += LogFailedLoad("The table is full");
  Log("Midtable", "DebugLog", "no file to load reconnect db");
  Tells(kErr, shown + kDo + kMakeRoom + m_explained + kMended);
}

TEST_F(WhyTest, LogOfTheDayBeforeThatWasSetAside) {
  const std::string shown = Log("Midtable", "ErrLog", kNotMade, 1, ".bak");
  Tells(kErr, shown + kDo + Explained(kNotMade, "table (%s) create failed not load") + kMended);
}

TEST_F(WhyTest, ConversionThatFailed) {
  const std::string text = "sql commit error execute commit failed, error:Deadlock found";
  const std::string table = "convert memtable WLAN_1a2b3c4d.MEM_20121230_0000F";
  Log("Midtable", "InfoLog", "commit ok!");
  std::string shown = LogError(text);
  shown += LogError(table + " failed!");
  // Another file asked for the conversion of both.
  shown += LogError("convert " + kSecondFile + ".dat error, ignore it");
  Tells(kMid, shown + kDo + "  - another session was in the way: try again\n" +
                  Explained(text, "sql %s error %s") + kRowsStay);
  Log("Midtable", "InfoLog", table + " ok!");
  Tells(kMid, "It is loaded, and the run log has no failed conversion of its rows (yet).\n");
}

}  // namespace
