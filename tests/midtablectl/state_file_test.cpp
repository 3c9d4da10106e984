// The reader of the service's state, on the example of docs/state.md.
#include "midtablectl/state_file.h"

#include <sstream>

#include "gtest/gtest.h"
#include "state/state_text.h"
#include "testing/files.h"

namespace {

const std::string kPath = "/tmp/state.json";

// The one block of the document.
std::string Example() {
  const std::string document = ReadFile(MIDTABLE_DOCS "state.md");
  const std::string opening = "```json\n";
  const std::size_t begin = document.find(opening) + opening.size();
  return document.substr(begin, document.find("```", begin) - begin);
}

std::string Changed(std::string text, const std::string& part, const std::string& by) {
  const std::size_t at = text.find(part);
  EXPECT_NE(at, std::string::npos) << part;
  return text.replace(at, part.size(), by);
}

TEST(StateFile, TheExampleOfTheDocumentIsRead) {
  const auto state = ctl::ParseState(Example());
  ASSERT_TRUE(state);
  EXPECT_EQ(state->pid, 4711);
  EXPECT_EQ(state->delivery, "once");
  ASSERT_EQ(state->databases.size(), 1U);
  const ctl::DatabaseState& one = state->databases.front();
  EXPECT_EQ(one.waiting, 3U);
  ASSERT_TRUE(one.loading);
  EXPECT_EQ(one.loading->bytes_total, 314'572'800U);
  EXPECT_EQ(one.loading->bytes_done, 125'829'120U);
  EXPECT_EQ(one.last_minute_rows, 1000U);
  EXPECT_EQ(one.in_spool->failed, 1U);
  ASSERT_EQ(one.held_back.size(), 1U);
  EXPECT_EQ(one.held_back.front().what, "table WLAN_1a2b3c4d.MEM_20121230_0000A");
  EXPECT_EQ(one.held_back.front().since, 1'357'001'000);
  EXPECT_EQ(one.last_error->text, "Unknown column 'x' in 'field list'");
}

// Both sides of the format agree.
TEST(StateFile, WhatTheServiceWritesIsRead) {
  StateBoard board;
  std::atomic<std::uint64_t> bytes{40};
  board.SetWaiting("WLAN_1a2b3c4d", 3, 1000);
  board.Loaded("WLAN_1a2b3c4d", 2, 20);
  board.Hold("WLAN_1a2b3c4d", "table x", 1, "no room");
  board.Hold({}, "server", 3, "gone");
  board.BeginLoad("WLAN_1a2b3c4d", {"/file", "MEM", 1, 100}, &bytes);
  const std::time_t now = std::time(nullptr);
  const auto state = ctl::ParseState(StateText({"once", 4, 1000}, board, now));
  ASSERT_TRUE(state);
  EXPECT_EQ(state->pid, getpid());
  EXPECT_EQ(state->workers, 4);
  EXPECT_EQ(state->held_back.at(0).reason, "gone");
  const ctl::DatabaseState& one = state->databases.at(0);
  EXPECT_EQ(one.waiting, 1U);
  EXPECT_EQ(one.oldest_waiting_at, 1000);
  EXPECT_EQ(one.loaded_rows, 20U);
  EXPECT_EQ(one.failed_rows, 0U);
  EXPECT_EQ(one.last_minute_files, 2U);
  EXPECT_EQ(one.in_spool.has_value(), false);
  EXPECT_EQ(one.loading->bytes_done, 40U);
  EXPECT_EQ(one.held_back.at(0).what, "table x");
  EXPECT_EQ(one.last_error->text, "table x: no room");
}

TEST(StateFile, WhatIsNullIsNotKnown) {
  const std::string text = Changed(Example(), "\"bytes_done\": 125829120", "\"bytes_done\": null");
  EXPECT_EQ(ctl::ParseState(text)->databases.front().loading->bytes_done, std::nullopt);
  const std::string idle =
      Changed(Example(), "\"last_success_at\": 1357001990", "\"last_success_at\": null");
  EXPECT_EQ(ctl::ParseState(idle)->databases.front().last_success_at, std::nullopt);
}

TEST(StateFile, HalfAFileIsNoState) {
  const std::string whole = Example();
  const std::size_t end = whole.rfind('}');
  for (std::size_t length = 0; length <= end; ++length) {
    EXPECT_FALSE(ctl::ParseState(whole.substr(0, length))) << length;
  }
}

TEST(StateFile, AFormatOfTheFutureIsRefused) {
  EXPECT_FALSE(ctl::ParseState(Changed(Example(), "\"version\": 1", "\"version\": 2")));
}

TEST(StateFile, AMemberOfAnotherTypeIsRefused) {
  EXPECT_FALSE(ctl::ParseState(Changed(Example(), "\"waiting\": 3", "\"waiting\": \"3\"")));
}

TEST(StateFile, AFileThatAKilledServiceLeftIsNotThatOfTheRunningOne) {
  WriteFile(kPath, Example());
  EXPECT_TRUE(ctl::ReadRunningState(4711, kPath));
  EXPECT_TRUE(ctl::ReadRunningState(0, kPath));
  EXPECT_FALSE(ctl::ReadRunningState(4712, kPath));
}

TEST(StateFile, ALinkInItsPlaceIsNotFollowed) {
  WriteFile(kPath + ".elsewhere", Example());
  std::filesystem::remove(kPath);
  std::filesystem::create_symlink(kPath + ".elsewhere", kPath);
  EXPECT_FALSE(ctl::ReadState(kPath));
}

}  // namespace
