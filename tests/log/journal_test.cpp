// Errors and alarms in the journal. A datagram socket stands in for the journal.
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "support/file.h"
#include "support/paths.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class JournalTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::filesystem::create_directories("/run/systemd/journal");
    sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    ASSERT_EQ(bind(s_socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  JournalTest() { setenv("INVOCATION_ID", "0123456789abcdef0123456789abcdef", 1); }
  ~JournalTest() override { unsetenv("INVOCATION_ID"); }

  // What came since the last call, each as "PRIORITY:MIDTABLE_UNIT:MESSAGE".
  static std::vector<std::string> Heard() {
    std::vector<std::string> heard;
    char text[8192];
    for (ssize_t size = 0; (size = recv(s_socket.get(), text, sizeof text, MSG_DONTWAIT)) > 0;) {
      heard.push_back(Summary({text, static_cast<std::size_t>(size)}));
    }
    return heard;
  }

  static inline const FileDescriptor s_socket{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};

 private:
  static std::string Summary(const std::string& entry) {
    const auto field = [&entry](const std::string& name) {
      std::istringstream lines(entry);
      for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
      }
      return std::string("none");
    };
    return field("PRIORITY") + ":" + field("MIDTABLE_UNIT") + ":" + field("MESSAGE");
  }
};

TEST_F(JournalTest, HasErrorsAndAlarmsWithTheirPriorities) {
  CLOGER log;
  log.Init();
  log("main", 1, kError, "no %s", "room");
  log("Midtable", 1, kAlarm, "late");
  for (const int level : {kInfo, kDebug, kRealtime, kConsole}) log("main", 1, level, "word");
  EXPECT_THAT(Heard(), ElementsAre("3:main:no room", "4:Midtable:late"));
}

TEST_F(JournalTest, HasWhatTheLogSaysOfItself) {
  CLOGER log;
  log.Init();
  std::filesystem::remove_all("/vqlog/log");
  log.Flush();
  EXPECT_THAT(Heard(), ElementsAre("4:zux_center_log:run log was out of reach (No such file or "
                                   "directory), 0 lines are missing"));
}

// What a person starts by hand is no unit's.
TEST_F(JournalTest, HasNothingOfAServiceThatIsNoUnit) {
  unsetenv("INVOCATION_ID");
  CLOGER log;
  log.Init();
  log("main", 1, kError, "no room");
  EXPECT_THAT(Heard(), IsEmpty());
}

}  // namespace
