#include "tables/store.h"

#include "tables/transaction.h"
#include "testing/scripted_server.h"

namespace {

using testing::ElementsAre, testing::IsEmpty;

class MysqlStore : public StoreTest {};

TEST_F(MysqlStore, ATransactionThatIsNotCommittedIsRolledBackAtItsEnd) {
  const std::string begin = "start transaction";
  const auto sent = [this](bool commits) {
    {
      Transaction transaction(store);
      transaction.Begin();
      if (commits) transaction.Commit();
    }
    return script.Take();
  };
  EXPECT_THAT(sent(false), ElementsAre(begin, "rollback"));
  EXPECT_THAT(sent(true), ElementsAre(begin, "commit"));
  Fail("commit");
  EXPECT_THAT(sent(true), ElementsAre(begin, "commit", "rollback"));
}

// --- what is there, what is not, and what nobody knows

TEST_F(MysqlStore, MakesADatabaseOnlyWhereItIsKnownToBeMissing) {
  const std::string look = "existDB(WLAN_1a2b3c4d)";
  EXPECT_TRUE(store.PrepareDatabase(kDb));
  EXPECT_THAT(script.Take(), ElementsAre(look, "create database WLAN_1a2b3c4d"));
  Fail("existDB", SqlFailure::kConnection);
  EXPECT_FALSE(Logged([this] { return store.PrepareDatabase(kDb); }));
  EXPECT_THAT(log, ElementsAre("<2>:db WLAN_1a2b3c4d not looked up error E"));
  EXPECT_THAT(script.Take(), ElementsAre(look));
}

TEST_F(MysqlStore, TellsATableThatIsAbsentFromOneThatCouldNotBeLookedUp) {
  script.databases = {kDb};
  EXPECT_EQ(store.FindTable(kMem, kDb), Presence::kAbsent);
  EXPECT_EQ(store.FindTableHere(kMem), Presence::kAbsent);
  Fail("show");
  Fail("existTable");
  EXPECT_EQ(Logged([this] { return store.FindTable(kMem, kDb); }), Presence::kUnknown);
  EXPECT_THAT(log, ElementsAre("<2>:sql (" + Table(kDb, kMem) + ") failed ret (-1) (E) "));
  EXPECT_EQ(store.FindTableHere(kMem), Presence::kUnknown);
}

TEST_F(MysqlStore, ADatabaseThatIsNotThereHasNoTables) {
  Fail("show");
  EXPECT_EQ(Logged([this] { return store.FindTable(kMem, kDb); }), Presence::kAbsent);
  Fail("existDB", SqlFailure::kConnection);
  EXPECT_EQ(Logged([this] { return store.FindTable(kMem, kDb); }), Presence::kUnknown);
}

// --- mem tables that hold rows

class FilledMemTables : public StoreTest {
 protected:
  FilledMemTables() { script.databases = {kDb}; }

  // The database has that many mem tables, MEM_100 and so on.
  void Have(int tables) {
    for (int table = 100; table < 100 + tables; ++table) {
      script.listed["show tables"].push_back("MEM_" + std::to_string(table));
    }
  }
  std::vector<std::string> Found() {
    std::vector<std::string> tables;
    connected = Logged([&] { return store.FilledMemTables(kDb, tables); });
    return tables;
  }

  bool connected = false;
};

TEST_F(FilledMemTables, AreAskedForAHundredAtATime) {
  Have(250);
  script.tables = {"`MEM_105`", "`MEM_340`"};
  EXPECT_THAT(Found(), ElementsAre("`MEM_105`", "`MEM_340`"));
  EXPECT_TRUE(connected);
  EXPECT_EQ(script.Take({"existDB"}).size(), 4U);
}

TEST_F(FilledMemTables, HaveNamesThatAStatementCanTake) {
  script.listed["show tables"] = {"MEM_a`b", "OTHER_1", "MEM_1"};
  Found();
  EXPECT_EQ(script.Take().back(), "(select 'MEM_1' as t from `WLAN_1a2b3c4d`.`MEM_1` limit 1)");
}

TEST_F(FilledMemTables, OneThatCannotBeReadHidesNoOther) {
  Have(5);
  script.tables = {"`MEM_100`", "`MEM_102`", "`MEM_104`"};
  script.before_call = [this](const std::string& call) {
    if (call.find("`MEM_101`") != std::string::npos) Fail(call);
  };
  EXPECT_THAT(Found(), ElementsAre("`MEM_100`", "`MEM_102`", "`MEM_104`"));
  EXPECT_TRUE(connected);
  EXPECT_THAT(log, ElementsAre("<2>:table WLAN_1a2b3c4d.MEM_101 not searched for rows error E"));
}

TEST_F(FilledMemTables, AreNotKnownWhereTheConnectionWasLost) {
  Have(2);
  for (const char* lost_at : {"existDB", "show tables", "(select"}) {
    FailNoMore();
    Fail(lost_at, SqlFailure::kConnection);
    EXPECT_THAT(Found(), IsEmpty());
    EXPECT_FALSE(connected) << lost_at;
  }
}

// --- Oracle, where a database is a user

class OracleStore : public StoreTest {
 protected:
  OracleStore() : StoreTest("oracle") {}

  bool Prepare() {
    return Logged([this] { return store.PrepareDatabase(kDb); });
  }

  const std::string look = "existDB(WLAN_1a2b3c4d)";
  const std::string create = "create user WLAN_1a2b3c4d identified by np";
  const std::string alter = "alter user WLAN_1a2b3c4d identified by np";
  const std::string grant = "grant dba to WLAN_1a2b3c4d";
};

TEST_F(OracleStore, MakesAUserWhoMayDoAllOrGivesOneThatIsThereThePassword) {
  EXPECT_TRUE(Prepare());
  EXPECT_THAT(script.Take(), ElementsAre(look, create, grant));
  Fail("create user");
  EXPECT_TRUE(Prepare());
  EXPECT_THAT(script.Take(), ElementsAre(look, create, alter, grant));
  Fail("alter user");
  EXPECT_FALSE(Prepare());
  EXPECT_THAT(log, ElementsAre("<2>:create db WLAN_1a2b3c4d error E",
                               "<2>:alter db WLAN_1a2b3c4d error E"));
  FailNoMore();
  Fail("grant");
  EXPECT_FALSE(Prepare());
  EXPECT_THAT(log, ElementsAre("<2>:grant db WLAN_1a2b3c4d error E"));
}

TEST_F(OracleStore, MakesNoUserByAPasswordThatCouldEndTheStatement) {
  auth.new_user_password = "n p";
  Store careful(std::make_unique<RecordingSql>(script), auth);
  EXPECT_FALSE(Logged([&] { return careful.PrepareDatabase(kDb); }));
  EXPECT_THAT(log, ElementsAre("<2>:user WLAN_1a2b3c4d not made, set_password is not safe in a "
                               "statement"));
  EXPECT_THAT(script.Take(), ElementsAre(look));
}

}  // namespace
