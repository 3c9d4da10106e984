// The engine on a server that makes trouble: the log names the cause, and in the end every row that
// was loaded is counted, once.
#include <array>
#include <fstream>
#include <thread>

#include "service/pipeline_fixture.h"

// In the C library's place: the service's pauses take less than half of their time.
extern "C" unsigned int sleep(unsigned int seconds) {
  return static_cast<unsigned int>(usleep(seconds * 400'000));
}

const std::string kMem = kDb + "." + kMemA;

struct ServerTrouble : Pipeline {
  ~ServerTrouble() override {
    g_nMainRun = 0;
    if (runner.joinable()) runner.join();
  }
  // The suffix that a new file of two rows gets.
  std::string Fate() {
    const std::string id = std::to_string(++files);
    const std::string stem = Drop(kMemA, std::to_string(100'000 + files), id + "1\n" + id + "2\n");
    for (int i = 0; i < 300 && fs::exists(stem + ".dat"); ++i) usleep(50'000);
    return fs::exists(stem + ".mid") ? ".mid" : ".err";
  }

  int result = -1;
  int files = 0;
  std::thread runner{[this] { result = engine->Run(); }};
};

TEST_F(ServerTrouble, AwayForLessAndForMoreThanElevenAttempts) {
  server.Kill();
  std::thread back([this] { server.Start(); });
  EXPECT_EQ(Fate(), ".mid");
  back.join();
  CapturedStdout out;
  server.Kill();
  runner.join();
  EXPECT_FALSE(engine->Initialize());
  const std::string text = out.text();
  server.Start();
  EXPECT_EQ(result + g_nMainRun, 0);
  const std::string gone = " reason connect failed, error:Can't connect to server on '127.0.0.1'";
  EXPECT_THAT(text, testing::ContainsRegex("attempt 1 failed" + gone + ".*tried 9\n.*tried 0\n.*" +
                                           "attempt 11 failed" + gone +
                                           ".*thread exit\n.*connect db err" + gone));
}

TEST_F(ServerTrouble, IsNamedInTheLogAndNoRowIsLostOrCountedTwice) {
  // What another session does while a file comes, what that becomes, a line of the log.
  const std::array<std::string, 3> cases[] = {
      {"kill user midtable", ".mid", "connection to db lost reason ping failed, error:"},
      {"do sleep(1); kill user midtable", ".mid", "failed, error:Lost connection to server during"},
      {"begin; select n from " + kDb + ".T_AUTH1M_201212 for update; do sleep(2.5)", ".mid",
       "failed, error:Lock wait timeout exceeded"},
      {"begin; insert into mysql.heavy select seq from mysql.seq_1_to_999; select n from " + kDb +
           ".T_AUTH1D_20121231 for update; do sleep(0.7); delete from " + kMem +
           " where v < 0; do sleep(0.3); rollback",
       ".mid", "memtable WLAN_1a2b3c4d.MEM_20121231_0004A transaction ended by the server"},
      {"set global read_only = 1; do sleep(1.5); set global read_only = 0", ".err",
       "error:The MariaDB server is running with the --read-only option"},
      {"grant usage on *.* to midtable with max_user_connections -1; kill user midtable; "
       "do sleep(1); grant usage on *.* to midtable with max_user_connections 0",
       ".mid", "attempt 1 failed reason connect failed, error:User 'midtable' has exceeded"},
      {"do sleep(1) /* disk full */", ".mid", "error:The table 'MEM_20121231_0004A' is full"}};
  fs::create_directory("/full/db");
  fs::create_directory_symlink("/full/db", "/tmp/private-mariadb/data/" + kDb);
  server.Run(
      "create table mysql.heavy (i int) engine=InnoDB; set global lock_wait_timeout = 1, "
      "global innodb_lock_wait_timeout = 1; revoke super, connection admin, "
      "read only admin on *.* from midtable");
  int loaded = 0;
  const auto load = [&](const std::string& fate) {
    EXPECT_EQ(Fate(), fate);
    loaded += fate == ".mid" ? 2 : 0;
    usleep(400'000);  // the conversion
  };
  load(".mid");
  for (const auto& [session, fate, log] : cases) {
    SCOPED_TRACE(session);
    CapturedStdout out;
    const bool in_time = !session.ends_with("; kill user midtable");
    Define(kDay, "insert into T_AUTH1M_%.6s select count(*)" +
                     std::string(in_time ? "" : " + sleep(1.5)") + " from %s");
    for (std::ofstream fill("/full/fill");
         session.ends_with("*/") && fill << std::string(4096, 'x') << std::flush;) {
    }
    std::thread other([&, sql = session] { server.Run(sql); });
    usleep(300'000);
    load(fate);
    other.join();
    fs::remove("/full/fill");
    Define(kDay, kMonth);
    load(".mid");
    EXPECT_THAT(out.text(), testing::HasSubstr(log));
    const std::string all = std::to_string(loaded);
    EXPECT_EQ(Sum("T_AUTH1D_20121231") + " " + Sum("T_AUTH1M_201212"), all + " " + all);
    EXPECT_THAT(server.Run("select * from " + kMem), testing::IsEmpty());
  }
  EXPECT_GT(server.Mark(), 100U);
  // No statement came on another connection than the transaction's begin.
  EXPECT_THAT(server.Run("select argument from mysql.general_log where user_host like 'midtable%' "
                         "and argument regexp '^(start|insert into T_|commit|rollback)' and "
                         "if(argument like 'start%', @c := thread_id, @c) <> thread_id"),
              testing::IsEmpty());
}
