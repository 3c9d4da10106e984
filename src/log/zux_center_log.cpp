#include "log/zux_center_log.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

#include "log/journal.h"
#include "support/file.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

constexpr char kUnit[] = "zux_center_log";
constexpr mode_t kFolderMode = 0750;
// From one look at the open file to the next, where nobody calls Flush.
constexpr std::time_t kLookSeconds = 5;
// The names of the files: a day's file, and the one that grew too large and was set aside.
constexpr char kSuffix[] = ".log";
constexpr char kSetAside[] = ".bak";

// Levels without a name come from callers that pass a number of their own.
const char* LevelName(int level) {
  static constexpr std::array<const char*, 5> kNames = {"InfoLog", "AlarmLog", "ErrLog", "DebugLog",
                                                        "RealtimeLog"};
  const auto index = static_cast<std::size_t>(level);
  return index < kNames.size() ? kNames[index] : "UnKnown";
}

bool IsUrgent(int level) { return level == kAlarm || level == kError; }

tm LocalTime() {
  const time_t now = std::time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  return local;
}

__attribute__((format(printf, 1, 0))) std::string Formatted(const char* format, va_list args) {
  // Most lines fit into the stack; only a longer one is formatted a second time.
  char buffer[1024];
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
  std::string text(buffer, static_cast<std::size_t>(std::clamp(length, 0, 1023)));
  if (length >= static_cast<int>(sizeof buffer)) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

std::string FileLine(const char* file, int line, int level, const std::string& message) {
  const tm now = LocalTime();
  char time[32];
  std::strftime(time, sizeof time, "%H:%M:%S", &now);
  char prefix[256];
  std::snprintf(prefix, sizeof prefix, "[%s:%d][%s][%s]:", file, line, time, LevelName(level));
  return prefix + message + '\n';
}

// A message of the log itself, as a line for its file.
__attribute__((format(printf, 4, 5))) std::string OwnLine(const char* file, int line, int level,
                                                          const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = FileLine(file, line, level, Formatted(format, args));
  va_end(args);
  return text;
}

// The whole line goes out in one call, so that the lines of two threads do not mix.
void ToConsole(const char* file, int line, int level, const std::string& message) {
  char prefix[256];
  std::snprintf(prefix, sizeof prefix, "[%s:%d]<%d>:", file, line, level);
  const std::string text = prefix + message + '\n';
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// "20121231.log", and the same with ".bak": nothing else in the folder is the log's to delete.
bool IsLogName(std::string_view name) {
  constexpr std::size_t kDigits = 8;
  if (name.ends_with(kSetAside)) name.remove_suffix(std::strlen(kSetAside));
  return name.size() == kDigits + std::strlen(kSuffix) && name.ends_with(kSuffix) &&
         std::all_of(name.begin(), name.begin() + kDigits,
                     [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

// The log exists before any code runs, so that objects that are made before main can log too.
constinit CLOGER g_loger;

// Standard output that leads nowhere, as a daemon's does, is not worth the formatting.
void CLOGER::Init() {
  m_console = !IsNullDevice(STDOUT_FILENO);
  m_journal = HasJournal();
  MakeFolders(paths::kRunLogDir, kFolderMode);
  {
    MutexLock lock(m_lock);
    if (access(paths::kRunLogFlag, R_OK) == 0) m_flag = true;
    updatedate(m_date);
    OpenFile();
  }
  rmexpirelog();
}

void CLOGER::updatedate(char* out) {
  const tm local = LocalTime();
  std::strftime(out, 24, "%Y%m%d", &local);
}

void CLOGER::reopenfile() {
  MutexLock lock(m_lock);
  OpenFile();
}

// With a debug level every line goes to the console, and there is nothing in the file to keep.
void CLOGER::Flush() {
  MutexLock lock(m_lock);
  if (m_file != nullptr && g_debug == 0) KeepFile();
}

void CLOGER::rmexpirelog() {
  const Directory folder(opendir(paths::kRunLogDir));
  if (folder == nullptr) return;
  std::vector<std::string> names;
  while (const dirent* entry = readdir(folder.get())) {
    if (IsLogName(entry->d_name)) names.emplace_back(entry->d_name);
  }
  // The names begin with the date, so that the oldest come first.
  std::sort(names.begin(), names.end());
  const std::size_t expired = names.size() - std::min(names.size(), kKeptFiles);
  // What cannot be deleted is tried again at the next start.
  for (std::size_t i = 0; i < expired; ++i) unlinkat(dirfd(folder.get()), names[i].c_str(), 0);
}

std::string CLOGER::FilePath() const { return paths::kRunLogDir + std::string(m_date) + kSuffix; }

void CLOGER::OpenFile() {
  if (m_file == nullptr) m_file = std::make_unique<LogFile>();
  m_looked = std::time(nullptr);
  const std::string path = FilePath();
  if (m_file->Open(path)) {
    m_toldError = 0;
    TellTrouble();
    return;
  }
  // The same obstacle is named once and not at every attempt, which may be many in a second.
  const int error = errno;
  if (std::exchange(m_toldError, error) == error) return;
  std::printf("error open file errno %d", error);
  const std::string obstacle = ObstacleAt(path);
  if (!obstacle.empty()) std::printf("\nrun log %s %s\n", path.c_str(), obstacle.c_str());
}

// Somebody who cleans up may remove the file or the whole folder while the service runs. Both are
// made again.
void CLOGER::KeepFile() {
  if (m_file->IsInPlace()) {
    m_looked = std::time(nullptr);
    if (m_file->WriteOut()) TellTrouble();
    return;
  }
  MakeFolders(paths::kRunLogDir, kFolderMode);
  updatedate(m_date);
  OpenFile();
}

// The line goes in front of what still waits in the buffer: those lines came after the gap.
void CLOGER::TellTrouble() {
  const LogFile::Trouble trouble = m_file->TakeTrouble();
  if (trouble.error == 0) return;
  const std::string line =
      OwnLine(kUnit, __LINE__, kAlarm, "run log was out of reach (%s), %zu lines are missing",
              std::strerror(trouble.error), trouble.lines);
  m_file->PutFirst(line);
  m_file->WriteOut();
  // The journal has its own words for what stands before the message.
  if (m_journal) ToJournal(kUnit, kAlarm, line.substr(line.find("]:") + 2));
}

// The date comes first: on a new day the size is that of the new file.
void CLOGER::CheckRollOver() {
  char today[kDateSize] = {};
  updatedate(today);
  if (std::memcmp(today, m_date, sizeof today) != 0) {
    std::memcpy(m_date, today, sizeof today);
    OpenFile();
  }
  if (m_file->Size() <= kMaxFileSize) return;
  m_file->Close();
  const std::string path = FilePath();
  // If the rename fails, the file goes on growing and the next check tries again.
  [[maybe_unused]] const int ignored = std::rename(path.c_str(), (path + kSetAside).c_str());
  OpenFile();
}

// Alarms and errors may be the last lines before a crash, so they do not wait in the buffer.
void CLOGER::WriteLine(const char* file, int line, int level, const std::string& message) {
  if (std::time(nullptr) - m_looked >= kLookSeconds) KeepFile();
  if (m_file->Append(FileLine(file, line, level, message), IsUrgent(level))) return;
  if (m_console) ToConsole(file, line, level, message);
}

int CLOGER::operator()(const char* file, int line, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const bool for_journal = m_journal && IsUrgent(level);
  std::string message;
  {
    MutexLock lock(m_lock);
    // DELIBERATE, coarse: day and size are looked at once every 1000 calls.
    if (++m_counter == kCheckInterval) {
      m_counter = 0;
      if (m_file != nullptr) CheckRollOver();
    }
    const bool for_file = m_file != nullptr && g_debug == 0 && level >= 0;
    if (for_file || m_console || for_journal) message = Formatted(format, args);
    if (for_file) {
      WriteLine(file, line, level, message);
    } else if (m_console) {
      ToConsole(file, line, level, message);
    }
  }
  va_end(args);
  // Behind the lock: a journal that is slow keeps nobody else from logging.
  if (for_journal) ToJournal(file, level, message);
  return 0;
}

// Longer texts are cut. Callers that build statements from templates look at the length before.
std::string Format(const char* format, ...) {
  char buffer[10240];
  buffer[0] = '\0';
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer - 1, format, args);
  va_end(args);
  return buffer;
}
