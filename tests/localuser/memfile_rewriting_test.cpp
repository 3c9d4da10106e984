#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "localuser/registry_fixture.h"

namespace fs = std::filesystem;

using testing::HasSubstr;

class Rewriting : public RegistryTest {
 protected:
  Rewriting() { LoadBlocks("1380013\n"); }

  // What a file of that content becomes.
  std::string Rewritten(const std::string& content) {
    WriteFile(kIn, content);
    m_log = Rewrite(kIn);
    return ReadFile(kOut);
  }

  const std::string kLocal = Record("800138000");
  const std::string kVisitor = Record("1");
  std::string m_log;
};

TEST_F(Rewriting, AppendsToEachRecordWhetherItsUserIsLocal) {
  const std::string nobody = Record("0");
  EXPECT_EQ(Rewritten(kVisitor + "\n" + nobody + "\n" + kLocal + "\n"),
            kVisitor + "\t0\n" + nobody + "\t2\n" + kLocal + "\t1\n");
  EXPECT_THAT(m_log, HasSubstr("file " + kIn + " local 1 visitors 1 without user 1 dropped 0\n"));
}

TEST_F(Rewriting, TakesTheCodeAsStrtoulDoesAndTheBlockFromTheName) {
  const std::pair<std::string, std::string> cases[] = {
      {"999999999", "1399999"},    {"1000000000", "1310000"},  {"1073741823", "1310737"},
      {"1073741825", "1400000"},   {"2147483648", "1500000"},  {"4294967295", "1810737"},
      {" +800138000x", "1380013"}, {"-3494829296", "1380013"}, {"18446744073709551616", "1810737"}};
  for (const auto& [field, block] : cases) {
    LoadBlocks(block + "\n");
    EXPECT_EQ(Rewritten(Record(field)), Record(field) + "\t1\n");
  }
}

TEST_F(Rewriting, ACodeOf0IsNoUser) {
  for (const char* field : {"0", " ", "x", "0x2fb12d90", "4294967296"}) {
    EXPECT_EQ(Rewritten(Record(field)), Record(field) + "\t2\n");
  }
}

TEST_F(Rewriting, LeavesOutLinesOfOtherThan11Fields) {
  EXPECT_EQ(Rewritten(kVisitor + "\n\n\r\n" + Record("") + "\n" + Record("1\t2") + "\n" + kLocal),
            kVisitor + "\t0\n" + kLocal + "\t1\n");
  EXPECT_THAT(m_log, HasSubstr("<3>:file " + kIn + " line 2 not correct, ignore it\n"));
  EXPECT_THAT(m_log, HasSubstr("visitors 1 without user 0 dropped 4\n"));
  EXPECT_EQ(m_registry.lostLines(), 3U) << "the empty line holds nothing";
}

TEST_F(Rewriting, LeavesOutALineOfMoreThanAMiB) {
  const std::string too_long = kVisitor + std::string(1 << 20, '\t') + kVisitor;
  EXPECT_EQ(Rewritten(too_long + "\n" + kLocal + "\n" + too_long), kLocal + "\t1\n");
}

TEST_F(Rewriting, TakesTabsInARowAsOneAndAllOtherBytesAsTheyAre) {
  EXPECT_EQ(Rewritten("\t\t" + Record("800138000\t") + "\t\n"), kLocal + "\t1\n");
  EXPECT_EQ(Rewritten(kLocal + '\0' + "\r\n"), kLocal + '\0' + "\r\t1\n");
}

TEST_F(Rewriting, GivesTheCopyTheModeOfTheInput) {
  WriteFile(kIn, kLocal);
  fs::permissions(kIn, fs::perms(0664));
  umask(077);
  Rewrite(kIn);
  EXPECT_EQ(fs::status(kOut).permissions(), fs::perms(0664));
}

TEST_F(Rewriting, ReplacesALinkInsteadOfWritingThroughIt) {
  WriteFile(kIn, kLocal);
  fs::create_symlink("/tmp/spool/other", kOut);
  Rewrite(kIn);
  EXPECT_FALSE(fs::is_symlink(kOut));
  EXPECT_FALSE(fs::exists("/tmp/spool/other"));
}

TEST_F(Rewriting, MakesNoCopyOfWhatIsNoReadableRegularFile) {
  WriteFile(kIn, kLocal);
  ASSERT_EQ(mkfifo("/tmp/spool/fifo", 0600), 0);
  fs::create_symlink(kIn, "/tmp/spool/link");
  // The own memory is a regular file whose first page gives a read error.
  for (const char* in : {"/tmp/spool", "/tmp/spool/fifo", "/tmp/spool/link", "/proc/self/mem"}) {
    WriteFile(kOut, "left by an earlier run");
    EXPECT_THAT(Rewrite(in), HasSubstr(in));
    EXPECT_FALSE(fs::exists(kOut)) << in;
  }
}

// A write is cut short in the second record, then refused: what a full disk does.
TEST_F(Rewriting, LeavesNoCopyWhereTheDiskIsFull) {
  const std::string content = kVisitor + "\n" + kLocal + "\n";
  WriteFile(kIn, content);
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{content.size() - 1, RLIM_INFINITY};
  const rlimit no_limit{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  m_registry.ParseMemfile(kIn, kOut);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &no_limit), 0);
  EXPECT_FALSE(fs::exists(kOut));
}
