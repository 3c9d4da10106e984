// The form of a line is that of src/log: "[unit:line][HH:MM:SS][Level]:" and the message.
#include "midtablectl/run_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/zux_center_log.h"
#include "midtablectl/local_time.h"
#include "midtablectl/printf_values.h"
#include "midtablectl/text.h"
#include "support/paths.h"

namespace ctl {

namespace {

// Takes the first line of an entry apart. False, for a line that goes on with the message before,
// when it begins otherwise; a message may hold anything, so every part is looked at.
bool ParseFirstLine(std::string_view line, LogEntry& entry) {
  if (!line.starts_with('[')) return false;
  const std::size_t unit_end = line.find(':');
  const std::size_t time = line.find("][");
  if (time == std::string_view::npos || unit_end > time || line.size() < time + 12) return false;
  if (!IsNumber(line.substr(unit_end + 1, time - unit_end - 1))) return false;
  const std::string clock(line.substr(time + 2, 8));
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (std::sscanf(clock.c_str(), "%2d:%2d:%2d", &hour, &minute, &second) != 3) return false;
  const std::string_view rest = line.substr(time + 10);
  const std::size_t level_end = rest.find("]:");
  if (!rest.starts_with("][") || level_end == std::string_view::npos) return false;
  entry.unit = line.substr(1, unit_end - 1);
  entry.second = (hour * 60 + minute) * 60 + second;
  entry.level = rest.substr(2, level_end - 2);
  entry.text = rest.substr(level_end + 2);
  return true;
}

}  // namespace

bool LogEntry::IsError() const { return level == kErrorLevel.name; }

// An alarm tells of something that the service works around, and may explain the errors that
// follow.
bool LogEntry::IsTrouble() const { return IsError() || level == kAlarmLevel.name; }

// The message begins with the text and goes on with anything, a reason of the server as a rule.
bool LogEntry::Is(const MessageBeginning& message) const {
  return unit == message.unit && level == message.level &&
         PrintfValues(std::string(message.text) + "%s", text);
}

std::optional<std::vector<std::string_view>> LogEntry::ValuesOf(
    const MessageFormat& message) const {
  if (unit != message.unit || level != message.level) return std::nullopt;
  return PrintfValues(message.format, text);
}

// Each line of a message is made printable on its own, so that its line ends stay.
std::string LogEntry::Show() const {
  std::string shown = Format("[%s][%02d:%02d:%02d][%s]:", unit.c_str(), second / 3600,
                             second / 60 % 60, second % 60, level.c_str());
  bool first = true;
  for (const std::string_view line : Lines(text)) {
    shown += (first ? "" : "\n") + OneLine(line);
    first = false;
  }
  return shown;
}

std::vector<LogEntry> ParseLog(std::string_view content) {
  std::vector<LogEntry> entries;
  for (const std::string_view line : Lines(content)) {
    LogEntry entry;
    if (ParseFirstLine(line, entry)) {
      entries.push_back(std::move(entry));
    } else if (!entries.empty()) {
      entries.back().text.append("\n").append(line);
    }
  }
  return entries;
}

RunLog ReadLogOf(std::time_t time) {
  RunLog log;
  const std::string newest = paths::kRunLogDir + DayOf(time) + ".log";
  // A file that grew too large was set aside with ".bak" behind its name, and has the earlier lines
  // of the day.
  for (const std::string& path : {newest + ".bak", newest}) {
    std::string content;
    if (!ReadWhole(path, content)) {
      // Most days have one file only, and a day without a pass has none.
      if (errno != ENOENT) log.error = path + ": " + std::strerror(errno);
      continue;
    }
    log.found = true;
    for (LogEntry& entry : ParseLog(content)) log.entries.push_back(std::move(entry));
  }
  return log;
}

}  // namespace ctl
