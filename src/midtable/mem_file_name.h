// What a mem file's name says, and the checked access to fixed positions in names.
//
//   <id>-<table>-<YYYYMMDD>[anything]-<HHMMSS>[anything].dat
//
// The id is 8 characters of any kind or up to 8 hexadecimal digits; the table field may hold
// anything but "-". Example: 1a2b3c4d-MEM_20120101_1234F-20120101-235959.dat holds rows of table
// MEM_20120101_0004F of database WLAN_1a2b3c4d.
#pragma once

#include <cstddef>
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

// The `length` characters of `text` from `position` on; empty when the text is too short.
std::string TextAt(std::string_view text, std::size_t position, std::size_t length);

// The part after the last "/"; the whole text when there is none.
std::string_view FileNameOf(std::string_view path);

// Whether a name is that of a database folder: 8 hexadecimal digits.
bool IsDatabaseId(std::string_view name);

// Why a name does not follow the grammar above; null for one that does.
const char* MemFileNameFault(const std::string& name);
inline bool IsMemFileName(const std::string& name) { return MemFileNameFault(name) == nullptr; }

// The items derived from a path or a bare name; each is empty when it cannot be derived.
//
// The full path: one that holds a "/" as it is, a bare name in the folder of its database.
std::string MemFilePath(const std::string& path);
// The prefix of all databases and the first at most 8 characters of the name.
std::string MemFileDatabase(std::string_view path);
// The table field with the characters at positions 13 to 15 set to "000". Fields of 64 characters
// and more give an empty item.
std::string MemFileTable(std::string_view path);

// Whether a database or table name can be put into a statement: letters, digits, "_", "$", single
// "-" and what is not ASCII can neither end nor comment out a part of it nor, but for "_" in a
// pattern, match other names.
bool IsSafeIdentifier(std::string_view name);
// The same for a path, which stands between quotes: no quotes, backslash or control characters.
bool IsSafePath(std::string_view path);

// Whether a password can follow "identified by": such a text with "#" allowed, or one in double
// quotes with none inside.
bool IsSafePassword(std::string_view password);

// The name as a log line may show it: a control character, which could start a line that nobody
// wrote, reads as "?".
std::string Printable(std::string name);
