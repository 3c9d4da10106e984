#include "config/dbinfo.h"

#include "gtest/gtest.h"
#include "support/paths.h"
#include "testing/files.h"

using namespace std::string_literals;

CDBInfo Settings(const std::string& content, const std::string& error = "") {
  WriteFile("/tmp/dbinfo.conf", content);
  CDBInfo settings("/tmp/dbinfo.conf");
  EXPECT_EQ(settings.readConfig(), error.empty()) << content;
  EXPECT_EQ(settings.getError(), error);
  return settings;
}

TEST(Settings, AcceptedAndRejectedFiles) {
  const CDBInfo settings = Settings(
      "\n\v\f\r\n  host = 10.0.0.1 \r\nuser=a\nuser=b\npassword=\"a=b\"\n# x=y\n=no key\na=\n \t");
  std::string values;
  for (const char* key : {"host", "user", "password", "# x", "", "a", "A"}) {
    values += settings.getValue(key) + "|";
  }
  EXPECT_EQ(values, "10.0.0.1|a|\"a=b\"|y|no key|||");
  // A NUL byte hides the rest of its 4096 bytes, and only that.
  EXPECT_EQ(Settings("a=1\nb=2\0\n"s + std::string(4096 - 9, ' ') + "d=4").getValue("b"), "2d=4");
  for (const char* content : {"", " \n\n", "host", "a=1\n\nb=2", "# note\na=1", "a=1\nnote"}) {
    Settings(content, "set config information error!");
  }
  CDBInfo folder("/tmp");
  EXPECT_EQ(folder.readConfig() ? "" : folder.getError(), "read config file error!");
}

TEST(Settings, NumbersAreDigitsOnly) {
  for (const std::string text : {"+3306", "-1", "33 06", "0x10", "", "abc"}) {
    EXPECT_EQ(Settings("port=" + text).getPort(), -1) << text;
  }
  const auto list = Settings("dbcount=02\ndbname0=a\ndbdepict0=first").getDBInfoList();
  EXPECT_EQ(list.at(0).dbname + list[0].dbdepict + list.at(1).dbname, "afirst");
  EXPECT_EXIT(Settings("dbcount=x").getDBInfoList(), testing::ExitedWithCode(0), "");
  EXPECT_DEATH(CDBInfo(nullptr), "dbinfo:60: requirement path failed");  // in a release, too
}

TEST(Policy, OnlyTheExactNamesSelectOracle) {
  for (const std::string type : {"oci8", "ORACLE"}) {
    WriteFile(paths::kSettingsFile, "host=h\nuser=u\npassword=p\nset_password=n\ndbtype=" + type);
    const MYSQLAUTH auth(CDBPolicy().getDBPolicy());
    EXPECT_EQ(auth.host + auth.user + auth.password + auth.new_user_password, "hupn");
    EXPECT_EQ(auth.dbtype, type == "oci8" ? "oracle" : type);
    EXPECT_EQ(IsOracle(auth), type == "oci8");
  }
}
