#include <sys/stat.h>

#include <algorithm>

#include "midtable/engine_fixture.h"

static std::function<void()> g_while_rewriting;

// In the place of the library's own, which a rewriting calls once it has opened the file.
extern "C" int fchown(int, uid_t, gid_t) noexcept {
  if (g_while_rewriting) g_while_rewriting();
  return 0;
}

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
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(01755)) << "marked as rewritten";

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
}

TEST_F(Loading, TheRewrittenCopyTakesTheFilesPlaceAndASmallerOneKeepsTheOriginal) {
  const std::string good = "a\t0\tc\td\te\tf\tg\th\ti\tj\tk", damaged = "damaged line\n" + good;
  const std::string path = Drop(kMem, "101500"), err = path.substr(0, path.size() - 4) + ".err";
  WriteFile(path, good);
  EXPECT_TRUE(engine->ConvertMemF(path));
  EXPECT_EQ(ReadFile(path), good + "\t2\n");
  EXPECT_THAT(ListFolder(kFolder), ElementsAre(testing::EndsWith(".dat")));

  // Also one whose flags outweigh the lost line.
  const std::string orig = path.substr(0, path.size() - 4) + ".orig";
  WriteFile(path, "x\n" + good);
  EXPECT_TRUE(engine->ConvertMemF(path));
  EXPECT_EQ(ReadFile(orig), "x\n" + good);
  fs::remove(orig);

  // It becomes ".err", also after a run that was killed there; what had the name before is kept.
  WriteFile(path, damaged);
  fs::create_hard_link(path, err);
  for (std::size_t files = 2; files < 5; ++files) {
    EXPECT_THAT(LogOf([&] { EXPECT_TRUE(engine->ConvertMemF(path)); }),
                Contains("<3>:file " + path + " line 1 not correct, ignore it"));
    EXPECT_EQ(ReadFile(path) + ReadFile(err), good + "\t2\n" + damaged);
    EXPECT_EQ(ListFolder(kFolder).size(), files);
    WriteFile(path, damaged);
    if (files == 2) fs::create_symlink(kFolder, err + ".0"), fs::rename(err + ".0", err);
  }

  // A file that was written to meanwhile stays as it is.
  g_while_rewriting = [&] { std::ofstream(path, std::ios::app) << "late"; };
  EXPECT_THAT(LogOf([&] { EXPECT_FALSE(engine->ConvertMemF(path)); }),
              Contains(HasSubstr("changed while it was rewritten")));
  g_while_rewriting = {};
  EXPECT_EQ(ReadFile(path), damaged + "late");

  // Where the copy cannot take the name, here that of a file in another folder, all is as before.
  WriteFile("/vqlog/x.y/file", damaged);
  fs::permissions("/vqlog/x.y", fs::perms(0555));
  EXPECT_FALSE(engine->ConvertMemF("/vqlog/x.y/file"));
  fs::permissions("/vqlog/x.y", fs::perms(0755));
  EXPECT_THAT(ListFolder("/vqlog"), ElementsAre("log_data", "x.y"));
  WriteFile(path, damaged);

  // Where the original cannot be kept, nothing takes its place.
  fs::permissions(kFolder, fs::perms(0555));
  EXPECT_FALSE(engine->ConvertMemF(path));
  fs::permissions(kFolder, fs::perms(0755));
  EXPECT_EQ(ReadFile(path), damaged);
}

