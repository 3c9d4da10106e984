#include "config/dbinfo.h"

#include <array>

#include "gtest/gtest.h"
#include "support/paths.h"
#include "testing/files.h"

using namespace std::string_literals;

constexpr char kPath[] = "/tmp/dbinfo.conf";

CDBInfo Settings(const std::string& content, bool accepted = true) {
  WriteFile(kPath, content);
  CDBInfo settings(kPath);
  EXPECT_EQ(settings.readConfig(), accepted) << content;
  EXPECT_EQ(settings.getError(), accepted ? "" : "set config information error!");
  return settings;
}

TEST(Settings, AcceptedAndRejectedTexts) {
  for (const auto& [content, key, value] : std::vector<std::array<std::string, 3>>{
           {"  host = 10.0.0.1  ", "host", "10.0.0.1"},
           {"\n\v\f\r\n a=1\r\nb=2 3\r\n\n \t", "b", "2 3"},
           {"a=1\nuser=a\nuser=b", "user", "a"},
           {"password=a=b", "password", "a=b"},
           {"# note = x\n=empty key", "", "empty key"},
           {"a=\nb=\"1\"", "b", "\"1\""},
           {"a=1", "A", ""},
           {"long=" + std::string(10000, 'x') + "\nlast=y", "last", "y"},
           // A NUL byte hides the rest of its 4096 bytes, and only that.
           {"a=1\nb=2\0\nc=3\n"s + std::string(4096 - 13, ' ') + "d=4", "b", "2d=4"}}) {
    EXPECT_EQ(Settings(content).getValue(key), value) << content;
  }
  for (const char* content : {"", " \n\n", "host", "a=1\n\nb=2", "# note\na=1", "a=1\nnote"}) {
    Settings(content, false);
  }
}

TEST(Settings, UnreadableFiles) {
  CDBInfo missing("/tmp/missing.conf"), folder("/tmp");
  EXPECT_FALSE(missing.readConfig() || folder.readConfig());
  EXPECT_EQ(missing.getError(), "open db info config error!");
  EXPECT_EQ(folder.getError(), "read config file error!");
  EXPECT_DEATH(CDBInfo(nullptr), "dbinfo:60: requirement path failed");
}

TEST(Settings, NumbersAreDigitsOnly) {
  EXPECT_EQ(Settings("port=3306").getPort(), 3306);
  EXPECT_EQ(Settings("dbcount=007").getDBCount(), 7U);
  for (const std::string text : {"+3306", "-1", "33 06", "0x10", "", "abc"}) {
    EXPECT_EQ(Settings("port=" + text).getPort(), -1) << text;
    EXPECT_EQ(Settings("dbcount=" + text).getDBCount(), 0U) << text;
  }
}

TEST(Settings, ListedDatabases) {
  const auto list = Settings("dbcount=2\ndbname0=a\ndbdepict0=first").getDBInfoList();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].dbname + "," + list[0].dbdepict + "," + list[1].dbname, "a,first,");
  EXPECT_EXIT(Settings("dbcount=x").getDBInfoList(), testing::ExitedWithCode(0), "");
}

TEST(Policy, HoldsTheSettingsOfTheFirstCall) {
  for (const std::string type : {"oci8", "ORACLE"}) {
    WriteFile(paths::kSettingsFile,
              "host=h\nport=1\nuser=u\npassword=p\ndbname0=d\nset_password=n"
              "\ndbtype=" +
                  type);
    const MYSQLAUTH auth(CDBPolicy().getDBPolicy()), first(ProcessPolicy().getDBPolicy());
    EXPECT_EQ(auth.host + auth.user + auth.password + auth.dbname + auth.new_user_password,
              "hupdn");
    EXPECT_EQ(IsOracle(auth), type == "oci8");
    EXPECT_EQ(first.dbtype, "oracle");
  }
}
