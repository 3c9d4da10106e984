// Reads files of sections with keys and values:
//
//   ; a comment, as is a line that starts with #
//   [section]
//   key = value
//
// Line ends are LF or CRLF, a UTF-8 byte-order mark at the start is passed over. Blanks (spaces and
// tabs) around lines, section names, keys and values do not count. Names are compared byte by byte,
// values taken as they are: quotes, ; and # in them are characters like any other. A section or key
// that comes again goes on with the one before; the later value wins. A line that is none of the
// above, and a key before the first section, is passed over.
//
// A loaded object may be read by several threads at a time.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// What a line is by these rules.
enum class IniLine {
  kNothing,  // blank, or a comment
  kSection,
  kKnownSection,  // the name of a section that came before
  kValue,
  kPassedOver
};

// Is told of every line while a file is loaded: its number, from 1, what it is, and the section
// that it opens or stands in, whose name is empty before the first one.
using IniLineHandler = std::function<void(long number, IniLine kind, const std::string& section)>;

class CRwIni {
 public:
  // Loads the file at `path`; with a null path nothing, IsLoadOk() is 0 then.
  explicit CRwIni(const char* path);

  // Reads a regular file, replacing what was loaded before. 1 on success; 0, with no sections, for
  // a null path and for whatever is not a regular file or cannot be read. The handler is called for
  // the lines in their order, also for those before a place that cannot be read.
  int Load(const char* path, const IniLineHandler& handler = {});
  // What the last Load returned.
  int IsLoadOk() const { return m_loaded ? 1 : 0; }

  // The section names in file order, each once, sections without keys included.
  std::vector<std::string> GetSections() const { return m_sections; }

  // The value of `key` in `section`; `default_value`, or "" when that is null, where there is none.
  // A non-null `buffer` gets it as well, zero-terminated and cut to `size` bytes with the zero; a
  // size of 0 or less leaves it alone.
  std::string GetString(const char* section, const char* key, char* buffer, int size,
                        const char* default_value) const;

 private:
  using Values = std::map<std::string, std::string, std::less<>>;
  using Sections = std::map<std::string, Values, std::less<>>;

  IniLine ReadLine(std::string_view line, Sections::value_type*& section);
  const std::string* Find(std::string_view section, std::string_view key) const;

  bool m_loaded = false;
  std::vector<std::string> m_sections;
  Sections m_values;
};
