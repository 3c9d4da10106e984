// A file that fails ends its pass, so the entries of its failure are those between the end of the
// file before and the last line that names this one.
#include "midtablectl/failure.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "midtable/mem_file_name.h"
#include "midtablectl/findings.h"
#include "midtablectl/spool_scan.h"

namespace ctl {

namespace {

constexpr std::size_t kMostLines = 40;
constexpr int kSecondsAround = 3;
// The log changes its file some time after midnight only.
constexpr std::time_t kDay = 86'400;

bool Mentions(const LogEntry& entry, const std::string& text) {
  return !text.empty() && entry.text.find(text) != std::string::npos;
}

// A line after which something else begins: the end of another file's road, or of a pass; to a load
// that of a conversion too.
bool IsBoundary(const LogEntry& entry, bool to_load) {
  if (entry.unit != "Midtable") return entry.unit == "main";
  for (const char* beginning :
       {"load table (", "no file to load", "ret (", "table (", "commit ok!", "current db is"}) {
    if (entry.text.starts_with(beginning)) return true;
  }
  if (to_load && entry.text.starts_with("convert memtable ")) return true;
  return entry.text.starts_with("convert ") && entry.text.ends_with("ignore it");
}

// The end of the road of a file that no line could name yet: its database or table was not to be
// had, or it went in by a statement without its name.
bool EndsUnnamed(const LogEntry& entry) {
  if (entry.unit != "Midtable" || !entry.IsError() || Mentions(entry, ".dat")) return false;
  for (const char* beginning :
       {"table (", "create db ", "alter db ", "grant db ", "user ", "ret ("}) {
    if (entry.text.starts_with(beginning)) return true;
  }
  return false;
}

bool IsDroppedLine(const LogEntry& entry) {
  return entry.text.ends_with(" not correct, ignore it");
}
// The line that ends a rewriting, with the number of dropped lines at its end.
bool IsRewriting(const LogEntry& entry) {
  return entry.text.starts_with("file ") && Mentions(entry, " without user ");
}
bool LostLines(const LogEntry& entry) {
  return IsRewriting(entry) && !entry.text.ends_with(" dropped 0");
}

// Whether it is a file as it came, kept when the good lines of it were loaded.
bool IsKept(const std::string& path) {
  struct stat status {};
  const std::string waiting = WaitingName(path);
  const std::string stem = waiting.substr(0, waiting.rfind('.'));
  if (path.compare(stem.size(), 5, ".orig") == 0) return true;
  return path.ends_with(".err") && lstat((stem + ".mid").c_str(), &status) == 0;
}

class Moment {
 public:
  Moment(const std::string& path, std::tm when)
      : m_loaded(path.ends_with(".mid")),
        m_kept(IsKept(path)),
        m_name(FileNameOf(WaitingName(path))),
        m_stem(m_name.substr(0, m_name.rfind('.'))),
        m_table(MemFileTable(m_name)),
        m_database(MemFileDatabase(m_name)),
        m_second((when.tm_hour * 60 + when.tm_min) * 60 + when.tm_sec) {}

  // The entries of the file's failure; empty when the log has none.
  std::vector<LogEntry> Find(const std::vector<LogEntry>& log) const {
    if (m_kept) return Dropped(log);
    const std::size_t last = m_loaded ? LastConversion(log) : LastLoad(log);
    if (last == log.size()) return {};
    if (LostLines(log[last])) return Dropped(log);
    std::size_t first = last;
    while (first > 0 && last - first < kMostLines && !IsBoundary(log[first - 1], !m_loaded)) {
      --first;
    }
    std::vector<LogEntry> entries;
    for (std::size_t i = first; i <= last; ++i) {
      // The registry's thread writes in between about other things.
      if (log[i].unit == "tourlocaluser" && !Mentions(log[i], m_stem)) continue;
      // A failed statement that the line behind it repeats.
      if (!entries.empty() && Mentions(log[i], entries.back().text)) entries.pop_back();
      entries.push_back(log[i]);
    }
    return entries;
  }

 private:
  // The lines that the last rewriting dropped, the last ones of many, and their number.
  std::vector<LogEntry> Dropped(const std::vector<LogEntry>& log) const {
    std::vector<LogEntry> entries;
    for (const LogEntry& entry : log) {
      if (!Mentions(entry, m_name)) continue;
      if (entry.text.starts_with("before convert file size (")) entries.clear();
      if (!IsDroppedLine(entry) && !LostLines(entry)) continue;
      if (entries.size() == kMostLines) entries.erase(entries.begin());
      entries.push_back(entry);
    }
    return entries;
  }

