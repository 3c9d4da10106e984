#include "support/require.h"

#include <cstdio>
#include <cstdlib>

void Require(bool holds, const char* unit, int line, const char* condition) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: requirement %s failed\n", unit, line, condition);
  std::abort();
}
