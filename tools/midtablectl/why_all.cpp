// Each trouble is put under a key that leaves out what differs from file to file, so that a
// thousand files that fail for one reason are one paragraph.
#include "midtablectl/why_all.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <vector>

#include "config/dbinfo.h"
#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/failure.h"
#include "midtablectl/held.h"
#include "midtablectl/local_time.h"
#include "midtablectl/server.h"
#include "midtablectl/spool_scan.h"
#include "midtablectl/state_file.h"
#include "midtablectl/text.h"
#include "support/paths.h"

namespace ctl {

namespace {

constexpr std::time_t kDay = 86'400;
// The words of a server stand at the end of a line, behind its statement: of longer ones the end is
// shown.
constexpr std::size_t kShownLength = 200;

// All that has one reason.
struct Trouble {
  std::string state;  // "failed", for instance
  std::size_t files = 0;
  std::string noun = "file";
  std::time_t newest = 0;
  std::string line;     // the newest of the run log; empty when that tells nothing
  std::string example;  // a path, or what waits
  std::string remedy;
};

class Overview {
 public:
  // `one` holds a single case, `reason` what it has in common with others.
  void Add(const std::string& reason, const Trouble& one) {
    Trouble& all = m_troubles[one.state + reason];
    const std::size_t files = all.files + one.files;
    if (all.files == 0 || one.newest >= all.newest) all = one;
    all.files = files;
  }
  std::vector<Trouble> NewestFirst() const {
    std::vector<Trouble> sorted;
    for (const auto& [reason, trouble] : m_troubles) sorted.push_back(trouble);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Trouble& a, const Trouble& b) { return a.newest > b.newest; });
    return sorted;
  }

 private:
  std::map<std::string, Trouble> m_troubles;  // by state and reason
};

// The text without what is in quotes or parentheses, and without digits: names and numbers.
std::string WithoutNames(std::string_view text) {
  std::string rest;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char* const open = std::strchr("('\"`", text[i]);
    if (open != nullptr && *open != '\0') {
      const std::size_t close = text.find(*open == '(' ? ')' : *open, i + 1);
      if (close != std::string_view::npos) i = close;
    } else if (std::isdigit(static_cast<unsigned char>(text[i])) == 0) {
      rest += text[i];
    }
  }
  return rest;
}

// What entries about one trouble have in common.
std::string ReasonOf(const LogEntry& entry) {
  const std::string words = ServerWords(entry.text);
  if (words.size() < entry.text.size()) return WithoutNames(words);
  const Message* const message = FindMessage(entry);
  return message == nullptr ? WithoutNames(entry.text) : message->format + WithoutNames(entry.text);
}

std::string RemedyFor(const LogEntry& entry) {
  std::string advice = ServerAdvice(entry.text);
  if (!advice.empty()) return advice;
  const Message* const message = FindMessage(entry);
  return message == nullptr ? "see the lines around it in the run log" : message->action;
}

std::string ShownLine(const LogEntry& entry) {
  std::string line = OneLine(entry.Show());
  if (line.size() <= kShownLength) return line;
  return line.substr(0, kShownLength / 2) + " ... " + line.substr(line.size() - kShownLength / 2);
}

Trouble Of(const LogEntry& entry, std::time_t time, const std::string& state) {
  Trouble trouble;
  trouble.state = state;
  trouble.files = 1;
  trouble.newest = time;
  trouble.line = ShownLine(entry);
  trouble.remedy = RemedyFor(entry);
  return trouble;
}

// When an entry of the log of the day that holds `day` was written.
std::time_t TimeOf(const LogEntry& entry, std::time_t day) {
  std::tm time = LocalTime(day);
  time.tm_hour = entry.second / 3600;
  time.tm_min = entry.second / 60 % 60;
  time.tm_sec = entry.second % 60;
  time.tm_isdst = -1;
  return std::mktime(&time);
}

void AddHeld(std::time_t now, Overview& overview, std::string& error) {
  for (const Held& held : HeldBack(now, error)) {
    const std::time_t today = TimeOf(held.entry, now);
    Trouble trouble =
        Of(held.entry, today > now ? today - kDay : today, "held back and tried again");
    trouble.files = IsNumber(held.files) ? std::strtoul(held.files.c_str(), nullptr, 10) : 1;
    trouble.example = held.what;
    const std::string advice = ServerAdvice(held.reason);
    if (!advice.empty()) trouble.remedy = advice;
    overview.Add(WithoutNames(held.reason), trouble);
  }
}

void AddRegistry(std::time_t now, Overview& overview, std::string& error) {
  for (const LogEntry& entry : RegistryErrors(now, error)) {
    Trouble trouble =
        Of(entry, TimeOf(entry, now), "about local users; files are loaded all the same");
    trouble.noun = "error";
    overview.Add(ReasonOf(entry), trouble);
  }
}

void AddFailed(const Spool& spool, Overview& overview, std::string& error) {
  FailureReasons reasons;
  for (const DatabaseFolder& folder : spool.folders) {
    if (folder.error != 0) error = folder.Path() + ": " + std::strerror(folder.error);
    for (const SpoolEntry& file : folder.files) {
      if (file.state != FileState::kFailed) continue;
      const std::string path = folder.Path() + file.name;
      const std::time_t time = file.status.st_ctime;
      const LogEntry* const entry = reasons.Of(path, time);
      Trouble trouble = entry == nullptr ? Trouble{} : Of(*entry, time, "failed");
      if (entry == nullptr) {
        trouble = {"failed",
                   1,
                   "file",
                   time,
                   {},
                   {},
                   "the run log does not tell why: midtablectl "
                   "why FILE says what is known, midtablectl check may find the reason"};
      }
      trouble.example = path;
      overview.Add(entry == nullptr ? "" : ReasonOf(*entry), trouble);
    }
  }
  if (error.empty()) error = reasons.error();
}

