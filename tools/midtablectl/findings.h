// What `check` found: one line each.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "midtablectl/console.h"

namespace ctl {

struct Finding {
  bool is_error;  // the service fails or loses rows; else it works, and somebody may be surprised
  std::string where;  // a file, a folder, or "server"
  long line;          // 0: none
  std::string what;
  std::string fix;
};

class Findings {
 public:
  void Error(std::string where, long line, std::string what, std::string fix) {
    m_all.push_back({true, std::move(where), line, std::move(what), std::move(fix)});
  }
  void Warning(std::string where, long line, std::string what, std::string fix) {
    m_all.push_back({false, std::move(where), line, std::move(what), std::move(fix)});
  }
  void Add(bool is_error, std::string where, long line, std::string what, std::string fix) {
    m_all.push_back({is_error, std::move(where), line, std::move(what), std::move(fix)});
  }
  // What was not looked at. No finding: the status does not depend on it.
  void Note(std::string where, long line, std::string what) {
    m_notes.push_back({false, std::move(where), line, std::move(what), {}});
  }

  // Prints them, of many with one remedy the first few, then the notes, and a line of totals;
  // `errors_only` leaves warnings and notes out. Whether a finding was printed decides the status.
  Status Print(Console& console, bool errors_only) const;

 private:
  std::vector<Finding> m_all;
  std::vector<Finding> m_notes;
};

// Small helpers of all commands.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
std::string Lower(std::string_view text);
std::tm LocalTime(std::time_t time);
bool IsNumber(std::string_view text);  // digits only, at least one
// The lines of a text without their ends; a CR before the LF goes too.
std::vector<std::string_view> Lines(std::string_view text);
// One line that a terminal shows as it stands: control characters, line feeds too, read as "?".
std::string OneLine(std::string_view text);
// "1 file", "2 files".
std::string Count(std::size_t number, std::string_view noun);
// The file's content; false, with errno set, when it cannot be read.
bool ReadWhole(const std::string& path, std::string& content);

}  // namespace ctl
