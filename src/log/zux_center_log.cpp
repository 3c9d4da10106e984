#include "log/zux_center_log.h"

#include <dirent.h>
#include <paths.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "support/paths.h"
#include "support/run_state.h"

namespace {

constexpr char kUnit[] = "zux_center_log";
constexpr int kExpiryFailedLine = 79;  // fixed: part of the message that operators know

const char* LevelName(int level) {
  static constexpr std::array<const char*, 5> kNames = {"InfoLog", "AlarmLog", "ErrLog", "DebugLog",
                                                        "RealtimeLog"};
  const auto index = static_cast<std::size_t>(level);
  return index < kNames.size() ? kNames[index] : "UnKnown";
}

tm LocalTime() {
  const time_t now = std::time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  return local;
}

__attribute__((format(printf, 1, 0))) std::string Formatted(const char* format, va_list args) {
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

// After a failed write: what is in the buffer is lost, and the last line of the file may be torn.
void EndTornLine(std::FILE* out) {
  __fpurge(out);
  std::clearerr(out);
  std::fputc('\n', out);
}

// The buffer is written out between two lines only, so that a full disk costs whole lines.
void WriteLine(std::FILE* out, const std::string& line) {
  if (__fpending(out) + line.size() > __fbufsize(out) && std::fflush(out) != 0) EndTornLine(out);
  if (std::fwrite(line.data(), 1, line.size(), out) != line.size()) EndTornLine(out);
}

bool IsNullDevice(int fd) {
  struct stat file {};
  struct stat null {};
  return fstat(fd, &file) == 0 && stat(_PATH_DEVNULL, &null) == 0 && S_ISCHR(file.st_mode) &&
         file.st_rdev == null.st_rdev;
}

// The names that `ls` would list: the pipeline below counts the same ones.
int CountVisible(const char* folder) {
  const Directory directory(opendir(folder));
  if (directory == nullptr) return 0;
  int count = 0;
  while (const dirent* entry = readdir(directory.get())) {
    if (entry->d_name[0] != '.') ++count;
  }
  return count;
}

}  // namespace

constinit CLOGER g_loger;

void CLOGER::Init() {
  m_console = !IsNullDevice(STDOUT_FILENO);
  // Not by a shell, which would have a stop signal ignored in the meantime. A folder that cannot be
  // made shows in the open below.
  std::error_code ignored;
  std::filesystem::create_directories(paths::kRunLogDir, ignored);
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

std::string CLOGER::FilePath() const { return Format("%s%s.log", paths::kRunLogDir, m_date); }

void CLOGER::OpenFile() {
  m_stream.reset();
  m_stream.reset(std::fopen(FilePath().c_str(), "a+"));
  if (m_stream == nullptr) {
    std::printf("error open file errno %d", errno);
    return;
  }
  // The size check asks for the position, which "a+" leaves at 0 until the first write.
  [[maybe_unused]] const int ignored = std::fseek(m_stream.get(), 0, SEEK_END);
}

void CLOGER::rmexpirelog() {
  // With fewer files the count below turns negative, which `head` reads as "all but the last".
  if (CountVisible(paths::kRunLogDir) <= kKeptFiles) return;
  const char* dir = paths::kRunLogDir;
  const std::string command = Format(
      "ls %s | head -n `expr \\`ls %s | wc -l\\` - 60` | awk '{print \"%s\"$0}' | xargs rm  > "
      "/dev/null 2>&1",
      dir, dir, dir);
  if (std::FILE* pipe = popen(command.c_str(), "r")) {
    pclose(pipe);
  } else {
    (*this)(kUnit, kExpiryFailedLine, kConsole, "%s", command.c_str());
  }
}

void CLOGER::CheckRollOver() {
  char today[kDateSize] = {};
  updatedate(today);
  if (std::memcmp(today, m_date, sizeof today) != 0) {
    std::memcpy(m_date, today, sizeof today);
    OpenFile();
  }
  if (m_stream == nullptr || std::ftell(m_stream.get()) <= kMaxFileSize) return;
  m_stream.reset();
  const std::string path = FilePath();
  // If the rename fails, the file goes on growing and the next check tries again.
  [[maybe_unused]] const int ignored = std::rename(path.c_str(), (path + ".bak").c_str());
  OpenFile();
}

int CLOGER::operator()(const char* file, int line, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  {
    MutexLock lock(m_lock);
    // DELIBERATE, coarse: day and size are looked at once every 1000 calls.
    if (++m_counter == kCheckInterval) {
      m_counter = 0;
      CheckRollOver();
    }
    char prefix[256];
    if (m_stream == nullptr || g_debug != 0 || level < 0) {
      if (m_console) {
        std::snprintf(prefix, sizeof prefix, "[%s:%d]<%d>:", file, line, level);
        WriteLine(stdout, prefix + Formatted(format, args) + '\n');
      }
    } else {
      const tm now = LocalTime();
      char time[32];
      std::strftime(time, sizeof time, "%H:%M:%S", &now);
      std::snprintf(prefix, sizeof prefix, "[%s:%d][%s][%s]:", file, line, time, LevelName(level));
      WriteLine(m_stream.get(), prefix + Formatted(format, args) + '\n');
    }
  }
  va_end(args);
  return 0;
}

std::string Format(const char* format, ...) {
  char buffer[10240];
  buffer[0] = '\0';
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer - 1, format, args);
  va_end(args);
  return buffer;
}
