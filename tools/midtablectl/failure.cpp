// A pass of the service ends with the first file that fails. So the entries of a failure are the
// last ones that have to do with the file, back to where the road of another file ends.
#include "midtablectl/failure.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

#include "midtablectl/advice.h"
#include "midtablectl/local_time.h"
#include "midtablectl/spool_scan.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/names.h"

namespace ctl {

namespace {

constexpr std::size_t kMostLines = 40;
// How far the time of a file's new name may be from that of the line that tells its failure.
constexpr int kSecondsAround = 3;
// The service looks for a new day once in a thousand messages only, so a failure may stand in the
// log of the day before.
constexpr std::time_t kDay = 86'400;
constexpr char kWaitingEnding[] = ".dat";

int SecondOf(const std::tm& time) { return (time.tm_hour * 60 + time.tm_min) * 60 + time.tm_sec; }

bool Mentions(const LogEntry& entry, const std::string& text) {
  return !text.empty() && entry.text.find(text) != std::string::npos;
}

bool IsOneOf(const LogEntry& entry, std::initializer_list<MessageBeginning> messages) {
  return std::any_of(messages.begin(), messages.end(),
                     [&entry](const MessageBeginning& message) { return entry.Is(message); });
}

bool IsConversionResult(const LogEntry& entry) {
  return entry.ValuesOf(kMemTableConverted) || entry.ValuesOf(kMemTableNotConverted);
}

// Whether this is the last entry about a conversion that did not come to its end.
bool IsEndOfConversion(const LogEntry& entry) {
  return entry.ValuesOf(kConversionGivenUp) || entry.ValuesOf(kConversionPutOff);
}

// Whether this entry is one of those, a mem table each, that are written at a stop and at a start.
bool IsAboutLeftRows(const LogEntry& entry) {
  return entry.ValuesOf(kRowsOfEarlierRun) || entry.ValuesOf(kRowsLeft) ||
         entry.ValuesOf(kConvertedRowsLeft);
}

// Whether what stands behind this entry has to do with other files: it ends a file's road, a pass,
// or a run of the service. The search for a failed load also stops at the end of a conversion; a
// failed conversion ends with such a line itself.
bool IsBoundary(const LogEntry& entry, bool is_load) {
  if (entry.unit == kProgramUnit.name) return true;
  if (is_load && (IsConversionResult(entry) || entry.ValuesOf(kTableNotLookedUp))) return true;
  return IsEndOfConversion(entry) || IsAboutLeftRows(entry) ||
         entry.ValuesOf(kDatabaseNotLookedUp) ||
         IsOneOf(entry, {kEngineStarts, kNothingToLoad, kFileLoaded, kLoadFailed, kTableNotMade,
                         kOldRowsNotRemoved, kCommitted});
}

// Whether this entry ends the road of a file without naming the file: its database or its table was
// not to be had, or its rows were moved by a statement that has no file in it.
bool EndsUnnamedFile(const LogEntry& entry) {
  return !Mentions(entry, kWaitingEnding) &&
         (entry.ValuesOf(kDatabaseNotLookedUp) || entry.ValuesOf(kDatabaseNotMade) ||
          entry.ValuesOf(kTableNotLookedUp) ||
          IsOneOf(entry, {kTableNotMade, kOldRowsNotRemoved, kUserNotAltered, kUserNotGranted,
                          kUserRefused, kLoadFailed}));
}

// Whether this entry, which ends the road of some file without naming it, may be about the one that
// was renamed at this second of the day: it comes at that time, and speaks of the file's mem table
// or database. Questions for tables are put for conversions too, so of those the mem table counts.
bool MayEnd(const MemFile& file, int second, const LogEntry& entry) {
  if (std::abs(entry.second - second) > kSecondsAround) return false;
  return Mentions(entry, file.table) ||
         (Mentions(entry, file.database) && !entry.ValuesOf(kTableNotLookedUp));
}

// A file that the service rewrote, and how many of its lines the copy lacks.
struct RewrittenFile {
  std::string path;
  std::string dropped;  // the number, as the line has it
};

std::optional<RewrittenFile> RewrittenFileOf(const LogEntry& entry) {
  const auto values = entry.ValuesOf(kFileRewritten);
  if (!values) return std::nullopt;
  return RewrittenFile{std::string(values->front()), std::string(values->back())};
}

// Whether this entry counts the lines of a rewritten file, and some of them were dropped.
bool CountsDroppedLines(const LogEntry& entry) {
  const auto file = RewrittenFileOf(entry);
  return file && file->dropped != "0";
}

// Whether the file is a delivery in its first form, kept because lines were dropped from it. The
// lines that were good are in the file that went on in its place.
bool IsKeptOriginal(const std::string& path) {
  const std::string waiting = WaitingName(path);
  const std::string stem = waiting.substr(0, waiting.rfind('.'));
  if (path.compare(stem.size(), 5, ".orig") == 0) return true;
  struct stat status {};
  return path.ends_with(".err") && lstat((stem + ".mid").c_str(), &status) == 0;
}

// The search for the failure of one file, in the log of one day.
class FailureSearch {
 public:
  FailureSearch(const std::string& path, std::tm when)
      : m_is_loaded(path.ends_with(".mid")),
        m_is_original(IsKeptOriginal(path)),
        m_file(MemFile::Parse(WaitingName(path))),
        m_name(FileNameOf(m_file.path)),
        m_stem(m_name.substr(0, m_name.rfind('.'))),
        m_second(SecondOf(when)) {}

