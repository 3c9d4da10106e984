#include "spool/mem_file.h"

#include "gtest/gtest.h"
#include "support/names.h"

namespace {

TEST(MemFileName, AcceptsTheGrammarAndNothingElse) {
  for (const char* good :
       {"1a2b3c4d-userlog-20120101-080000.dat", "1a2b3c4d--20120101-080000.dat",
        "zzzzzzzz-userlog-20120101-080000.dat", "abc-userlog-20120101-080000.dat",
        "-userlog-20120101-080000.dat", "1a2b3c4d-userlog-99999999x-999999x.dat",
        "abcdef012xyz-userlog-20120101-080000.dat"}) {
    EXPECT_TRUE(IsMemFileName(good)) << good;
  }
  for (const char* bad :
       {"xyz-userlog-20120101-080000.dat", "1a2b3c4d-userlog-2012011-080000.dat",
        "1a2b3c4d-userlog-20120101-08000.dat", "1a2b3c4d-userlog-20120101.dat",
        "1a2b3c4d-userlog-20120101-080000.dat.bak", "1a2b3c4d-userlog-20120101-080000.x.dat",
        "1a2b3c4d-userlog-20120101-080000.DAT", "1a2b3c4d-userlog-20120101-080000.mid"}) {
    EXPECT_FALSE(IsMemFileName(bad)) << bad;
  }
  const std::string good = "1a2b3c4d-userlog-20120101-080000.dat";
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(IsMemFileName(good.substr(0, size))) << size;
  }
}

TEST(MemFileName, DerivesTheItems) {
  const std::string letters(200, 'x');
  const std::pair<std::string, std::string> fields[] = {
      {"MEM_20120101_1234F", "MEM_20120101_0004F"},
      {"userlog", "userlog"},
      {"abcdefghijkl", "abcdefghijkl"},
      {"abcdefghijklm", "abcdefghijklm000"},
      {"abcdefghijklmF", "abcdefghijklm000"},
      {"abcdefghijklmnop", "abcdefghijklm000"},
      {letters.substr(0, 64), ""},
      {letters, ""},
      {letters.substr(0, 63), letters.substr(0, 13) + "000" + letters.substr(0, 47)}};
  for (const auto& [field, table] : fields) {
    EXPECT_EQ(MemFile::Parse("/d/1a2b3c4d-" + field + "-20120101-235959.dat").table, table)
        << field;
  }
  EXPECT_EQ(MemFile::Parse("nodash").table, "");
  EXPECT_EQ(MemFile::Parse("-a-b").table, "");

  EXPECT_EQ(MemFile::Parse("/x-y/1a2b3c4d-t-20120101-235959.dat").database, "WLAN_1a2b3c4d");
  EXPECT_EQ(MemFile::Parse("abc-userlog-20120101-080000.dat").database, "WLAN_abc-user");
  EXPECT_EQ(MemFile::Parse("  a b").database, "WLAN_a");
  EXPECT_EQ(MemFile::Parse("/folder/").database, "");

  EXPECT_EQ(MemFile::Parse("/any/path").path, "/any/path");
  EXPECT_EQ(MemFile::Parse("abcdefghij.dat").path,
            "/vqlog/log_data/midtable/abcdefgh/abcdefghij.dat");
  EXPECT_EQ(MemFile::Parse("  ").Refusal(), NameRefusal::kNoPath);
}

TEST(MemFileName, TellsNamesThatBreakOutOfAStatement) {
  for (const char* bad :
       {"a'b", "a\"b", "a`b",  "a\\b", "a(b",   "a)b",        "a;b",   "a--b", "a/*b",
        "a#b", "a b",  "a\tb", "a\nb", "a\x7f", "mysql.user", "a@b",   "100%", "a,b",
        "a=b", "a:b",  "a?b",  "a/b",  "a*b",   "{a}",        "a\x01", "a\r"}) {
    EXPECT_FALSE(IsSafeIdentifier(bad)) << bad;
  }
  for (const char* good :
       {"MEM_20120101_0004F", "WLAN_abc-user", "a$b", "\xe8\xa1\xa8", "select"}) {
    EXPECT_TRUE(IsSafeIdentifier(good)) << good;
  }
  for (const char* good : {"np", "", "a#1$_", "\"p@ s's;\""})
    EXPECT_TRUE(IsSafePassword(good)) << good;
  for (const char* bad : {"a b", "a;b", "a'b", "\"a\"b\"", "\"", "\"a\nb\"", "a--", "a/*"}) {
    EXPECT_FALSE(IsSafePassword(bad)) << bad;
  }
  EXPECT_TRUE(IsSafePath("/a b/c;d.dat"));
  for (const char* bad : {"/a\"b", "/a'b", "/a\\", "/a\n"}) EXPECT_FALSE(IsSafePath(bad)) << bad;
}

}  // namespace
