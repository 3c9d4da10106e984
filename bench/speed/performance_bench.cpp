// What bench/speed/performance.sh cannot do in a shell without disturbing what it measures:
//
//   performance_bench make FOLDER FILES ROWS ID...
//       mem files of ROWS rows, kinds F and A in turns, FILES in each of FOLDER/ID
//   performance_bench service PORT COUNT PROGRAM
//       runs the service until it emptied a mem table COUNT times; prints the seconds, the
//       service's processor time in milliseconds and its peak resident memory in KiB
//   performance_bench idle SECONDS PROGRAM
//       runs the service, which has nothing to load; prints the seconds, its processor time in
//       milliseconds after its first eight seconds, and its peak resident memory in KiB
//   performance_bench arrive PORT SOURCE SPOOL PROGRAM
//       runs the service and moves the files of SOURCE/ID into SPOOL/ID one by one, each when the
//       one before is counted: named .mid, and its mem table emptied. Prints the median time of a
//       file in milliseconds, and the service's processor time a file
//   performance_bench replay PORT FILE
//       sends the statements of FILE, one a line, over one connection; before a file of kind F is
//       loaded its lines are copied one by one. Prints the seconds, those of the copying, those of
//       the loading, and its own processor time in milliseconds
#include <fcntl.h>
#include <mysql.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bare_loop.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

[[noreturn]] void Die(const std::string& text) {
  std::fprintf(stderr, "performance_bench: %s\n", text.c_str());
  std::exit(1);
}

// --- mem files

constexpr std::time_t kNewest = 1356998400 + 2 * 86400 - 600;  // 2013-01-02 23:50, UTC
constexpr std::time_t kStep = 600;  // so that all files of a day and kind share a mem table

