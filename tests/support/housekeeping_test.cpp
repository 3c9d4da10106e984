#include "support/housekeeping.h"

#include <thread>

#include "gtest/gtest.h"

namespace {

TEST(Housekeeping, IsDoneByOneThreadAtATime) {
  int done = 0;  // a race, were there two
  const Housekeeping house([&done] { ++done; });
  const auto keep = [] {
    for (int i = 0; i < 100'000; ++i) KeepHouse();
  };
  std::thread other(keep);
  keep();
  other.join();
  EXPECT_EQ(done, 200'000);
}

}  // namespace
