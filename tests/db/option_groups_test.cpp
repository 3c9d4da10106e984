// The machine's own option files: what the service takes from them, and what the setting
// client_options makes of that.
#include "db/back_end_fixture.h"
#include "log/zux_center_log.h"

namespace {

constexpr char kUsual[] = "/etc/mysql/my.cnf";

class OptionGroups : public BackEndTest {
 protected:
  OptionGroups() : BackEndTest(kMysql) {}
  // Whether the connections made now are compressed.
  std::string Compression() {
    EXPECT_EQ(0, m_sql->reconnectDB()) << m_sql->getLastError();
    return Value("show session status like 'Compression'");
  }
};

TEST_F(OptionGroups, OtherGroupsOfTheMachineChangeNothing) {
  std::string content;
  for (const char* group : {"client", "client-server", "client-mariadb", "mysql", "mysqld"}) {
    content += Format("[%s]\ncompress=1\nport=1\nssl=1\nssl-ca=/none\nnonsense\n", group);
  }
  WriteFile(kUsual, content);
  EXPECT_EQ("OFF", Compression());
}

TEST_F(OptionGroups, ItsOwnGroupIsFollowedUntilASettingNamesAnotherFile) {
  WriteFile("/etc/mysql/conf.d/midtable.cnf", "[midtable]\ncompress\n");
  WriteFile(kUsual, "!includedir /etc/mysql/conf.d/\n[midtable]\nport=1\n");
  EXPECT_EQ("ON", Compression()) << "with the port of the settings";
  WriteFile("/tmp/own.cnf", "[midtable]\n");
  m_auth.client_options = "/tmp/own.cnf";
  Connect();
  EXPECT_EQ("OFF", Compression());
}

TEST_F(OptionGroups, TheyChooseTheRoadToTheServer) {
  const std::string peer = "select substring_index(user(), '@', -1)";
  m_auth.host = "localhost";
  for (const auto& [lines, expected] :
       {std::pair("socket=" + MariadbServer::Get().Folder() + "/socket", "localhost"),
        {"socket=/none\nprotocol=tcp", "127.0.0.1"},
        {"protocol=tcp\nbind-address=127.0.0.2", "127.0.0.2"}}) {
    WriteFile(kUsual, std::string("[midtable]\n") + lines + "\n");
    Connect();
    EXPECT_EQ(expected, Value(peer)) << lines;
  }
}

}  // namespace
