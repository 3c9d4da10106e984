// Here a file's reason is the last error that names the file. `why` looks longer, and finds what
// names only a table; a page that is made each minute has to read a log once for all files.
#include "midtablectl/page/failures.h"

#include <algorithm>
#include <map>
#include <set>

#include "midtablectl/advice.h"
#include "midtablectl/failure.h"
#include "midtablectl/local_time.h"
#include "midtablectl/server.h"
#include "midtablectl/text.h"
#include "support/names.h"

namespace ctl {

namespace {

constexpr std::size_t kMostDays = 7;
constexpr std::time_t kDay = 86'400;
constexpr std::size_t kReasonLength = 240;

struct FailedFile {
  std::string path;
  std::string waiting_name;  // by which the log knows it
  std::time_t failed;
};

struct Reason {
  std::string text;
  std::string remedy;
};

using Reasons = std::map<std::string, Reason>;  // by waiting name

std::vector<FailedFile> FailedFiles(const Spool& spool) {
  std::vector<FailedFile> files;
  for (const DatabaseFolder& folder : spool.folders) {
    for (const SpoolEntry& file : folder.files) {
      if (file.state != FileState::kFailed) continue;
      files.push_back({folder.Path() + file.name, WaitingName(file.name), file.status.st_ctime});
    }
  }
  std::sort(files.begin(), files.end(), [](const FailedFile& one, const FailedFile& other) {
    return one.failed > other.failed;
  });
  return files;
}

// What the entry says of the file, without the file and without the statement.
std::string ReasonText(const LogEntry& entry, const std::string& name) {
  std::string text = entry.text;
  if (const auto values = entry.ValuesOf(kFileSetAside)) {
    text = values->back();
  } else if (const auto refused = entry.ValuesOf(kLoadRefused)) {
    text = refused->back();
  }
  text = ServerWords(text);
  for (std::size_t at; (at = text.find(name)) != std::string::npos;) {
    const std::size_t begin = text.find_last_of(" (\"'", at);
    const std::size_t from = begin == std::string::npos ? 0 : begin + 1;
    text.replace(from, at + name.size() - from, "...");
  }
  const std::vector<std::string_view> lines = Lines(text);
  return OneLine(lines.empty() ? "" : lines[0].substr(0, kReasonLength));
}

std::string Remedy(const LogEntry& entry) {
  if (std::string advice = ServerAdvice(entry.text); !advice.empty()) return advice;
  const Message* message = FindMessage(entry);
  if (message == nullptr || message->action.starts_with(kSeeOtherLine.text)) return {};
  return message->action;
}

// The last error of each of the names, which are the days' last one where several days have any.
void ReadReasons(std::time_t day, const std::set<std::string>& names, Reasons& reasons,
                 std::string& error) {
  const RunLog log = ReadLogOf(day);
  if (error.empty()) error = log.error;
  std::map<std::string, const LogEntry*> last;
  for (const LogEntry& entry : log.entries) {
    if (!entry.IsError()) continue;
    for (const std::string& name : FileNamesOf(entry)) {
      if (names.contains(name)) last[name] = &entry;
    }
  }
  for (const auto& [name, entry] : last) {
    reasons.try_emplace(name, Reason{ReasonText(*entry, name), Remedy(*entry)});
  }
}

// The reasons by the logs of the days on which the files failed and, as the service begins the log
// of a new day late, of the days before them.
Reasons ReasonsOf(const std::vector<FailedFile>& files, std::string& error) {
  std::set<std::string> names;
  std::map<std::string, std::time_t, std::greater<>> days;
  for (const FailedFile& file : files) {
    // The log shows names without control characters.
    names.insert(OneLine(file.waiting_name));
    if (!days.contains(DayOf(file.failed)) && days.size() >= kMostDays) continue;
    days.emplace(DayOf(file.failed), file.failed);
  }
  std::set<std::string> read;
  Reasons reasons;
  for (const auto& [day, time] : days) {
    for (const std::time_t each : {time, time - kDay}) {
      if (read.insert(DayOf(each)).second) ReadReasons(each, names, reasons, error);
    }
  }
  return reasons;
}

// The text without what differs from file to file.
std::string Alike(const std::string& reason) {
  std::string alike;
  for (std::size_t i = 0; i < reason.size(); ++i) {
    const char c = reason[i];
    if (c >= '0' && c <= '9') {
      if (!alike.ends_with('#')) alike += '#';
      continue;
    }
    alike += c;
    const std::size_t end = c == '\'' || c == '"' || c == '`' ? reason.find(c, i + 1) : i;
    if (end != std::string::npos) i = end;
  }
  return alike;
}

}  // namespace

Failures GroupFailures(const Spool& spool) {
  Failures failures;
  const std::vector<FailedFile> files = FailedFiles(spool);
  const Reasons reasons = ReasonsOf(files, failures.log_error);
  std::map<std::string, std::size_t> places;
  for (const FailedFile& file : files) {
    const auto found = reasons.find(OneLine(file.waiting_name));
    const Reason reason = found == reasons.end() ? Reason() : found->second;
    const auto [place, is_new] = places.emplace(Alike(reason.text), failures.groups.size());
    if (is_new) {
      failures.groups.push_back({reason.text, reason.remedy, 0, file.failed, file.path});
    }
    ++failures.groups[place->second].files;
  }
  return failures;
}

}  // namespace ctl
