// Finds the entries of one failure in the run log. A file that fails ends its pass, so the entries
// are those between the end of the file before and the last line that names this one.
#include "midtablectl/why.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

#include "log/zux_center_log.h"
#include "midtable/mem_file_name.h"
#include "midtablectl/advice.h"
#include "midtablectl/findings.h"
#include "midtablectl/spool_scan.h"
#include "support/paths.h"

namespace ctl {

namespace {

constexpr std::size_t kMostLines = 40;
constexpr int kSecondsAround = 3;

bool Mentions(const LogEntry& entry, const std::string& text) {
  return !text.empty() && entry.text.find(text) != std::string::npos;
}

// A line after which something else begins: the end of another file's road, or of a pass.
bool IsBoundary(const LogEntry& entry) {
  if (entry.unit != "Midtable") return entry.unit == "main";
  for (const char* beginning :
       {"load table (", "no file to load", "ret (", "table (", "commit ok!", "current db is"}) {
    if (entry.text.starts_with(beginning)) return true;
  }
  return entry.text.starts_with("convert ") && entry.text.ends_with("ignore it");
}

class Moment {
 public:
  Moment(const std::string& path, std::tm when)
      : m_loaded(path.ends_with(".mid")),
        m_name(FileNameOf(WaitingName(path)).substr(0, FileNameOf(WaitingName(path)).rfind('.'))),
        m_table(MemFileTable(m_name + ".dat")),
        m_database(MemFileDatabase(m_name)),
        m_second((when.tm_hour * 60 + when.tm_min) * 60 + when.tm_sec) {}

  // The entries of the file's failure; empty when the log has none.
  std::vector<LogEntry> Find(const std::vector<LogEntry>& log) const {
    const std::size_t last = LastOf(log);
    if (last == log.size()) return {};
    std::size_t first = last;
    while (first > 0 && last - first < kMostLines && !IsBoundary(log[first - 1])) --first;
    std::vector<LogEntry> entries;
    for (std::size_t i = first; i <= last; ++i) {
      // The registry's thread writes in between about other things.
      if (log[i].unit == "tourlocaluser" && !Mentions(log[i], m_name)) continue;
      // A failed statement that the line behind it repeats.
      if (!entries.empty() && Mentions(log[i], entries.back().text)) entries.pop_back();
      entries.push_back(log[i]);
    }
    return entries;
  }

 private:
  std::size_t LastOf(const std::vector<LogEntry>& log) const {
    return m_loaded ? LastConversion(log) : LastLoad(log);
  }

  // The last failure of the conversion that the file's mem table went through; files that came
  // together share one, which names the first of them.
  std::size_t LastConversion(const std::vector<LogEntry>& log) const {
    const std::string table = "convert memtable " + m_database + "." + m_table;
    std::size_t last = log.size();
    for (std::size_t i = 0; i < log.size(); ++i) {
      if (log[i].text == table + " ok!") last = log.size();
      const bool failed =
          log[i].text == table + " failed!" ||
          (log[i].text.starts_with("convert ") && Mentions(log[i], m_name + ".dat"));
      if (failed && log[i].IsError()) last = i;
    }
    return last;
  }

  // The entry that ended the file's road: one that names it; else an error of that moment that
  // names its table or database.
  std::size_t LastLoad(const std::vector<LogEntry>& log) const {
    std::size_t named = log.size();
    std::size_t near = log.size();
    for (std::size_t i = 0; i < log.size(); ++i) {
      if (!log[i].IsError()) continue;
      if (Mentions(log[i], m_name + ".dat") && !log[i].text.starts_with("convert ")) named = i;
      const bool in_time = std::abs(log[i].second - m_second) <= kSecondsAround;
      if (in_time && (Mentions(log[i], m_table) || Mentions(log[i], m_database))) near = i;
    }
    // The line behind it may sum it up.
    if (named < log.size() && named + 1 < log.size() && log[named + 1].IsError() &&
        log[named + 1].text.starts_with("ret (")) {
      ++named;
    }
    if (near == log.size()) return named;
    const bool later_failure =
        named < log.size() && near > named && log[near].text.starts_with("table (");
    return named == log.size() || later_failure ? near : named;
  }

