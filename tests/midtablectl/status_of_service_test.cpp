// What the running program tells of itself, and midtablectl status makes of it.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "gmock/gmock.h"
#include "midtablectl/midtablectl_fixture.h"
#include "midtablectl/state_file.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kTable = "WLAN_1a2b3c4d.MEM_20121230_0000F";

// That of the files.
const std::string kYearTable = "WLAN_1a2b3c4d.T_FLOW1Y_2012";
const std::string kMakeYearTable =
    "create table " + kYearTable + " (month int primary key, n int) engine = InnoDB";

bool Eventually(const std::function<bool()>& done) {
  for (int i = 0; i < 1500 && !done(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return done();
}

// A row of kind F. `width`: of each field, in digits.
std::string Row(int key, std::size_t width = 1) {
  std::string row = std::to_string(key);
  for (int i = 0; i < 10; ++i) row += "\t" + std::string(width - 1, '0') + "2";
  return row + "\n";
}

// As a producer does it.
void Drop(const std::string& stem, const std::string& rows) {
  WriteFile(stem + ".tmp", rows);
  fs::rename(stem + ".tmp", stem + ".dat");
}

class StatusOfService : public MidtablectlServerTest {
 protected:
  StatusOfService() { server.Run(kMakeYearTable); }
  ~StatusOfService() override { End(SIGINT); }

  void Start(const std::string& setting) {
    if (!setting.empty()) Replace(kSettings, "dbtype", setting + "\ndbtype");
    m_pid = fork();
    if (m_pid == 0) {
      dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
      execl(MIDTABLE_PROGRAM, MIDTABLE_PROGRAM, "-app", nullptr);
      _exit(127);
    }
    ASSERT_TRUE(Eventually([this] { return State() && State()->pid == m_pid; }));
  }
  void End(int signal) {
    if (m_pid <= 0) return;
    kill(m_pid, signal);
    waitpid(m_pid, nullptr, 0);
    m_pid = 0;
  }
  static std::optional<ctl::ServiceState> State() { return ctl::ReadState(); }
  // What the service says of the database, once it says it.
  static bool EventuallySays(const std::function<bool(const ctl::DatabaseState&)>& condition) {
    return Eventually([&condition] {
      const auto state = State();
      return state && state->databases.size() == 1 && condition(state->databases.front());
    });
  }
  static bool EventuallyLoaded(std::uint64_t rows) {
    return EventuallySays([rows](const auto& one) {
      return one.loaded_rows == rows && one.counted_rows == rows && one.waiting == 0;
    });
  }
  static bool EventuallyPrints(const std::string& pattern) {
    return Eventually([&pattern] {
      return std::regex_search(Midtablectl({"status"}).output, std::regex(pattern));
    });
  }

  pid_t m_pid = 0;
};

// Both ways of working count alike.
class EitherWay : public StatusOfService, public testing::WithParamInterface<const char*> {};

TEST_P(EitherWay, CountsFilesAndRows) {
  Start(GetParam());
  Drop(kFile, Row(1) + Row(2) + Row(3));
  ASSERT_TRUE(EventuallyLoaded(3)) << ReadFile(kRunLog + Today() + ".log");
  const ctl::DatabaseState one = State()->databases.front();
  EXPECT_EQ(one.loaded_files, 1U);
  EXPECT_EQ(one.last_minute_rows, 3U);
  EXPECT_EQ(one.in_spool->loaded, 1U);
  EXPECT_LT(std::time(nullptr) - one.last_success_at.value_or(0), 30);
  EXPECT_EQ(State()->delivery, std::string(GetParam()).empty() ? "" : "once");
}

TEST_P(EitherWay, TellsWhatIsHeldBackAndWhy) {
  server.Run("drop table " + kYearTable);
  Start(GetParam());
  Drop(kFile, Row(1));
  ASSERT_TRUE(EventuallyPrints("held back: table " + kTable + ".*T_FLOW1Y_.* doesn't exist"));
  EXPECT_THAT(State()->databases.front().last_error->text, HasSubstr("doesn't exist"));
  server.Run(kMakeYearTable);
  Replace(kDefinitions, "</root>\n", "</root>\n\n");
  EXPECT_TRUE(EventuallySays([](const auto& one) { return one.held_back.empty(); }));
  EXPECT_THAT(Midtablectl({"status"}).output, Not(HasSubstr("held back")));
}

TEST_P(EitherWay, WhatAKilledServiceLeftIsNotBelieved) {
  Start(GetParam());
  End(SIGKILL);
  ASSERT_TRUE(State());
  Drop(kFile, Row(1));
  const std::string output = Midtablectl({"status"}).output;
  EXPECT_THAT(output, HasSubstr("midtable not running"));
  EXPECT_THAT(output, testing::ContainsRegex("WLAN_1a2b3c4d +1 +2[0-9] B"));
}

TEST_P(EitherWay, ACleanStopTakesTheFileAlong) {
  Start(GetParam());
  End(SIGINT);
  EXPECT_FALSE(fs::exists(paths::kStateFile));
}

INSTANTIATE_TEST_SUITE_P(Delivery, EitherWay, testing::Values("", "delivery=once"),
                         [](const auto& test) { return *test.param == '\0' ? "none" : "once"; });

// The folder cannot be listed, the settings cannot be read: both would be needed for a look.
TEST_F(StatusOfService, NeedsNeitherALoginNorAListing) {
  Start("delivery=once");
  Drop(kFile, Row(1));
  ASSERT_TRUE(EventuallyLoaded(1));
  fs::permissions(kFolder, fs::perms::owner_write | fs::perms::owner_exec);
  fs::permissions(kSettings, fs::perms::none);
  const Outcome run = Midtablectl({"status"});
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.errors, "");
  EXPECT_THAT(run.output, testing::ContainsRegex("WLAN_1a2b3c4d +0 +\\? +- +1 +0 +\\?"));
}

TEST_F(StatusOfService, ACollectorIsToldOfFailedFilesThatTheServiceFound) {
  WriteFile(kFile + ".err", Row(1));
  WriteFile(kSecondFile + ".err", Row(1));
  WriteFile(kSecondFile + ".mid", Row(1));
  Start("delivery=once");
  ASSERT_TRUE(EventuallySays([](const auto& one) { return one.in_spool.has_value(); }));
  const std::string samples = Samples();
  EXPECT_THAT(samples, HasSubstr("midtable_running 1\n"));
  EXPECT_THAT(samples, HasSubstr("{database=\"WLAN_1a2b3c4d\",state=\"failed\"} 1\n"));
  EXPECT_THAT(samples, HasSubstr("{database=\"WLAN_1a2b3c4d\",state=\"loaded\"} 1\n"));
  EXPECT_THAT(samples, HasSubstr("midtable_mem_table_rows{"));
}

// The server sleeps at the first row, when the network has taken a part of the file.
TEST_F(StatusOfService, ALargeLoadShowsItsProgress) {
  server.Run("set global local_infile = 1");
  Start("delivery=once");
  Drop(kFile, Row(1));
  ASSERT_TRUE(EventuallyLoaded(1));
  server.Run("create trigger WLAN_1a2b3c4d.slow before insert on " + kTable +
             " for each row set new.l = if(new.a = 0, sleep(8), 0)");
  std::string rows;
  for (int i = 0; i < 2000; ++i) rows += Row(i, 2000);
  Drop(kSecondFile, rows);
  EXPECT_TRUE(EventuallyPrints("loading: .*0900F.*, [0-9.]+ [KM]iB of 3[0-9.]+ MiB, [1-9][0-9]? %"))
      << Midtablectl({"status"}) << ReadFile(paths::kStateFile);
  EXPECT_THAT(Midtablectl({"status", "--json"}).output, HasSubstr("\"bytes_done\": "));
  EXPECT_TRUE(EventuallyLoaded(2001));
  EXPECT_THAT(Midtablectl({"status"}).output, Not(HasSubstr("loading:")));
}

TEST_F(StatusOfService, AFileThatTheServerRefusesHasFailedWithItsLines) {
  server.Run("set global sql_mode = 'strict_all_tables'");
  Start("delivery=once");
  Drop(kFile, Row(1));
  ASSERT_TRUE(EventuallyLoaded(1));
  server.Run("create trigger WLAN_1a2b3c4d.refusal before insert on " + kTable +
             " for each row signal sqlstate '45000' set message_text = 'no such row'");
  Drop(kSecondFile, Row(2) + Row(3));
  EXPECT_TRUE(EventuallySays([](const auto& one) {
    return one.failed_files == 1 && one.failed_rows == 2U && one.in_spool->failed == 1;
  })) << ReadFile(paths::kStateFile);
  EXPECT_THAT(State()->databases.front().last_error->text, HasSubstr("no such row"));
  EXPECT_EQ(Midtablectl({"status"}).status, 1);
}

// Somebody deletes loaded files at once: the page's curve has their rows all the same.
TEST_F(StatusOfService, ThePageHasTheRowsThatTheServiceCounted) {
  const std::string page = "/tmp/metrics/midtable.html";
  fs::create_directories("/tmp/metrics");
  Start("delivery=once");
  ASSERT_EQ(Midtablectl({"status", "--html", page}).status, 0);
  Drop(kFile, Row(1) + Row(2));
  ASSERT_TRUE(EventuallyLoaded(2));
  fs::remove(kFile + ".mid");
  std::this_thread::sleep_for(std::chrono::seconds(1));
  ASSERT_EQ(Midtablectl({"status", "--html", page}).status, 0);
  EXPECT_THAT(ReadFile(page + ".history.json"), HasSubstr("\"rows\":{\"WLAN_1a2b3c4d\":2}"));
  EXPECT_THAT(ReadFile(page), HasSubstr("<h1>All is well</h1>"));
}

}  // namespace
