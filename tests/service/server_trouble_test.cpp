// The engine on a server that makes trouble: the log names the cause, and in the end every row that
// was loaded is counted, once.
#include <fstream>
#include <functional>
#include <ostream>
#include <thread>

#include "service/pipeline_fixture.h"

// In the C library's place: the service's pauses take less than half of their time.
extern "C" unsigned int sleep(unsigned int seconds) {
  return static_cast<unsigned int>(usleep(seconds * 400'000));
}

using testing::HasSubstr;

// end_sessions() ends the service's. await_lock_wait() ends as soon as another session waits for a
// lock. The server brings its list of transactions up to date only when nobody looked at it for a
// tenth of a second.
const std::string kProcedures = R"(
delimiter //
create procedure aside.end_sessions() begin
  declare n bigint default 0;
  declare continue handler for 1094 begin end;
  repeat
    select min(id) into n from information_schema.processlist where user = 'midtable' and id > n;
    if n is not null then kill n; end if;
  until n is null end repeat;
end//
create procedure aside.await_lock_wait() begin
  while not exists (select 1 from information_schema.innodb_trx where trx_state = 'LOCK WAIT') do
    do sleep(0.2);
  end while;
end//
delimiter ;
)";

// The engine runs in a thread of its own until the case ends.
class ServerTrouble : public Pipeline {
 protected:
  ServerTrouble() : Pipeline(Watcher::kRuns) {}
  // Before the engine connects: "read only" holds for its user too.
  static void SetUpTestSuite() {
    MariadbServer::Get().Run(
        "drop database if exists aside; create database aside; create table aside.heavy (i int) "
        "engine=InnoDB;" +
        kProcedures +
        "revoke all privileges, grant option from midtable;"
        "grant select, insert, update, delete, create, drop, alter, index, file on *.* to "
        "midtable");
  }
  ~ServerTrouble() override {
    g_nMainRun = 0;
    if (m_runner.joinable()) m_runner.join();
  }

  // Drops a file of two rows and waits until it has become one that ends in `suffix`.
  void Load(const std::string& suffix) {
    const std::string id = std::to_string(++m_files);
    const std::string time = std::to_string(100'000 + m_files);
    const std::string stem = Drop(kMemA, time, id + "1\n" + id + "2\n");
    Await([&] { return !fs::exists(stem + ".dat"); });
    EXPECT_TRUE(fs::exists(stem + suffix));
    if (fs::exists(stem + ".mid")) m_rows += 2;
  }
  void ExpectEachRowCountedOnce() {
    Await([this] { return MemRows().empty(); });
    EXPECT_EQ(Sum("T_AUTH1D_20121231"), std::to_string(m_rows));
    EXPECT_EQ(Sum("T_AUTH1M_201212"), std::to_string(m_rows));
  }
  // Waits for 15 s at most.
  static void Await(const std::function<bool()>& condition) {
    for (int i = 0; i < 300 && !condition(); ++i) usleep(50'000);
    EXPECT_TRUE(condition());
  }
  // Whatever became of the connection within it.
  void ExpectEachTransactionOnOneConnection() {
    EXPECT_THAT(Sent(), testing::Contains(testing::StartsWith("insert into T_")));
    EXPECT_THAT(
        server.Run("select argument from mysql.general_log where user_host like 'midtable%' "
                   "and argument regexp '^(start|insert into T_|commit|rollback)' and "
                   "if(argument like 'start%', @c := thread_id, @c) <> thread_id"),
        testing::IsEmpty());
  }

  int m_result = -1;
  int m_files = 0;
  int m_rows = 0;  // in files that were loaded
  std::thread m_runner{[this] { m_result = engine->Run(); }};
};

TEST_F(ServerTrouble, AServerThatComesBackInTimeIsFound) {
  server.Kill();
  std::thread back([this] { server.Start(); });
  Load(".mid");
  back.join();
}

TEST_F(ServerTrouble, AServerThatStaysAwayEndsTheServiceAfterElevenAttempts) {
  CapturedStdout out;
  server.Kill();
  m_runner.join();
  EXPECT_FALSE(engine->Initialize());
  const std::string text = out.text();
  server.Start();
  EXPECT_EQ(m_result, 0);
  EXPECT_EQ(g_nMainRun, 0);
  const std::string gone = " reason connect failed, error:Can't connect to server on '127.0.0.1'";
  EXPECT_THAT(text, testing::ContainsRegex("attempt 1 failed" + gone + ".*tried 9\n.*tried 0\n.*" +
                                           "attempt 11 failed" + gone +
                                           ".*thread exit\n.*connect db err" + gone));
}

TEST_F(ServerTrouble, AFullDiskIsNamedInTheLog) {
  if (server.IsMysql()) GTEST_SKIP() << "it follows no link in its data to the small disk";
  const std::string fill = "/full/fill";
  fs::create_directory("/full/db");
  fs::create_directory_symlink("/full/db", server.Folder() + "/data/" + kDb);
  Load(".mid");
  ExpectEachRowCountedOnce();
  CapturedStdout out;
  for (std::ofstream file(fill); file << std::string(4096, 'x') << std::flush;) continue;
  Load(".mid");
  Await([this] { return Sum("T_AUTH1M_201212") == "4"; });
  usleep(500'000);  // the mem table cannot be emptied
  fs::remove(fill);
  Load(".mid");
  EXPECT_THAT(out.text(), HasSubstr("error:The table 'MEM_20121231_0004A' is full"));
  ExpectEachRowCountedOnce();
}

// What another session does, the file coming when it has written the file kInPlace, and what is
// seen of that.
struct Trouble {
  const char* name;
  std::string session;
  std::string log;
  std::string suffix = ".mid";     // of the file in the end
  std::string month = "count(*)";  // what the month table gets
  friend void PrintTo(const Trouble& trouble, std::ostream* out) { *out << trouble.name; }
};
class TroublesomeSession : public ServerTrouble, public testing::WithParamInterface<Trouble> {};

constexpr char kInPlace[] = "/tmp/in-place";
const std::string kWriteInPlace = "select 1 into outfile '/tmp/in-place'; ";
const std::string kAwaitLockWait = "call aside.await_lock_wait(); ";
const std::string kEndSessions = "call aside.end_sessions(); ";
const std::string kAlterUser = "alter user midtable account ";

TEST_P(TroublesomeSession, IsNamedInTheLogAndNoRowIsLostOrCountedTwice) {
  fs::remove(kInPlace);
  Load(".mid");
  ExpectEachRowCountedOnce();
  CapturedStdout out;
  Define(kDay, "insert into T_AUTH1M_%.6s select " + GetParam().month + " from %s");
  std::thread session([this] { server.Run(GetParam().session); });
  Await([] { return fs::exists(kInPlace); });
  Load(GetParam().suffix);
  session.join();
  Define(kDay, kMonth);
  Load(".mid");
  ExpectEachRowCountedOnce();
  ExpectEachTransactionOnOneConnection();
  EXPECT_THAT(out.text(), HasSubstr(GetParam().log));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TroublesomeSession,
    testing::Values(
        Trouble{"KillsTheIdleService", kEndSessions + kWriteInPlace,
                "connection to db lost reason ping failed, error:"},
        Trouble{"KillsAConversion", kWriteInPlace + "do sleep(1.5); " + kEndSessions,
                "failed, error:Lost connection to server during", ".mid", "count(*) + sleep(3)"},
        Trouble{"LocksAMidTable",
                "begin; select n from " + kDb + ".T_AUTH1M_201212 for update; " + kWriteInPlace +
                    "do sleep(6)",
                "failed, error:Lock wait timeout exceeded"},
        // The session's transaction is the heavier one, so the engine's is given up for it.
        Trouble{"WinsADeadlock",
                "begin; insert into aside.heavy select seq from " + MariadbServer::Numbers(999) +
                    "; use " + kDb + "; select n from T_AUTH1D_20121231 for update; " +
                    kWriteInPlace + kAwaitLockWait + "delete from " + kMemA +
                    " where v < 0; rollback",
                "memtable WLAN_1a2b3c4d.MEM_20121231_0004A transaction ended by the server"},
        Trouble{
            "ForbidsWriting",
            "set global read_only = 1; " + kWriteInPlace + "do sleep(2); set global read_only = 0",
            "server is running with the --read-only option", ".err"},
        Trouble{"ForbidsConnecting",
                kAlterUser + "lock; " + kEndSessions + kWriteInPlace + "do sleep(1); " +
                    kAlterUser + "unlock",
                "attempt 1 failed reason connect failed, error:Access denied"}),
    [](const auto& param) { return param.param.name; });
