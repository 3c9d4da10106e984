#include "midtablectl/held.h"

#include <algorithm>
#include <map>

#include "midtablectl/local_time.h"
#include "spool/mem_file.h"

namespace ctl {

namespace {

constexpr std::time_t kDay = 86'400;
// What was not repeated for longer has ended with the service that told it.
constexpr int kStaleSeconds = 150;
// The same for the registry, which tries again every 10 seconds.
constexpr int kRegistryStaleSeconds = 30;

int SecondOf(const std::tm& time) { return (time.tm_hour * 60 + time.tm_min) * 60 + time.tm_sec; }

void Take(const LogEntry& entry, std::vector<Held>& all) {
  const auto forget = [&all](std::string_view what) {
    std::erase_if(all, [what](const Held& held) { return held.what == what; });
  };
  if (entry.ValuesOf(kDeliveryStarts)) all.clear();
  if (const auto values = entry.ValuesOf(kGoesOn)) forget(values->front());
  const auto values = entry.ValuesOf(kHeldBack);
  if (!values) return;
  forget(values->front());
  all.push_back(
      {std::string((*values)[0]), std::string((*values)[1]), std::string((*values)[2]), entry});
}

// How long ago an entry was written, which is of today or of yesterday.
std::time_t AgeOf(const LogEntry& entry, std::time_t now) {
  return (SecondOf(LocalTime(now)) - entry.second + kDay) % kDay;
}

}  // namespace

std::vector<Held> HeldBack(std::time_t now, std::string& error) {
  std::vector<Held> all;
  // The service begins the log of a new day late.
  for (const std::time_t day : {now - kDay, now}) {
    const RunLog log = ReadLogOf(day);
    if (!log.error.empty()) error = log.error;
    for (const LogEntry& entry : log.entries) Take(entry, all);
  }
  std::erase_if(all, [now](const Held& held) { return AgeOf(held.entry, now) > kStaleSeconds; });
  return all;
}

std::vector<LogEntry> RegistryErrors(std::time_t now, std::string& error) {
  RunLog log = ReadLogOf(now);
  if (!log.found) log = ReadLogOf(now - kDay);
  if (!log.error.empty()) error = log.error;
  std::map<std::string, LogEntry> last;  // by text
  for (const LogEntry& entry : log.entries) {
    const bool counts = entry.unit == kRegistryUnit.name && entry.IsError();
    if (counts && AgeOf(entry, now) <= kRegistryStaleSeconds) last[entry.text] = entry;
  }
  std::vector<LogEntry> all;
  all.reserve(last.size());
  for (const auto& [text, entry] : last) all.push_back(entry);
  return all;
}

bool Concerns(const Held& held, const std::string& path) {
  return held.what == "server" || held.what == "table " + MemFile::Parse(path).QualifiedTable() ||
         held.what == "file (" + path + ")";
}

}  // namespace ctl
