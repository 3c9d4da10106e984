// How long the MySQL back end waits: for a server that is frozen or says nothing, for locks, and
// once the service is to stop.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "db/back_end_fixture.h"
#include "db/server_wait.h"
#include "support/run_state.h"
#include "testing/frozen_server.h"

using std::chrono::milliseconds;
using testing::HasSubstr;

namespace {

// Runs something and tells how long it took.
milliseconds Timed(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
}

// Tells the service to stop, a moment after its construction; at its end all is as before.
class StopSoon {
 public:
  StopSoon() = default;
  ~StopSoon() {
    m_thread.join();
    g_nMainRun = 1;
  }
  StopSoon(const StopSoon&) = delete;
  StopSoon& operator=(const StopSoon&) = delete;

 private:
  std::thread m_thread{[] {
    std::this_thread::sleep_for(milliseconds(200));
    g_nMainRun = 0;
  }};
};

// A question ends about 0.8 s after StopSoon began; a busy machine gets some more.
constexpr milliseconds kSoon{2500};

TEST(ServerWait, GivesAQuestionUpWhenItsLimitHasPassed) {
  int ends[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  std::string reason = "of an earlier wait";
  const ServerWait wait(reason, milliseconds(1200));
  EXPECT_EQ("", reason);
  const auto waited = Timed([&] {
    EXPECT_EQ(0, ServerWait::Wait(ends[0], 1, 1));
    EXPECT_EQ(ETIMEDOUT, errno);
  });
  EXPECT_GE(waited, milliseconds(1200));
  EXPECT_EQ("no answer from the server within 1 s", reason);
  for (const int end : ends) close(end);
}

class TimeOut : public BackEndTest {
 protected:
  TimeOut() : BackEndTest(kMysql) {}

  std::string LockLimits() {
    return Value("select concat(@@lock_wait_timeout, ' ', @@innodb_lock_wait_timeout) as v");
  }
};

TEST_F(TimeOut, AStopEndsEveryQuestionToAFrozenServer) {
  unsigned int count = 0;
  const std::pair<const char*, std::function<bool(CSqlBase&)>> questions[] = {
      {"reconnectDB", [](auto& sql) { return sql.reconnectDB() == 0; }},
      {"isDBAlive", [](auto& sql) { return sql.isDBAlive(); }},
      {"existDB", [](auto& sql) { return sql.existDB("alpha"); }},
      {"existTable", [](auto& sql) { return sql.existTable("t"); }},
      {"changeDB", [](auto& sql) { return sql.changeDB("alpha") == 0; }},
      {"fetchRecordSet", [&](auto& sql) { return sql.fetchRecordSet("select 1", m_rows) == 0; }},
      {"RowsCountBySQL", [&](auto& sql) { return sql.RowsCountBySQL("select 1", &count) == 0; }}};
  for (const auto& [name, ask] : questions) {
    Connect();
    const FrozenServer frozen(MariadbServer::Get());
    const StopSoon stop;
    EXPECT_LT(Timed([&, &question = ask] { EXPECT_FALSE(question(*m_sql)); }), kSoon) << name;
    EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure()) << name;
    if (std::string_view(name) == "RowsCountBySQL") continue;  // it leaves the last error
    EXPECT_THAT(m_sql->getLastError(), HasSubstr("stopped while waiting")) << name;
  }
}

TEST_F(TimeOut, AStopDoesNotCutAStatementShort) {
  const StopSoon stop;
  EXPECT_EQ(0, Do("insert into t select 1, sleep(2)")) << m_sql->getLastError();
  EXPECT_EQ("1", Value("select count(*) as v from t")) << "a server that answers is asked";
}

TEST_F(TimeOut, EveryConnectionLimitsItsWaitsForLocks) {
  EXPECT_EQ("60 60", LockLimits());
  m_sql->setLockWaitSeconds(5);
  EXPECT_EQ("60 60", LockLimits()) << "not before the next connect";
  EXPECT_EQ(0, m_sql->reconnectDB());
  EXPECT_EQ("5 5", LockLimits());
}

// An option of this process's only TCP connection.
int OptionOfConnection(int level, int name) {
  int found = -1;
  for (const std::string& fd : ListFolder("/proc/self/fd")) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const int socket = std::stoi(fd);
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
    EXPECT_EQ(-1, found) << "more than one connection";
    size = sizeof found;
    EXPECT_EQ(0, getsockopt(socket, level, name, &found, &size));
  }
  return found;
}

TEST_F(TimeOut, ThePeerOfASilentConnectionIsLookedAfter) {
  EXPECT_EQ(1, OptionOfConnection(SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(60, OptionOfConnection(IPPROTO_TCP, TCP_KEEPIDLE));
  EXPECT_EQ(180'000, OptionOfConnection(IPPROTO_TCP, TCP_USER_TIMEOUT));
}

}  // namespace
