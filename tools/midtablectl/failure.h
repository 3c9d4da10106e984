// What the run log says of a mem file that failed.
#pragma once

#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "midtablectl/run_log.h"

namespace ctl {

// Of the file `path`, a .mid, .err, .err.N or .orig that got this name at `time`: the entries of
// its failure, of a .mid those of the failed conversion of its rows, of a file that was kept since
// lines of it were dropped those about the lines. No entries where the log has none.
RunLog FindFailure(const std::string& path, std::time_t time);

// Tells of .err files whether their rows may be in the mem table all the same. Reads the run log of
// each day once.
class LoadDoubts {
 public:
  // Why they may, of the .err file `path` that got its name at `time`, `rewritten` if it carries
  // the mark; empty when nothing speaks for it.
  std::string Of(const std::string& path, std::time_t time, bool rewritten);

 private:
  struct Day {
    std::set<std::string> unanswered;  // names of files that the server may have loaded
    std::set<std::string> shortened;   // names of files of which lines were dropped
    std::string error;                 // as RunLog has it
  };
  const Day& DayOf(std::time_t time);

  std::map<int, Day> m_days;  // by a number of the local day
};

}  // namespace ctl
