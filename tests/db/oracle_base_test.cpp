// What only the Oracle back end does, on the stand-in.
#include "db/OracleBase.h"
#include "gmock/gmock.h"
#include "testing/files.h"
#include "testing/postgres_server.h"

using testing::HasSubstr;

TEST(OracleBase, LogsInAsTheUserThatADatabaseIs) {
  PostgresServer::Get().CreateStore("WLAN_1a2b");
  CapturedStdout out;
  COracleBase sql("midtable", "wrong");
  EXPECT_EQ(-1, sql.connectDB());
  EXPECT_THAT(sql.getLastError(), HasSubstr("password authentication failed"));
  EXPECT_EQ(0, sql.changeDB("WLAN_1a2b", "secret"));
  EXPECT_EQ(-1, sql.changeDB("midtable", "wrong"));
  EXPECT_EQ(-1, sql.executeSQL("nonsense", 1));
  EXPECT_THAT(sql.getLastError(), HasSubstr("42601 ERROR: syntax error"));
  EXPECT_EQ(0, sql.executeSQL("create table mine (x int)", 1));
  EXPECT_TRUE(sql.existTable("mine") && sql.existTable("MINE") && sql.existDB("wlan_1A2B"));
  EXPECT_EQ(0, sql.changeDB("WLAN_1a2b")) << "with the password that was good";
  EXPECT_EQ("", out.text()) << "it writes nothing anywhere";
}
