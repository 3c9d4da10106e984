// The loader template file: statements and control file text of the Oracle loading roads, each
// picked among siblings by an attribute.
#pragma once

#include <functional>
#include <string>

#include "config/XmlStream.h"

inline constexpr char kDirectoryNode[] = "/root/external_load/create_memdir";
inline constexpr char kExternalTableNode[] = "/root/external_load/create_table";
inline constexpr char kMergeNode[] = "/root/external_merge";
inline constexpr char kControlFileNode[] = "/root/sqlldr_ctl";

// The attribute that picks a template, and its value for the control file.
inline constexpr char kTableAttribute[] = "table";
inline constexpr char kAllTables[] = "all";

// The value of kTableAttribute for the files of a mem table: "MEM_" and the character at position
// 17 of its name; empty for a name that is too short.
std::string LoaderSelector(const std::string& mem_table);
// The same for a kind.
std::string LoaderSelectorOfKind(const std::string& kind);

// The first of `node` and the siblings of its name behind it whose attribute has that value; else
// null. `seen`
// gets the attribute's value of each that was looked at.
CXmlNode FindByAttribute(CXmlNode node, const std::string& attribute, const std::string& value,
                         const std::function<void(const std::string& found)>& seen = {});
