// Reads the files of the run log.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

struct LogEntry {
  std::string unit;
  std::string level;  // "ErrLog" and so on
  int second;         // of the day
  std::string text;   // may have several lines

  bool IsError() const { return level == "ErrLog"; }
  bool IsTrouble() const { return IsError() || level == "AlarmLog"; }
  std::string Show() const;  // as in the file
};

// The entries of a log file's content, in its order. Lines that begin no entry belong to the one
// before.
std::vector<LogEntry> ParseLog(std::string_view content);

struct RunLog {
  std::vector<LogEntry> entries;
  bool found = false;  // a file was read
  std::string error;   // a file that may be there and cannot be read, with errno's text
};

// That of the local day which holds `time`: ".log.bak", then ".log".
RunLog ReadLogOf(std::time_t time);

}  // namespace ctl
