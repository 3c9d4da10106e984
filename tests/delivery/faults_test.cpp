// Trouble that is no file's fault: files wait, the run log says why, others go on; and what was
// held back is counted once the trouble has ended.
#include "delivery/delivery_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class FaultTest : public DeliveryTest {
 public:
  using DeliveryTest::AllowInserts;
  using DeliveryTest::Define;
  using DeliveryTest::kCreateMem;
  using DeliveryTest::MakeYearTable;
  using DeliveryTest::RefuseInserts;

  ~FaultTest() override { Stop(); }

  void Run(const std::string& sql) const { server.Run(sql); }
  void MakeMemTable() const {
    Run(std::string("create table ") + kDb +
        ".MEM_20121231_0000A (id int not null, v int not null) engine=InnoDB");
  }
  static void DefineConversion(const std::string& text) { Define(kCreateMem, text); }
  static void MendDefinitions() { Define(kCreateMem, kConvert); }

  // The line that tells of the trouble, once a minute.
  static int CountLines(const std::string& words) {
    const std::string log = ReadLog();
    int lines = 0;
    for (std::size_t at = log.find(words); at != std::string::npos; at = log.find(words, at + 1)) {
      ++lines;
    }
    return lines;
  }
};

constexpr char kFull[] = "sqlstate 'HY000' set mysql_errno = 1114, message_text = 'full'";
constexpr char kNotReady[] = "sqlstate '08S01' set mysql_errno = 1047, message_text = 'not ready'";

struct Fault {
  const char* name;
  void (*begin)(const FaultTest&);
  void (*end)(const FaultTest&);
  const char* words;  // in the line that tells of it
  bool others_go_on;  // files of another kind, in the same database
};
using T = const FaultTest&;

const Fault kFaults[] = {
    {"ReadOnlyServer", [](T t) { t.Run("set global read_only = 1"); },
     [](T t) { t.Run("set global read_only = 0"); }, "--read-only", false},
    {"MissingPrivilege", [](T t) { t.Run("revoke insert on *.* from service"); },
     [](T t) { t.Run("grant insert on *.* to service"); }, "INSERT command denied", false},
    {"LocalInfileOff", [](T t) { t.Run("set global local_infile = 0"); },
     [](T t) { t.Run("set global local_infile = 1"); },
     "local_infile of the server is off, no file can be loaded: set global local_infile = 1",
     false},
    {"FullDiskInTheLoad",
     [](T t) {
       t.MakeMemTable();
       t.RefuseInserts("MEM_20121231_0000A", "true", kFull);
     },
     [](T t) { t.AllowInserts(); }, "1 files wait: full", true},
    {"FullDiskInTheConversion", [](T t) { t.RefuseInserts("T_KIND1Y_A2012", "true", kFull); },
     [](T t) { t.AllowInserts(); }, "1 files wait: full", true},
    {"ClusterNodeNotReady", [](T t) { t.RefuseInserts("T_KIND1Y_A2012", "true", kNotReady); },
     [](T t) { t.AllowInserts(); }, "1 files wait: not ready", true},
    {"MissingYearTable", [](T t) { t.Run("drop table WLAN_1a2b3c4d.T_KIND1Y_A2012"); },
     [](T t) { t.MakeYearTable(); }, "T_KIND1Y_A2012' doesn't exist", true},
    {"UnknownColumn", [](T t) { t.DefineConversion(" select no_such_column, 1 from %s"); },
     [](T t) { t.MendDefinitions(); }, "Unknown column 'no_such_column'", true},
    {"WrongTemplate", [](T t) { t.DefineConversion(" select id, %d from %s"); },
     [](T t) { t.MendDefinitions(); }, "see /root/Conv/A/MidTab1/Convert of", true},
    {"DefinitionsNotWellFormed", [](T t) { t.DefineConversion(" select id < 1 from %s"); },
     [](T t) { t.MendDefinitions(); }, "xml file", false},
    {"NoDefinitions", [](T) { std::filesystem::remove(paths::kMysqlDefinitions); },
     [](T t) { t.MendDefinitions(); }, "xml file", false},
};

class HeldBack : public FaultTest, public testing::WithParamInterface<Fault> {};

