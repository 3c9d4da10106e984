// The watcher does the service's housekeeping: the engine's thread may be busy with one load for an
// hour.
#include <chrono>
#include <future>

#include "gtest/gtest.h"
#include "localuser/tourlocaluser.h"
#include "support/housekeeping.h"
#include "support/run_state.h"
#include "testing/files.h"

namespace {

TEST(Watcher, KeepsHouse) {
  const CapturedStdout quiet;
  std::promise<void> done;
  bool first = true;
  const Housekeeping house([&] {
    if (std::exchange(first, false)) done.set_value();
  });
  TourLocalUser registry([](const MYSQLAUTH&) { return nullptr; });
  registry.init();
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  g_nMainRun = 0;
  registry.WaitExit();
}

}  // namespace
