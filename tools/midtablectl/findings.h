// What `check` found, one line each.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "midtablectl/console.h"

namespace ctl {

struct Finding {
  bool is_error;  // the service fails or loses rows; else it works, and somebody may be surprised
  std::string where;  // a file, a folder, or "server"
  long line;          // of the file; 0 when the finding is about no line
  std::string what;   // what is wrong and what follows from it
  std::string fix;    // what to do
};

// Collects findings in the order of the steps. Texts may hold names and values as they were found:
// control characters are taken out when they are printed.
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
  // Tells what was not looked at. That is no finding: the status does not depend on it.
  void Note(std::string where, long line, std::string what) {
    m_notes.push_back({false, std::move(where), line, std::move(what), {}});
  }

  // Prints the findings, of many with one remedy the first few, then the notes, then a line of
  // totals. With `errors_only` warnings and notes are left out. The status tells whether any
  // finding was printed.
  Status Print(Console& console, bool errors_only) const;

 private:
  std::vector<Finding> m_all;
  std::vector<Finding> m_notes;
};

}  // namespace ctl
