#include "midtable/not_emptied.h"

#include "midtable/engine_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class NotEmptiedTest : public StepTest {};

TEST_F(NotEmptiedTest, AreEmptiedOnceAndNoOther) {
  not_emptied.Add("d.A");
  for (const char* table : {"d.B", "d.A", "d.A"}) EXPECT_TRUE(not_emptied.Empty(store, table));
  EXPECT_THAT(script.Take(), ElementsAre("truncate table d.A"));
}

TEST_F(NotEmptiedTest, AreTriedOnceAMinuteAndNamedByAStop) {
  not_emptied.Add("d.A");
  Fail("truncate");
  EXPECT_THAT(LogOf([this] { not_emptied.EmptyAll(store, 1h); }),
              ElementsAre("<2>:sql truncate table d.A error E"));
  EXPECT_FALSE(not_emptied.IsDue(1h + 59s));
  EXPECT_TRUE(not_emptied.IsDue(1h + 60s));
  EXPECT_THAT(LogOf([this] { not_emptied.LogLeft(); }),
              ElementsAre("<2>:memtable d.A is left with converted rows, empty it before the next "
                          "start"));
}

}  // namespace
