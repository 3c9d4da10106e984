#include "db/SqlFactory.h"

#include "db/MysqlBase.h"
#include "db/OracleBase.h"

std::unique_ptr<CSqlBase> CreateSqlBase(const MYSQLAUTH& auth) {
  if (IsOracle(auth)) return std::make_unique<COracleBase>(auth.user, auth.password);
  // The back end takes a record that it may change.
  MYSQLAUTH copy = auth;
  return std::make_unique<CMysqlBase>(&copy);
}
