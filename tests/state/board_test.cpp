// What the board makes of what it is told.
#include "state/board.h"

#include <algorithm>

#include "gtest/gtest.h"

namespace {

const std::string kDb = "WLAN_1a2b3c4d";

class Board : public testing::Test {
 protected:
  // The figures of kDb, which must be there.
  DatabaseFigures Figures() const {
    DatabaseFigures figures;
    std::string name;
    EXPECT_TRUE(board.Next(name, figures));
    EXPECT_EQ(name, kDb);
    return figures;
  }
  bool Knows(const std::string& database) const {
    DatabaseFigures figures;
    for (std::string name; board.Next(name, figures);) {
      if (name == database) return true;
    }
    return false;
  }
  StateBoard::Stamp Stamp() const { return board.StampAt(1'000'000); }

  StateBoard board;
};

TEST_F(Board, AFileThatWasLoadedWaitsNoMore) {
  board.SetWaiting(kDb, 3, 1000);
  board.SetInSpool(kDb, InSpool{10, 1});
  board.Loaded(kDb, 2, 500);
  EXPECT_EQ(Figures().waiting, 1U);
  EXPECT_EQ(Figures().loaded_rows, 500U);
  EXPECT_EQ(Figures().in_spool, (InSpool{12, 1}));
  board.Failed(kDb, 7, "broken");
  EXPECT_EQ(Figures().waiting, 0U);
  EXPECT_EQ(Figures().oldest_waiting_at, std::nullopt);
  EXPECT_EQ(Figures().failed_rows, 7U);
  EXPECT_EQ(Figures().in_spool, (InSpool{12, 2}));
  EXPECT_EQ(Figures().last_error, "broken");
}

TEST_F(Board, MoreFilesThanWereKnownToWaitLeaveNoneWaiting) {
  board.SetWaiting(kDb, 1, std::nullopt);
  board.Loaded(kDb, 5, 5);
  EXPECT_EQ(Figures().waiting, 0U);
}

TEST_F(Board, WhatIsToldTwiceIsNoChange) {
  const auto tell = [this] {
    board.SetWaiting(kDb, 3, 1000);
    board.SetInSpool(kDb, InSpool{1, 2});
    board.Hold(kDb, "table x", 3, "no room");
    board.Hold({}, "server", 3, "gone");
    board.Release(kDb, "table y");
    board.Keep({kDb});
  };
  tell();
  const auto before = Stamp();
  tell();
  EXPECT_EQ(Stamp(), before);
}

TEST_F(Board, TheBytesOfALoadAreAChangeAsTheyGrow) {
  std::atomic<std::uint64_t> bytes{0};
  const LoadOnBoard load(board, kDb, {"/file", "MEM", 1, 100}, &bytes);
  const auto before = Stamp();
  bytes = 40;
  EXPECT_NE(Stamp(), before);
  EXPECT_EQ(Figures().load->bytes_done, 40U);
}

TEST_F(Board, ALoadThatNobodySeesTheBytesOfHasNone) {
  {
    const LoadOnBoard load(board, kDb, {"/file", "MEM", 1, 100});
    EXPECT_EQ(Figures().load->bytes_done, std::nullopt);
  }
  EXPECT_FALSE(Figures().load);
}

TEST_F(Board, WhatIsHeldBackLastsFromItsFirstWordToItsEnd) {
  board.Hold(kDb, "table x", 3, "no room");
  const std::time_t since = Figures().held_back.at(0).since;
  board.Hold(kDb, "table x", 4, "no right");
  ASSERT_EQ(Figures().held_back.size(), 1U);
  EXPECT_EQ(Figures().held_back[0].since, since);
  EXPECT_EQ(Figures().held_back[0].files, 4U);
  EXPECT_EQ(Figures().last_error, "table x: no right");
  board.Release(kDb, "table x");
  EXPECT_TRUE(Figures().held_back.empty());
  EXPECT_EQ(Figures().last_error, "table x: no right");
}

TEST_F(Board, ADatabaseWithoutAFolderIsForgottenUnlessSomethingWaits) {
  board.SetWaiting("WLAN_00000001", 0, std::nullopt);
  board.SetWaiting("WLAN_00000002", 1, std::nullopt);
  board.Hold("WLAN_00000003", "table x", 0, "no room");
  board.Keep({});
  EXPECT_FALSE(Knows("WLAN_00000001"));
  EXPECT_TRUE(Knows("WLAN_00000002"));
  EXPECT_TRUE(Knows("WLAN_00000003"));
}

TEST(LastMinuteTest, CountsSixtySecondsAndForgetsThem) {
  LastMinute minute;
  minute.Add(1000, 1, 10);
  minute.Add(1030, 2, 20);
  EXPECT_EQ(minute.Files(1059), 3U);
  EXPECT_EQ(minute.Rows(1060), 20U);
  EXPECT_EQ(minute.Files(1090), 0U);
  minute.Add(1120, 5, 50);
  EXPECT_EQ(minute.Files(1120), 5U);
}

// Otherwise the file would show the speed of the last load for as long as nothing happens.
TEST_F(Board, TheEndOfTheLastMinuteIsAChange) {
  board.Loaded(kDb, 1, 1);
  const std::time_t now = std::time(nullptr);
  EXPECT_NE(board.StampAt(now + 9), board.StampAt(now + 60));
  EXPECT_EQ(board.StampAt(now + 100), board.StampAt(now + 1000));
}

}  // namespace
