#include <sys/stat.h>
#include <sys/un.h>

#include "midtable/engine_fixture.h"
#include "midtable/mem_file_name.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kFolder[] = "/vqlog/log_data/midtable/1a2b3c4d/";

class Loading : public EngineTest {
 protected:
  static std::string Drop(const std::string& table, const std::string& time) {
    const std::string path = kFolder + ("1a2b3c4d-" + table + "-20121231-" + time + ".dat");
    WriteFile(path, "row\n");
    return path;
  }
};

TEST_F(Loading, QueuesTheNewestOfTwoTablesInAscendingOrder) {
  for (const char* time : {"080000", "080001", "080002"}) Drop("A", time);
  for (const char* time : {"080000", "080001"}) Drop("B", time);
  WriteFile(std::string(kFolder) + "1a2b3c4d-C-20121231-080000.mid", "");
  EXPECT_TRUE(engine->GetMemFiles("1a2b3c4d"));
  const std::list<std::string> queued = {Drop("A", "080002"), Drop("B", "080001")};
  EXPECT_EQ(engine->filesToLoad(), queued);

  script.fail = {{"load data", "E"}};  // the first fails, the other waits
  EXPECT_FALSE(engine->LoadMemFiles());
  EXPECT_THAT(ListFolder(kFolder), Contains("1a2b3c4d-A-20121231-080002.err"));
  EXPECT_THAT(engine->filesToLoad(), ElementsAre(Drop("B", "080001")));
  EXPECT_TRUE(engine->GetMemFiles("1a2b3c4d"));
  EXPECT_THAT(engine->filesToLoad(), ElementsAre(Drop("A", "080001"), Drop("B", "080001")));

  script.fail.clear();
  script.tables = {Table(kDb, "A"), Table(kDb, "B")};
  EXPECT_FALSE(LogOf([&] { EXPECT_TRUE(engine->LoadMemFiles()); }).empty());
  EXPECT_EQ(engine->filesToConvert().size(), 2U);
  EXPECT_THAT(ListFolder(kFolder), Contains("1a2b3c4d-B-20121231-080001.mid"));

  // The same table of another database is loaded and not queued a second time.
  EXPECT_THAT(LogOf([&] { engine->AddToConvert("/x/ffffffff-A-20130101-000000.dat"); }),
              ElementsAre(HasSubstr("conflict with")));
  EXPECT_EQ(engine->filesToConvert().size(), 2U);
  EXPECT_THAT(LogOf([&] { engine->GetMemFiles("00000000"); }),
              ElementsAre("<2>:scan dir /vqlog/log_data/midtable/00000000 errno 2"));
}

TEST_F(Loading, SendsTheStatementsInOrderAndCreatesWhatIsMissing) {
  WriteFile(paths::kMysqlDefinitions,
            "<root><Mem><MidCnt>3</MidCnt>"
            "<MidTab1><Name>F</Name><Create>one %s</Create></MidTab1>"
            "<MidTab2><Name>A</Name><Create>other %s</Create></MidTab2>"
            "<MidTab3><Name>F</Name><Create>two %s</Create></MidTab3></Mem></root>");
  script.databases.clear();
  script.tables.clear();
  const std::string path = Drop("MEM_20121231_1004F", "101500");
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_TRUE(engine->LoadOneMemFile(path));
  EXPECT_THAT(
      script.Take(),
      ElementsAre(
          "existDB(WLAN_1a2b3c4d)", "create database WLAN_1a2b3c4d", Table(kDb, kMem),
          "changeDB(WLAN_1a2b3c4d,np)", "existTable(MEM_20121231_0004F)", "one MEM_20121231_0004F",
          "two MEM_20121231_0004F", Table(kDb, std::string(kMem) + "_external"),
          "load data infile \"" + path + "\" ignore into table WLAN_1a2b3c4d.MEM_20121231_0004F"));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0755));

  script.fail = {{"two", "E"}};
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->LoadOneMemFile(path)); }),
              Contains("<2>:executeSQL < two MEM_20121231_0004F > error E"));
  EXPECT_THAT(script.Take(), Not(Contains(HasSubstr("load data"))));
  script.fail = {{"create database", "E"}};
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->LoadOneMemFile(path)); }),
              ElementsAre("<2>:create db WLAN_1a2b3c4d error E"));
  // On MySQL too an external table that exists is pointed at the file first.
  script.fail.clear();
  script.tables = {Table(kDb, kMem), Table(kDb, std::string(kMem) + "_external")};
  EXPECT_TRUE(engine->LoadOneMemFile(path));
  EXPECT_THAT(script.Take(), Contains("alter table WLAN_1a2b3c4d.MEM_20121231_0004F_external "
                                      "location('" +
                                      std::string(FileNameOf(path)) + "')"));
}

