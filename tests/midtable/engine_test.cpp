#include <sys/stat.h>

#include "midtable/engine_fixture.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kFolder[] = "/vqlog/log_data/midtable/1a2b3c4d/";

class Loading : public EngineTest {
 protected:
  static std::string Drop(const std::string& table, const std::string& time) {
    const std::string path = kFolder + ("1a2b3c4d-" + table + "-20121231-" + time + ".dat");
    WriteFile(path, "row\n");
    return path;
  }
};

TEST_F(Loading, QueuesATableForConversionOnceWhateverItsDatabase) {
  engine->AddToConvert(Drop("A", "080002"));
  EXPECT_THAT(LogOf([&] { engine->AddToConvert("/x/ffffffff-A-20130101-000000.dat"); }),
              ElementsAre(HasSubstr("conflict with")));
  EXPECT_EQ(engine->filesToConvert().size(), 1U);
}

TEST_F(Loading, CreatesAMemTableFromEveryEntryOfItsKindAndOpensTheFileToTheServer) {
  WriteFile(paths::kMysqlDefinitions,
            "<root><Mem><MidCnt>3</MidCnt><MidTab1><Name>F</Name><Create>one %s</Create></MidTab1>"
            "<MidTab2><Name>A</Name><Create>other %s</Create></MidTab2>"
            "<MidTab3><Name>F</Name><Create>two %s</Create></MidTab3></Mem></root>");
  script.tables.clear();
  const std::string path = Drop(kMem, "101500");
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_TRUE(engine->LoadOneMemFile(path));
  EXPECT_THAT(script.Take({"show", "exist"}),
              ElementsAre("changeDB(WLAN_1a2b3c4d,np)", "one MEM_20121231_0004F",
                          "two MEM_20121231_0004F", HasSubstr("into table WLAN_1a2b3c4d.MEM_")));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0755));

  script.fail = {{"two", "E"}};
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->LoadOneMemFile(path)); }),
              Contains("<2>:executeSQL < two MEM_20121231_0004F > error E"));
  const std::string one = "<root><Mem><MidCnt>1</MidCnt>";
  const std::pair<std::string, std::string> missing[] = {
      {"<root/>", "MidCnt"},
      {one + "</Mem></root>", "MidTab1/Name"},
      {one + "<MidTab1><Name>F</Name></MidTab1></Mem></root>", "MidTab1/Create"}};
  for (const auto& [definitions, node] : missing) {
    WriteFile(paths::kMysqlDefinitions, definitions);
    const auto log = LogOf([&] { EXPECT_FALSE(engine->LoadOneMemFile(path)); });
    EXPECT_EQ(log.front(), "<2>:get node /root/Mem/" + node + " failed");
    EXPECT_EQ(log.back(), "<2>:table (MEM_20121231_0004F) create failed not load");
  }
  EXPECT_THAT(script.Take(), Not(Contains(HasSubstr("load data"))));
}

TEST_F(Loading, RefusesEverythingButRegularFilesAndSafeNames) {
  const std::string secret = "/vqlog/secret", stem = std::string(kFolder) + "1a2b3c4d-";
  WriteFile(secret, "x");
  fs::permissions(secret, fs::perms::owner_all);
  fs::create_directories(stem + "folderF-20121231-101500.dat");
  fs::create_symlink(secret, stem + "linkF-20121231-101500.dat");
  ASSERT_EQ(mkfifo((stem + "pipeF-20121231-101500.dat").c_str(), 0600), 0);
  for (const std::string& table : {std::string("a\";drop table x;F"), std::string("mysql.userF"),
                                   std::string("a\nF"), std::string(64, 'x'), std::string()}) {
    Drop(table, "101500");
  }
  constexpr int kFiles = 8;
  for (int refused = 0; refused < kFiles; ++refused) {
    ASSERT_TRUE(engine->GetMemFiles("1a2b3c4d"));
    EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->LoadMemFiles()); }),
                ElementsAre(testing::AnyOf(HasSubstr("refused"), HasSubstr("is null"))));
  }
  EXPECT_FALSE(engine->GetMemFiles("1a2b3c4d"));
  EXPECT_THAT(script.Take(), IsEmpty());
  EXPECT_EQ(fs::status(secret).permissions(), fs::perms::owner_all);

  const std::string path = Drop("A", "080000");  // gone between the scan and the load
  engine->GetMemFiles("1a2b3c4d");
  fs::remove(path);
  EXPECT_EQ(LogOf([&] { EXPECT_FALSE(engine->LoadMemFiles()); })[0],
            "<2>:file (" + path + ") stat error(2)");
}

TEST_F(Loading, TheRewrittenCopyTakesTheFilesPlaceAndASmallerOneKeepsTheOriginal) {
  const std::string good = "a\t0\tc\td\te\tf\tg\th\ti\tj\tk", damaged = "damaged line\n" + good;
  const std::string path = Drop(kMem, "101500"), stem = path.substr(0, path.size() - 4);
  WriteFile(path, good);
  EXPECT_TRUE(engine->ConvertMemF(path));
  EXPECT_EQ(ReadFile(path), good + "\t2\n");
  EXPECT_THAT(ListFolder(kFolder), ElementsAre(testing::EndsWith(".dat")));

  WriteFile(path, damaged);
  EXPECT_THAT(LogOf([&] { EXPECT_TRUE(engine->ConvertMemF(path)); }),
              Contains("<3>:file " + path + " line 1 not correct, ignore it"));
  EXPECT_EQ(ReadFile(path), good + "\t2\n");
  EXPECT_EQ(ReadFile(stem + ".err"), damaged);

  // Where the original cannot be kept, nothing takes its place.
  fs::remove(stem + ".err");
  fs::create_directory(stem + ".err");
  WriteFile(path, damaged);
  EXPECT_FALSE(engine->ConvertMemF(path));
  EXPECT_EQ(ReadFile(path), damaged);
  EXPECT_FALSE(fs::exists(stem + ".mid"));
}

TEST_F(Loading, APassTellsIdleFromLoadedAndStopsAtADeadConnection) {
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->MakeMidTable()); }),
              ElementsAre("<2>:open dir (/vqlog/log_data/midtable/) failed errno (2)"));
  Drop("A", "080000");
  for (const char* name : {"0a1B2c3D", "0a1B2c3", "0a1B2c3G"}) {
    fs::create_directory(std::string(paths::kSpool) + name);
  }
  script.tables = {Table(kDb, "A")};
  WriteFile(paths::kMysqlDefinitions, "<root><Conv><A><MidCnt>0</MidCnt></A></Conv></root>");
  EXPECT_TRUE(engine->MakeMidTable());
  EXPECT_THAT(script.Take({"show", "load", "change", "exist"}),
              testing::UnorderedElementsAre("isDBAlive()", "isDBAlive()", "start transaction",
                                            "commit", "truncate table A"));
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->MakeMidTable()); }),
              ElementsAre("<3>:no file to load reconnect db"));
  script.fail = {{"isDBAlive", "E"}};
  script.Take();
  EXPECT_FALSE(engine->MakeMidTable());
  EXPECT_THAT(script.Take(), ElementsAre("isDBAlive()"));
}

}  // namespace
