// What `midtablectl status` counts, and the forms in which it tells.

#include <thread>

#include "gmock/gmock.h"
#include "midtablectl/midtablectl_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// The text with "DATE" for the moment of the run and "AGE" for that of a file of five hours.
std::string Timeless(std::string text) {
  text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"), "DATE");
  text = std::regex_replace(text, std::regex(R"("time": \d+)"), "\"time\": DATE");
  return std::regex_replace(text, std::regex(R"(\b180[0-5]\d\b)"), "AGE");
}

Outcome Status(Words arguments = {}) {
  arguments.insert(arguments.begin(), "status");
  Outcome run = Midtablectl(arguments);
  run.output = Timeless(run.output);
  return run;
}

// A run that sees a file, of three rows, as loaded within a second.
Outcome StatusAfterALoad(const Words& arguments) {
  for (;;) {
    const std::time_t before = std::time(nullptr);
    WriteFile(kSecondFile + ".mid", "1\n2\n3\n");
    Outcome run = Status(arguments);
    if (std::time(nullptr) - before < 2) return run;
    fs::remove(kSecondFile + ".mid");
  }
}

// A file that waits for five hours.
void WriteWaiting(const std::string& rows) {
  WriteFile(kFile + ".dat", rows);
  fs::last_write_time(kFile + ".dat",
                      fs::file_time_type::clock::now() - std::chrono::seconds(18'005));
}

class StatusTest : public MidtablectlServerTest {};

// Files as they came and earlier ones are not failed: of their rows others are loaded or wait. A
// file that is loaded beside one that waits is a copy in the making.
TEST_F(StatusTest, Table) {
  WriteWaiting(std::string(1536, '\n'));
  for (const char* ending : {".mid", ".err", ".err.1", ".orig", ".orig.1"})
    WriteFile(kFile + ending, "");
  WriteFile(kOtherFolder + "5e6f7a8b-MEM_20121230_0800F-20121230-080000.err", "");
  server.Run(
      "use WLAN_1a2b3c4d; create table MEM_20121230_0000F select 1 union select 2;create table "
      "MEM_20121231_0000F select 1; create table T_FLOW1D_20121231 select 1");
  Outcome run = Status();
  run.output = std::regex_replace(run.output, std::regex(" +"), " ");
  EXPECT_EQ(run, (Outcome{1, R"(midtable not running DATE

database waiting bytes oldest loaded failed mem rows files/s rows/s empty in
WLAN_1a2b3c4d 1 1.5 KiB 5:00 h 0 0 3 0.0 0 ?
WLAN_5e6f7a8b 0 0 B - 0 1 0 0.0 0 0 s
all 1 1.5 KiB 5:00 h 0 1 3 0.0 0 ?

The service is not running; what waits is taken once it is: systemctl start midtable
Why it ended: midtablectl why, journalctl -u midtable
What to do: midtablectl why
)"}));
}

TEST_F(StatusTest, Json) {
  WriteWaiting("1\n");
  WriteFile(kFile + ".orig", "");
  server.Run("create table WLAN_1a2b3c4d.MEM_20121230_0000F select 1");
  Outcome run = StatusAfterALoad({"--json"});
  run.output = std::regex_replace(run.output, std::regex("\\s"), "");
  EXPECT_EQ(run, (Outcome{0, R"({"time":DATE,"running":false,"databases":[{"database":)"
                             R"("WLAN_1a2b3c4d","waiting":1,"waiting_bytes":2,)"
                             R"("oldest_seconds":AGE,"loaded":1,"failed":0,"kept":1,)"
                             R"("files_per_second":1.0,"rows_per_second":3.0,"mem_rows":1,)"
                             R"("seconds_to_empty":1.0}]})"}));
}

TEST_F(StatusTest, ACollectorIsToldWhenTheNewestFileWasLoaded) {
  WriteFile(kFile + ".mid", "1\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  WriteFile(kSecondFile + ".mid", "1\n");
  WriteFile(kOtherFolder + "5e6f7a8b-MEM_20121230_0800F-20121230-080000.dat", "1\n");
  struct stat newest {};
  ASSERT_EQ(stat((kSecondFile + ".mid").c_str(), &newest), 0);
  const std::string samples = Samples();
  const std::string name = "midtable_last_loaded_timestamp_seconds{database=";
  EXPECT_THAT(samples, HasSubstr(name + "\"WLAN_1a2b3c4d\"} " + std::to_string(newest.st_ctime)));
  EXPECT_THAT(samples, Not(HasSubstr(name + "\"WLAN_5e6f7a8b\"}")));
}

TEST_F(StatusTest, ALedgerThatNobodyKeepsIsNoFigure) {
  server.Run("create table WLAN_1a2b3c4d.midtable_ledger select 1");
  EXPECT_THAT(Samples(), Not(HasSubstr("midtable_ledger_rows")));
}

// No figure stands for what is not known. A collector, which is another user, may read at any time.
TEST_F(StatusTest, FileForACollector) {
  const std::string path = "/tmp/metrics/midtable.prom";
  WriteFile(path, "what was there before\n");
  fs::create_hard_link(path, "/tmp/metrics/old");
  fs::permissions(kFolder, fs::perms::none);
  fs::remove(kSettings);
  EXPECT_EQ(Status({"--prometheus", path}),
            (Outcome{2, "",
                     "folder of WLAN_1a2b3c4d: Permission denied\nmem tables not looked at: the "
                     "settings cannot be used: midtablectl check tells why\n"}));
  EXPECT_EQ(std::regex_replace(ReadFile(path), std::regex("#.*\n"), ""),
            "midtable_running 0\nmidtable_server_reachable 0\nmidtable_spool_readable 0\n");
  EXPECT_EQ(ReadFile("/tmp/metrics/old"), "what was there before\n");
  EXPECT_EQ(ListFolder("/tmp/metrics"), (Words{"midtable.prom", "old"}));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0644));
}

}  // namespace