TEST_P(HeldBack, FilesWaitAreToldOfOnceAndGoOnWhenItEnds) {
  const Fault& fault = GetParam();
  fault.begin(*this);
  const std::string held = Drop("101500", "1\t10\n");
  const std::string other = Drop("101500", "", "F");
  Start();
  EXPECT_TRUE(Eventually([&] { return LogHas(fault.words); })) << ReadLog();
  EXPECT_TRUE(!fault.others_go_on || Eventually([&] { return Exists(other + ".mid"); }));
  std::this_thread::sleep_for(std::chrono::seconds(2));  // it is tried again meanwhile
  EXPECT_TRUE(Exists(held + ".dat"));
  EXPECT_EQ(CountLines("table WLAN_1a2b3c4d.MEM_20121231_0000A held back"), 1) << ReadLog();
  fault.end(*this);
  EXPECT_TRUE(Eventually([&] { return Exists(held + ".mid") && Exists(other + ".mid"); }))
      << ReadLog();
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
  EXPECT_THAT(ReadLog(), HasSubstr("table WLAN_1a2b3c4d.MEM_20121231_0000A goes on"));
}

INSTANTIATE_TEST_SUITE_P(By, HeldBack, testing::ValuesIn(kFaults),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(FaultTest, AMidTableThatSomebodyHasLockedHoldsFilesBackAndNothingIsGivenUp) {
  MYSQLAUTH auth = server.Auth(kDb);
  Connection other(&auth);
  ASSERT_EQ(other.connectDB(), 0);
  ASSERT_TRUE(other.Run("lock tables T_KIND1Y_A2012 write"));
  const std::string stem = Drop("101500", "1\t10\n");
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("Lock wait timeout exceeded"); })) << ReadLog();
  ASSERT_TRUE(other.Run("unlock tables"));
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); })) << ReadLog();
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(FaultTest, TooManyConnectionsAreWaitedFor) {
  server.Run("alter user service with max_user_connections 1");
  MYSQLAUTH auth = Auth();
  Connection other(&auth);
  ASSERT_EQ(other.connectDB(), 0);
  const std::string stem = Drop("101500", "1\t10\n");
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("server held back, 1 files wait: "); }));
  other.closeDB();
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); })) << ReadLog();
}

// The address of a proxy, or a name, may lead elsewhere by now; a session stays where it is.
TEST_F(FaultTest, AServerThatTakesNoChangesIsAskedInANewSession) {
  const auto session = [this] {
    return server.Run("select max(id) from information_schema.processlist where user = 'service'");
  };
  Run("set global read_only = 1");
  const std::string stem = Drop("101500", "1\t10\n");
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("--read-only"); })) << ReadLog();
  const auto first = session();
  EXPECT_TRUE(Eventually([&] { return session() != first && session().at(0) != "NULL"; }));
  Run("set global read_only = 0");
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); })) << ReadLog();
}

TEST_F(FaultTest, AServerThatCannotProveWhoItIsIsToldOfAndSentNothing) {
  const std::string options = "/tmp/client.cnf";
  WriteFile(options, "[midtable]\nssl-mode=REQUIRED\n");
  MYSQLAUTH auth = Auth();
  auth.client_options = options;
  const std::string stem = Drop("101500", "1\t10\n");
  Start(auth);
  EXPECT_TRUE(Eventually([] { return LogHas("server held back, 1 files wait: TLS/SSL error: "); }))
      << ReadLog();
  EXPECT_TRUE(Exists(stem + ".dat"));
  WriteFile(options, "[midtable]\n");
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); })) << ReadLog();
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
}

TEST_F(FaultTest, ASessionThatAKillLeftBehindIsEndedWithItsLocks) {
  MYSQLAUTH auth = Auth();
  Connection old(&auth);
  ExpectToEnd(old);
  EXPECT_THAT(ReadLog(), HasSubstr("of an earlier run on db WLAN_1a2b3c4d ended"));
}

TEST_F(FaultTest, AKillBetweenTwoCreateStatementsIsFinishedByTheNextStart) {
  std::string xml = ReadFile(paths::kMysqlDefinitions);
  const std::string last = "</MidTab2></Mem>";
  xml.replace(xml.find("<MidCnt>2"), 9, "<MidCnt>3");
  xml.insert(xml.find(last) + 10,
             "<MidTab3><Name>A</Name><Create>alter table %s add column w int not null default "
             "0</Create></MidTab3>");
  WriteFile(paths::kMysqlDefinitions, xml);
  MakeMemTable();  // the first of the two has run
  const std::string stem = Drop("101500", "1\t10\t7\n");
  RunUntil([&] { return Exists(stem + ".mid"); });
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
  EXPECT_THAT(server.Run("show columns from WLAN_1a2b3c4d.MEM_20121231_0000A like 'w'"),
              testing::SizeIs(1));
}

}  // namespace