// Files that no log tells of: the service passes them over in silence.
void AddNeverTaken(const Spool& spool, Overview& overview) {
  for (const DatabaseFolder& folder : spool.folders) {
    for (const SpoolEntry& file : folder.files) {
      const char* const fault = WhyNeverTaken(file);
      if (fault == nullptr) continue;
      overview.Add(fault, {"never taken for its name", 1, "file", file.status.st_ctime, fault,
                           folder.Path() + file.name,
                           "rename it: id-table-YYYYMMDD-HHMMSS.dat, see mem-file.md"});
    }
  }
}

void AddFullDisks(std::time_t now, Overview& overview) {
  for (const std::string& folder : FullFolders()) {
    overview.Add(
        "folder",
        {"on a full disk", 1, "folder", now, "producers cannot write there, nor the run log",
         folder, "delete old .mid files and run logs, or give the file system more room"});
  }
}

// The mem tables whose conversion failed, each with the last case.
using Conversions = std::map<std::string, std::pair<LogEntry, std::time_t>>;

void TakeConversions(const std::vector<LogEntry>& log, std::time_t day, Conversions& failed) {
  const LogEntry* refused = nullptr;  // the statement for which the next conversion fails
  for (const LogEntry& entry : log) {
    if (entry.ValuesOf(kStatementRefused)) refused = &entry;
    if (entry.ValuesOf(kDeliveryStarts)) failed.clear();
    const auto done = entry.ValuesOf(kMemTableConverted);
    const auto not_done = entry.ValuesOf(kMemTableNotConverted);
    if (!done && !not_done) continue;
    const auto& values = done ? *done : *not_done;
    const std::string table = std::string(values.front()) + "." + std::string(values.back());
    if (done) {
      failed.erase(table);
    } else {
      failed[table] = {refused == nullptr ? entry : *refused, TimeOf(entry, day)};
    }
    refused = nullptr;
  }
}

void AddConversions(std::time_t now, Overview& overview, std::string& error) {
  Conversions failed;
  for (const std::time_t day : {now - kDay, now}) {
    const RunLog log = ReadLogOf(day);
    if (!log.error.empty()) error = log.error;
    TakeConversions(log.entries, day, failed);
  }
  for (const auto& [table, last] : failed) {
    Trouble trouble = Of(last.first, last.second, "not converted, rows stay in the mem table");
    trouble.noun = "mem table";
    trouble.example = table;
    overview.Add(ReasonOf(last.first), trouble);
  }
}

// Settings that cannot be used end the service before it has a run log; else its last line tells
// most.
void TellOfService(std::time_t now, Console& console) {
  if (LookAtServiceLock().held) return;
  console.out << "The service is not running; what waits is taken once it is.\n";
  CDBInfo settings(paths::kSettingsFile);
  if (!settings.readConfig()) {
    console.out
        << "  the settings, " << paths::kSettingsFile
        << ", cannot be used\n  -> midtablectl check --offline names the line; mend it, then "
           "systemctl start midtable\n\n";
    return;
  }
  RunLog log = ReadLogOf(now);
  if (log.entries.empty()) log = ReadLogOf(now - kDay);
  if (!log.entries.empty()) {
    console.out << "  the run log ends: " << ShownLine(log.entries.back()) << '\n';
  }
  console.out << "  -> systemctl start midtable; if it ends again, journalctl -u midtable says "
                 "why\n\n";
}

void Print(const Trouble& trouble, Console& console) {
  const std::tm when = LocalTime(trouble.newest);
  console.out << Count(trouble.files, trouble.noun) << ' ' << trouble.state
              << Format(", last %04d-%02d-%02d at %02d:%02d:%02d\n", when.tm_year + 1900,
                        when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
  if (!trouble.line.empty()) console.out << "  " << trouble.line << '\n';
  if (!trouble.example.empty()) {
    console.out << "  " << (trouble.files == 1 ? "" : "for instance ") << OneLine(trouble.example)
                << '\n';
  }
  console.out << "  -> " << OneLine(trouble.remedy) << "\n\n";
}

}  // namespace

Status WhyAll(Console& console) {
  const std::time_t now = std::time(nullptr);
  const Spool spool = ScanSpool();
  std::string error;
  if (spool.error != 0) error = std::string(paths::kSpool) + ": " + std::strerror(spool.error);
  Overview overview;
  AddHeld(now, overview, error);
  AddConversions(now, overview, error);
  AddRegistry(now, overview, error);
  AddFailed(spool, overview, error);
  AddNeverTaken(spool, overview);
  AddFullDisks(now, overview);
  TellOfService(now, console);
  const std::vector<Trouble> troubles = overview.NewestFirst();
  for (const Trouble& trouble : troubles) Print(trouble, console);
  if (!error.empty()) {
    console.err << OneLine(error) << '\n';
    return Status::kCouldNotLook;
  }
  if (troubles.empty()) {
    console.out << "Nothing has failed, and nothing is held back.\n";
    return Status::kFine;
  }
  console.out << "More of one file: midtablectl why FILE\n";
  return Status::kFindings;
}

}  // namespace ctl
