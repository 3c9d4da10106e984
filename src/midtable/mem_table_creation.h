// Makes mem tables from the table definition file.
#pragma once

#include <string>

#include "tables/store.h"

// Makes the mem table in `database` unless it is there; with an empty `database`, in the current
// one. A table is made by every entry of the definitions whose Name is its kind, in their order;
// one of a kind without an entry is not made, which is logged and no failure. False, after a line
// in the run log, when the database could not be switched to, the server could not
// be asked, or at the first entry that is incomplete or that the server refuses. The connection
// stays in that database.
bool CreateMemTable(Store& store, const std::string& table, const std::string& database);
