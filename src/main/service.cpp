#include "main/service.h"

#include <fcntl.h>
#include <paths.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "log/zux_center_log.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

constexpr char kUnit[] = "main";
// Fixed: parts of the messages that operators know.
constexpr int kMaskFailedLine = 85;
constexpr int kStartingLine = 103;
constexpr std::string_view kSignalPrefix = "[main:12]<-1>:Recv signal:";
constexpr std::string_view kSignalSuffix = " ... \n";

constexpr char kVersionOption[] = "-v";
constexpr char kForegroundOption[] = "-app";
constexpr char kDebugOption[] = "debug=";

constexpr int kClosedDescriptors = 256;

// Goes on in the child. What is buffered is written first, or both processes would write it.
void ForkAndLeaveParent() {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child != 0) std::exit(child > 0 ? 0 : 1);
}

}  // namespace

void OpenStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free descriptor is this one.
    if (fcntl(fd, F_GETFD) == -1) open(_PATH_DEVNULL, O_RDWR);
  }
}

char* had_param(int argc, char* argv[], const char* option) {
  for (int i = 1; i < argc; ++i) {
    if (argv[i] != nullptr && std::string_view(argv[i]).starts_with(option)) return argv[i];
  }
  return nullptr;
}

int morvan_check_version(int argc, char* argv[], const char* name, const char* history) {
  if (had_param(argc, argv, kVersionOption) == nullptr) return -1;
  std::printf("%s, version %d.%d\n", name, 1, 0);
  std::puts("author: maintainers@midtable.example");
  std::printf("history:\n%s\n\n", history);
  return 0;
}

int morvan_check_deamon(int argc, char* argv[]) {
  if (had_param(argc, argv, kForegroundOption) != nullptr) return 1;
  std::puts("start daemon OK");
  _init_daemon();
  return 0;
}

void _init_daemon() {  // NOLINT(bugprone-reserved-identifier)
  ForkAndLeaveParent();
  setsid();
  ForkAndLeaveParent();
  for (int fd = 0; fd < kClosedDescriptors; ++fd) close(fd);
  // The lowest free descriptor is standard input's.
  open(_PATH_DEVNULL, O_RDWR);
  dup2(STDIN_FILENO, STDOUT_FILENO);
  dup2(STDIN_FILENO, STDERR_FILENO);
  // Every path is absolute; should "/" be out of reach, the old folder serves as well.
  [[maybe_unused]] const int ignored = chdir("/");
  umask(0);
  for (const int sig : {SIGCHLD, SIGSTOP, SIGPIPE, SIGINT, SIGHUP, SIGABRT}) signal(sig, SIG_IGN);
}

bool BlockSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  // DELIBERATE: a SIGTERM stays pending and only SIGINT stops the service.
  sigaddset(&set, SIGTERM);
  if (pthread_sigmask(SIG_BLOCK, &set, nullptr) == 0) return true;
  g_loger(kUnit, kMaskFailedLine, kError, "block sigpipe failed!");
  return false;
}

void IgnoreSignals() {
  for (const int sig : {SIGCHLD, SIGSTOP, SIGPIPE}) signal(sig, SIG_IGN);
}

int morvan_check_debug(int argc, char* argv[]) {
  if (const char* argument = had_param(argc, argv, kDebugOption)) {
    g_debug = std::atoi(argument + std::strlen(kDebugOption));
  }
  return g_debug;
}

void InstallSignalHandler() {
  signal(SIGTERM, signal_handler);
  signal(SIGINT, signal_handler);
}

void signal_handler(int sig) {
  const int saved_errno = errno;
  char line[64];
  char* end = std::copy(kSignalPrefix.begin(), kSignalPrefix.end(), line);
  end = std::to_chars(end, line + sizeof line - kSignalSuffix.size(), sig).ptr;
  end = std::copy(kSignalSuffix.begin(), kSignalSuffix.end(), end);
  [[maybe_unused]] const ssize_t ignored =
      write(STDOUT_FILENO, line, static_cast<std::size_t>(end - line));
  if (sig == SIGINT || sig == SIGTERM) g_nMainRun = 0;
  errno = saved_errno;
}

void StartRunLog() {
  g_loger.Init();
  g_loger(kUnit, kStartingLine, kInfo, "make mid table service is starting");
}

bool IsNoMidTable() { return access(paths::kIndexMarker, F_OK) != -1; }

bool CCheckUnique::check_unique() {
  struct stat status {};
  do {
    Release();
    m_fd = open(paths::kLockFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0755);
    if (m_fd == -1) {
      std::printf("open file %s failed errno %d", paths::kLockFile, errno);
      return false;
    }
    if (lockf(m_fd, F_TLOCK, 0) != 0) {
      Release();
      return false;
    }
    // In between its last holder may have removed the file; a lock on it then means nothing.
  } while (fstat(m_fd, &status) == 0 && status.st_nlink == 0);
  return true;
}

CCheckUnique::~CCheckUnique() {
  if (m_fd == -1) return;
  // First: the file that is there once the lock is free would be another instance's.
  unlink(paths::kLockFile);
  Release();
}

void CCheckUnique::Release() {
  if (m_fd != -1) close(m_fd);
  m_fd = -1;
}
