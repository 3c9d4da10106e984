#include "tables/transaction.h"

#include "testing/scripted_server.h"

namespace {

using testing::ElementsAre;

class TransactionTest : public StoreTest {
 protected:
  // What is sent by a transaction that is begun twice and, where it `commits`, committed.
  std::vector<std::string> Sent(bool commits) {
    {
      Transaction transaction(store);
      transaction.Begin();
      transaction.Begin();
      if (commits) transaction.Commit();
    }
    return script.Take();
  }
  const std::string begin = "start transaction";
};

TEST_F(TransactionTest, IsRolledBackOnceUnlessItIsCommitted) {
  EXPECT_THAT(Sent(false), ElementsAre(begin, begin, "rollback"));
  EXPECT_THAT(Sent(true), ElementsAre(begin, begin, "commit"));
}

TEST_F(TransactionTest, WhoseCommitIsRefusedIsRolledBack) {
  Fail("commit");
  EXPECT_THAT(Sent(true), ElementsAre(begin, begin, "commit", "rollback"));
}

TEST_F(TransactionTest, ThatCouldNotBeginIsNotRolledBack) {
  Fail("start");
  EXPECT_THAT(Sent(false), ElementsAre(begin, begin));
}

}  // namespace
