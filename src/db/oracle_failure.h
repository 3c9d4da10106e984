// What the errors mean that a session of Oracle's gets over ODBC.
#pragma once

#include <string_view>

#include "db/SqlBase.h"

// Sorts a statement's failure by the SQL state of its first diagnostic record and by the codes
// "ORA-00942" in the text of all. The codes go first: drivers give many of them the state HY000.
// kStatement for what nobody knows.
SqlFailure MeaningOfOracleError(std::string_view state, std::string_view text);
