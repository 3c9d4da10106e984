#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "gmock/gmock.h"
#include "localuser/tourlocaluser.h"
#include "testing/files.h"

namespace fs = std::filesystem;
using std::string_literals::operator""s;
using testing::HasSubstr;

namespace {

const std::string kIn = "/tmp/spool/in.dat";
const std::string kOut = "/tmp/spool/in.mid";

// A record of 11 fields; code 800138000 is the number 13800138000.
std::string Record(const std::string& code) { return "a\t" + code + "\tc\td\te\tf\tg\th\ti\tj\tk"; }

class MemfileRewriting : public testing::Test {
 protected:
  MemfileRewriting() {
    fs::remove_all("/tmp/spool");
    LoadBlocks("1380013\n");
  }
  void LoadBlocks(const std::string& csv) {
    WriteFile("/tmp/blocks.csv", csv);
    ASSERT_EQ(m_registry.LoadConfig("/tmp/blocks.csv"), 1);
  }
  // Rewrites the file; what was logged meanwhile.
  std::string Parse(const std::string& in = kIn, const std::string& out = kOut) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.ParseMemfile(in, out), 1);
    return log.text();
  }
  void ExpectRewritten(const std::string& content, const std::string& expected) {
    WriteFile(kIn, content);
    Parse();
    EXPECT_EQ(ReadFile(kOut), expected) << content.substr(0, 80);
  }
  TourLocalUser m_registry;
};

TEST_F(MemfileRewriting, FlagsWellFormedRecordsAndDropsOthers) {
  const std::string record = Record("800138000"), out = record + "\t1\n", visitor = Record("1");
  ExpectRewritten("", "");
  ExpectRewritten(record, out);
  ExpectRewritten(visitor + "\n" + record + "\r\n", visitor + "\t0\n" + record + "\r\t1\n");
  ExpectRewritten(record + "\0\n"s, record + "\0\t1\n"s);
  ExpectRewritten("\t\t" + Record("800138000\t") + "\t\n", out);
  ExpectRewritten("\n\r\n" + Record("") + "\n" + Record("1\t2") + "\nb\n" + record + "\n", out);
  ExpectRewritten(visitor + std::string(3'000'000, '\t') + "\n" + record + "\n", out);
  ExpectRewritten(record + "\n" + std::string(2 << 20, 'x'), out);
  // The code is read as strtoul reads it, cut to 32 bits.
  const std::pair<std::string, char> codes[] = {{" +800138000x", '1'}, {"5095105296", '1'},
                                                {"-3494829296", '1'},  {"+-800138000", '2'},
                                                {"0x2fb12d90", '2'},   {" ", '2'},
                                                {"4294967296", '2'},   {std::string(30, '9'), '0'}};
  for (const auto& [code, flag] : codes) {
    ExpectRewritten(Record(code), Record(code) + "\t" + flag + "\n");
  }
}

TEST_F(MemfileRewriting, AgreesWithTheLookupByName) {
  std::mt19937 random(20130128);
  std::vector<unsigned int> codes{999'999'999, 1'000'000'000, 0x3FFFFFFF, 0xFFFFFFFF, 0x40000000};
  while (codes.size() < 4000) codes.push_back(static_cast<unsigned int>(random()) | 1U);
  std::string blocks, in, out;
  for (std::size_t i = 0; i < codes.size(); i += 2) {
    blocks += m_registry.GetUserName(codes[i]).substr(0, 7) + "\n";
  }
  LoadBlocks(blocks);
  for (const unsigned int code : codes) {
    const int local = m_registry.isLocalUser(m_registry.GetUserName(code));
    in += Record(std::to_string(code)) + "\n";
    out += Record(std::to_string(code)) + "\t" + std::to_string(local) + "\n";
  }
  ExpectRewritten(in, out);
}

TEST_F(MemfileRewriting, LogsDroppedLinesAndCounts) {
  WriteFile(kIn, Record("800138000") + "\n\n" + Record("7") + "\n" + Record("0") + "\nbad\n");
  const std::string log = Parse();
  EXPECT_THAT(log, HasSubstr("<3>:file " + kIn + " line 2 not correct, ignore it\n"));
  EXPECT_THAT(log, HasSubstr("<3>:file " + kIn + " line 5 not correct, ignore it\n"));
  EXPECT_THAT(log, HasSubstr("file " + kIn + " local 1 visitors 1 without user 1 dropped 2\n"));
}

TEST_F(MemfileRewriting, LeavesNoCopyOfAnInputThatCannotBeReadWhole) {
  WriteFile(kIn, Record("1"));
  WriteFile("/tmp/spool/secret", Record("1"));
  ASSERT_EQ(chmod("/tmp/spool/secret", 0), 0);
  ASSERT_EQ(mkfifo("/tmp/spool/fifo", 0600), 0);
  fs::create_symlink(kIn, "/tmp/spool/link");
  // The own memory is a regular file whose first page gives a read error.
  for (const std::string in : {"/tmp/spool", "/tmp/spool/secret", "/tmp/spool/fifo",
                               "/tmp/spool/link", "/proc/self/mem"}) {
    WriteFile(kOut, "left by an earlier run");
    EXPECT_THAT(Parse(in), HasSubstr(in));
    EXPECT_FALSE(fs::exists(kOut)) << in;
  }
  Parse("/tmp/spool/nothing");
  EXPECT_EQ(ReadFile(kOut), "") << "nothing can be lost of a file that does not exist";
}

TEST_F(MemfileRewriting, LeavesNoCopyThatCannotBeWrittenWhole) {
  const std::string content = Record("800138000") + "\n" + Record("0") + "\n";
  WriteFile(kIn, content);
  // A write that is cut short in the second record, then refused: what a full disk does.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit full{content.size() - 1, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  m_registry.ParseMemfile(kIn, kOut);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(fs::exists(kOut));
  EXPECT_THAT(Parse(kIn, "/tmp/none/x"), HasSubstr("<2>:cannot create /tmp/none/x, errno 2 "));
}

TEST_F(MemfileRewriting, GivesTheCopyTheModeOfTheInputAndWritesThroughNoLink) {
  WriteFile(kIn, Record("0"));
  ASSERT_EQ(chmod(kIn.c_str(), 0664), 0);
  fs::create_symlink("/tmp/spool/other", kOut);
  const mode_t old = umask(077);
  Parse();
  umask(old);
  struct stat status {};
  ASSERT_EQ(lstat(kOut.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0664));
}

}  // namespace
