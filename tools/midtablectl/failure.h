// Finds in the run log what happened to a mem file.
//
// The service tells of a failure in the run log only: the file itself gets another ending, and no
// table or note of its own. So the log is searched by the file's name, by its mem table and
// database, and by the time at which the file got its present name.
#pragma once

#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "midtablectl/run_log.h"

namespace ctl {

// The entries that explain why the file `path` has its present ending, which it got at `time`:
//
//   .err, .err.N              the failure of its load
//   .mid                      the failed conversion of the mem table that holds its rows
//   .orig, .err beside .mid   the lines that were dropped from it when it was rewritten
//
// There are no entries where the log has none; `found` and `error` of the result tell whether there
// was a log to look at.
RunLog FindFailure(const std::string& path, std::time_t time);

// Whether these entries, of a loaded file, say that its rows are converted, and stay in the mem
// table only because that could not be emptied.
bool TellOfConvertedRows(const std::vector<LogEntry>& entries);

// Adds the names of the mem files in a text, each as it was while it waited, where each stands
// behind its folder or in quotes.
void AddFileNames(const std::string& text, std::set<std::string>& names);

// The names of the mem files that an entry is about, as the log shows them. Between the two texts
// of a message a name is found as it is, elsewhere only where it has no quotes in it.
std::set<std::string> FileNamesOf(const LogEntry& entry);

// Tells of many failed files why each of them failed. The run log of a day is read once.
class FailureReasons {
 public:
  // The last entry that says why the .err file `path` failed, which got its name at `time`; null
  // when the run log of that day and the one before tells nothing. It lives as long as this object.
  const LogEntry* Of(const std::string& path, std::time_t time);
  // A log that cannot be read; empty for none.
  const std::string& error() const { return m_error; }

 private:
  struct Day {
    std::vector<LogEntry> entries;
    std::map<std::string, std::size_t> named;  // names of files, and which entry tells of each
    std::vector<std::size_t> unnamed;          // entries that end a file's road without its name
  };
  const Day& LookUp(std::time_t time);

  std::map<std::string, Day> m_days;  // by date
  std::string m_error;
};

// Tells of failed files whether their rows may be in the mem table all the same: to load such a
// file again would count them twice. The run log of a day is read once, however many files are
// asked for.
class LoadDoubts {
 public:
  // Why nobody can tell whether the rows of the .err file `path` are loaded: a text that goes on
  // after "it", without a full stop. Empty when the run log tells why the file failed. `time` is
  // when the file got its name.
  std::string Silence(const std::string& path, std::time_t time);
  // The reason to doubt that the rows of the .err file `path` are not loaded, without a full stop;
  // empty when the run log gives none. `rewritten` tells whether it carries the mark of a
  // rewritten file.
  std::string Of(const std::string& path, std::time_t time, bool rewritten);

 private:
  // What the log of one day says, by the names that the files had while they waited.
  struct Day {
    std::set<std::string> failed;      // named by an error
    std::set<std::string> unanswered;  // loaded by a statement whose answer was lost
    std::set<std::string> loaded;      // failed after their rows were loaded
    std::set<std::string> shortened;   // rewritten, with lines dropped
    std::vector<LogEntry> unnamed;     // the end of a file's road, without its name
    std::string error;                 // as RunLog has it

    void Add(const LogEntry& entry);
    bool TellsOf(const std::string& path, std::time_t time) const;
  };
  const Day& LookUp(std::time_t time);

  std::map<std::string, Day> m_days;  // by date
};

}  // namespace ctl
