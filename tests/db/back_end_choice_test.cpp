// Which back end a record gets, and what a program says in which Oracle is not built in.
#include "db/MysqlBase.h"
#include "db/OracleBase.h"
#include "db/SqlFactory.h"
#include "gmock/gmock.h"

namespace {

std::unique_ptr<CSqlBase> BackEndFor(const std::string& type) {
  MYSQLAUTH auth;
  auth.dbtype = type;
  return CreateSqlBase(auth);
}

TEST(BackEndChoice, AnOracleRecordGetsTheOracleBackEnd) {
  for (const char* type : {"oracle", "oci8"}) {
    EXPECT_NE(nullptr, dynamic_cast<COracleBase*>(BackEndFor(type).get())) << type;
  }
}

TEST(BackEndChoice, EveryOtherRecordGetsTheMysqlBackEnd) {
  for (const char* type : {"mysql", "", "ORACLE"}) {
    EXPECT_NE(nullptr, dynamic_cast<CMysqlBase*>(BackEndFor(type).get())) << type;
  }
}

#ifndef MIDTABLE_ORACLE
TEST(BackEndChoice, AProgramWithoutOracleDoesNotConnectAndSaysWhy) {
  const auto sql = BackEndFor("oracle");
  EXPECT_EQ(-1, sql->connectDB());
  EXPECT_EQ("Oracle is not built in: build the program with -DMIDTABLE_ODBC=ON",
            sql->getLastError());
}
#endif

}  // namespace
