// The run log: one text file a day below paths::kRunLogDir, written in the manner of printf, and
// Format, printf into a string.
//
// A file line reads "[Midtable:120][14:03:59][ErrLog]:" and the message; the date is in the file's
// name only. Until Init, with g_debug set, and for negative levels, a line goes to standard output
// in the short form "[Midtable:120]<2>:" instead.
//
// Alarms and errors are in the file when the call returns. The lines of other levels are buffered
// and follow with the next of those, when the buffer fills, at a roll-over, with Flush and at exit.
//
// A log that was lost comes back by itself: Flush, and a line that comes 5 seconds after the last
// look, put back a file or folder that somebody removed, and write again where the disk was full.
// A line of the log's own then says how many lines are missing. Lines that find no file go to
// standard output meanwhile.
//
// In a unit of systemd alarms and errors go to the journal too, from Init on.
//
// The folders that the log makes have mode 0750 and its files 0640. Whatever is no regular file is
// not opened in the place of a file, a link neither.
//
// Threads: every operation may be called from any thread once Init has returned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

#include "log/log_file.h"
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
  static constexpr off_t kMaxFileSize = 26'214'400;
  // Calls from one check of day and size to the next.
  static constexpr std::uint32_t kCheckInterval = 1000;
  // Log files kept at start.
  static constexpr std::size_t kKeptFiles = 60;

  constexpr CLOGER() = default;
  CLOGER(const CLOGER&) = delete;
  CLOGER& operator=(const CLOGER&) = delete;

  // Makes the folder, opens today's file for appending and removes expired files. Without a file
  // (a line on standard output says why) messages go on to standard output.
  void Init() EXCLUDES(m_lock);

  // Writes one line; `file` is the calling unit's name, `line` its line, `format` as printf takes
  // it, without a newline. Always 0.
  int operator()(const char* file, int line, int level, const char* format, ...)
      __attribute__((format(printf, 5, 6))) EXCLUDES(m_lock);

  // Whether anybody can read standard output. In a daemon it is /dev/null, and from Init on what
  // would go there is not even formatted.
  bool HasConsole() const { return m_console; }

  // Writes today's local date as YYYYMMDD; `out` takes at least 24 bytes.
  static void updatedate(char* out);

  // Closes the open file and opens that of the current date; on failure "error open file errno %d"
  // on standard output, and no file is open. The same failure is not printed twice in a row.
  void reopenfile() EXCLUDES(m_lock);

  // Writes out what is buffered, after a look whether the file is still in its place. Nothing
  // before Init and with g_debug set. To be called when the service has nothing else to do.
  void Flush() EXCLUDES(m_lock);

  // Deletes all but the 60 last (by byte order) of the log folder's names that are the log's own,
  // "YYYYMMDD.log" and "YYYYMMDD.log.bak". Others are neither counted nor deleted.
  void rmexpirelog() EXCLUDES(m_lock);

 private:
  static constexpr int kDateSize = 32;

  std::string FilePath() const REQUIRES(m_lock);
  void OpenFile() REQUIRES(m_lock);
  // Opens the file again if it is lost, else writes the buffer out.
  void KeepFile() REQUIRES(m_lock);
  // Logs that lines are missing, where that is so.
  void TellTrouble() REQUIRES(m_lock);
  void CheckRollOver() REQUIRES(m_lock);
  void WriteLine(const char* file, int line, int level, const std::string& message)
      REQUIRES(m_lock);

  bool m_console = true;   // written by Init only
  bool m_journal = false;  // likewise
  Mutex m_lock;
  std::unique_ptr<LogFile> m_file GUARDED_BY(m_lock);  // null until one is wanted
  std::time_t m_looked GUARDED_BY(m_lock) = 0;         // when it was last looked at
  int m_toldError GUARDED_BY(m_lock) = 0;              // errno that standard output was told
  char m_date[kDateSize] GUARDED_BY(m_lock) = {};
  std::uint32_t m_counter GUARDED_BY(m_lock) = 0;
  bool m_flag GUARDED_BY(m_lock) = false;
};

extern CLOGER g_loger;

// printf into a string, cut to 10,238 characters without a sign of the cut.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
