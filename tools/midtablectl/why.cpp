// What the run log says of a failure, what to do about it, and how to go on.
#include "midtablectl/why.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>
#include <set>

#include "log/zux_center_log.h"
#include "midtable/mem_file_name.h"
#include "midtablectl/advice.h"
#include "midtablectl/failure.h"
#include "midtablectl/findings.h"
#include "midtablectl/retry.h"
#include "midtablectl/spool_scan.h"

namespace ctl {

namespace {

void GiveAdvice(const std::vector<LogEntry>& entries, Console& console) {
  if (std::none_of(entries.begin(), entries.end(), std::mem_fn(&LogEntry::IsTrouble))) return;
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

// As a shell takes it for one word. What retry moves has no quote in its path.
std::string Quoted(const std::string& path) {
  const bool plain = std::all_of(path.begin(), path.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || std::strchr("/._-+:,@%=", c) != nullptr;
  });
  return plain ? path : "'" + path + "'";
}

void TellState(const std::string& path, Console& console) {
  if (path.ends_with(".mid")) {
    console.out << "The file is loaded; its rows stay in the mem table " << MemFileDatabase(path)
                << "." << MemFileTable(path)
                << ".\nThey are converted with the next file of it, also with an empty one.\n";
    return;
  }
  LoadDoubts doubts;
  const RetryPlan plan = PlanRetry(path, doubts);
  if (!plan.refusal.empty()) {
    console.out << "retry leaves it alone, since it " << OneLine(plan.refusal) << ".\n";
    return;
  }
  for (const std::string& warning : plan.warnings) {
    console.out << "WARNING: " << OneLine(warning) << ".\n";
  }
  console.out << (plan.warnings.empty() ? "When it is mended: " : "When that is settled: ")
              << "midtablectl retry " << Quoted(path) << '\n';
}

Status SayNothing(const std::string& path, const RunLog& log, Console& console) {
  if (!log.error.empty()) {
    console.err << "the run log cannot be read: " << log.error << '\n';
    return Status::kCouldNotLook;
  }
  if (path.ends_with(".mid")) {
    console.out << "It is loaded, and the run log has no failed conversion of its rows (yet).\n";
    return Status::kFine;
  }
  console.out
      << "The run log says nothing of it" << (log.found ? " (yet)" : ": there is none of that day")
      << ".\nIts newest lines are written when more have come or the service ends. Try again "
         "later, or stop the service\nand look again; midtablectl check may tell the reason "
         "too.\n\n";
  TellState(path, console);
  return Status::kFindings;
}

}  // namespace

Status Why(const std::string& file, Console& console) {
  const std::string path = SpoolPath(file);
  if (WaitingName(path).empty()) {
    console.err << OneLine(file) << ": no .err, .orig or .mid file\n";
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
  const RunLog log = FindFailure(path, status.st_ctime);
  if (log.entries.empty()) return SayNothing(path, log, console);
  for (const LogEntry& entry : log.entries) console.out << entry.Show() << '\n';
  console.out << '\n';
  GiveAdvice(log.entries, console);
  TellState(path, console);
  return Status::kFine;
}

}  // namespace ctl
