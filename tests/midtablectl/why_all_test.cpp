// What `midtablectl why` tells without a name: failures and what is held back, by reason.
#include <algorithm>
#include <thread>

#include "gmock/gmock.h"
#include "midtablectl/midtablectl_fixture.h"

namespace {

using testing::HasSubstr;

class WhyAllTest : public MidtablectlTest {
 protected:
  // A file that failed to load, with the log's line about it.
  static void Fail(const std::string& stem, const std::string& words) {
    WriteFile(stem + ".err", "");
    Log("Midtable", "ErrLog",
        "ret (0) (execute load data infile \"" + stem + ".dat\" failed, error:" + words + ")");
  }
  // What is printed, the times of the paragraphs left out, which must have this status.
  static std::string Told(int status = 1) {
    const Outcome run = Midtablectl({"why"});
    EXPECT_TRUE(run.status == status && run.errors.empty()) << run;
    const std::regex time(", last [0-9-]{10} at [0-9:]{8}\n");
    return WithoutService(std::regex_replace(run.output, time, "\n"));
  }
  // No case has a service that runs, which the first paragraph tells.
  static std::string WithoutService(const std::string& output) {
    EXPECT_THAT(output, testing::StartsWith("The service is not running; "));
    return output.substr(std::min(output.find("\n\n"), output.size() - 2) + 2);
  }
  static int Paragraphs(const std::string& told) {
    return static_cast<int>(std::count(told.begin(), told.end(), '>'));
  }
};

TEST_F(WhyAllTest, NothingFailed) {
  WriteFile(kFile + ".dat", "");
  WriteFile(kSecondFile + ".mid", "");
  EXPECT_EQ(Told(0), "Nothing has failed, and nothing is held back.\n");
}

TEST_F(WhyAllTest, FilesThatFailForOneReasonAreOneParagraph) {
  Fail(kFile, "Duplicate entry '5' for key 'PRIMARY'");
  Fail(kSecondFile, "Duplicate entry '617' for key 'PRIMARY'");
  const std::string told = Told();
  EXPECT_THAT(told, testing::StartsWith("2 files failed\n  [Midtable]["));
  EXPECT_THAT(told, HasSubstr("\n  for instance " + kFolder));
  EXPECT_THAT(told, HasSubstr("\n  -> rows with a key that is there already: write on duplicate "
                              "key update\n"));
  EXPECT_EQ(Paragraphs(told), 1);
}

TEST_F(WhyAllTest, TheNewestReasonComesFirst) {
  Fail(kFile, "The table is full");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  Fail(kSecondFile, "Unknown column 'x'");
  const std::string told = Told();
  EXPECT_LT(told.find("Unknown column"), told.find("The table is full"));
  EXPECT_EQ(Paragraphs(told), 2);
}

TEST_F(WhyAllTest, AFailureThatTheLogDoesNotTell) {
  WriteFile(kFile + ".err", "");
  EXPECT_EQ(Told(), "1 file failed\n  " + kFile +
                        ".err\n  -> the run log does not tell why: midtablectl why FILE says what "
                        "is known, midtablectl check may find the reason\n\nMore of one file: "
                        "midtablectl why FILE\n");
}

TEST_F(WhyAllTest, ANameWithAQuoteIsFoundInTheLog) {
  const std::string stem = kFolder + "1a2b3c4d-MEM_2012'<b>F-20121230-080000";
  WriteFile(stem + ".err", "");
  Log("Midtable", "ErrLog",
      "file (" + stem + ".dat) set aside: name is not safe in a statement, refused");
  EXPECT_THAT(Told(), HasSubstr("set aside: name is not safe"));
}

TEST_F(WhyAllTest, WhatIsHeldBackCountsItsFiles) {
  const std::string table = "table WLAN_1a2b3c4d.MEM_20121230_0000";
  Log("Midtable", "ErrLog", table + "F held back, 3 files wait: Unknown column 'x'");
  Log("Midtable", "ErrLog", table + "A held back, 4 files wait: Unknown column 'y'");
  Log("Midtable", "ErrLog", table + "B held back, 9 files wait: Unknown column 'z'");
  Log("Midtable", "InfoLog", table + "B goes on");
  const std::string told = Told();
  EXPECT_THAT(told, testing::StartsWith("7 files held back and tried again\n"));
  EXPECT_EQ(Paragraphs(told), 1);
}

TEST_F(WhyAllTest, AConversionCountsUntilItSucceeds) {
  const std::string table = "convert memtable WLAN_1a2b3c4d.MEM_20121230_0000F";
  Log("Midtable", "ErrLog", "sql commit error execute commit failed, error:Deadlock found", 1);
  Log("Midtable", "ErrLog", table + " failed!", 1);
  const std::string told = Told();
  EXPECT_THAT(told, testing::StartsWith("1 mem table not converted, rows stay in the mem table\n"));
  EXPECT_THAT(told, HasSubstr("WLAN_1a2b3c4d.MEM_20121230_0000F\n  -> another session was in the "
                              "way: try again\n"));
  Log("Midtable", "InfoLog", table + " ok!");
  EXPECT_EQ(Told(0), "Nothing has failed, and nothing is held back.\n");
}

TEST_F(WhyAllTest, WhatWasTakenBackIsNoFailure) {
  Fail(kFile, "The table is full");
  fs::rename(kFile + ".err", kFile + ".dat");
  EXPECT_EQ(Told(0), "Nothing has failed, and nothing is held back.\n");
}

TEST_F(WhyAllTest, NamesWithControlCharactersAreMadePrintable) {
  const std::string stem = kFile + "\x1b[31m";
  Fail(stem, "The table is full");
  EXPECT_THAT(Told(), testing::Not(HasSubstr("\x1b")));
}

TEST_F(WhyAllTest, AServiceThatIsDownIsToldWithTheEndOfTheRunLog) {
  const std::string last = Log("Midtable", "ErrLog", "midtable Initialize failed");
  EXPECT_THAT(Midtablectl({"why"}).output,
              testing::StartsWith("The service is not running; what waits is taken once it is.\n"
                                  "  the run log ends: " +
                                  last + "  -> systemctl start midtable; "));
}

TEST_F(WhyAllTest, SettingsThatKeepTheServiceDown) {
  WriteFile(kSettings, "host\n");
  EXPECT_THAT(Midtablectl({"why"}).output,
              HasSubstr("  the settings, " + kSettings +
                        ", cannot be used\n  -> midtablectl check --offline names the line; "));
}

TEST_F(WhyAllTest, AMissingListOfNumberBlocksIsTold) {
  Log("tourlocaluser", "ErrLog", kBlocks + " stat faild:");
  const std::string told = Told();
  EXPECT_THAT(told,
              testing::StartsWith("1 error about local users; files are loaded all the same\n"));
  EXPECT_THAT(told, HasSubstr("\n  -> Put the file into place.\n"));
}

TEST_F(WhyAllTest, NamesThatTheServicePassesOver) {
  WriteFile(kFile + ".DAT", "");
  WriteFile(kFolder + "notes.txt", "");
  const std::string told = Told();
  EXPECT_THAT(told, testing::StartsWith("1 file never taken for its name\n  behind its time "));
  EXPECT_THAT(told, HasSubstr("\n  " + kFile + ".DAT\n  -> rename it: id-table-YYYYMMDD-"));
  EXPECT_EQ(Paragraphs(told), 1);
  const Outcome one = Midtablectl({"why", kFile + ".DAT"});
  EXPECT_EQ(one.status, 1);
  EXPECT_THAT(one.output, HasSubstr("is never taken: behind its time "));
}

TEST_F(WhyAllTest, ARunLogThatCannotBeRead) {
  Fail(kFile, "The table is full");
  fs::permissions(kRunLog + Today() + ".log", fs::perms::none);
  const Outcome run = Midtablectl({"why"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.errors, kRunLog + Today() + ".log: Permission denied\n");
}

}  // namespace
