#include "tables/template_values.h"

#include "support/database_name.h"

// The order of the values is a contract with the definition files of installations, which name no
// values but only have conversions for them.
TemplateValues MemCreateValues(const std::string& mem_table) { return {mem_table}; }

TemplateValues MidCreateValues(const std::string& mid_table) { return {mid_table}; }

std::string ExternalTable(const std::string& mem_table) { return mem_table + "_external"; }

// A name without a device behind the prefix would declare the folder of all devices.
TemplateValues DirectoryValues(const std::string& database) {
  if (database.size() <= kDatabasePrefix.size()) return {};
  return {database, database.substr(kDatabasePrefix.size())};
}

TemplateValues ExternalTableValues(const std::string& database, const std::string& mem_table,
                                   const std::string& file) {
  return {database + "." + ExternalTable(mem_table), database, file};
}

TemplateValues MergeValues(const std::string& database, const std::string& mem_table) {
  return {database + "." + mem_table, database + "." + ExternalTable(mem_table)};
}

TemplateValues ControlFileValues(const std::string& data_file, const std::string& mem_table,
                                 const std::string& columns) {
  return {data_file, mem_table, columns};
}
