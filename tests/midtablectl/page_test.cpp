// The page of `midtablectl status --html`. packaging/check-page looks at it in a browser.
#include "gmock/gmock.h"
#include "midtablectl/midtablectl_fixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kPage = "/tmp/metrics/midtable.html";
const std::string kHistory = kPage + ".history.json";

// A file that failed, as the service leaves it and tells of it.
void Fail(const std::string& path, const std::string& reason) {
  WriteFile(path + ".err", "");
  Log("Midtable", "ErrLog", "file (" + path + ".dat) set aside: " + reason);
}

std::string DaysAgo(int days) { return FormatTime(std::time(nullptr) - days * 86'400, "%Y%m%d"); }

class PageTest : public MidtablectlServerTest {
 protected:
  PageTest() { fs::create_directories("/tmp/metrics"); }

  // The page of a look, which ends with this status.
  std::string Page(int status) {
    m_run = Midtablectl({"status", "--html", kPage});
    EXPECT_EQ(m_run.status, status) << m_run;
    return ReadFile(kPage);
  }

  Outcome m_run{};
};

TEST_F(PageTest, AllIsWellOnlyWhileTheServiceRuns) {
  EXPECT_THAT(Page(0),
              AllOf(HasSubstr("One thing needs a hand"), HasSubstr("The service is not running.")));
  const Outcome running = Shell(
      "exec 9>/tmp/midtable.lock; python3 -c 'import fcntl; fcntl.lockf(9, fcntl.LOCK_EX); "
      "import subprocess; subprocess.run([\"" MIDTABLECTL "\", \"status\", \"--html\", \"" +
      kPage + "\"])'");
  EXPECT_EQ(running.errors, "");
  EXPECT_THAT(ReadFile(kPage), HasSubstr("All is well"));
  fs::remove("/tmp/midtable.lock");
}

TEST_F(PageTest, AMissingListOfNumberBlocksNeedsAHand) {
  Log("tourlocaluser", "ErrLog", kBlocks + " stat faild:");
  EXPECT_THAT(Page(0), AllOf(HasSubstr("Local users: " + kBlocks + " stat faild:"),
                             HasSubstr("To do: Put the file into place.")));
}

TEST_F(PageTest, WritesNothingElseAndIsReadableByAll) {
  WriteFile(kPage, "what was there before\n");
  fs::create_hard_link(kPage, "/tmp/metrics/old");
  Page(0);
  EXPECT_EQ(m_run.output + m_run.errors, "");
  EXPECT_EQ(ReadFile("/tmp/metrics/old"), "what was there before\n");
  EXPECT_EQ(ListFolder("/tmp/metrics"),
            (Words{"midtable.html", "midtable.html.history.json", "old"}));
  EXPECT_EQ(fs::status(kPage).permissions(), fs::perms(0644));
}

TEST_F(PageTest, AFolderThatIsNotThereIsTold) {
  EXPECT_EQ(Midtablectl({"status", "--html", "/tmp/none/page.html"}).status, 2);
}

TEST_F(PageTest, FailuresThatDifferInValuesAreOneReason) {
  Fail(kFile, "Incorrect integer value: 'x' for column 'a' at row 1");
  Fail(kSecondFile, "Incorrect integer value: 'yy' for column 'b' at row 27");
  const std::string page = Page(1);
  EXPECT_THAT(page, HasSubstr("2 files failed."));
  EXPECT_THAT(page, HasSubstr("To do: a value does not fit its column: see the row in the file"));
  EXPECT_THAT(page, HasSubstr("data-label=\"Files\">2</td>"));
}

TEST_F(PageTest, ReasonsOfTheOtherWayOfWorkingAreTheWordsOfTheServer) {
  WriteFile(kFile + ".err", "");
  Log("Midtable", "ErrLog",
      "ret (0) (execute load data infile \"" + kFile +
          ".dat\" ignore into table MEM failed, error:Unknown column 'q' in 'field list')");
  EXPECT_THAT(Page(1), AllOf(HasSubstr("Unknown column &#39;q&#39; in &#39;field list&#39;"),
                             Not(HasSubstr("load data infile"))));
}

TEST_F(PageTest, AFailureThatTheLogDoesNotTellIsShownAllTheSame) {
  WriteFile(kFile + ".err", "");
  EXPECT_THAT(Page(1), HasSubstr("The run log does not name these files."));
}

TEST_F(PageTest, NamesAndReasonsAreTextWhateverTheyHold) {
  Fail(kFile + "<img src=x onerror='alert(1)'>", "<script>alert(2)</script> \"quoted\"");
  const std::string page = Page(1);
  EXPECT_THAT(page, HasSubstr("080000&lt;img src=x onerror=&#39;alert(1)&#39;&gt;.err"));
  EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(2)&lt;/script&gt; &quot;quoted&quot;"));
  EXPECT_THAT(page, AllOf(Not(HasSubstr("<img")), Not(HasSubstr("<script"))));
}

TEST_F(PageTest, RowsAreCountedFromTheSecondLookOn) {
  Page(0);
  Replace(kHistory, "\"looked_at\":", "\"looked_at\":0,\"was\":");
  Replace(kHistory, "\"looked_at\":0", "\"looked_at\":" + std::to_string(std::time(nullptr) - 30));
  WriteFile(kFile + ".mid", "1\n2\n3\n");
  sleep(1);
  Page(0);
  EXPECT_THAT(ReadFile(kHistory), HasSubstr("\"rows\":{\"WLAN_1a2b3c4d\":3}"));
  sleep(1);
  Page(0);
  EXPECT_THAT(ReadFile(kHistory), HasSubstr("\"rows\":{\"WLAN_1a2b3c4d\":3}"));
}

TEST_F(PageTest, TotalsAreOfAllDatabasesAndOfTheFirstColumnThatCounts) {
  server.Run("create or replace database WLAN_5e6f7a8b");
  for (const char* id : {"1a2b3c4d", "5e6f7a8b"}) {
    for (const std::string& day : {DaysAgo(0), DaysAgo(30), DaysAgo(40)}) {
      const std::string table = "WLAN_" + std::string(id) + ".T_FLOW1D_" + day;
      server.Run("create table " + table +
                 " (hour int primary key, service char(9), n int, m int); insert into " + table +
                 " values (1, 'web', 600, 5), (2, 'web', 7, 5)");
    }
  }
  const std::string page = Page(0);
  server.Run("drop database WLAN_5e6f7a8b");
  EXPECT_THAT(page, AllOf(HasSubstr("T_FLOW1D_"), HasSubstr("n, at most 1,214"),
                          HasSubstr(": no table"), Not(HasSubstr("T_FLOW1Y"))));
  EXPECT_THAT(ReadFile(kHistory),
              AllOf(HasSubstr("\"" + DaysAgo(30) + "\":1214.0"), Not(HasSubstr(DaysAgo(40)))));
}

TEST_F(PageTest, OldDaysAreAskedForOnceAnHour) {
  const std::string table = "WLAN_1a2b3c4d.T_FLOW1D_";
  for (const int days : {0, 9}) {
    server.Run("create table " + table + DaysAgo(days) + " select 1 as a, 5 as n");
  }
  Page(0);
  for (const int days : {0, 9}) server.Run("update " + table + DaysAgo(days) + " set a = 2");
  Page(0);
  EXPECT_THAT(ReadFile(kHistory),
              AllOf(HasSubstr(DaysAgo(9) + "\":1.0"), HasSubstr(DaysAgo(0) + "\":2.0")));
  Replace(kHistory, "\"totals_at\":1", "\"totals_at\":0,\"was\":1");
  Page(0);
  EXPECT_THAT(ReadFile(kHistory), HasSubstr(DaysAgo(9) + "\":2.0"));
}

TEST_F(PageTest, AServerThatIsGoneLeavesTheRest) {
  server.Run("create table WLAN_1a2b3c4d.T_FLOW1D_" + DaysAgo(0) + " select 12345 as n");
  Page(0);
  Replace(kSettings, "port=" + port, "port=1");
  Fail(kFile, "its kind is not known");
  const std::string page = Page(2);
  EXPECT_THAT(page, HasSubstr("The server could not be asked: "));
  EXPECT_THAT(page, HasSubstr(". To do: is the server up, and are host and port"));
  EXPECT_THAT(page, HasSubstr("What is shown is what an earlier look saw."));
  EXPECT_THAT(page, AllOf(HasSubstr("at most 12,345"), HasSubstr("its kind is not known")));
}

TEST_F(PageTest, ADamagedHistoryIsToldAndThePageMade) {
  WriteFile(kHistory, "{\"version\":1,");
  EXPECT_THAT(Page(0), HasSubstr("the curves begin anew"));
  EXPECT_THAT(m_run.errors, HasSubstr("set aside as " + kHistory + ".damaged"));
  EXPECT_THAT(ReadFile(kHistory), HasSubstr("\"version\":1"));
  Page(0);
  EXPECT_EQ(m_run.errors, "");
}

TEST_F(PageTest, AHistoryBehindALinkIsNotFollowed) {
  WriteFile("/tmp/metrics/other", "mine");
  fs::create_symlink("/tmp/metrics/other", kHistory);
  Page(0);
  EXPECT_THAT(m_run.errors, HasSubstr("cannot be used"));
  EXPECT_EQ(ReadFile("/tmp/metrics/other"), "mine");
}

TEST_F(PageTest, AFolderThatCannotBeReadHasNoFigures) {
  fs::permissions(kFolder, fs::perms::none);
  EXPECT_THAT(Page(2), AllOf(HasSubstr("1 folder of the spool cannot be read."),
                             HasSubstr("data-label=\"Waiting\">?</td>")));
}

}  // namespace
