#include "tables/template_values.h"

#include "support/database_name.h"

TemplateValues MemCreateValues(const std::string& mem_table) { return {mem_table}; }

TemplateValues MidCreateValues(const std::string& mid_table) { return {mid_table}; }

std::string ExternalTable(const std::string& mem_table) { return mem_table + "_external"; }

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
