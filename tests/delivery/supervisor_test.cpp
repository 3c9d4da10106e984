// What a manager that started the service hears of it: READY, STATUS, signs of life, STOPPING. A
// datagram socket stands in for the manager.
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>

#include "delivery/delivery_fixture.h"
#include "support/file.h"

namespace {

using std::chrono::milliseconds;

class SupervisorTest : public DeliveryTest {
 protected:
  SupervisorTest() {
    sockaddr_un address{AF_UNIX, "/tmp/notify"};
    unlink(address.sun_path);
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", address.sun_path, 1);
    setenv("WATCHDOG_USEC", "2000000", 1);
  }
  ~SupervisorTest() override {
    Stop();
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
  }

  // All messages so far. The socket holds ten of them: whoever sends more waits.
  const std::vector<std::string>& Heard() {
    char text[4096];
    for (ssize_t size = 0; (size = recv(socket.get(), text, sizeof text, MSG_DONTWAIT)) > 0;) {
      messages.emplace_back(text, static_cast<std::size_t>(size));
    }
    return messages;
  }
  bool EventuallyHears(const std::string& part) {
    return Eventually([&] {
      const auto& all = Heard();
      return std::any_of(all.begin(), all.end(), [&part](const std::string& message) {
        return message.find(part) != std::string::npos;
      });
    });
  }
  // Signs of life within so many milliseconds.
  auto SignsWithin(int ms) {
    Heard();
    messages.clear();
    for (int i = 0; i < ms; i += 100, Heard()) std::this_thread::sleep_for(milliseconds(100));
    return std::count(messages.begin(), messages.end(), "WATCHDOG=1");
  }
  // A statement of the service is under way for some seconds.
  void KeepAWorkerBusy() {
    RunUntil([this, stem = Drop("101500", "1\t10\n")] {
      Heard();
      return Exists(stem + ".mid");
    });
    server.Run(std::string("create trigger ") + kDb + ".slow before insert on " + kDb +
               ".MEM_20121231_0000A for each row set new.v = sleep(6)");
    Drop("101600", "2\t10\n");
  }

  FileDescriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::vector<std::string> messages;
};

TEST_F(SupervisorTest, ReadyIsTheFirstWordAndStoppingTheLast) {
  Start();
  ASSERT_TRUE(EventuallyHears("STATUS=0 files wait, 0 databases are worked on"));
  Stop();
  EXPECT_EQ(Heard().front(), "READY=1");
  EXPECT_EQ(Heard().back(), "STOPPING=1");
}

// Otherwise the unit would fail to start while the server is away, which ends by itself.
TEST_F(SupervisorTest, IsReadyWithoutAServerAndSaysWhatItWaitsFor) {
  MYSQLAUTH auth = Auth();
  auth.port = 1;
  Start(auth);
  EXPECT_TRUE(EventuallyHears("; held back: server: "));
  EXPECT_EQ(Heard().front(), "READY=1");
}

TEST_F(SupervisorTest, ALongStatementIsNoReasonToKillTheService) {
  KeepAWorkerBusy();
  Start();
  ASSERT_TRUE(EventuallyHears("1 files wait, 1 databases are worked on"));
  EXPECT_GE(SignsWithin(3500), 2);
}

// The worker beats ten times a second, which is too seldom here.
TEST_F(SupervisorTest, AStuckWorkerIsNotHidden) {
  KeepAWorkerBusy();
  g_nMainRun = 1;
  delivery = std::make_unique<Delivery>(Auth(), 1, kSilence, milliseconds(1));
  thread = std::thread([this] { delivery->Run(); });
  ASSERT_TRUE(EventuallyHears("; worker 1 is stuck"));
  EXPECT_LE(SignsWithin(3000), 1);
  EXPECT_TRUE(LogHas("worker 1 has been stuck for 0 s"));
}

TEST_F(SupervisorTest, AManagerThatWantsNoSignsOfLifeGetsNone) {
  unsetenv("WATCHDOG_USEC");
  Start();
  ASSERT_TRUE(EventuallyHears("READY=1"));
  EXPECT_EQ(SignsWithin(2500), 0);
}

}  // namespace
