// What the run log says of a failure, what to do about it, and how to go on: in that order, so that
// the last line on the screen is the next command.
#include "midtablectl/why.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>
#include <set>

#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/failure.h"
#include "midtablectl/held.h"
#include "midtablectl/local_time.h"
#include "midtablectl/retry.h"
#include "midtablectl/spool_scan.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/names.h"

namespace ctl {

namespace {

// A long line is repeated up to here beside its advice, since the whole line stands above.
constexpr std::size_t kQuotedLength = 60;

constexpr char kRightName[] =
    "What to do:\n  - rename it: id-table-YYYYMMDD-HHMMSS.dat, see mem-file.md";

// The beginning of an entry, for a reader who looks for the line that an advice belongs to.
std::string Quotation(const LogEntry& entry) {
  const std::vector<std::string_view> lines = Lines(entry.text);
  const std::string line = OneLine(lines.empty() ? "" : lines[0]);
  const bool is_long = line.size() > kQuotedLength;
  return "\"" + line.substr(0, kQuotedLength) + (is_long ? "...\": " : "\": ");
}

// Whether the manual has more to say of this message than "see the line before", or than what the
// server's words told already.
bool AddsToAdvice(const Message& message, bool is_first) {
  // The message of unit MysqlBase is a statement and its error, whatever these are.
  if (message.format == "%s") return false;
  return is_first || !message.action.starts_with(kSeeOtherLine.text);
}

// Prints what to do, each advice once: first by the server's words, which say more than the line
// around them, then by the manual's rows for the messages.
void GiveAdvice(const std::vector<LogEntry>& entries, Console& console) {
  if (std::none_of(entries.begin(), entries.end(), std::mem_fn(&LogEntry::IsTrouble))) return;
  std::set<std::string> given;
  const auto give = [&](const std::string& text) {
    if (!text.empty() && given.insert(text).second) console.out << "  - " << text << '\n';
  };
  console.out << "What to do:\n";
  for (const LogEntry& entry : entries) {
    for (const MessageFormat& message : {kHeldBack, kFileSetAside}) {
      if (const auto values = entry.ValuesOf(message)) give(ServerAdvice(values->back()));
    }
    if (entry.IsError() && entry.text.find(kErrorWord.text) != std::string::npos) {
      give(ServerAdvice(entry.text));
    }
  }
  for (const LogEntry& entry : entries) {
    const Message* message = FindMessage(entry);
    if (!entry.IsTrouble() || message == nullptr) continue;
    if (!AddsToAdvice(*message, given.empty())) continue;
    give(Quotation(entry) + message->meaning + " " + message->action);
  }
}

// The path as a shell takes it for one word. A name with a quote in it is refused by retry, so
// there is none to escape.
std::string Quoted(const std::string& path) {
  const bool plain = std::all_of(path.begin(), path.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || std::strchr("/._-+:,@%=", c) != nullptr;
  });
  return plain ? path : "'" + path + "'";
}

// What is true of the rows of a loaded file.
void TellRows(const std::string& path, const std::vector<LogEntry>& entries, Console& console) {
  const std::string table = MemFile::Parse(path).QualifiedTable();
  if (TellOfConvertedRows(entries)) {
    console.out << "The file is loaded and its rows are converted, but the mem table " << table
                << " may hold them still.\nThe service tries to empty it once a minute, and before "
                   "the next load. A service that is started\nanew counts them again, so empty it "
                   "before that: truncate table "
                << table << '\n';
    return;
  }
  console.out << "The file is loaded; its rows stay in the mem table " << table
              << ".\nThe service tries them again with the next file of it, when the definition "
                 "file has changed, at its next\nstart and, where the server was at fault, once a "
                 "minute.\n";
}

// What is true of a failed file now, and the command that goes on with it.
void TellState(const std::string& path, Console& console) {
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

// The answer when the log has no entry of the failure.
Status TellOfSilentLog(const std::string& path, const RunLog& log, Console& console) {
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
      << ".\nIts newest lines may not be written yet. Try again in a minute, or stop the service "
         "and look again;\nmidtablectl check may tell the reason too.\n\n";
  TellState(path, console);
  return Status::kFindings;
}

// A file that waits: its turn, or for the end of some trouble.
Status WhyHeld(const std::string& path, Console& console) {
  std::string error;
  std::vector<LogEntry> entries;
  for (const Held& held : HeldBack(std::time(nullptr), error)) {
    if (Concerns(held, path)) entries.push_back(held.entry);
  }
  if (!error.empty()) {
    console.err << "the run log cannot be read: " << OneLine(error) << '\n';
    return Status::kCouldNotLook;
  }
  console.out << OneLine(path) << "\nwaits\n\n";
  if (entries.empty()) {
    console.out << "The run log has nothing that would hold it back: it waits for its turn.\n";
    return Status::kFine;
  }
  for (const LogEntry& entry : entries) console.out << entry.Show() << '\n';
  console.out << '\n';
  GiveAdvice(entries, console);
  console.out << "It is counted as soon as that has ended, without any further step.\n";
  return Status::kFine;
}

}  // namespace

Status Why(const std::string& file, Console& console) {
  const std::string path = SpoolPath(file);
  const char* const fault = MemFileNameFault(std::string(FileNameOf(path)));
  const bool waits = fault == nullptr;
  if (WaitingName(path).empty() && !waits) {
    if (Lower(path).ends_with(".dat")) {
      console.out << OneLine(path) << "\nis never taken: " << fault << ".\n" << kRightName << '\n';
      return Status::kFindings;
    }
    console.err << OneLine(file) << ": no .err, .orig, .mid or .dat file\n";
    return Status::kCouldNotLook;
  }
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    console.err << OneLine(path) << ": " << std::strerror(errno) << '\n';
    return Status::kCouldNotLook;
  }
  if (waits) return WhyHeld(path, console);
  // A rename leaves the time of the content alone, but sets this one.
  const std::tm when = LocalTime(status.st_ctime);
  console.out << OneLine(path) << '\n'
              << Format("%s %04d-%02d-%02d at %02d:%02d:%02d, or was touched then\n\n",
                        path.ends_with(".mid") ? "loaded" : "failed", when.tm_year + 1900,
                        when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
  const RunLog log = FindFailure(path, status.st_ctime);
  if (log.entries.empty()) return TellOfSilentLog(path, log, console);
  for (const LogEntry& entry : log.entries) console.out << entry.Show() << '\n';
  console.out << '\n';
  GiveAdvice(log.entries, console);
  if (path.ends_with(".mid")) {
    TellRows(path, log.entries, console);
  } else {
    TellState(path, console);
  }
  return Status::kFine;
}

}  // namespace ctl