class Rows {
 public:
  // `day` is YYYY-MM-DD. Ids are unique in the file alone: its mem table is empty before.
  std::string Of(char kind, int rows, const std::string& day) {
    std::string text;
    for (int i = 1; i <= rows; ++i) {
      char line[256];
      const unsigned int code = Any(20) == 0 ? 0 : Any(4) << 30 | Any(1'000'000'000);
      const int size =
          kind == 'F'
              ? std::snprintf(line, sizeof line,
                              "%d\t%u\t%s %02u:%02u:%02u\t%u\t10.%u.%u.%u\t02:00:00:%02x:%02x:%02x"
                              "\tap-%03u\tguest\t%s\t%u\t%u\n",
                              i, code, day.c_str(), Any(24), Any(60), Any(60), 1 + Any(3600),
                              Any(256), Any(256), Any(256), Any(256), Any(256), Any(256), Any(120),
                              kServices[Any(6)], Any(5'000'000), Any(90'000'000))
              : std::snprintf(line, sizeof line, "%d\t%u\t%s %02u:%02u:%02u\tap-%03u\tstaff\t%u\n",
                              i, code, day.c_str(), Any(24), Any(60), Any(60), Any(120), Any(4));
      text.append(line, static_cast<std::size_t>(size));
    }
    return text;
  }

 private:
  static constexpr const char* kServices[] = {"web", "mail", "video", "voice", "game", "other"};
  unsigned int Any(unsigned int below) { return static_cast<unsigned int>(m_random()) % below; }

  std::mt19937 m_random{20130128};
};

void Make(const std::string& folder, int files, int rows, const std::string& id) {
  Rows random;
  std::filesystem::create_directories(folder + "/" + id);
  std::string texts[2];
  std::string last_day;
  for (int i = 0; i < files; ++i) {
    const std::time_t time = kNewest - i / 2 * kStep;
    char day[16], date[16], minute[16];
    std::strftime(day, sizeof day, "%Y-%m-%d", std::gmtime(&time));
    std::strftime(date, sizeof date, "%Y%m%d", std::gmtime(&time));
    std::strftime(minute, sizeof minute, "%H%M", std::gmtime(&time));
    if (last_day != day) {
      for (const int kind : {0, 1}) texts[kind] = random.Of("AF"[kind], rows, day);
      last_day = day;
    }
    const std::string name = folder + "/" + id + "/" + id + "-MEM_" + date + "_" + minute +
                             "AF"[i % 2] + "-" + date + "-" + minute + "00.dat";
    if (!(std::ofstream(name) << texts[i % 2] << std::flush)) Die("cannot write " + name);
  }
}

// --- the server

class Connection {
 public:
  explicit Connection(int port) {
    if (mysql_init(&m_handle) == nullptr ||
        mysql_real_connect(&m_handle, "127.0.0.1", "midtable", "secret", nullptr,
                           static_cast<unsigned int>(port), nullptr, 0) == nullptr) {
      Die(mysql_error(&m_handle));
    }
  }
  ~Connection() { mysql_close(&m_handle); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The second column of the last row, 0 without rows.
  long Send(const std::string& statement) {
    if (mysql_real_query(&m_handle, statement.data(), statement.size()) != 0) {
      Die(statement + ": " + mysql_error(&m_handle));
    }
    long value = 0;
    if (MYSQL_RES* const result = mysql_store_result(&m_handle)) {
      const bool has_two = mysql_num_fields(result) > 1;
      while (MYSQL_ROW row = mysql_fetch_row(result)) {
        if (has_two && row[1] != nullptr) value = std::atol(row[1]);
      }
      mysql_free_result(result);
    }
    return value;
  }

 private:
  MYSQL m_handle{};
};

void Replay(int port, const std::string& path) {
  std::vector<std::string> statements;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) statements.push_back(line);
  if (statements.empty()) Die("no statements in " + path);
  double copying = 0, loading = 0;
  const auto begin = Clock::now();
  Connection server(port);
  for (const std::string& statement : statements) {
    const bool loads = statement.starts_with("load data infile \"");
    const auto before = Clock::now();
    if (loads && statement.ends_with('F')) {
      const std::size_t open = statement.find('"') + 1;
      const std::string file = statement.substr(open, statement.find('"', open) - open);
      if (!CopyLines(file, file + ".copy")) Die("cannot copy " + file);
      copying += Since(before);
    }
    const auto after = Clock::now();
    server.Send(statement);
    if (loads) loading += Since(after);
  }
  const double seconds = Since(begin);
  const double processor = static_cast<double>(std::clock()) * 1000 / CLOCKS_PER_SEC;
  std::printf("%.4f %.4f %.4f %.0f\n", seconds, copying, loading, processor);
}

// --- the service

class Service {
 public:
  explicit Service(const char* program) : m_pid(fork()) {
    if (m_pid > 0) return;
    // As a daemon it has no output either.
    const int null = open("/dev/null", O_RDWR);
    if (m_pid == -1 || dup2(null, STDOUT_FILENO) == -1) Die("cannot start the service");
    execl(program, program, "-app", nullptr);
    Die("cannot run the service");
  }
  // Stops it and waits for its end.
  ~Service() {
    kill(m_pid, SIGINT);
    waitpid(m_pid, nullptr, 0);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Of the service alone, in milliseconds: user and system.
  double ProcessorTime() const {
    std::ifstream stat("/proc/" + std::to_string(m_pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t name_end = text.rfind(')');
    long user = 0, system = 0;
    if (name_end == std::string::npos ||
        std::sscanf(text.c_str() + name_end,
                    ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system) != 2) {
      Die("the service has ended: see its run log");
    }
    return static_cast<double>(user + system) * 1000 / static_cast<double>(sysconf(_SC_CLK_TCK));
  }

  long PeakKib() const {
    std::ifstream status("/proc/" + std::to_string(m_pid) + "/status");
    for (std::string key; status >> key;) {
      long kib = 0;
      if (key == "VmHWM:" && status >> kib) return kib;
    }
    return -1;
  }

  void CheckAlive() const {
    if (waitpid(m_pid, nullptr, WNOHANG) != 0) Die("the service has ended: see its run log");
  }

 private:
  const pid_t m_pid;
};

void RunService(int port, long count, const char* program) {
  Connection server(port);
  server.Send("set sql_log_off = 1");
  const auto emptied = [&] { return server.Send("show global status like 'Com_truncate'"); };
  const long goal = emptied() + count;
  const auto begin = Clock::now();
  const Service service(program);
  // Each question costs the server as much as a small statement: few are asked before the end.
  constexpr long kNearTheEnd = 20;
  for (long done = emptied(); done < goal; done = emptied()) {
    usleep(goal - done > kNearTheEnd ? 50'000 : 2'000);
    service.CheckAlive();
  }
  const double seconds = Since(begin);
  std::printf("%.4f %.0f %ld\n", seconds, service.ProcessorTime(), service.PeakKib());
}

void RunArrivals(int port, const std::string& source, const std::string& spool,
                 const char* program) {
  namespace fs = std::filesystem;
  constexpr std::size_t kWarmUp = 20;  // files that make tables, among others
  Connection server(port);
  server.Send("set sql_log_off = 1");
  const auto emptied = [&] { return server.Send("show global status like 'Com_truncate'"); };
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(source)) {
    if (entry.is_regular_file()) files.push_back(fs::relative(entry.path(), source));
  }
  std::sort(files.begin(), files.end());
  if (files.size() <= kWarmUp) Die("too few files in " + source);
  const Service service(program);
  sleep(2);
  std::vector<double> times;
  double processor = 0;
  for (const fs::path& file : files) {
    if (times.size() == kWarmUp) processor = service.ProcessorTime();
    const long before = emptied();
    const auto begin = Clock::now();
    fs::rename(source / file, spool / file);
    const fs::path done = (spool / file).replace_extension(".mid");
    while (!fs::exists(done)) usleep(100);
    while (emptied() == before) usleep(100);
    times.push_back(Since(begin));
    service.CheckAlive();
  }
  processor = service.ProcessorTime() - processor;
  times.erase(times.begin(), times.begin() + kWarmUp);
  std::sort(times.begin(), times.end());
  std::printf("%.3f %.3f\n", times[times.size() / 2] * 1000,
              processor / static_cast<double>(times.size()));
}

void RunIdle(unsigned int seconds, const char* program) {
  const Service service(program);
  sleep(8);
  const double before = service.ProcessorTime();
  const auto begin = Clock::now();
  sleep(seconds);
  std::printf("%.2f %.0f %ld\n", Since(begin), service.ProcessorTime() - before, service.PeakKib());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc > 1 ? argv[1] : "";
  if (what == "make" && argc > 5) {
    for (int i = 5; i < argc; ++i) Make(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), argv[i]);
  } else if (what == "service" && argc == 5) {
    RunService(std::atoi(argv[2]), std::atol(argv[3]), argv[4]);
  } else if (what == "arrive" && argc == 6) {
    RunArrivals(std::atoi(argv[2]), argv[3], argv[4], argv[5]);
  } else if (what == "idle" && argc == 4) {
    RunIdle(static_cast<unsigned int>(std::atoi(argv[2])), argv[3]);
  } else if (what == "replay" && argc == 4) {
    Replay(std::atoi(argv[2]), argv[3]);
  } else {
    Die("usage: make FOLDER FILES ROWS ID... | service PORT COUNT PROGRAM | idle SECONDS PROGRAM | "
        "arrive PORT SOURCE SPOOL PROGRAM | replay PORT FILE");
  }
  return 0;
}