TEST_F(Loading, AFileIsLoadedOnceWhateverHappensOnTheWay) {
  const std::string path = Drop(kMem, "101500"), stem = path.substr(0, path.size() - 4);
  const std::string row = "a\t0\tc\td\te\tf\tg\th\ti\tj\tk", definitions = paths::kMysqlDefinitions;
  const std::string load = "load", check = "show";  // the latter before the file is opened
  const struct {
    std::string at;  // the call just before which it happens
    std::function<void()> fault;
    std::string log, outcome;  // the latter for two passes: files given to the server, endings left
  } cases[] = {
      {check, [&] { fs::remove(path), fs::create_symlink(definitions, path); }, "refused",
       "0.err 0.err "},
      {check, [&] { fs::remove(path); }, "stat error(2)", "0 0 "},
      {load, [&] { WriteFile(stem, row), fs::rename(stem, path); }, "replaced while",
       "1.dat 1.mid "},
      {load, [&] { std::ofstream(path, std::ios::app) << row; }, "may be missing", "1.mid 0.mid "},
      {load, [&] { fs::create_hard_link(path, stem + ".mid"); }, "success", "1.mid 0.mid "},
      {load, [&] { script.fail["load"] = "E", WriteFile(stem + ".err", "older"); },
       ".err) is kept as (" + stem + ".err.1)", "1.err.err.1 0.err.err.1 "},
      {load, [] { fs::permissions(kFolder, fs::perms(0555)); }, "failed errno (13)",
       "1.dat 0.dat "},
      {load, [] { throw "killed"; }, "after rename", "1.dat 1.mid "},
  };
  WriteFile(definitions, "<root><Conv><F><MidCnt>0</MidCnt></F></Conv></root>");
  const auto is_load = [&](const auto& call) { return call.starts_with(load); };
  for (const auto& [at, fault, log, outcome] : cases) {
    fs::remove_all(kFolder);
    WriteFile(path, row);
    script.fail.clear();
    std::string seen;
    script.before_call = [&, &at = at, &fault = fault](const std::string& call) {
      if (seen.empty() && call.starts_with(at)) fault();
    };
    const auto logged = LogOf([&] {
      for (int pass = 0; pass < 2; ++pass) {
        try {
          engine->MakeMidTable();
        } catch (const char*) {
        }
        const auto calls = script.Take();
        seen += std::to_string(std::ranges::count_if(calls, is_load));
        for (const auto& name : ListFolder(kFolder)) seen += name.substr(name.find('.'));
        seen += ' ';
      }
    });
    EXPECT_THAT(logged, Contains(HasSubstr(log)));
    EXPECT_EQ(seen, outcome) << log;
    EXPECT_NE(fs::status(definitions).permissions(), fs::perms(0755));
    fs::permissions(kFolder, fs::perms(0755));
  }
}

TEST_F(Loading, RunWaitsForTheRegistryThenFlagsWhatWaits) {
  // The registry's thread gets no back end, and that late.
  const auto slow = [make = RecordingFactory(script)](const MYSQLAUTH& auth) {
    auto sql = make(auth);
    if (sql == nullptr) usleep(500'000);
    return sql;
  };
  WriteFile(LOGFILE, "1380013\n");
  const std::string path = Drop(kMem, "101500"), row = "a\t800138000\tc\td\te\tf\tg\th\ti\tj\tk";
  WriteFile(path, row);
  script.before_call = [](const auto& call) { g_nMainRun = call != "reconnectDB()"; };
  engine = std::make_unique<CMidTable>(slow);
  LogOf([&] { EXPECT_EQ(engine->Run(), 1); });
  EXPECT_EQ(ReadFile(path.substr(0, path.size() - 4) + ".mid"), row + "\t1\n");
}

TEST_F(Loading, AFileThatCannotBeRenamedIsSettledAndHoldsNobodyUp) {
  const std::string path = Drop("A", "101500"), other = "/vqlog/log_data/midtable/5e6f7a8b/";
  script.databases.insert("WLAN_5e6f7a8b");
  script.tables = {Table(kDb, "A"), Table("WLAN_5e6f7a8b", "A")};
  script.fail = {{"load data", "E"}};
  fs::permissions(kFolder, fs::perms(0555));
  engine->MakeMidTable();
  WriteFile(other + "5e6f7a8b-A-20121231-101500.dat", "row\n");
  script.fail.clear();
  EXPECT_THAT(LogOf([&] { engine->MakeMidTable(); }), Not(Contains(HasSubstr("rename"))));
  EXPECT_TRUE(fs::exists(other + "5e6f7a8b-A-20121231-101500.mid"));
  script.Take();
  WriteFile(path, "a new file of the name\n");
  engine->MakeMidTable();
  EXPECT_THAT(script.Take(), Contains(HasSubstr(path)));
  fs::permissions(kFolder, fs::perms(0755));
  EXPECT_THAT(LogOf([&] { engine->MakeMidTable(); }), Contains(HasSubstr(".mid) at last")));

  // Its folder is out of reach for a pass, from the load on or after it.
  const std::string away = std::string(paths::kSpool) + "away";
  for (const bool during : {false, true}) {
    const std::string late = Drop("A", during ? "103000" : "102000");
    fs::permissions(kFolder, fs::perms(0555));
    script.before_call = [&](const std::string& call) {
      if (during && call.starts_with("load data")) fs::rename(kFolder, away);
    };
    engine->MakeMidTable();
    script.before_call = nullptr;
    if (!during) fs::rename(kFolder, away);
    engine->MakeMidTable();
    fs::rename(away, kFolder);
    script.Take();
    engine->MakeMidTable();
    EXPECT_THAT(script.Take(), Not(Contains(HasSubstr(late))));
    fs::permissions(kFolder, fs::perms(0755));
    EXPECT_THAT(LogOf([&] { engine->MakeMidTable(); }), Contains(HasSubstr(".mid) at last")));
  }
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
