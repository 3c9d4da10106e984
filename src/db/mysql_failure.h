// What the errors of MySQL and MariaDB mean.
#pragma once

#include <string_view>

#include "db/SqlBase.h"

// Sorts a statement's failure by the number, SQL state and text that the client library has for
// it: kStatement for a number that nobody knows, kNone for 0.
SqlFailure MeaningOfMysqlError(unsigned int number, std::string_view state, std::string_view text);
