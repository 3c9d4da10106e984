#include "midtable/mem_table_creation.h"

#include "midtable/engine_fixture.h"

namespace {

using testing::ElementsAre;

class MemTableCreation : public StepTest {
 protected:
  MemTableCreation() {
    Define(Xml("Mem", Xml("MidCnt", "3") + MidTab(1, "F", Xml("Create", "one %s")) +
                          MidTab(2, "A", Xml("Create", "other %s")) +
                          MidTab(3, "F", Xml("Create", "two %s"))));
  }
  bool Create(const std::string& table = kMem) {
    return Logged([&] { return CreateMemTable(store, table, kDb); });
  }

  const std::string enter = "changeDB(WLAN_1a2b3c4d,np)";
  const std::string look = "existTable(MEM_20121231_0004F)";
  const std::string one = "one MEM_20121231_0004F";
  const std::string two = "two MEM_20121231_0004F";
};

TEST_F(MemTableCreation, RunsEveryEntryOfItsKindUntilOneFailsUnlessTheTableIsThere) {
  EXPECT_TRUE(Create());
  EXPECT_THAT(script.Take(), ElementsAre(enter, look, one, two));
  Fail("one");
  EXPECT_FALSE(Create());
  EXPECT_THAT(log, ElementsAre("<2>:executeSQL < " + one + " > error E"));
  EXPECT_THAT(script.Take(), ElementsAre(enter, look, one));
  script.tables = {kMem};
  EXPECT_TRUE(Create());
  EXPECT_THAT(script.Take(), ElementsAre(enter, look));
}

TEST_F(MemTableCreation, MakesNothingInADatabaseThatCannotBeEnteredOrAsked) {
  const std::string table = "<2>:table " + kTable;
  Fail("existTable", SqlFailure::kServer);
  EXPECT_FALSE(Create());
  EXPECT_THAT(log, ElementsAre(table + " not looked up error E"));
  EXPECT_THAT(script.Take(), ElementsAre(enter, look));
  Fail("changeDB", SqlFailure::kServer);
  EXPECT_FALSE(Create());
  EXPECT_THAT(log, ElementsAre(table + " not made, change db error E"));
  EXPECT_THAT(script.Take(), ElementsAre(enter));
}

TEST_F(MemTableCreation, OfAKindThatNobodyDefinedIsAnAlarm) {
  EXPECT_TRUE(Create("MEM_20121231_0004X"));
  EXPECT_THAT(log, ElementsAre("<1>:xml file /etc/morvan/vqlog.xml: no Name in /root/Mem is kind "
                               "(X) of table MEM_20121231_0004X"));
}

}  // namespace
