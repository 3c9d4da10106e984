// Names and paths as texts: their parts, and whether they can be put into a statement or a line of
// the run log.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The `length` characters of `text` from `position` on; empty when the text is too short.
std::string TextAt(std::string_view text, std::size_t position, std::size_t length);

// The part after the last "/"; the whole text when there is none.
std::string_view FileNameOf(std::string_view path);

// Whether a database or table name can be put into a statement: letters, digits, "_", "$", single
// "-" and what is not ASCII can neither end nor comment out a part of a statement nor, but for "_"
// in a pattern, match other names.
bool IsSafeIdentifier(std::string_view name);
// The same for a path, which stands between quotes: no quotes, backslash or control characters.
bool IsSafePath(std::string_view path);
// Whether a password can follow "identified by": the characters of an identifier and "#", or a
// text in double quotes with none inside.
bool IsSafePassword(std::string_view password);

// The name as a log line may show it: a control character, which could start a line that nobody
// wrote, reads as "?".
std::string Printable(std::string name);
