// Answers of the server that never come, and a server that asks for more than it is to get.
#include "delivery/deaf_proxy.h"
#include "delivery/delivery_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class ThroughProxy : public DeliveryTest {
 protected:
  ~ThroughProxy() override { Stop(); }

  void GoFar() { proxy.SetDistance(kDistance); }
  void StartThroughProxy() {
    MYSQLAUTH auth = Auth();
    auth.port = proxy.port();
    Start(auth);
  }
  // Two files of one batch, and one of another.
  void DropFiles() {
    stems = {Drop("101500", "1\t10\n2\t20\n"), Drop("101600", "2\t20\n")};
    StartThroughProxy();
    ASSERT_TRUE(Eventually([&] { return Exists(stems[1] + ".mid"); })) << ReadLog();
    stems.push_back(Drop("101700", "3\t30\n"));
    ASSERT_TRUE(Eventually([&] { return Exists(stems[2] + ".mid"); })) << ReadLog();
  }
  void ExpectExact() {
    Stop();
    EXPECT_THAT(Counted(), ElementsAre("1:1", "2:2", "3:1"));
    EXPECT_EQ(RowsWaiting(), "0");
    for (const std::string& stem : stems) EXPECT_TRUE(Exists(stem + ".mid")) << stem;
  }

  DeafProxy proxy{server.Auth().port};
  std::vector<std::string> stems;
};

struct LostAnswer {
  const char* name;
  const char* statement;
  int nth;
};
class AfterALostAnswer : public ThroughProxy, public testing::WithParamInterface<LostAnswer> {};

TEST_P(AfterALostAnswer, EveryRowIsCountedOnce) {
  proxy.SwallowAnswer(GetParam().statement, GetParam().nth);
  DropFiles();
  EXPECT_TRUE(proxy.hasStruck());
  ExpectExact();
}

INSTANTIATE_TEST_SUITE_P(To, AfterALostAnswer,
                         testing::Values(LostAnswer{"Use", "use ", 1},
                                         LostAnswer{"Create", "create table MEM_", 1},
                                         LostAnswer{"Begin", "start transaction", 1},
                                         LostAnswer{"Mark", "update midtable_ledger set token", 1},
                                         LostAnswer{"Question", "select name, size", 1},
                                         LostAnswer{"FirstLoad", "load data", 1},
                                         LostAnswer{"SecondLoad", "load data", 2},
                                         LostAnswer{"Ledger", "insert into midtable_ledger", 1},
                                         LostAnswer{"FirstConversion", "insert into T_KIND1D", 1},
                                         LostAnswer{"LastConversion", "insert into T_KIND1Y", 1},
                                         LostAnswer{"Commit", "commit", 1},
                                         LostAnswer{"SecondCommit", "commit", 2},
                                         LostAnswer{"Emptying", "truncate", 1}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(ThroughProxy, ALoadWhoseEndIsNotAnsweredIsCountedOnce) {
  proxy.SwallowEndOfLoad(2);
  DropFiles();
  EXPECT_TRUE(proxy.hasStruck());
  ExpectExact();
}

class FarAway : public AfterALostAnswer {};

TEST_P(FarAway, EveryRowIsCountedOnceAfterALostAnswer) {
  GoFar();
  proxy.SwallowAnswer(GetParam().statement, GetParam().nth);
  DropFiles();
  EXPECT_TRUE(proxy.hasStruck());
  ExpectExact();
}

INSTANTIATE_TEST_SUITE_P(To, FarAway,
                         testing::Values(LostAnswer{"Look", "select name, token, state", 1},
                                         LostAnswer{"Creation", "create table MEM_", 1},
                                         LostAnswer{"FirstBatch", "start transaction", 1},
                                         LostAnswer{"SecondBatch", "start transaction", 2}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(ThroughProxy, AFarBatchWhoseLoadIsNotAnsweredIsCountedOnce) {
  GoFar();
  proxy.SwallowEndOfLoad(2);
  DropFiles();
  EXPECT_TRUE(proxy.hasStruck());
  ExpectExact();
}

TEST_F(ThroughProxy, AFarBatchIsOneQuestion) {
  GoFar();
  DropFiles();
  std::this_thread::sleep_for(std::chrono::seconds(1));  // what is done once after work is done
  const int before = proxy.journeys();
  stems.push_back(Drop("101800", "4\t40\n"));
  ASSERT_TRUE(Eventually([&] { return Exists(stems.back() + ".mid"); })) << ReadLog();
  EXPECT_EQ(proxy.journeys() - before, 1);
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1", "2:2", "3:1", "4:1"));
}

TEST_F(ThroughProxy, AFarBatchIsNotCountedUnderTheMarkOfAnother) {
  GoFar();
  DropFiles();
  server.Run("update WLAN_1a2b3c4d.midtable_ledger set token = 'another' where kind = 'M'");
  stems.push_back(Drop("101800", "4\t40\n"));
  ASSERT_TRUE(Eventually([&] { return LogHas("another batch came between"); })) << ReadLog();
  ASSERT_TRUE(Eventually([&] { return Exists(stems.back() + ".mid"); })) << ReadLog();
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1", "2:2", "3:1", "4:1"));
}

TEST_F(ThroughProxy, ADefinitionOfTwoStatementsIsRefusedFarAwayToo) {
  GoFar();
  Define(kCreateMem, kConvert + "; do 1");
  Drop("101500", "1\t10\n");
  StartThroughProxy();
  EXPECT_TRUE(Eventually([] { return LogHas("error in your SQL syntax"); })) << ReadLog();
  Stop();
  EXPECT_EQ(server.Run("select count(*) from WLAN_1a2b3c4d.T_KIND1Y_A2012"),
            std::vector<std::string>{"0"});
}

TEST_F(ThroughProxy, AStatementAtWorkIsAwaitedHoweverLongItTakes) {
  Define(kCreateMem,
         " select id, count(*) + 0 * sleep(4) from %s group by 1 on duplicate key "
         "update n = n + values(n)");
  const std::string stem = Drop("101500", "1\t10\n");
  StartThroughProxy();
  EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
  Stop();
  EXPECT_THAT(Counted(), ElementsAre("1:1"));
  EXPECT_THAT(ReadLog(), Not(HasSubstr("held back")));
}

TEST_F(ThroughProxy, AServerThatAsksForAnotherFileGetsTheBytesOfTheLoad) {
  proxy.AskInstead("load data", "/etc/passwd");
  DropFiles();
  EXPECT_THAT(proxy.Heard(), Not(HasSubstr("root:")));
  ExpectExact();
}

TEST_F(ThroughProxy, AServerThatAsksForAFileOutsideOfALoadGetsNothing) {
  proxy.AskInstead("start transaction", "/etc/passwd");
  DropFiles();
  EXPECT_THAT(proxy.Heard(), Not(HasSubstr("root:")));
  ExpectExact();
}

}  // namespace
