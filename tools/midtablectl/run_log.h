// Reads the files of the run log and takes their lines apart.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "midtablectl/log_phrases.h"

namespace ctl {

// One message, as the service wrote it. A message with line feeds takes several lines of the file.
struct LogEntry {
  std::string unit;   // the part of the service that wrote the message
  std::string level;  // "ErrLog" and so on
  int second;         // of the day
  std::string text;   // the message, without what stands before it in the line

  // Whether something failed, and whether it failed or may lead to a failure.
  bool IsError() const;
  bool IsTrouble() const;
  // Whether this is the message that begins so.
  bool Is(const MessageBeginning& message) const;
  // The values in this message, as views into `text`; nothing when this is another message.
  std::optional<std::vector<std::string_view>> ValuesOf(const MessageFormat& message) const;
  // The entry as it stands in the file, without control characters.
  std::string Show() const;
};

// The entries of a log file's content, in its order. A line that begins no entry belongs to the
// entry before it; such lines at the start of the file are left out.
std::vector<LogEntry> ParseLog(std::string_view content);

// What could be read of the run log of one day or more.
struct RunLog {
  std::vector<LogEntry> entries;
  bool found = false;  // a file was read
  std::string error;   // a file that may be there and cannot be read, with errno's text
};

// The run log of the local day that holds `time`. A log that grew too large was set aside as
// ".bak", so that file comes first.
RunLog ReadLogOf(std::time_t time);

}  // namespace ctl
