// Loaded into the service with LD_PRELOAD: numbers its steps and makes one of them fatal.
//
// A step is a call by which the service changes or asks something outside of itself: a statement to
// the server, a ping, a connection, a change of a file in the spool. Only those of the thread that
// delivers count, so that the same data gives the same numbers each time: that is the main thread,
// or with delivery=once the first worker. The main thread starts to deliver when the registry has
// read its sources, for the same reason. Settings, all from the environment:
//
//   CRASH_LOG     file to which each step is appended: its number, its name and its subject,
//                 separated by tabs. "pause" is a pause of the main thread, without a number;
//                 "died" is written once the server is gone.
//   CRASH_STEP    the step to make fatal; none when it is not set
//   CRASH_WHEN    before, or after: the step is done. A statement's answer is then lost, where the
//                 server dies.
//   CRASH_WHAT    service: kills this process. server: kills the process whose number stands in the
//                 file CRASH_SERVER and goes on when it has ended.
//   CRASH_DELIVERY  the value of the setting "delivery": with "once" the main thread pauses in a
//                 wait for what comes into the spool, and has waited for the registry by itself
//   CRASH_BACK    the main thread's next pause after the server's end lasts until this file exists,
//                 so that the service finds the server back; not set: it finds it gone
//
// Pauses are cut to milliseconds.
#include <dlfcn.h>
#include <fcntl.h>
#include <mysql.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kSpool = "/vqlog/log_data/midtable/";
constexpr useconds_t kPollPause = 2'000;
constexpr useconds_t kEnginePause = 5'000;
constexpr useconds_t kWatcherPause = 50'000;
constexpr int kIdle = 500;          // milliseconds of a wait for what comes into the spool
constexpr int kMostPolls = 15'000;  // half a minute

enum class When { kBefore, kAfter };

std::string Setting(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

struct Settings {
  const int log =
      open(Setting("CRASH_LOG").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  const int step = std::atoi(Setting("CRASH_STEP").c_str());
  const When when = Setting("CRASH_WHEN") == "before" ? When::kBefore : When::kAfter;
  const bool kills_server = Setting("CRASH_WHAT") == "server";
  const bool is_once = Setting("CRASH_DELIVERY") == "once";
};

const Settings& TheSettings() {
  static const Settings settings;
  return settings;
}

std::atomic<bool> g_registry_has_read{false};
std::atomic<bool> g_server_died{false};
int g_steps = 0;          // of the thread that delivers
bool g_in_step = false;   // what a step calls is part of it
std::string g_last_copy;  // the file that was written to last

bool IsMainThread() { return gettid() == getpid(); }

// Threads bear their names before they do anything.
bool ThisThreadDelivers() {
  static thread_local const bool is_worker = [] {
    char name[16] = "";
    return prctl(PR_GET_NAME, name) == 0 && std::string_view(name) == "worker 1";
  }();
  return TheSettings().is_once ? is_worker : IsMainThread();
}

// The next definition of the function that `name` of this file stands in front of.
template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename Condition>
void WaitFor(const char* what, Condition is_met) {
  for (int i = 0; i < kMostPolls; ++i, usleep(kPollPause)) {
    if (is_met()) return;
  }
  std::fprintf(stderr, "crash_at_call: waited in vain for %s\n", what);
  _exit(3);
}

void Note(std::string line) {
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  line += '\n';
  static const auto real_write = Real<ssize_t(int, const void*, size_t)>("write");
  if (real_write(TheSettings().log, line.data(), line.size()) < 0) _exit(3);
}

void KillServer() {
  pid_t server = 0;
  std::ifstream(Setting("CRASH_SERVER")) >> server;
  if (server <= 1) _exit(3);
  kill(server, SIGKILL);
  WaitFor("the server's end", [server] { return kill(server, 0) != 0; });
  g_server_died = true;
  Note("died");
}

void Die() {
  if (TheSettings().kills_server) return KillServer();
  kill(getpid(), SIGKILL);
  pause();
}

// Makes the call of `run`, as a step where it is one. `run_and_lose`, which must make the call too,
// stands in for it where the server dies after the call.
template <typename Run, typename RunAndLose>
auto Step(const char* name, std::string_view subject, Run run, RunAndLose run_and_lose) {
  if (!ThisThreadDelivers() || g_in_step) return run();
  const Settings& settings = TheSettings();
  WaitFor("the registry", [&] { return settings.is_once || g_registry_has_read.load(); });
  const bool fatal = ++g_steps == settings.step;
  Note(std::to_string(g_steps) + "\t" + name + "\t" + std::string(subject));
  g_in_step = true;
  if (fatal && settings.when == When::kBefore) Die();
  const bool after = fatal && settings.when == When::kAfter;
  const auto result = after && settings.kills_server ? run_and_lose() : run();
  const int error = errno;
  if (after && !g_server_died) Die();
  g_in_step = false;
  errno = error;
  return result;
}

template <typename Run>
auto Step(const char* name, std::string_view subject, Run run) {
  return Step(name, subject, run, run);
}

bool IsInSpool(std::string_view path) { return path.starts_with(kSpool); }

std::string PathOf(int fd) {
  char path[4096];
  const ssize_t size =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof(path));
  return size < 0 ? std::string() : std::string(path, static_cast<std::size_t>(size));
}

template <typename Run>
int SpoolStep(const char* name, const std::string& path, Run run) {
  return IsInSpool(path) ? Step(name, path, run) : run();
}

// A pause of the main thread, which may end with the server's return.
void Pause() {
  const std::string back = Setting("CRASH_BACK");
  if (g_server_died && !back.empty()) {
    WaitFor("the server's return", [&back] { return access(back.c_str(), F_OK) == 0; });
  }
  Note("pause");
  usleep(kEnginePause);
}

// Sends the statement, lets the server execute it, and kills the server before the answer is read.
int QueryAndLoseAnswer(MYSQL* handle, const char* sql, unsigned long size) {
  const int sent = mysql_send_query(handle, sql, size);
  if (sent != 0) return sent;
  const int fd = static_cast<int>(mysql_get_socket(handle));
  pollfd answer{fd, POLLIN, 0};
  WaitFor("an answer", [&answer] { return poll(&answer, 1, 0) > 0; });
  KillServer();
  char lost[4096];
  while (poll(&answer, 1, -1) > 0 && recv(fd, lost, sizeof(lost), 0) > 0) {
  }
  return mysql_read_query_result(handle) ? 1 : 0;
}

}  // namespace