  // The entries that explain the failure; none when the log has none.
  std::vector<LogEntry> In(const std::vector<LogEntry>& log) const {
    if (m_is_original) return DroppedLines(log);
    const std::size_t last = m_is_loaded ? EndOfConversion(log) : EndOfLoad(log);
    if (last == log.size()) return {};
    if (CountsDroppedLines(log[last])) return DroppedLines(log);
    return EntriesUpTo(last, log);
  }

 private:
  // The entries from the boundary before `last` to it, without those that would only confuse.
  std::vector<LogEntry> EntriesUpTo(std::size_t last, const std::vector<LogEntry>& log) const {
    std::size_t first = last;
    while (first > 0 && last - first < kMostLines && !IsBoundary(log[first - 1], !m_is_loaded)) {
      --first;
    }
    std::vector<LogEntry> entries;
    for (std::size_t i = first; i <= last; ++i) {
      // The registry's thread writes about its own work, unless it rewrites this very file.
      if (log[i].unit == kRegistryUnit.name && !Mentions(log[i], m_stem)) continue;
      // The back end logs a failed statement, and the engine repeats it with more around it.
      if (!entries.empty() && Mentions(log[i], entries.back().text)) entries.pop_back();
      entries.push_back(log[i]);
    }
    return entries;
  }

  // The lines that the last rewriting of the file dropped, and the entry with their number. Of very
  // many lines the last ones are enough to see what is wrong with them.
  std::vector<LogEntry> DroppedLines(const std::vector<LogEntry>& log) const {
    std::vector<LogEntry> entries;
    for (const LogEntry& entry : log) {
      if (!Mentions(entry, m_name)) continue;
      if (entry.Is(kRewritingBegins)) entries.clear();
      if (!entry.ValuesOf(kLineDropped) && !CountsDroppedLines(entry)) continue;
      if (entries.size() == kMostLines) entries.erase(entries.begin());
      entries.push_back(entry);
    }
    return entries;
  }

  // The place of the last entry about the failed conversion of the file's mem table; the size of
  // the log when there is none, or when a later conversion succeeded. Several files may have gone
  // into one conversion, which then names the first of them only.
  std::size_t EndOfConversion(const std::vector<LogEntry>& log) const {
    std::size_t last = log.size();
    for (std::size_t i = 0; i < log.size(); ++i) {
      if (IsOfMemTable(log[i].ValuesOf(kMemTableConverted))) last = log.size();
      const bool failed = IsOfMemTable(log[i].ValuesOf(kMemTableNotConverted)) ||
                          IsOfRows(log[i].ValuesOf(kConversionGivenUp)) ||
                          IsOfRows(log[i].ValuesOf(kConversionPutOff));
      // What a stop leaves filled has a better reason where its conversion failed before.
      const bool left = last == log.size() && (IsOfRows(log[i].ValuesOf(kRowsLeft)) ||
                                               IsOfRows(log[i].ValuesOf(kConvertedRowsLeft)));
      if (failed || left) last = i;
    }
    return last;
  }

  // Whether a message about a conversion, by its values, is about the mem table of this file.
  bool IsOfMemTable(const std::optional<std::vector<std::string_view>>& values) const {
    return values && values->front() == m_file.database && values->back() == m_file.table;
  }

