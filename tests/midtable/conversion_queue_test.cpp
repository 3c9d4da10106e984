#include "midtable/conversion_queue.h"

#include "midtable/engine_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre, testing::IsEmpty;

class ConversionQueueTest : public StepTest {
 protected:
  ConversionQueueTest() { Define("as they were"); }

  void Add(const std::string& path = kFile) { queue.Add(MemFile::Parse(path)); }
  // The conversion in front fails at that time.
  void Hold(bool by_server, std::chrono::nanoseconds now) { queue.Hold(by_server, file, now); }
  bool IsDue(std::chrono::nanoseconds now) {
    queue.AddDue(file, now);
    return !queue.empty();
  }

  bool AddLeftRows() {
    return queue.AddLeftRows(store, kDb, [this](const MemFile&) { return waiting; });
  }

  std::vector<std::string> waiting;  // files of the mem table
  const char* const file = paths::kMysqlDefinitions;
  const std::string of_other_database = "/x/5e6f7a8b-MEM_20121231_1004F-20121231-101500.dat";
  ConversionQueue queue;
};

TEST_F(ConversionQueueTest, HasEachMemTableOfEachDatabaseOnce) {
  const std::string later = "/x/1a2b3c4d-MEM_20121231_1104F-20121231-111500.dat";
  Add();
  EXPECT_THAT(LogOf([&] { Add(later); }),
              ElementsAre("<3>:file (" + later + ") conflict with (" + kFile + ")"));
  EXPECT_THAT(LogOf([this] { Add(of_other_database); }), IsEmpty());
  EXPECT_EQ(queue.size(), 2U);
}

TEST_F(ConversionQueueTest, WhatFailedByTheServerIsTriedOnceAMinuteUntilItIsDone) {
  Add();
  Hold(true, 0s);
  EXPECT_FALSE(IsDue(59s));
  EXPECT_TRUE(IsDue(60s));
  EXPECT_TRUE(queue.front().is_retry);
  Hold(true, 60s);
  EXPECT_FALSE(IsDue(119s));
  EXPECT_TRUE(IsDue(120s));
  Add();
  EXPECT_FALSE(queue.front().is_retry) << "there is a new file of the table";
  queue.Done();
  EXPECT_FALSE(IsDue(180s));
}

TEST_F(ConversionQueueTest, WhatFailedByTheDefinitionsIsTriedOnceTheyChange) {
  Add();
  Hold(false, 0s);
  EXPECT_FALSE(IsDue(1h));
  Define("mended");
  EXPECT_TRUE(IsDue(1h));
}

TEST_F(ConversionQueueTest, WhatBreaksTheConnectionEachTimeDoesNotStayInFrontForEver) {
  Add();
  EXPECT_TRUE(queue.PutOff());
  EXPECT_TRUE(queue.PutOff());
  EXPECT_FALSE(queue.PutOff());
}

TEST_F(ConversionQueueTest, RowsOfAnEarlierRunAreLookedForOncePerDatabase) {
  script.listed["show tables"] = {kMem};
  script.tables = {kMem};
  Fail("show tables", SqlFailure::kConnection);
  EXPECT_FALSE(AddLeftRows());
  FailNoMore();
  EXPECT_TRUE(Logged([this] { return AddLeftRows(); }));
  EXPECT_THAT(log, ElementsAre("<0>:memtable " + kTable + " holds rows of an earlier run"));
  EXPECT_EQ(queue.front().file.QualifiedTable(), kTable);
  script.Take();
  EXPECT_TRUE(AddLeftRows());
  EXPECT_THAT(script.Take(), IsEmpty());
}

// The run that was killed may have loaded any of these, and the key of the mem table refuses its
// rows only while they are there.
TEST_F(ConversionQueueTest, RowsOfAnEarlierRunWaitForTheFilesThatWereThereButNoOthers) {
  script.listed["show tables"] = {kMem};
  script.tables = {kMem};
  const std::string another = "/x/1a2b3c4d-MEM_20121231_1004F-20121231-101400.dat";
  const std::string later = "/x/1a2b3c4d-MEM_20121231_1004F-20121231-101600.dat";
  waiting = {kFile, another};
  EXPECT_TRUE(AddLeftRows());
  EXPECT_TRUE(queue.empty());
  Add();
  EXPECT_TRUE(queue.empty()) << "the other one may be the one that was loaded";
  waiting = {later, another};
  EXPECT_TRUE(AddLeftRows());
  EXPECT_TRUE(queue.empty());
  waiting = {later};
  EXPECT_TRUE(AddLeftRows());
  EXPECT_EQ(queue.front().file.QualifiedTable(), kTable);
}

TEST_F(ConversionQueueTest, AStopNamesEachTableThatItLeavesFilled) {
  Add();
  Hold(true, 0s);
  Add();
  Add(of_other_database);
  const std::string left = " is left filled, converted after the next start";
  EXPECT_THAT(LogOf([this] { queue.LogLeft(); }),
              ElementsAre("<1>:memtable " + kTable + left,
                          "<1>:memtable WLAN_5e6f7a8b.MEM_20121231_0004F" + left));
}

}  // namespace
