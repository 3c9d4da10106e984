// What the page remembers of earlier looks.
#include "midtablectl/page/history.h"

#include <filesystem>

#include "gmock/gmock.h"
#include "midtablectl/page/row_counts.h"
#include "testing/files.h"

namespace ctl {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kPage[] = "/tmp/page/midtable.html";
constexpr char kDatabase[] = "WLAN_1a2b3c4d";
constexpr std::time_t kNow = 1'356'998'400;  // the beginning of a slot

// A look at one database.
SystemStatus LookAt(std::time_t time, std::uint64_t waiting = 0, std::int64_t oldest = 0) {
  SystemStatus status;
  status.time = time;
  status.databases.resize(1);
  status.databases[0].database = kDatabase;
  status.databases[0].waiting = waiting;
  status.databases[0].oldest_seconds = oldest;
  return status;
}

TEST(HistoryTest, WhatWasWrittenIsReadAgain) {
  History history;
  AddLook(LookAt(kNow, 3, 40), RowCounts{}, history);
  AddLook(LookAt(kNow + 60, 1, 100), RowCounts{{kDatabase, 600}}, history);
  history.counters = RowCounters{kNow - 5, {{kDatabase, 7}}};
  history.totals_at = kNow;
  history.totals = {{"T_FLOW1D_", "sessions", {{"20121231", 12.5}}}};
  WriteFile(HistoryPath(kPage), ToJson(history));
  std::string note;
  EXPECT_EQ(ToJson(ReadHistory(kPage, note)), ToJson(history));
  EXPECT_EQ(note, "");
}

TEST(HistoryTest, LooksOfTenMinutesMakeOneSlot) {
  History history;
  AddLook(LookAt(kNow, 3, 40), std::nullopt, history);
  AddLook(LookAt(kNow + 60, 9, 20), RowCounts{{kDatabase, 600}}, history);
  AddLook(LookAt(kNow + 120, 1, 10), RowCounts{{kDatabase, 60}}, history);
  AddLook(LookAt(kNow + kSlotSeconds, 0, 0), RowCounts{}, history);
  ASSERT_EQ(history.slots.size(), 2U);
  EXPECT_EQ(history.slots[0].watched, 120);
  EXPECT_EQ(history.slots[0].rows, (RowCounts{{kDatabase, 660}}));
  EXPECT_EQ(history.slots[0].waiting, 9U);
  EXPECT_EQ(history.slots[0].oldest, 40);
  EXPECT_THAT(history.slots[1].rows, IsEmpty());
}

TEST(HistoryTest, ADayIsKeptHoweverOftenSomebodyLooks) {
  History history;
  for (std::time_t time = kNow; time < kNow + 2 * kHistorySeconds; time += 60) {
    AddLook(LookAt(time), RowCounts{{kDatabase, 1'000'000}}, history);
  }
  EXPECT_EQ(history.slots.size(), static_cast<std::size_t>(kHistorySeconds / kSlotSeconds));
}

TEST(HistoryTest, OfVeryManyDatabasesThoseWithTheMostRowsAreKept) {
  RowCounts rows;
  for (std::uint64_t i = 1; i <= 5000; ++i) rows["WLAN_" + std::to_string(i)] = i;
  History history;
  AddLook(LookAt(kNow), rows, history);
  EXPECT_EQ(history.slots[0].rows.size(), 1000U);
  EXPECT_EQ(history.slots[0].rows.count("WLAN_5000"), 1U);
}

TEST(HistoryTest, AClockThatWasSetBackDropsWhatLiesAhead) {
  History history;
  AddLook(LookAt(kNow + 7200), std::nullopt, history);
  AddLook(LookAt(kNow), RowCounts{}, history);
  ASSERT_EQ(history.slots.size(), 1U);
  EXPECT_EQ(history.slots[0].begin, kNow);
  EXPECT_EQ(history.slots[0].watched, 0);
}

class DamagedHistory : public testing::TestWithParam<const char*> {};

TEST_P(DamagedHistory, IsSetAsideWithALine) {
  WriteFile(HistoryPath(kPage), GetParam());
  std::string note;
  EXPECT_THAT(ReadHistory(kPage, note).slots, IsEmpty());
  EXPECT_THAT(note, HasSubstr("set aside as " + HistoryPath(kPage) + ".damaged"));
  EXPECT_EQ(ReadFile(HistoryPath(kPage) + ".damaged"), GetParam());
  EXPECT_FALSE(std::filesystem::exists(HistoryPath(kPage)));
}

INSTANTIATE_TEST_SUITE_P(
    With, DamagedHistory,
    testing::Values("", "{", "[]", "null", R"({"version": 1})", R"({"version": 2})",
                    R"({"version":1,"looked_at":"now","slots":[],"counters":null,)"
                    R"("totals_at":0,"totals":[]})",
                    R"({"version":1,"looked_at":0,"slots":[{"begin":1}],"counters":null,)"
                    R"("totals_at":0,"totals":[]})"));

TEST(HistoryTest, AFileThatIsTooLargeIsSetAside) {
  WriteFile(HistoryPath(kPage), "{}");
  std::filesystem::resize_file(HistoryPath(kPage), 100'000'000);
  std::string note;
  ReadHistory(kPage, note);
  EXPECT_THAT(note, HasSubstr("it is too large"));
}

TEST(HistoryTest, WithoutAFileThereIsNothingToTell) {
  std::filesystem::remove(HistoryPath(kPage));
  std::string note;
  EXPECT_THAT(ReadHistory(kPage, note).slots, IsEmpty());
  EXPECT_EQ(note, "");
}

// A minute after the last look, at which the counter stood at 500.
class CountersTest : public testing::Test {
 protected:
  CountersTest() {
    m_history.looked_at = kNow - 60;
    m_history.counters = RowCounters{kStart, {{kDatabase, 500}}};
  }
  std::optional<RowCounts> Rows(std::time_t started, std::uint64_t rows) {
    return RowsSince(RowCounters{started, {{kDatabase, rows}}}, kNow, m_history);
  }

  static constexpr std::time_t kStart = kNow - 7200;
  History m_history;
};

TEST_F(CountersTest, TellWhatWasLoadedSinceTheLastLook) {
  EXPECT_EQ(Rows(kStart, 620), (RowCounts{{kDatabase, 120}}));
  EXPECT_EQ(m_history.counters->rows.at(kDatabase), 620U);
}

TEST_F(CountersTest, OfAServiceThatWasStartedSinceBeginAtZero) {
  EXPECT_EQ(Rows(kNow - 30, 120), (RowCounts{{kDatabase, 120}}));
}

TEST_F(CountersTest, OfTheFirstServiceThatTellsThemBeginAtZeroToo) {
  m_history.counters.reset();
  EXPECT_EQ(Rows(kNow - 30, 120), (RowCounts{{kDatabase, 120}}));
}

TEST_F(CountersTest, TellNothingAfterHoursWithoutALook) {
  m_history.looked_at = kNow - 3600;
  EXPECT_EQ(Rows(kStart, 620), std::nullopt);
}

TEST_F(CountersTest, TellNothingOfAServiceThatNobodyLookedAt) {
  m_history.counters.reset();
  EXPECT_EQ(Rows(kStart, 620), std::nullopt);
}

}  // namespace
}  // namespace ctl
