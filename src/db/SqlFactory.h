// Picks the back end for a credentials record.
#pragma once

#include <memory>

#include "config/dbinfo.h"
#include "db/SqlBase.h"

// A back end of the caller's own, not yet connected: COracleBase when IsOracle(auth), CMysqlBase
// otherwise. An Oracle record never gets a MySQL back end: a build without Oracle support gives one
// that fails to connect and says why.
std::unique_ptr<CSqlBase> CreateSqlBase(const MYSQLAUTH& auth);