  // The last failure of the conversion that the file's mem table went through; files that came
  // together share one, which names the first of them.
  std::size_t LastConversion(const std::vector<LogEntry>& log) const {
    const std::string table = "convert memtable " + m_database + "." + m_table;
    std::size_t last = log.size();
    for (std::size_t i = 0; i < log.size(); ++i) {
      if (log[i].text == table + " ok!") last = log.size();
      const bool failed = log[i].text == table + " failed!" ||
                          (log[i].text.starts_with("convert ") && Mentions(log[i], m_name));
      if (failed && log[i].IsError()) last = i;
    }
    return last;
  }

  // The entry that ended the file's road: an error that names it, or the count of its dropped
  // lines; else, behind any line that names it, such an end at that moment with the name of its
  // table or database.
  std::size_t LastLoad(const std::vector<LogEntry>& log) const {
    std::size_t named = log.size();
    std::size_t near = log.size();
    for (std::size_t i = 0; i < log.size(); ++i) {
      if (Mentions(log[i], m_name) && !log[i].text.starts_with("convert ")) {
        if (log[i].IsError() || LostLines(log[i])) named = i;
        near = log.size();
      }
      const bool in_time = std::abs(log[i].second - m_second) <= kSecondsAround;
      if (!in_time || !EndsUnnamed(log[i])) continue;
      if (Mentions(log[i], m_table) || Mentions(log[i], m_database)) near = i;
    }
    if (near < log.size()) return near;
    // The line behind it may sum it up.
    if (named + 1 < log.size() && log[named].IsError() && log[named + 1].IsError() &&
        log[named + 1].text.starts_with("ret (")) {
      ++named;
    }
    return named;
  }

  const bool m_loaded;
  const bool m_kept;
  std::string m_name;  // as it waited
  std::string m_stem;  // without the ending
  std::string m_table;
  std::string m_database;
  int m_second;
};

// The file's name in a load statement that was sent and has no answer; empty for any other entry.
std::string UnansweredLoad(const LogEntry& entry) {
  static const std::string kLoad = "execute load data infile \"";
  if (!entry.IsError() || !entry.text.starts_with(kLoad)) return {};
  const std::size_t end = entry.text.find('"', kLoad.size());
  const std::string words = Lower(entry.text.substr(std::min(end, entry.text.size())));
  if (words.find("lost connection") == std::string::npos &&
      words.find("gone away") == std::string::npos) {
    return {};
  }
  return std::string(FileNameOf(entry.text.substr(kLoad.size(), end - kLoad.size())));
}

// The file's name in the line that counts its dropped lines; empty for any other entry.
std::string ShortenedFile(const LogEntry& entry) {
  if (!LostLines(entry)) return {};
  const std::string path = entry.text.substr(5, entry.text.rfind(" local ") - 5);
  return std::string(FileNameOf(path));
}

}  // namespace

RunLog FindFailure(const std::string& path, std::time_t time) {
  const Moment moment(path, LocalTime(time));
  RunLog found;
  for (const std::time_t day : {time, time - kDay}) {
    RunLog log = ReadLogOf(day);
    found.found |= log.found;
    if (found.error.empty()) found.error.swap(log.error);
    found.entries = moment.Find(log.entries);
    if (!found.entries.empty()) break;
  }
  return found;
}

const LoadDoubts::Day& LoadDoubts::DayOf(std::time_t time) {
  const std::tm local = LocalTime(time);
  const auto [known, is_new] = m_days.try_emplace(local.tm_year * 366 + local.tm_yday);
  if (!is_new) return known->second;
  const RunLog log = ReadLogOf(time);
  known->second.error = log.error;
  for (const LogEntry& entry : log.entries) {
    known->second.unanswered.insert(UnansweredLoad(entry));
    known->second.shortened.insert(ShortenedFile(entry));
  }
  return known->second;
}

std::string LoadDoubts::Of(const std::string& path, std::time_t time, bool rewritten) {
  const std::string name(FileNameOf(WaitingName(path)));
  for (const std::time_t moment : {time, time - kDay}) {
    const Day& day = DayOf(moment);
    if (day.unanswered.count(name) != 0) {
      return "the server may have loaded it: its answer was lost. Look for its rows first, see "
             "\"After a crash\" in operations.md; where they are in, rename it to .mid";
    }
    // The copy that failed would carry the mark.
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
