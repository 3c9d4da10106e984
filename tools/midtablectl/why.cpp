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
  for (const char* beginning : {"load table (", "convert memtable ", "no file to load", "ret (",
                                "table (", "commit ok!", "current db is"}) {
    if (entry.text.starts_with(beginning)) return true;
  }
  return false;
}

class Moment {
 public:
  Moment(const std::string& path, std::tm when)
      : m_name(std::string(FileNameOf(path)).substr(0, FileNameOf(path).rfind(".err"))),
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
      if (log[i].unit != "tourlocaluser" || Mentions(log[i], m_name)) entries.push_back(log[i]);
    }
    return entries;
  }

 private:
  // The entry that ended the file's road: one that names it; else an error of that moment that
  // names its table or database.
  std::size_t LastOf(const std::vector<LogEntry>& log) const {
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

  std::string m_name;
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
    if (!entry.IsError() || message == nullptr || message->format == "%s") continue;
    const std::string line = OneLine(Lines(entry.text).empty() ? "" : Lines(entry.text)[0]);
    give("\"" + line.substr(0, 60) + (line.size() > 60 ? "...\": " : "\": ") + message->meaning +
         " " + message->action);
  }
}

void TellState(const std::string& path, Console& console) {
  const std::string stem = path.substr(0, path.rfind(".err"));
  struct stat status {};
  if (!path.ends_with(".err")) {
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

}  // namespace

Status Why(const std::string& file, Console& console) {
  const std::string path = MemFilePath(file);
  struct stat status {};
  if (WaitingName(path).empty() || path.ends_with(".mid")) {
    console.err << OneLine(file) << ": no .err file\n";
    return Status::kCouldNotLook;
  }
  if (lstat(path.c_str(), &status) != 0) {
    console.err << OneLine(path) << ": " << std::strerror(errno) << '\n';
    return Status::kCouldNotLook;
  }
  // A rename leaves the time of the content alone; this one is when the file got its name.
  std::tm when{};
  localtime_r(&status.st_ctime, &when);
  console.out << OneLine(path) << "\nfailed "
              << Format("%04d-%02d-%02d at %02d:%02d:%02d", when.tm_year + 1900, when.tm_mon + 1,
                        when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec)
              << ", or was touched then\n\n";
  const Moment moment(path, when);
  std::vector<std::string> logs;
  std::vector<LogEntry> entries = moment.Find(ReadLogOf(when, logs));
  if (entries.empty()) {
    // The log changes its file some time after midnight only.
    std::tm before{};
    const std::time_t yesterday = status.st_ctime - 24 * 60 * 60;
    localtime_r(&yesterday, &before);
    entries = moment.Find(ReadLogOf(before, logs));
  }
  if (entries.empty()) {
    console.out
        << "The run log says nothing of it"
        << (logs.empty() ? ": there is none of that day.\n" : " (yet).\n")
        << "Its newest lines are written when more have come or the service ends. Try again "
           "later, or stop the service\nand look again; midtablectl check may tell the "
           "reason too.\n\n";
    TellState(path, console);
    return Status::kFindings;
  }
  for (const LogEntry& entry : entries) console.out << entry.Show() << '\n';
  console.out << '\n';
  GiveAdvice(entries, console);
  console.out << '\n';
  TellState(path, console);
  return Status::kFine;
}

}  // namespace ctl
