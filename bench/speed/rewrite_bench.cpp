// The rewriting of a mem file, the loop that bounds it, and the data for both:
//
//   rewrite_bench make RECORDS BLOCKS FOLDER   writes mem.dat and blocks.csv
//   rewrite_bench ours FOLDER OUT              rewrites mem.dat as the service does
//   rewrite_bench bare FOLDER OUT              reads each line and writes it, nothing more
//
// The last two print their peak memory in KiB to standard error.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include "bare_loop.h"
#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "support/file.h"

namespace {

constexpr unsigned int kAllBlocks = 400'000;  // five digits behind each of four prefixes
constexpr unsigned int kPrefixes[] = {13, 14, 15, 18};

int Usage() {
  std::fputs("usage: rewrite_bench make RECORDS BLOCKS FOLDER | ours|bare FOLDER OUT\n", stderr);
  return 2;
}

int Make(unsigned int records, unsigned int blocks, const std::string& folder) {
  std::mt19937 random(20130128);
  const File csv(std::fopen((folder + "/blocks.csv").c_str(), "w"));
  const File mem(std::fopen((folder + "/mem.dat").c_str(), "w"));
  if (csv == nullptr || mem == nullptr) return 1;
  // Every block with the same chance, in ascending order, exactly `blocks` of them.
  for (unsigned int i = 0, left = blocks; i < kAllBlocks; ++i) {
    if (random() % (kAllBlocks - i) >= left) continue;
    --left;
    std::fprintf(csv.get(), "%u%05u,city %u,operator\n", kPrefixes[i / 100'000], i % 100'000,
                 i % 300);
  }
  for (unsigned int i = 0; i < records; ++i) {
    const auto number = [&](unsigned int limit) {
      return static_cast<unsigned int>(random()) % limit;
    };
    const unsigned int code = number(20) == 0 ? 0 : number(4) << 30 | number(1'000'000'000);
    // One in a thousand is damaged: an empty field.
    std::fprintf(
        mem.get(),
        "%u\t%u\t%012x\t10.%u.%u.%u\t192.168.%u.%u\t%s\t%u\t%u\t2013-01-28 %02u:%02u:%02u\t%u\t"
        "AP-%04u\n",
        i, code, number(1U << 31), number(256), number(256), number(256), number(256), number(256),
        number(1000) == 0 ? "" : "http", number(9'000'000), number(900'000), number(24), number(60),
        number(60), number(3600), number(5000));
  }
  return std::fflush(csv.get()) == 0 && std::fflush(mem.get()) == 0 ? 0 : 1;
}

int Ours(const std::string& folder, const std::string& out) {
  TourLocalUser registry;
  if (registry.LoadConfig(folder + "/blocks.csv") != 1) return 1;
  registry.ParseMemfile(folder + "/mem.dat", out);
  return access(out.c_str(), F_OK) == 0 ? 0 : 1;
}

int Bare(const std::string& folder, const std::string& out) {
  return CopyLines(folder + "/mem.dat", out) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc > 1 ? argv[1] : "";
  if (what == "make" && argc == 5) {
    return Make(static_cast<unsigned int>(std::atoi(argv[2])),
                static_cast<unsigned int>(std::atoi(argv[3])), argv[4]);
  }
  if (argc != 4 || (what != "ours" && what != "bare")) return Usage();
  const int status = what == "ours" ? Ours(argv[2], argv[3]) : Bare(argv[2], argv[3]);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::fprintf(stderr, "%ld\n", usage.ru_maxrss);
  return status;
}