  // The same where the value is a file, of this mem table or another, or a mem table.
  bool IsOfRows(const std::optional<std::vector<std::string_view>>& values) const {
    if (!values) return false;
    const std::string value(values->front());
    return value == m_file.QualifiedTable() || MemFile::Parse(value).SharesTableWith(m_file);
  }

  // The place of the entry that ended the file's road; the size of the log when there is none.
  //
  // Most failures name the file: that is the last error which does, or the count of its dropped
  // lines. Others name the database or the mem table only, which other files share. Such an entry
  // counts when it was written at the time of the file's renaming, and when none that names the
  // file came after it.
  std::size_t EndOfLoad(const std::vector<LogEntry>& log) const {
    std::size_t named = log.size();
    std::size_t unnamed = log.size();
    for (std::size_t i = 0; i < log.size(); ++i) {
      if (Mentions(log[i], m_name) && !IsEndOfConversion(log[i])) {
        if (log[i].IsError() || CountsDroppedLines(log[i])) named = i;
        unnamed = log.size();
      }
      if (MayEnd(m_file, m_second, log[i]) && EndsUnnamedFile(log[i])) unnamed = i;
    }
    if (unnamed < log.size()) return unnamed;
    // A failed statement is followed by the line that ends the load; the two belong together.
    const bool is_followed = named + 1 < log.size() && log[named].IsError();
    return is_followed && log[named + 1].Is(kLoadFailed) ? named + 1 : named;
  }

