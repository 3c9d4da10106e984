// The run log: one text file a day below paths::kRunLogDir, written in the manner of printf, and
// Format, printf into a string.
//
// A file line reads "[Midtable:120][14:03:59][ErrLog]:" and the message; the date is in the file's
// name only. Until Init, with g_debug set, and for negative levels, a line goes to standard output
// in the short form "[Midtable:120]<2>:" instead. Lines are buffered and reach the disk when the
// buffer fills, at a roll-over and at exit.
//
// Threads: every operation may be called from any thread once Init has returned.
#pragma once

#include <cstdint>
#include <string>

#include "support/file.h"
#include "support/mutex.h"

// Levels. Files carry "InfoLog", "AlarmLog", "ErrLog", "DebugLog", "RealtimeLog", and "UnKnown"
// for any other; negative ones never reach a file.
inline constexpr int kInfo = 0;
inline constexpr int kAlarm = 1;
inline constexpr int kError = 2;
inline constexpr int kDebug = 3;
inline constexpr int kRealtime = 4;
inline constexpr int kConsole = -1;
inline constexpr int kConsoleRow = -2;

class CLOGER {
 public:
  // Size above which the day's file is set aside as ".bak" at the next check.
  static constexpr long kMaxFileSize = 26'214'400;
  // Calls from one check of day and size to the next.
  static constexpr std::uint32_t kCheckInterval = 1000;
  // Log files kept at start.
  static constexpr int kKeptFiles = 60;

  constexpr CLOGER() = default;
  CLOGER(const CLOGER&) = delete;
  CLOGER& operator=(const CLOGER&) = delete;

  // Makes the folder, opens today's file for appending and removes expired files. Without a file
  // (a line on standard output says why) messages go on to standard output.
  void Init() EXCLUDES(m_lock);

  // Writes one line; `file` is the calling unit's name, `line` its line, `format` as printf takes
  // it, without a newline. Always 0; write errors are not reported. Where a full disk has cost
  // lines, the file has an empty one, as it has behind a message that brings a newline along.
  int operator()(const char* file, int line, int level, const char* format, ...)
      __attribute__((format(printf, 5, 6))) EXCLUDES(m_lock);

  // Whether anybody can read standard output. In a daemon it is /dev/null, and from Init on what
  // would go there is not even formatted.
  bool HasConsole() const { return m_console; }

  // Writes today's local date as YYYYMMDD; `out` takes at least 24 bytes.
  static void updatedate(char* out);

  // Closes the open file and opens that of the current date; on failure "error open file errno %d"
  // on standard output, and no file is open.
  void reopenfile() EXCLUDES(m_lock);

  // Deletes all but the 60 last names (by byte order) of the log folder; nothing when there are 60
  // or fewer.
  void rmexpirelog() EXCLUDES(m_lock);

 private:
  static constexpr int kDateSize = 32;

  void OpenFile() REQUIRES(m_lock);
  void CheckRollOver() REQUIRES(m_lock);
  std::string FilePath() const REQUIRES(m_lock);

  bool m_console = true;  // written by Init only
  Mutex m_lock;
  File m_stream GUARDED_BY(m_lock);
  char m_date[kDateSize] GUARDED_BY(m_lock) = {};
  std::uint32_t m_counter GUARDED_BY(m_lock) = 0;
  bool m_flag GUARDED_BY(m_lock) = false;
};

extern CLOGER g_loger;

// printf into a string, cut to 10,238 characters without a sign of the cut.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
