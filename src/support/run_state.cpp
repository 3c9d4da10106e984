#include "support/run_state.h"

#include <unistd.h>

std::atomic<std::int32_t> g_nMainRun{1};
std::int32_t g_debug = 0;

void sleep_i(int seconds) {
  for (; seconds > 0 && g_nMainRun != 0; --seconds) sleep(1);
}
