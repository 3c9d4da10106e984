// Scripts that make databases and tables, such as the samples setup.sql and year_tables.sql, taken
// apart so that each thing can be looked for on the server before it is made.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// One database or table to make.
struct Creation {
  std::string database;  // of the table; empty where the script does not say
  std::string table;     // empty when the database itself is to be made
  std::string rest;      // what stands behind the name: columns, options

  // Names are quoted, so it means the same in every session that has a database to work in or where
  // `database` is set.
  std::string Statement() const;
  // "database.table", or the database alone.
  std::string Name() const;
};

// The statements of a script, in its order. Nothing but "create database if not exists" and
// "create table if not exists" is taken, one with its name only: of anything else nobody could tell
// whether it was done already. Comments are left out. On failure `error` says which statement it
// was, and the result is empty.
std::vector<Creation> ParseCreations(std::string_view script, std::string& error);

// The year tables that such a script makes, for one year, in one database: each "_YYYY" of the
// script is replaced by the year. A script that makes anything else is refused in `error`.
std::vector<Creation> YearTables(std::string_view script, const std::string& database, int year,
                                 std::string& error);

}  // namespace ctl
