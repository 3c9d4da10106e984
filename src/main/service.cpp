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
#include <string>
#include <string_view>
#include <utility>

#include "config/dbinfo.h"
#include "log/zux_center_log.h"
#include "support/names.h"
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
constexpr mode_t kLockMode = 0644;

// Goes on in the child. What is buffered is written first, or both processes would write it.
void ForkAndLeaveParent() {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child != 0) std::exit(child > 0 ? 0 : 1);
}

std::string WhyRefused(int error) {
  const std::string obstacle = ObstacleAt(paths::kLockFile);
  return obstacle.empty() ? Format("cannot be opened: %s", std::strerror(error)) : obstacle;
}

// False, for the caller to return.
bool RefuseSettings(const std::string& fault) {
  std::printf("%s: %s\n", paths::kSettingsFile, fault.c_str());
  g_loger.Init();
  g_loger(kUnit, __LINE__, kError, "%s: %s", paths::kSettingsFile, Printable(fault).c_str());
  return false;
}

// Standard output has the message that operators know, standard error the reason, and in a daemon,
// where nobody sees either, the run log.
void PrintRefusal(int error) {
  std::printf("open file %s failed errno %d", paths::kLockFile, error);
  const std::string reason = WhyRefused(error);
  std::fprintf(stderr, "midtable: lock file %s %s\n", paths::kLockFile, reason.c_str());
  if (!IsNullDevice(STDOUT_FILENO)) return;
  g_loger.Init();
  g_loger(kUnit, __LINE__, kError, "lock file %s %s", paths::kLockFile, reason.c_str());
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

bool CheckDelivery() {
  const std::string& delivery = ProcessPolicy().getDelivery();
  if (delivery.empty()) return true;
  const bool on_oracle = IsOracle(*ProcessPolicy().getDBPolicy());
  if (delivery == kDeliveryOnce && !on_oracle) return true;
  return RefuseSettings(on_oracle ? "delivery=" + delivery + " is not for Oracle, remove the key"
                                  : "delivery=" + delivery +
                                        " is not known, write delivery=once or remove the key");
}

bool CheckWorkers() {
  const std::string& workers = ProcessPolicy().getWorkers();
  if (NumberOfWorkers(workers) > 0) return true;
  return RefuseSettings("workers=" + workers + " is no number from 1 to " +
                        std::to_string(kMostWorkers) + ", correct it or remove the key");
}

void StartRunLog() {
  g_loger.Init();
  g_loger(kUnit, kStartingLine, kInfo, "make mid table service is starting");
  const CDBPolicy& policy = ProcessPolicy();
  if (!policy.getWorkers().empty() && policy.getDelivery() != kDeliveryOnce) {
    g_loger(kUnit, __LINE__, kAlarm, "workers=%s has no effect without delivery=once",
            policy.getWorkers().c_str());
  }
}

bool IsNoMidTable() { return access(paths::kIndexMarker, F_OK) != -1; }

CCheckUnique::Taken CCheckUnique::Take(FileDescriptor& lock) {
  do {
    struct stat status {};
    lock = CreateRegular(paths::kLockFile, O_WRONLY, kLockMode);
    if (!lock || fstat(lock.get(), &status) != 0) return Taken::kRefused;
    // Its owner could put another file in its place at any time, which would be nobody's lock.
    if (status.st_uid != geteuid()) {
      errno = EACCES;
      return Taken::kRefused;
    }
    if (lockf(lock.get(), F_TLOCK, 0) != 0) return Taken::kHeldByAnother;
    // In between its last holder may have removed the file; a lock on it then means nothing.
  } while (!StillNames(paths::kLockFile, lock.get()));
  return Taken::kYes;
}

bool CCheckUnique::check_unique() {
  FileDescriptor lock;
  const Taken taken = Take(lock);
  if (taken == Taken::kYes) m_lock = std::move(lock);
  if (taken == Taken::kRefused) PrintRefusal(errno);
  return taken == Taken::kYes;
}

void CCheckUnique::Renew() {
  if (!m_lock) return;
  if (StillNames(paths::kLockFile, m_lock.get())) {
    m_told = false;
    return;
  }
  FileDescriptor lock;
  const Taken taken = Take(lock);
  if (taken != Taken::kYes) {
    const std::string reason =
        taken == Taken::kRefused ? WhyRefused(errno) : "is held by another instance";
    if (std::exchange(m_told, true)) return;
    g_loger(kUnit, __LINE__, kError, "lock file %s was removed and cannot be put back, it %s",
            paths::kLockFile, reason.c_str());
    return;
  }
  // The old lock goes once the new one is there. Who opened the old file before and locks it now
  // sees that its name leads elsewhere.
  m_lock = std::move(lock);
  // Had the file been away for a moment only, both would be one, and closing the old unlocked it.
  [[maybe_unused]] const int ignored = lockf(m_lock.get(), F_TLOCK, 0);
  g_loger(kUnit, __LINE__, kAlarm, "lock file %s was removed and is put back", paths::kLockFile);
}

CCheckUnique::~CCheckUnique() {
  // First: the file that is there once the lock is free would be another instance's.
  if (m_lock && StillNames(paths::kLockFile, m_lock.get())) unlink(paths::kLockFile);
}
