// What a mem file's name says. A name is parsed here and nowhere else, into a MemFile.
//
//   <id>-<table>-<YYYYMMDD>[anything]-<HHMMSS>[anything].dat
//
// The id is 8 characters of any kind or up to 8 hexadecimal digits; the table field may hold
// anything but "-". Example: 1a2b3c4d-MEM_20120101_1234F-20120101-235959.dat holds rows of table
// MEM_20120101_0004F of database WLAN_1a2b3c4d.
#pragma once

#include <string>
#include <string_view>

namespace ULIT {

// Whether the first characters, at most 8, are all hexadecimal digits; true for an empty text.
bool isXdigit(const char* text);
// Whether the text is exactly n decimal digits; false for a null pointer.
bool isDigit(const char* text, int n);
bool isValidDate(const char* text);  // 8 digits, no calendar check
bool isValidTime(const char* text);  // 6 digits

}  // namespace ULIT

// Why the service does not load a file whatever it holds.
enum class NameRefusal {
  kNone,
  kNoPath,      // a bare name without the begin of a database id
  kNoDatabase,  // the same behind a folder
  kNoTable,     // no table field, or one of 64 characters and more
  kUnsafe,      // path, database or table could end or comment out a part of a statement
};

// A mem file and what its name says: the value that travels from the spool to the mid tables.
struct MemFile {
  // As it was given; a bare name got the folder of its database, where one can be told.
  std::string path;
  // The prefix of all databases and the first at most 8 characters of the name; or empty.
  std::string database;
  // The table field with the characters at positions 13 to 15 set to "000"; or empty.
  std::string table;

  // Takes a full path or a bare name. Never fails: what the name does not say is empty.
  static MemFile Parse(std::string path);

  // The last character of the table, which picks its definitions; empty without a table.
  std::string Kind() const;
  // YYYYMMDD behind the four characters "MEM_" of the table; empty for a table that is too short.
  std::string Date() const;
  // Whether rows of this kind get a local flag before they are loaded.
  bool HasLocalFlags() const { return table.ends_with('F'); }
  // "database.table".
  std::string QualifiedTable() const { return database + "." + table; }
  // Whether both go to the same mem table.
  bool SharesTableWith(const MemFile& other) const {
    return table == other.table && database == other.database;
  }
  NameRefusal Refusal() const;
};

// Why a name does not follow the grammar above, as the end of a sentence; null for one that does.
const char* MemFileNameFault(const std::string& name);
inline bool IsMemFileName(const std::string& name) { return MemFileNameFault(name) == nullptr; }

// Whether a name is that of a database folder: 8 hexadecimal digits.
bool IsDatabaseId(std::string_view name);
