// SIGINT ends the program soon, whatever its server does.
#include <chrono>
#include <thread>

#include "db/MysqlBase.h"
#include "service/program_fixture.h"
#include "testing/frozen_server.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

class Stops : public ProgramTest {
 protected:
  static constexpr char kIdle[] = "no file to load reconnect db";

  static void Pause(int time) { std::this_thread::sleep_for(milliseconds(time)); }
  // What the program printed until it ended, which must be within that time.
  static std::string StopWithin(milliseconds limit) {
    const auto begin = std::chrono::steady_clock::now();
    std::string out = Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, limit);
    return out;
  }
  static constexpr milliseconds kSoon{3000};
};

TEST_F(Stops, WhileTheServerIsAway) {
  StartAndAwait(kIdle);
  m_server.Kill();
  Eventually("grep \"reconnect db attempt 1 failed\" /tmp/out");
  EXPECT_THAT(StopWithin(kSoon), Not(HasSubstr("database not avaliable thread exit")));
  m_server.Start();
}

TEST_F(Stops, WhileTheIdleServiceAsksAFrozenServer) {
  StartAndAwait(kIdle);
  const FrozenServer frozen(m_server);
  Pause(1500);  // it works once a second
  EXPECT_THAT(StopWithin(kSoon), Not(HasSubstr("reconnect db attempt")));
}

TEST_F(Stops, WhileTheServiceStartsOnAFrozenServer) {
  const FrozenServer frozen(m_server);
  StartAndAwait("befor connect db");
  Pause(300);
  EXPECT_THAT(StopWithin(kSoon),
              HasSubstr("connect failed, error:stopped while waiting for the server"));
}

// The registry waits for a table that another session has locked.
class StopsWithoutTheRegistrysTable : public Stops {
 protected:
  StopsWithoutTheRegistrysTable() {
    m_server.MakeDatabases({"vqcfg"});
    m_server.Run("create table vqcfg.EnterpriseUser (crc int, name text)");
    EXPECT_EQ(0, m_holder.connectDB());
    EXPECT_EQ(0, m_holder.executeSQL("lock tables EnterpriseUser write", 0));
    StartAndAwait("changed database not open: vqcfg");
  }

  MYSQLAUTH m_auth = m_server.Auth("vqcfg");
  CMysqlBase m_holder{&m_auth};
};

TEST_F(StopsWithoutTheRegistrysTable, WhichIsLocked) {
  Pause(300);
  StopWithin(milliseconds(5000));
}

TEST_F(StopsWithoutTheRegistrysTable, OnAFrozenServer) {
  const FrozenServer frozen(m_server);
  StopWithin(kSoon);
}

}  // namespace
