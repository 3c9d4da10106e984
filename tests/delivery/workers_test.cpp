// Several databases at a time.
#include <sys/resource.h>

#include <algorithm>

#include "delivery/delivery_fixture.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Workers : public DeliveryTest {
 protected:
  Workers() { workers = 3; }
  ~Workers() override { Stop(); }

  // Databases beside that of the fixture, with what the definitions need there.
  std::vector<std::string> MakeDevices(int count) const {
    std::vector<std::string> devices;
    for (int i = 1; i <= count; ++i) {
      devices.push_back("0000000" + std::to_string(i));
      const std::string database = "WLAN_" + devices.back();
      server.Run("create database " + database + "; create table " + database +
                 ".T_KIND1Y_A2012 (id int primary key, n int) engine=InnoDB");
      std::filesystem::create_directories(paths::kSpool + devices.back());
    }
    return devices;
  }
  static std::string DropFor(const std::string& device, const std::string& time,
                             const std::string& rows) {
    const std::string stem =
        paths::kSpool + device + "/" + device + "-MEM_20121231_1000A-20121231-" + time;
    WriteFile(stem + ".tmp", rows);
    std::filesystem::rename(stem + ".tmp", stem + ".dat");
    return stem;
  }
  // Every conversion takes that long.
  static void DefineSlowly(const std::string& seconds) {
    Define(kCreateMem, " select id, count(*) + 0 * sleep(" + seconds +
                           ") from %s group by 1 on duplicate key update n = n + values(n)");
  }
  // How many sessions work in each database at this moment.
  std::vector<std::string> AtWork() const {
    return server.Run(
        "select count(*) from information_schema.processlist where user = 'service' and db like "
        "'WLAN%' and command = 'Query' group by db");
  }
};

TEST_F(Workers, WorkOnSeveralDatabasesButNeverTwoOnOneAndCountEveryRowOnce) {
  DefineSlowly("0.02");
  const auto devices = MakeDevices(6);
  std::vector<std::string> stems;
  for (int file = 0; file < 5; ++file) {
    for (const std::string& device : devices) {
      stems.push_back(DropFor(device, std::to_string(101'500 + file), "1\t10\n2\t20\n"));
    }
  }
  Start();
  std::size_t most_at_a_time = 0;
  EXPECT_TRUE(Eventually([&] {
    const auto at_work = AtWork();
    EXPECT_THAT(at_work, Each("1"));
    most_at_a_time = std::max(most_at_a_time, at_work.size());
    return std::all_of(stems.begin(), stems.end(),
                       [](const auto& stem) { return Exists(stem + ".mid"); });
  })) << ReadLog();
  Stop();
  EXPECT_GT(most_at_a_time, 1U);
  for (const std::string& device : devices) {
    EXPECT_THAT(server.Run("select id, n from WLAN_" + device + ".T_KIND1Y_A2012 order by id"),
                ElementsAre("1\t5", "2\t5"));
  }
}

TEST_F(Workers, ADatabaseThatSomebodyHasLockedHoldsNoOtherUp) {
  workers = 2;
  const auto devices = MakeDevices(2);
  MYSQLAUTH auth = server.Auth(kDb);
  Connection other(&auth);
  ASSERT_EQ(other.connectDB(), 0);
  ASSERT_TRUE(other.Run("lock tables T_KIND1Y_A2012 write"));
  const std::string held = Drop("101500", "1\t10\n");
  Start();
  ASSERT_TRUE(Eventually([this] {
    return !server.Run("select 1 from information_schema.processlist where state like 'Waiting%'")
                .empty();
  }));
  const auto begin = std::chrono::steady_clock::now();
  for (const std::string& device : devices) {
    const std::string stem = DropFor(device, "101500", "1\t10\n");
    EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); }));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4))
      << "a wait for the lock takes five";
  EXPECT_TRUE(Exists(held + ".dat"));
  ASSERT_TRUE(other.Run("unlock tables"));
  EXPECT_TRUE(Eventually([&] { return Exists(held + ".mid"); }));
}

TEST_F(Workers, MayHoldMoreFilesOpenThanAProcessUsuallyMay) {
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit little{60, usual.rlim_max};
  std::string last;
  for (const std::string& device : MakeDevices(1)) {
    for (int file = 0; file < 64; ++file) {
      last = DropFor(device, std::to_string(101'500 + file), "1\t10\n");
    }
  }
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &little), 0);
  RunUntil([&] { return Exists(last + ".mid"); });
  EXPECT_FALSE(LogHas("held back")) << ReadLog();
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
}

TEST_F(Workers, EndWithinASecondWhateverTheyAreBusyWith) {
  DefineSlowly("20");
  for (const std::string& device : MakeDevices(4)) DropFor(device, "101500", "1\t10\n");
  Start();
  ASSERT_TRUE(Eventually([this] { return AtWork().size() == 3; })) << ReadLog();
  EXPECT_LT(MeasureStop(), kStopLimit);
}

TEST_F(Workers, TellOfAServerThatIsAwayOnceAndNotEach) {
  far_line.reset();  // which would answer in the server's place
  server.Kill();
  std::vector<std::string> stems;
  for (const char* device : {"00000001", "00000002", "00000003"}) {
    std::filesystem::create_directories(std::string(paths::kSpool) + device);
    stems.push_back(DropFor(device, "101500", ""));
  }
  Start();
  EXPECT_TRUE(Eventually([] { return LogHas("server held back, 3 files wait: "); }));
  std::this_thread::sleep_for(std::chrono::seconds(3));  // it is tried again meanwhile
  const std::string log = ReadLog();
  EXPECT_EQ(log.find("held back"), log.rfind("held back")) << log;
  server.Start();
  MakeDevices(3);
  for (const std::string& stem : stems) {
    EXPECT_TRUE(Eventually([&] { return Exists(stem + ".mid"); })) << ReadLog();
  }
}

TEST_F(Workers, TakeTheDatabaseFirstWhoseFileWaitsLongest) {
  workers = 1;
  const std::string old_device = MakeDevices(2).back();
  DropFor(old_device, "101700", "1\t10\n");
  std::this_thread::sleep_for(std::chrono::seconds(2));
  DropFor("00000001", "101500", "1\t10\n");
  const std::string last = Drop("101600", "1\t10\n");
  const std::size_t mark = server.Mark();
  RunUntil([&] { return Exists(last + ".mid"); });
  std::vector<std::string> loads = Statements(mark);
  std::erase_if(loads, [](const auto& text) { return !text.starts_with("load data"); });
  ASSERT_THAT(loads, testing::SizeIs(3));
  EXPECT_THAT(loads.front(), HasSubstr(old_device));
}

TEST_F(Workers, EndTheSessionsThatAnyWorkerOfAnEarlierRunLeftBehind) {
  workers = 1;
  MYSQLAUTH auth = Auth();
  Connection old(&auth, kSilence, 7);
  ExpectToEnd(old);
}

TEST_F(Workers, LeaveEachOthersSessionsAlone) {
  const auto devices = MakeDevices(1);
  DefineSlowly("0.01");
  std::string last;
  Start();
  for (int file = 0; file < 10; ++file) {
    last = DropFor(devices.front(), std::to_string(101'500 + file), "1\t10\n");
    Drop(std::to_string(101'500 + file), "1\t10\n");
    ASSERT_TRUE(Eventually([&] { return Exists(last + ".mid"); }));
  }
  EXPECT_FALSE(LogHas("of an earlier run")) << ReadLog();
}

}  // namespace
