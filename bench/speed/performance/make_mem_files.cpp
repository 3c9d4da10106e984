// Makes mem files and tells what their mid tables must hold:
//
//   make_mem_files FOLDER KINDS FILES ROWS FIRST_ID ID...
//
// FILES files in each of FOLDER/ID, of the kinds of KINDS ("F", "A" or "FA") in turns, ten minutes
// apart from 2013-01-02 23:50 UTC backwards, of ROWS rows each. Record ids begin at FIRST_ID and
// are unique over all files, so that no key drops a row. The user codes go with the number blocks
// that every 200th five digits of each prefix are local to.
//
// Prints the sums of each device, kind and day, separated by spaces:
//
//   ID F YYYYMMDD rows seconds up_bytes down_bytes local_rows rows_without_user
//   ID A YYYYMMDD rows failures
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <map>
#include <random>
#include <sstream>
#include <string>

namespace {

constexpr std::time_t kNewest = 1357170600;  // 2013-01-02 23:50, UTC
constexpr std::time_t kStep = 600;  // so that all files of a day and kind share a mem table

using Sums = std::array<std::uint64_t, 6>;

[[noreturn]] void Die(const std::string& text) {
  std::fprintf(stderr, "make_mem_files: %s\n", text.c_str());
  std::exit(1);
}

std::string TimeText(std::time_t time, const char* format) {
  std::ostringstream text;
  text << std::put_time(std::gmtime(&time), format);
  return text.str();
}

class Maker {
 public:
  Maker(int rows, std::uint64_t first_id) : m_rows(rows), m_id(first_id) {}

  void MakeFile(const std::string& folder, const std::string& id, char kind, std::time_t time) {
    const std::string date = TimeText(time, "%Y%m%d");
    const std::string minute = TimeText(time, "%H%M");
    const std::string day = TimeText(time, "%Y-%m-%d");
    Sums& sums = m_sums[id + " " + kind + " " + date];
    const std::string name = folder + "/" + id + "/" + id + "-MEM_" + date + "_" + minute + kind +
                             "-" + date + "-" + minute + "00.dat";
    std::ofstream out(name, std::ios::binary);
    for (int i = 0; i < m_rows; ++i) {
      char line[256];
      const int size = kind == 'F' ? Flow(line, day, sums) : Login(line, day, sums);
      out.write(line, size);
    }
    if (!out.flush()) Die("cannot write " + name);
  }

  void PrintSums() const {
    for (const auto& [what, sums] : m_sums) {
      std::printf("%s", what.c_str());
      const std::size_t count = what.find(" F ") != std::string::npos ? 6 : 2;
      for (std::size_t i = 0; i < count; ++i) {
        std::printf(" %llu", static_cast<unsigned long long>(sums[i]));
      }
      std::printf("\n");
    }
  }

 private:
  unsigned int Any(unsigned int below) { return static_cast<unsigned int>(m_random()) % below; }

  // Every 20th row is of nobody. Else the upper two bits choose the prefix of the number.
  unsigned int UserCode() { return Any(20) == 0 ? 0 : Any(4) << 30 | Any(1'000'000'000); }

  int Flow(char (&line)[256], const std::string& day, Sums& sums) {
    static constexpr const char* kServices[] = {"web", "mail", "video", "voice", "game", "other"};
    const unsigned int code = UserCode();
    const unsigned int seconds = 1 + Any(3600);
    const unsigned int up = Any(5'000'000);
    const unsigned int down = Any(90'000'000);
    const bool is_local = code != 0 && (code & 0x3fffffff) / 10'000 % 200 == 0;
    const std::uint64_t more[] = {1, seconds, up, down, is_local, code == 0};
    for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += more[i];
    return std::snprintf(line, sizeof line,
                         "%llu\t%u\t%s %02u:%02u:%02u\t%u\t10.%u.%u.%u\t02:00:00:%02x:%02x:%02x"
                         "\tap-%03u\tguest\t%s\t%u\t%u\n",
                         static_cast<unsigned long long>(m_id++), code, day.c_str(), Any(24),
                         Any(60), Any(60), seconds, Any(256), Any(256), Any(256), Any(256),
                         Any(256), Any(256), Any(120), kServices[Any(6)], up, down);
  }

  int Login(char (&line)[256], const std::string& day, Sums& sums) {
    const unsigned int result = Any(4);
    ++sums[0];
    sums[1] += result != 0;
    return std::snprintf(line, sizeof line, "%llu\t%u\t%s %02u:%02u:%02u\tap-%03u\tstaff\t%u\n",
                         static_cast<unsigned long long>(m_id++), UserCode(), day.c_str(), Any(24),
                         Any(60), Any(60), Any(120), result);
  }

  const int m_rows;
  std::uint64_t m_id;
  std::mt19937 m_random{20130128};
  std::map<std::string, Sums> m_sums;  // by device, kind and date
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 7) Die("usage: make_mem_files FOLDER KINDS FILES ROWS FIRST_ID ID...");
  const std::string folder = argv[1];
  const std::string kinds = argv[2];
  const int files = std::atoi(argv[3]);
  Maker maker(std::atoi(argv[4]), std::strtoull(argv[5], nullptr, 10));
  for (int i = 6; i < argc; ++i) {
    std::filesystem::create_directories(folder + "/" + argv[i]);
    for (int file = 0; file < files; ++file) {
      const std::size_t turn = static_cast<std::size_t>(file) % kinds.size();
      const std::time_t time = kNewest - file / static_cast<int>(kinds.size()) * kStep;
      maker.MakeFile(folder, argv[i], kinds[turn], time);
    }
  }
  maker.PrintSums();
  return 0;
}
