// Loads a CSV file of ROWS rows as the registry does, row by row.
//
//   csv_bench time FILE ROWS    the mean time of a load in milliseconds
//   csv_bench peak FILE ROWS    loads it once; the peak memory in KiB
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "benchmark/benchmark.h"
#include "config/CSVParser.h"

namespace {

// False when the file does not have that many rows, each with a block of seven digits.
bool Load(const std::string& path, std::size_t rows) {
  CSVParser parser;
  if (!parser.init(path)) return false;
  std::size_t count = 0;
  std::size_t size = 0;
  while (parser.has_more_rows() && parser.get_next_row() >= 1) {
    if (parser.get_column_size() < 1) return false;
    ++count;
    size += parser.get_column_by_id(0).size();
  }
  return count == rows && size >= 7 * rows;
}

// Leaves the mean time alone on standard output.
class MeanReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) std::printf("%f\n", run.GetAdjustedRealTime());
  }
};

int Time(const std::string& path, std::size_t rows) {
  bool failed = false;
  benchmark::RegisterBenchmark("load",
                               [&](benchmark::State& state) {
                                 for (auto _ : state) {
                                   if (Load(path, rows)) continue;
                                   failed = true;
                                   state.SkipWithError("not the rows that were written");
                                 }
                               })
      ->Unit(benchmark::kMillisecond)
      ->Iterations(5);
  MeanReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return failed ? 1 : 0;
}

int Peak(const std::string& path, std::size_t rows) {
  if (!Load(path, rows)) return 1;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%ld\n", usage.ru_maxrss);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 4 ? argv[1] : "";
  if (what == "time") return Time(argv[2], std::strtoul(argv[3], nullptr, 10));
  if (what == "peak") return Peak(argv[2], std::strtoul(argv[3], nullptr, 10));
  std::fputs("usage: csv_bench time|peak FILE ROWS\n", stderr);
  return 2;
}
