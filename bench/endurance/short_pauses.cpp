// Loaded into the service with LD_PRELOAD: does nothing but shorten its pauses to a thousandth, as
// long as the file /tmp/real_pauses does not exist.
#include <unistd.h>

extern "C" unsigned int sleep(unsigned int seconds) {
  const bool real = access("/tmp/real_pauses", F_OK) == 0;
  return static_cast<unsigned int>(usleep(seconds * (real ? 1'000'000 : 1'000)));
}