extern "C" {

MYSQL* mysql_real_connect(MYSQL* handle, const char* host, const char* user, const char* password,
                          const char* database, unsigned int port, const char* socket,
                          unsigned long flags) {
  static const auto real = Real<decltype(mysql_real_connect)>("mysql_real_connect");
  return Step("connect", database,
              [=] { return real(handle, host, user, password, database, port, socket, flags); });
}

int mysql_real_query(MYSQL* handle, const char* sql, unsigned long size) {
  static const auto real = Real<decltype(mysql_real_query)>("mysql_real_query");
  return Step(
      "query", {sql, size}, [=] { return real(handle, sql, size); },
      [=] { return QueryAndLoseAnswer(handle, sql, size); });
}

int mysql_next_result(MYSQL* handle) {
  static const auto real = Real<decltype(mysql_next_result)>("mysql_next_result");
  return Step("next answer", "", [=] { return real(handle); });
}

MYSQL_RES* mysql_list_dbs(MYSQL* handle, const char* pattern) {
  static const auto real = Real<decltype(mysql_list_dbs)>("mysql_list_dbs");
  return Step("list databases", pattern, [=] { return real(handle, pattern); });
}

MYSQL_RES* mysql_list_tables(MYSQL* handle, const char* pattern) {
  static const auto real = Real<decltype(mysql_list_tables)>("mysql_list_tables");
  return Step("list tables", pattern, [=] { return real(handle, pattern); });
}

int mysql_ping(MYSQL* handle) {
  static const auto real = Real<decltype(mysql_ping)>("mysql_ping");
  return Step("ping", "", [=] { return real(handle); });
}

int rename(const char* from, const char* to) noexcept {
  static const auto real = Real<int(const char*, const char*)>("rename");
  return SpoolStep("rename", std::string(from) + "\t" + to, [=] { return real(from, to); });
}

int renameat2(int from_folder, const char* from, int to_folder, const char* to,
              unsigned int flags) noexcept {
  static const auto real = Real<int(int, const char*, int, const char*, unsigned int)>("renameat2");
  return SpoolStep("rename", std::string(from) + "\t" + to,
                   [=] { return real(from_folder, from, to_folder, to, flags); });
}

int link(const char* from, const char* to) noexcept {
  static const auto real = Real<int(const char*, const char*)>("link");
  return SpoolStep("link", std::string(from) + "\t" + to, [=] { return real(from, to); });
}

int unlink(const char* path) noexcept {
  static const auto real = Real<int(const char*)>("unlink");
  return SpoolStep("unlink", path, [=] { return real(path); });
}

int remove(const char* path) noexcept {
  static const auto real = Real<int(const char*)>("remove");
  return SpoolStep("unlink", path, [=] { return real(path); });
}

int fchmod(int fd, mode_t mode) noexcept {
  static const auto real = Real<int(int, mode_t)>("fchmod");
  return SpoolStep("chmod", PathOf(fd), [=] { return real(fd, mode); });
}

// The first record of a copy: the others find it no different.
ssize_t write(int fd, const void* data, size_t size) {
  static const auto real = Real<ssize_t(int, const void*, size_t)>("write");
  const auto run = [=] { return real(fd, data, size); };
  if (!ThisThreadDelivers()) return run();
  const std::string path = PathOf(fd);
  if (!IsInSpool(path) || path == g_last_copy) return run();
  g_last_copy = path;
  return Step("write", path, run);
}

unsigned int sleep(unsigned int /*seconds*/) {
  if (!IsMainThread()) {
    g_registry_has_read = true;
    usleep(kWatcherPause);
    return 0;
  }
  Pause();
  return 0;
}

// A wait for a server is shorter, or has no end.
int poll(pollfd* entries, nfds_t count, int milliseconds) {
  static const auto real = Real<int(pollfd*, nfds_t, int)>("poll");
  const bool is_pause = TheSettings().is_once && IsMainThread() && milliseconds >= kIdle;
  if (!is_pause) return real(entries, count, milliseconds);
  Pause();
  return real(entries, count, 0);
}

}  // extern "C"
