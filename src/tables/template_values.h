// What the service fills each template with, in the order of the placeholders. The values that
// depend on the kind of server are those of Dialect.
#pragma once

#include <string>
#include <vector>

#include "tables/sql_template.h"

using TemplateValues = std::vector<TemplateValue>;

// --- table definition files

// /root/Mem/MidTab<i>/Create.
TemplateValues MemCreateValues(const std::string& mem_table);
// Create of a mid table, and /root/Sequence.
TemplateValues MidCreateValues(const std::string& mid_table);

// --- loader templates

// The table over a mem file: the mem table's name with "_external" behind it.
std::string ExternalTable(const std::string& mem_table);
// create_memdir; empty for a database that has nothing behind the prefix of all databases.
TemplateValues DirectoryValues(const std::string& database);
// create_table; `file` is the mem file's name without its folder.
TemplateValues ExternalTableValues(const std::string& database, const std::string& mem_table,
                                   const std::string& file);
// external_merge.
TemplateValues MergeValues(const std::string& database, const std::string& mem_table);
// sqlldr_ctl; `columns` is the list in parentheses.
TemplateValues ControlFileValues(const std::string& data_file, const std::string& mem_table,
                                 const std::string& columns);
