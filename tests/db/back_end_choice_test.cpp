// Which back end a record gets, in a program whose Oracle back end is not installed.
#include "db/SqlFactory.h"
#include "gmock/gmock.h"

TEST(BackEndChoice, NeverTakesAnOracleRecordForMysql) {
  for (const std::string type : {"oracle", "oci8", "ORACLE", "mysql", ""}) {
    MYSQLAUTH auth;
    auth.dbtype = type;
    const auto sql = CreateSqlBase(auth);
    EXPECT_EQ(-1, sql->connectDB());
    const char* why = type[0] == 'o' ? "Oracle back end not installed" : "connect failed, error:";
    EXPECT_THAT(sql->getLastError(), testing::HasSubstr(why)) << type;
  }
}