  const bool m_is_loaded;
  const bool m_is_original;
  const MemFile m_file;      // as it was while the file waited
  const std::string m_name;  // the same without its folder
  const std::string m_stem;  // and without its ending
  const int m_second;        // of the day, when the file got its present name
};

// The name of the file in a load statement that was sent and got no answer; empty for any other
// entry. The server may have executed the statement before the connection broke.
std::string UnansweredLoad(const LogEntry& entry) {
  const std::string load = std::string(kStatementBegins.text) + kLoadStatement.text;
  if (!entry.IsError() || !entry.text.starts_with(load)) return {};
  const std::size_t end = entry.text.find('"', load.size());
  if (!IsLostAnswer(std::string_view(entry.text).substr(std::min(end, entry.text.size())))) {
    return {};
  }
  return std::string(FileNameOf(entry.text.substr(load.size(), end - load.size())));
}

}  // namespace

void AddFileNames(const std::string& text, std::set<std::string>& names) {
  for (std::size_t at = text.find(kWaitingEnding); at != std::string::npos;
       at = text.find(kWaitingEnding, at + 1)) {
    const std::size_t begin = text.find_last_of("/'\"", at) + 1;
    names.insert(text.substr(begin, at - begin + sizeof kWaitingEnding - 1));
  }
}

std::set<std::string> FileNamesOf(const LogEntry& entry) {
  std::set<std::string> names;
  for (const MessageFormat& message : {kFileSetAside, kNameRefused}) {
    if (const auto values = entry.ValuesOf(message)) names.emplace(FileNameOf(values->front()));
  }
  if (names.empty()) AddFileNames(entry.text, names);
  return names;
}

bool TellOfConvertedRows(const std::vector<LogEntry>& entries) {
  return std::any_of(entries.begin(), entries.end(), [](const LogEntry& entry) {
    const auto refused = entry.ValuesOf(kStatementRefused);
    return entry.ValuesOf(kConvertedRowsLeft) ||
           (refused && refused->front().starts_with(kEmptying.text));
  });
}

RunLog FindFailure(const std::string& path, std::time_t time) {
  const FailureSearch search(path, LocalTime(time));
  RunLog found;
  for (const std::time_t day : {time, time - kDay}) {
    RunLog log = ReadLogOf(day);
    found.found |= log.found;
    if (found.error.empty()) found.error.swap(log.error);
    found.entries = search.In(log.entries);
    if (!found.entries.empty()) break;
  }
  return found;
}

const FailureReasons::Day& FailureReasons::LookUp(std::time_t time) {
  const auto [known, is_new] = m_days.try_emplace(DayOf(time));
  Day& day = known->second;
  if (!is_new) return day;
  RunLog log = ReadLogOf(time);
  if (m_error.empty()) m_error = log.error;
  day.entries.swap(log.entries);
  for (std::size_t i = 0; i < day.entries.size(); ++i) {
    const LogEntry& entry = day.entries[i];
    const auto rewritten = CountsDroppedLines(entry) ? RewrittenFileOf(entry) : std::nullopt;
    if (rewritten) day.named[std::string(FileNameOf(rewritten->path))] = i;
    if (!entry.IsError() || IsEndOfConversion(entry)) continue;
    if (EndsUnnamedFile(entry)) day.unnamed.push_back(i);
    for (const std::string& name : FileNamesOf(entry)) day.named[name] = i;
  }
  return day;
}

const LogEntry* FailureReasons::Of(const std::string& path, std::time_t time) {
  const MemFile file = MemFile::Parse(WaitingName(path));
  const int second = SecondOf(LocalTime(time));
  for (const std::time_t day_time : {time, time - kDay}) {
    const Day& day = LookUp(day_time);
    const auto named = day.named.find(OneLine(FileNameOf(file.path)));
    if (named != day.named.end()) return &day.entries[named->second];
    for (const std::size_t i : day.unnamed) {
      if (MayEnd(file, second, day.entries[i])) return &day.entries[i];
    }
  }
  return nullptr;
}

const LoadDoubts::Day& LoadDoubts::LookUp(std::time_t time) {
  const auto [known, is_new] = m_days.try_emplace(DayOf(time));
  if (!is_new) return known->second;
  const RunLog log = ReadLogOf(time);
  known->second.error = log.error;
  for (const LogEntry& entry : log.entries) known->second.Add(entry);
  return known->second;
}

void LoadDoubts::Day::Add(const LogEntry& entry) {
  if (CountsDroppedLines(entry)) shortened.emplace(FileNameOf(RewrittenFileOf(entry)->path));
  if (!entry.IsError()) return;
  if (EndsUnnamedFile(entry)) unnamed.push_back(entry);
  if (!IsEndOfConversion(entry)) AddFileNames(entry.text, failed);
  unanswered.insert(UnansweredLoad(entry));
  if (const auto values = entry.ValuesOf(kLoadedAllTheSame)) {
    loaded.emplace(FileNameOf(values->back()));
  }
}

bool LoadDoubts::Day::TellsOf(const std::string& path, std::time_t time) const {
  const MemFile file = MemFile::Parse(path);
  const std::string name(FileNameOf(path));
  const int second = SecondOf(LocalTime(time));
  return failed.count(name) != 0 || shortened.count(name) != 0 ||
         std::any_of(unnamed.begin(), unnamed.end(),
                     [&](const LogEntry& entry) { return MayEnd(file, second, entry); });
}

std::string LoadDoubts::Silence(const std::string& path, std::time_t time) {
  const std::string waiting = WaitingName(path);
  std::string error;
  for (const std::time_t day_time : {time, time - kDay}) {
    const Day& day = LookUp(day_time);
    if (day.TellsOf(waiting, time)) return {};
    if (error.empty()) error = day.error;
  }
  return "failed for a reason that " +
         (error.empty() ? "the run log does not tell"
                        : "nobody can tell while the run log cannot be read (" + error + ")") +
         ": its rows may be loaded. Look for them first, see \"After a crash\" in operations.md; "
         "where they are not in, rename it to .dat by hand";
}

std::string LoadDoubts::Of(const std::string& path, std::time_t time, bool rewritten) {
  const std::string name(FileNameOf(WaitingName(path)));
  for (const std::time_t day_time : {time, time - kDay}) {
    const Day& day = LookUp(day_time);
    if (day.unanswered.count(name) != 0) {
      return "the server may have loaded it: its answer was lost. Look for its rows first, see "
             "\"After a crash\" in operations.md; where they are in, rename it to .mid";
    }
    if (day.loaded.count(name) != 0) {
      return "its rows are loaded, and what failed came after that: rename it to .mid";
    }
    // A file with the mark is the shortened copy, which failed; its rows are not loaded.
    if (!rewritten && day.shortened.count(name) != 0) {
      return "lines were dropped from it, so it may be the file as it came, kept when the good "
             "lines were loaded, which would count twice";
    }
    if (!day.error.empty()) {
      return "the run log, which tells whether it may be loaded already, cannot be read: " +
             day.error;
    }
  }
  return {};
}

}  // namespace ctl
