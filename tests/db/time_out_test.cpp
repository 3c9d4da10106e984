// How long the MySQL back end waits: for a server that is frozen or says nothing, for locks, and
// once the service is to stop.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "db/MysqlBase.h"
#include "db/server_wait.h"
#include "gmock/gmock.h"
#include "support/run_state.h"
#include "testing/files.h"
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

class TimeOut : public testing::Test {
 protected:
  TimeOut() { m_server.Run("create or replace database alpha; create table alpha.t (x int)"); }

  std::unique_ptr<CMysqlBase> Connected() {
    auto sql = std::make_unique<CMysqlBase>(&m_auth);
    EXPECT_EQ(0, sql->connectDB()) << sql->getLastError();
    return sql;
  }
  static std::string Value(CMysqlBase& sql, const char* query) {
    std::vector<SqlRecord> rows;
    EXPECT_EQ(0, sql.fetchRecordSet(query, rows)) << sql.getLastError();
    return rows.size() == 1 ? rows[0].begin()->second : "not one row";
  }
  static std::string LockLimits(CMysqlBase& sql) {
    return Value(sql, "select concat(@@lock_wait_timeout, ' ', @@innodb_lock_wait_timeout) as v");
  }

  MariadbServer& m_server = MariadbServer::Get();
  MYSQLAUTH m_auth = m_server.Auth("alpha");
};

TEST_F(TimeOut, AStopEndsEveryQuestionToAFrozenServer) {
  std::vector<SqlRecord> rows;
  unsigned int count = 0;
  const std::pair<const char*, std::function<bool(CMysqlBase&)>> questions[] = {
      {"reconnectDB", [](auto& sql) { return sql.reconnectDB() == 0; }},
      {"isDBAlive", [](auto& sql) { return sql.isDBAlive(); }},
      {"existDB", [](auto& sql) { return sql.existDB("alpha"); }},
      {"existTable", [](auto& sql) { return sql.existTable("t"); }},
      {"changeDB", [](auto& sql) { return sql.changeDB("alpha") == 0; }},
      {"fetchRecordSet", [&](auto& sql) { return sql.fetchRecordSet("select 1", rows) == 0; }},
      {"RowsCountBySQL", [&](auto& sql) { return sql.RowsCountBySQL("select 1", &count) == 0; }}};
  std::vector<std::unique_ptr<CMysqlBase>> sessions;
  for (std::size_t i = 0; i < std::size(questions); ++i) sessions.push_back(Connected());
  const FrozenServer frozen(m_server);
  for (std::size_t i = 0; i < std::size(questions); ++i) {
    const char* const name = questions[i].first;
    const auto& ask = questions[i].second;
    const StopSoon stop;
    EXPECT_LT(Timed([&] { EXPECT_FALSE(ask(*sessions[i])) << name; }), kSoon) << name;
    EXPECT_EQ(SqlFailure::kConnection, sessions[i]->lastFailure()) << name;
    if (std::string_view(name) == "RowsCountBySQL") continue;  // it leaves the last error
    EXPECT_THAT(sessions[i]->getLastError(), HasSubstr("stopped while waiting")) << name;
  }
}

TEST_F(TimeOut, AStopDoesNotCutAStatementShort) {
  const auto sql = Connected();
  const StopSoon stop;
  EXPECT_EQ(0, sql->executeSQL("insert into t select sleep(2)", 0)) << sql->getLastError();
  EXPECT_EQ("1", Value(*sql, "select count(*) as v from t")) << "a server that answers is asked";
}

TEST_F(TimeOut, EveryConnectionLimitsItsWaitsForLocks) {
  const auto sql = Connected();
  EXPECT_EQ("60 60", LockLimits(*sql));
  sql->setLockWaitSeconds(5);
  EXPECT_EQ("60 60", LockLimits(*sql)) << "not before the next connect";
  EXPECT_EQ(0, sql->reconnectDB());
  EXPECT_EQ("5 5", LockLimits(*sql));
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
  const auto sql = Connected();
  EXPECT_EQ(1, OptionOfConnection(SOL_SOCKET, SO_KEEPALIVE));
  EXPECT_EQ(60, OptionOfConnection(IPPROTO_TCP, TCP_KEEPIDLE));
  EXPECT_EQ(15, OptionOfConnection(IPPROTO_TCP, TCP_KEEPINTVL));
  EXPECT_EQ(8, OptionOfConnection(IPPROTO_TCP, TCP_KEEPCNT));
  EXPECT_EQ(180'000, OptionOfConnection(IPPROTO_TCP, TCP_USER_TIMEOUT));
}

}  // namespace
