// Idle passes without their pauses: does the service's memory stay small, and does it stay put?
//
//   idle_bench [PASSES]      (10,000 unless said; the settings file names the server)
//
// Prints the resident memory on the way; exit status 1 when it passes 16 MiB or grows by more than
// half a MiB after the first tenth.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "support/run_state.h"

namespace {

constexpr long kMostResidentKib = 16 * 1024;
constexpr long kMostGrowthKib = 512;

const std::thread::id kEngineThread = std::this_thread::get_id();
int g_passes = 10'000;
int g_done = 0;
long g_settled = 0;
long g_resident = 0;

long ResidentKib() {
  std::ifstream status("/proc/self/status");
  for (std::string key; status >> key;) {
    long kib = 0;
    if (key == "VmRSS:" && status >> kib) return kib;
  }
  return -1;
}

void CountPass() {
  ++g_done;
  if (g_done % (g_passes / 10) == 0) {
    g_resident = ResidentKib();
    if (g_settled == 0) g_settled = g_resident;
    std::fprintf(stderr, "%6d idle passes: %ld KiB resident\n", g_done, g_resident);
  }
  if (g_done >= g_passes) g_nMainRun = 0;
}

}  // namespace

// Takes the C library's place in this program: the engine sleeps once a pass, and here it counts
// instead. The watcher's pauses shrink to a thousandth.
extern "C" unsigned int sleep(unsigned int seconds) {
  if (std::this_thread::get_id() == kEngineThread) {
    CountPass();
  } else {
    usleep(seconds * 1000);
  }
  return 0;
}

int main(int argc, char* argv[]) {
  if (argc > 1) g_passes = std::atoi(argv[1]);
  if (g_passes < 10 || std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  g_loger.Init();
  CMidTable().Run();
  if (g_done < g_passes) {
    std::fprintf(stderr, "the engine ended after %d passes: see the run log\n", g_done);
    return 1;
  }
  const bool small = g_resident <= kMostResidentKib;
  const bool steady = g_resident - g_settled <= kMostGrowthKib;
  std::fprintf(stderr, "resident memory is %s 16 MiB and %s\n", small ? "below" : "ABOVE",
               steady ? "does not grow" : "GROWS");
  return small && steady ? 0 : 1;
}
