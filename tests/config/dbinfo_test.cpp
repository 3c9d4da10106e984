#include "config/dbinfo.h"

#include "gtest/gtest.h"
#include "support/paths.h"
#include "testing/files.h"

using std::string_literals::operator""s;

constexpr char kFile[] = "/tmp/dbinfo.conf";

CDBInfo Settings(const std::string& content) {
  WriteFile(kFile, content);
  CDBInfo settings(kFile);
  EXPECT_TRUE(settings.readConfig()) << content;
  EXPECT_EQ(settings.getError(), "");
  return settings;
}

TEST(Settings, GiveTheValueOfAKey) {
  const struct {
    const char* what;
    std::string content;
    std::string key;
    std::string value;
  } cases[] = {
      {"blanks around line, key and value do not count", "  a = 10.0.0.1 \r\n", "a", "10.0.0.1"},
      {"the first occurrence counts", "a=1\na=2", "a", "1"},
      {"quotes and further equals signs belong to the value", "a=\"b=c\"", "a", "\"b=c\""},
      {"a value may be empty", "a=\nb=1", "a", ""},
      {"a key may be empty", "a=1\n=no key", "", "no key"},
      {"there are no comments", "# x=y", "# x", "y"},
      {"keys differ by case", "a=1", "A", ""},
      // The file is read in pieces of 4096 bytes.
      {"a zero byte hides the rest of its piece", "a=1\0\nb=2\n"s, "b", ""},
      {"and no other piece", "b=2\0"s + std::string(4092, ' ') + "d=4", "b", "2d=4"},
  };
  for (const auto& [what, content, key, value] : cases) {
    EXPECT_EQ(Settings(content).getValue(key), value) << what;
  }
}

TEST(Settings, EveryLineNeedsAnEqualsSign) {
  for (const char* content : {"", " \n\n", "host", "a=1\n\nb=2", "# note\na=1", "a=1\nnote"}) {
    WriteFile(kFile, content);
    CDBInfo settings(kFile);
    EXPECT_FALSE(settings.readConfig()) << content;
    EXPECT_EQ(settings.getError(), "set config information error!") << content;
  }
}

TEST(Settings, AFolderIsNotReadable) {
  CDBInfo settings("/tmp");
  EXPECT_FALSE(settings.readConfig());
  EXPECT_EQ(settings.getError(), "read config file error!");
}

TEST(Settings, APortIsOfDigitsOnly) {
  EXPECT_EQ(Settings("port=03306").getPort(), 3306);
  for (const std::string text : {"+3306", "-1", "33 06", "0x10", "", "abc"}) {
    EXPECT_EQ(Settings("port=" + text).getPort(), -1) << text;
  }
}

// What is read from a settings file with this type.
MYSQLAUTH Policy(const std::string& dbtype) {
  WriteFile(paths::kSettingsFile,
            "host=h\nuser=u\npassword=p\ndbname0=d\nset_password=n\ndbtype=" + dbtype);
  return MYSQLAUTH(CDBPolicy().getDBPolicy());
}

TEST(Policy, HoldsTheSettings) {
  const MYSQLAUTH auth = Policy("mysql");
  EXPECT_EQ((std::vector{auth.host, auth.user, auth.password, auth.dbname, auth.new_user_password}),
            (std::vector<std::string>{"h", "u", "p", "d", "n"}));
}

TEST(Policy, OnlyTheExactNamesSelectOracle) {
  EXPECT_TRUE(IsOracle(Policy("oracle")));
  EXPECT_EQ(Policy("oci8").dbtype, "oracle");
  for (const char* type : {"ORACLE", "Oci8", "oracle8", "mysql", ""}) {
    EXPECT_FALSE(IsOracle(Policy(type))) << type;
    EXPECT_EQ(Policy(type).dbtype, type);
  }
}