  const bool m_loaded;
  std::string m_name;  // without its ending
  std::string m_table;
  std::string m_database;
  int m_second;
};

void GiveAdvice(const std::vector<LogEntry>& entries, Console& console) {
  std::set<std::string> given;
  const auto give = [&](const std::string& text) {
    if (!text.empty() && given.insert(text).second) console.out << "  - " << text << '\n';
  };
  console.out << "What to do:\n";
  // The server's words say more than the line around them.
  for (const LogEntry& entry : entries) {
    if (entry.IsError() && entry.text.find("error") != std::string::npos) {
      give(ServerAdvice(entry.text));
    }
  }
  for (const LogEntry& entry : entries) {
    const Message* message = FindMessage(entry);
    // That of unit MysqlBase fits every line; the line behind it says more.
    const bool adds =
        message != nullptr && (given.empty() || !message->action.starts_with("See the line"));
    if (!entry.IsTrouble() || !adds || message->format == "%s") continue;
    const std::string line = OneLine(Lines(entry.text).empty() ? "" : Lines(entry.text)[0]);
    give("\"" + line.substr(0, 60) + (line.size() > 60 ? "...\": " : "\": ") + message->meaning +
         " " + message->action);
  }
}

void TellState(const std::string& path, Console& console) {
  const std::string stem = path.substr(0, path.rfind(".err"));
  struct stat status {};
  if (path.ends_with(".mid")) {
    console.out << "The file is loaded; its rows stay in the mem table " << MemFileDatabase(path)
                << "." << MemFileTable(path)
                << ".\nThey are converted with the next file of it, also with an empty one.\n";
  } else if (!path.ends_with(".err")) {
    console.out << "An earlier failure of this name, set aside: " << OneLine(stem)
                << ".err is the newest.\n";
  } else if (lstat((stem + ".mid").c_str(), &status) == 0) {
    console.out
        << "Beside it stands the .mid: this is the file as it came, kept since lines were "
           "dropped from it.\nThe good lines are loaded. Bring back the dropped ones alone, "
           "mended, under a name with another time.\n";
  } else {
    console.out << "When it is mended: midtablectl retry " << OneLine(path) << '\n';
  }
}

std::tm LocalTime(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  return local;
}

// From the run log of the day when the file got its name, or of the day before: the log changes its
// file some time after midnight only. `has_log`: there was one.
std::vector<LogEntry> FindMoment(const std::string& path, std::time_t time, bool& has_log) {
  constexpr std::time_t kDay = 86'400;
  const Moment moment(path, LocalTime(time));
  std::vector<std::string> logs;
  std::vector<LogEntry> entries;
  for (const std::time_t day : {time, time - kDay}) {
    if (entries.empty()) entries = moment.Find(ReadLogOf(LocalTime(day), logs));
  }
  has_log = !logs.empty();
  return entries;
}

Status SayNothing(const std::string& path, bool has_log, Console& console) {
  if (path.ends_with(".mid")) {
    console.out << "It is loaded, and the run log has no failed conversion of its rows (yet).\n";
    return Status::kFine;
  }
  console.out
      << "The run log says nothing of it" << (has_log ? " (yet)" : ": there is none of that day")
      << ".\nIts newest lines are written when more have come or the service ends. Try again "
         "later, or stop the service\nand look again; midtablectl check may tell the reason "
         "too.\n\n";
  TellState(path, console);
  return Status::kFindings;
}

}  // namespace

Status Why(const std::string& file, Console& console) {
  const std::string path = MemFilePath(file);
  if (WaitingName(path).empty()) {
    console.err << OneLine(file) << ": no .err or .mid file\n";
    return Status::kCouldNotLook;
  }
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    console.err << OneLine(path) << ": " << std::strerror(errno) << '\n';
    return Status::kCouldNotLook;
  }
  // A rename leaves the time of the content alone; this one is when the file got its name.
  const std::tm when = LocalTime(status.st_ctime);
  console.out << OneLine(path) << '\n'
              << Format("%s %04d-%02d-%02d at %02d:%02d:%02d, or was touched then\n\n",
                        path.ends_with(".mid") ? "loaded" : "failed", when.tm_year + 1900,
                        when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
  bool has_log = false;
  const std::vector<LogEntry> entries = FindMoment(path, status.st_ctime, has_log);
  if (entries.empty()) return SayNothing(path, has_log, console);
  for (const LogEntry& entry : entries) console.out << entry.Show() << '\n';
  console.out << '\n';
  GiveAdvice(entries, console);
  console.out << '\n';
  TellState(path, console);
  return Status::kFine;
}

}  // namespace ctl
