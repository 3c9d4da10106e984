#include "tables/dialect.h"

#include <cstdlib>

#include "db/OracleBase.h"
#include "log/zux_center_log.h"
#include "support/names.h"
#include "support/paths.h"

namespace {

// A month table has a column for each of the days that a statement may name.
constexpr int kMostDayNumbers = 8;

// The queries of all tables in one.
template <typename Query>
std::string FilledTables(std::span<const std::string> tables, Query query) {
  std::string all;
  for (const std::string& table : tables) {
    if (!all.empty()) all += " union all ";
    all += query(table);
  }
  return all;
}

// MySQL and MariaDB. Their statements differ nowhere as far as the service goes.
class MysqlDialect final : public Dialect {
 public:
  const char* DefinitionsFile() const override { return paths::kMysqlDefinitions; }
  const char* DefinitionsSample() const override { return "vqlog.xml"; }
  const Dialect& Other() const override;
  const char* ConvertElement() const override { return "Convert"; }
  const char* FallbackElement() const override { return "Convert1"; }
  TemplateValues ConvertValues(const ConversionInput& input) const override {
    return {input.date, input.mem_table};
  }
  TemplateValues FallbackValues(const ConversionInput& input) const override {
    return ConvertValues(input);
  }
  bool TakesCity(Period /*period*/) const override { return false; }
  bool ShowsConversion(Period /*period*/) const override { return false; }
  bool HasSequences() const override { return false; }
  bool HasMysqlSyntax() const override { return true; }

  const char* BeginStatement() const override { return "start transaction"; }
  bool FailureMayEndTransaction() const override { return true; }
  std::string TableQuery(const std::string& table, const std::string& database) const override {
    return Format("show tables from %s like \"%s\"", database.c_str(), table.c_str());
  }
  // The underscore is escaped, since it would stand for any character.
  std::string MemTablesQuery(const std::string& database) const override {
    return "show tables from `" + database + "` like \"MEM\\_%\"";
  }
  // One row is enough to know that a table is not empty. Counting all rows could take minutes.
  std::string FilledTablesQuery(const std::string& database,
                                std::span<const std::string> tables) const override {
    return FilledTables(tables, [&database](const std::string& table) {
      return "(select '" + table + "' as t from `" + database + "`.`" + table + "` limit 1)";
    });
  }
  bool DatabasesAreUsers() const override { return false; }
  bool LoadsOverExternalTables() const override { return false; }
};

// On Oracle unquoted names are in capitals, and a database is the schema of a user.
class OracleDialect final : public Dialect {
 public:
  const char* DefinitionsFile() const override { return paths::kOracleDefinitions; }
  const char* DefinitionsSample() const override { return "oracle/oracle_vqlog.xml"; }
  const Dialect& Other() const override;
  const char* ConvertElement() const override { return "ConvertOracle"; }
  // There is no second template: the same statement is tried once more, with the values that a day
  // table gets.
  const char* FallbackElement() const override { return "ConvertOracle"; }
  TemplateValues ConvertValues(const ConversionInput& input) const override;
  // The same for every period.
  TemplateValues FallbackValues(const ConversionInput& input) const override {
    return {input.date, input.mem_table, input.date};
  }
  bool TakesCity(Period period) const override { return period == Period::kYear; }
  bool ShowsConversion(Period period) const override { return period != Period::kDay; }
  bool HasSequences() const override { return true; }
  bool HasMysqlSyntax() const override { return false; }

  const char* BeginStatement() const override { return "set transaction read write"; }
  // A failed statement takes back itself alone.
  bool FailureMayEndTransaction() const override { return false; }
  std::string TableQuery(const std::string& table, const std::string& database) const override {
    return Format(
        "select object_name from all_objects where owner= upper('%s') and object_type='TABLE' and "
        "object_name = upper('%s')",
        database.c_str(), OracleToUpper(table).c_str());
  }
  // External tables show the rows of a file that is loaded already or is about to be: their rows
  // are no rows that wait.
  std::string MemTablesQuery(const std::string& database) const override {
    return "select object_name as t from all_objects where owner= upper('" + database +
           "') and object_type='TABLE' and object_name like 'MEM!_%' escape '!' and object_name "
           "not like '%!_EXTERNAL' escape '!'";
  }
  std::string FilledTablesQuery(const std::string& database,
                                std::span<const std::string> tables) const override {
    return FilledTables(tables, [&database](const std::string& table) {
      return "select '" + table + "' as t from dual where exists (select 1 from " + database + "." +
             table + ")";
    });
  }
  bool DatabasesAreUsers() const override { return true; }
  bool LoadsOverExternalTables() const override { return true; }
};

const MysqlDialect kMysql;
const OracleDialect kOracle;

const Dialect& MysqlDialect::Other() const { return kOracle; }
const Dialect& OracleDialect::Other() const { return kMysql; }

// Which values a conversion gets depends on the period of its mid table: the templates that
// installations have were written for these, in this order.
TemplateValues OracleDialect::ConvertValues(const ConversionInput& input) const {
  const std::string year = TextAt(input.date, 0, 4);
  const std::string month = TextAt(input.date, 4, 2);
  const std::string day = TextAt(input.date, 6, 2);
  switch (input.period) {
    case Period::kDay:
      return {input.date, input.mem_table, input.date};
    case Period::kMonth: {
      // A month table has one column for each day of the month, and each place of the statement
      // that names such a column gets the number of the day.
      TemplateValues values = {year + month, input.mem_table};
      values.resize(values.size() + kMostDayNumbers, std::atoi(day.c_str()));
      return values;
    }
    case Period::kYear:
      break;
  }
  const std::string literal = "date'" + year + "-" + month + "-" + day + "'";
  return {year, input.mem_table, literal, input.city, literal, input.city};
}

}  // namespace

const Dialect& Dialect::Of(const MYSQLAUTH& auth) {
  if (IsOracle(auth)) return kOracle;
  return kMysql;
}

// "ignore" makes the server pass over rows that it cannot take, a duplicate key among them, instead
// of refusing the whole file for one of them.
std::string Dialect::LoadStatement(const std::string& path, const std::string& table) const {
  return Format("load data infile \"%s\" ignore into table %s", path.c_str(), table.c_str());
}
