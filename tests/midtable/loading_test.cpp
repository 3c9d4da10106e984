#include "midtable/loading.h"

#include <sys/stat.h>

#include "midtable/engine_fixture.h"
#include "support/names.h"

namespace {

using testing::Contains, testing::ElementsAre, testing::IsEmpty, testing::Not, testing::StartsWith;

const std::string kLoad = "load data infile \"" + kFile + "\" ignore into table " + kTable;

class Loading : public StepTest {
 protected:
  Loading() { WriteFile(kFile, "a\t0\tc\td\te\tf\tg\th\ti\tj\tk"); }

  bool Load(const std::string& path = kFile, bool rewrites = true) {
    return Logged([&] {
      const MemFile file = MemFile::Parse(path);
      return MemFileLoading(store, registry, not_emptied, rewrites, file).Run();
    });
  }
};

TEST_F(Loading, HasTheServerReadAFileThatItMayRead) {
  fs::permissions(kFile, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_TRUE(Load(kFile, false));
  EXPECT_THAT(script.Take(), ElementsAre("existDB(WLAN_1a2b3c4d)", Table(kDb, kMem),
                                         Table(kDb, "MEM_20121231_0004F_external"), kLoad));
  EXPECT_EQ(fs::status(kFile).permissions(), fs::perms(0755));
}

TEST_F(Loading, AFileOfKindFIsRewrittenOnceHoweverOftenItIsLoaded) {
  const std::string flagged = ReadFile(kFile) + "\t2\n";
  EXPECT_TRUE(Load());
  EXPECT_EQ(ReadFile(kFile), flagged);
  EXPECT_EQ(fs::status(kFile).permissions(), fs::perms(01755)) << "marked as rewritten";
  EXPECT_TRUE(Load());
  EXPECT_THAT(log, Contains("<0>:file (" + kFile + ") is rewritten already"));
  EXPECT_EQ(ReadFile(kFile), flagged);
}

TEST_F(Loading, RefusesNamesThatCouldEndAStatementOrSayTooLittle) {
  const std::string unsafe = "name is not safe in a statement, refused";
  const std::string too_little = "tablename is null";
  const std::pair<std::string, std::string> cases[] = {{"a\";drop table x;F", unsafe},
                                                       {"mysql.userF", unsafe},
                                                       {"a\nF", unsafe},
                                                       {std::string(64, 'x'), too_little},
                                                       {"", too_little}};
  for (const auto& [table, reason] : cases) {
    const std::string path = "/x/1a2b3c4d-" + table + "-20121231-101500.dat";
    EXPECT_FALSE(Load(path));
    EXPECT_THAT(log, ElementsAre("<2>:file (" + Printable(path) + ") " + reason));
  }
  EXPECT_THAT(script.Take(), IsEmpty());
}

TEST_F(Loading, RefusesEverythingButRegularFiles) {
  WriteFile("/vqlog/secret", "x");
  const auto mode = fs::status("/vqlog/secret").permissions();
  const std::string not_regular = "is not a regular file, refused";
  const std::pair<std::function<void()>, std::string> kinds[] = {
      {[] { fs::create_directory(kFile); }, not_regular},
      {[] { fs::create_symlink("/vqlog/secret", kFile); }, not_regular},
      {[] { ASSERT_EQ(mkfifo(kFile.c_str(), 0600), 0); }, not_regular},
      {[] {}, "stat error(2)"},
  };
  for (const auto& [make, reason] : kinds) {
    fs::remove(kFile);
    make();
    EXPECT_FALSE(Load());
    EXPECT_THAT(log, ElementsAre("<2>:file (" + kFile + ") " + reason));
  }
  EXPECT_THAT(script.Take(), IsEmpty());
  EXPECT_EQ(fs::status("/vqlog/secret").permissions(), mode);
}

TEST_F(Loading, AFailedLookUpMakesNothingAndLoadsNothing) {
  for (const std::string& asked : {std::string("existDB"), Table(kDb, kMem)}) {
    FailNoMore();
    Fail(asked, SqlFailure::kConnection);
    EXPECT_FALSE(Load());
    EXPECT_THAT(script.Take().back(), StartsWith(asked));
  }
}

TEST_F(Loading, RowsThatAreConvertedAlreadyAreRemovedBefore) {
  not_emptied.Add(kTable);
  Fail("truncate");
  EXPECT_FALSE(Load());
  EXPECT_EQ(log.back(), "<2>:table (" + kTable + ") still holds converted rows not load");
  EXPECT_THAT(script.Take(), Not(Contains(kLoad)));
  FailNoMore();
  EXPECT_TRUE(Load());
  EXPECT_THAT(script.Take({"show", "exist"}), ElementsAre("truncate table " + kTable, kLoad));
}

}  // namespace