TEST_F(Loading, RefusesEverythingButRegularFilesAndSafeNames) {
  const std::string secret = "/vqlog/secret";
  WriteFile(secret, "x");
  fs::permissions(secret, fs::perms::owner_all);
  const std::string stem = std::string(kFolder) + "1a2b3c4d-";
  fs::create_directories(stem + "folderF-20121231-101500.dat");
  fs::create_symlink(secret, stem + "linkF-20121231-101500.dat");
  ASSERT_EQ(mkfifo((stem + "pipeF-20121231-101500.dat").c_str(), 0600), 0);
  WriteFile(stem + "a\";drop table x;F-20121231-101500.dat", "");
  WriteFile(stem + "mysql.userF-20121231-101500.dat", "");
  WriteFile(stem + std::string(64, 'x') + "-20121231-101500.dat", "");
  WriteFile(stem + "-20121231-101500.dat", "");
  constexpr std::size_t kFiles = 7;
  std::size_t refused = 0;
  for (; refused < 2 * kFiles && engine->GetMemFiles("1a2b3c4d"); ++refused) {
    const auto log = LogOf([&] { EXPECT_FALSE(engine->LoadMemFiles()); });
    EXPECT_THAT(log, ElementsAre(testing::AnyOf(HasSubstr("refused"), HasSubstr("is null"))));
  }
  EXPECT_EQ(refused, kFiles);
  EXPECT_THAT(script.Take(), IsEmpty());
  EXPECT_THAT(ListFolder(kFolder), testing::Each(testing::EndsWith(".err")));
  EXPECT_EQ(fs::status(secret).permissions(), fs::perms::owner_all);

  // Gone between the scan and the load.
  const std::string path = Drop("A", "080000");
  engine->GetMemFiles("1a2b3c4d");
  fs::remove(path);
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->LoadMemFiles()); }).front(),
              HasSubstr("stat error(2)"));
}

TEST_F(Loading, TheRewrittenCopyTakesTheFilesPlaceAndASmallerOneKeepsTheOriginal) {
  const std::string good = "a\t0\tc\td\te\tf\tg\th\ti\tj\tk";
  const std::string path = Drop("MEM_20121231_1004F", "101500");
  const std::string stem = path.substr(0, path.size() - 4);
  WriteFile(path, good + "\n");
  EXPECT_TRUE(engine->ConvertMemF(path));
  EXPECT_EQ(ReadFile(path), good + "\t2\n");
  EXPECT_THAT(ListFolder(kFolder), ElementsAre(testing::EndsWith(".dat")));

  const std::string damaged = "damaged line\n" + good + "\n";
  WriteFile(path, damaged);
  EXPECT_THAT(LogOf([&] { EXPECT_TRUE(engine->ConvertMemF(path)); }),
              Contains("<3>:file " + path + " line 1 not correct, ignore it"));
  EXPECT_EQ(ReadFile(path), good + "\t2\n");
  EXPECT_EQ(ReadFile(stem + ".err"), damaged);

  // A copy that cannot be written leaves the file as it was.
  fs::create_directory(stem + ".mid");
  WriteFile(path, damaged);
  engine->ConvertMemF(path);
  EXPECT_EQ(ReadFile(fs::exists(path) ? path : stem + ".err"), damaged);
  EXPECT_FALSE(engine->ConvertMemF(""));
  EXPECT_FALSE(engine->ConvertMemF("/vqlog/none.dat"));
}

TEST_F(Loading, APassTellsIdleFromLoadedAndStopsAtADeadConnection) {
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->MakeMidTable()); }),
              ElementsAre("<2>:open dir (/vqlog/log_data/midtable/) failed errno (2)"));
  const std::string path = Drop("A", "080000");
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
  Drop("A", "090000");
  EXPECT_FALSE(engine->MakeMidTable());
  EXPECT_THAT(engine->filesToLoad(), IsEmpty());
}

TEST_F(Loading, GetXMLFieldsPicksTheSiblingByItsAttribute) {
  const std::string file = "/etc/morvan/x.xml";
  WriteFile(file, "<r><a>first</a><a t='M'>second</a><b t='M2'>third</b><a t='M'>no</a></r>");
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      {"/r/a", "", "M", "first"}, {"/r/a", "t", "", "first"}, {"/r/a", "t", "M", "second"},
      {"/r/a", "t", "M3", ""},    {"/r/c", "t", "M", ""},     {"/r/b", "t", "M", "no"}};
  for (const auto& [path, name, value, content] : cases) {
    EXPECT_EQ(CMidTable::GetXMLFields(file, path, {name, value}), content) << path << name << value;
  }
  EXPECT_THAT(LogOf([] { CMidTable::GetXMLFields("/none.xml", "/r", {}); }),
              ElementsAre("<2>:parse xml file /none.xml failed"));
}

}  // namespace
