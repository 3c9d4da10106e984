// What differs between the kinds of servers: files, statements and rules, not the talking, which is
// CSqlBase's. There is one object for each kind; whoever has a Dialect need not ask which.
#pragma once

#include <span>
#include <string>

#include "config/dbinfo.h"
#include "tables/mid_table_name.h"
#include "tables/template_values.h"

// Of one conversion: a mem table into one of its mid tables.
struct ConversionInput {
  Period period = Period::kDay;
  std::string date;  // YYYYMMDD of the mem table, or empty
  std::string mem_table;
  std::string city;  // city value, where Dialect::TakesCity
};

class Dialect {
 public:
  // That of the store which the credentials name.
  static const Dialect& Of(const MYSQLAUTH& auth);

  virtual ~Dialect() = default;

  // --- the table definition file

  virtual const char* DefinitionsFile() const = 0;
  // The sample of that file, below the folder of samples.
  virtual const char* DefinitionsSample() const = 0;
  // The dialect whose definitions may stand beside those of this one.
  virtual const Dialect& Other() const = 0;
  // The element of a mid table's definition that holds its conversion statement, and the element
  // with the statement to try after that failed.
  virtual const char* ConvertElement() const = 0;
  virtual const char* FallbackElement() const = 0;
  virtual TemplateValues ConvertValues(const ConversionInput& input) const = 0;
  virtual TemplateValues FallbackValues(const ConversionInput& input) const = 0;
  // Whether a conversion into a table of that period is given the city value.
  virtual bool TakesCity(Period period) const = 0;
  // Whether a conversion statement of that period is shown in the run log before it is sent.
  virtual bool ShowsConversion(Period period) const = 0;
  // Whether a new mid table gets a sequence.
  virtual bool HasSequences() const = 0;
  // Whether the statements are written in the SQL of MySQL and MariaDB, in which a table has an
  // engine and an insert may go on with "on duplicate key".
  virtual bool HasMysqlSyntax() const = 0;

  // --- statements

  virtual const char* BeginStatement() const = 0;
  // Whether a failed statement may have ended the whole transaction.
  virtual bool FailureMayEndTransaction() const = 0;
  // A query that gives a row when `database` has that table.
  virtual std::string TableQuery(const std::string& table, const std::string& database) const = 0;
  // Queries whose rows have one column: the names of the mem tables of `database`, and of those of
  // `tables` that hold rows.
  virtual std::string MemTablesQuery(const std::string& database) const = 0;
  virtual std::string FilledTablesQuery(const std::string& database,
                                        std::span<const std::string> tables) const = 0;
  // A database is a user, whose password is that of the settings.
  virtual bool DatabasesAreUsers() const = 0;
  // Rows go in over an external table, by the loader templates; else by LoadStatement.
  virtual bool LoadsOverExternalTables() const = 0;
  // `table` may be qualified by its database. Rows whose keys the table has already are skipped.
  std::string LoadStatement(const std::string& path, const std::string& table) const;
};
