#include "main/service.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "gtest/gtest.h"
#include "support/run_state.h"
#include "testing/files.h"

// The debug level, 7 before, after a start with these arguments; the first is the program's name.
int DebugLevel(std::vector<const char*> arguments) {
  g_debug = 7;
  // They are only read; main's arguments are not const, though.
  return morvan_check_debug(static_cast<int>(arguments.size()),
                            const_cast<char**>(arguments.data()));
}

TEST(DebugOption, CountsWhereItComesFirst) {
  EXPECT_EQ(DebugLevel({"midtable", "xdebug=3", nullptr, "debug=5x", "debug=8"}), 5);
  EXPECT_EQ(DebugLevel({"midtable", "debug=", "debug=8"}), 0) << "without a number";
  EXPECT_EQ(DebugLevel({"debug=9", "xdebug=3", nullptr}), 7) << "none of these is the option";
}

// A lock belongs to a process, so each contender is one. Whoever holds the lock makes and removes a
// folder, which only one can do at a time.
TEST(Lock, IsHeldByOneOfManyThatComeAndGo) {
  constexpr char kClaim[] = "/tmp/service_test.claim";
  const auto contend = [&] {
    for (int round = 0; round < 3000; ++round) {
      CCheckUnique unique;
      if (!unique.check_unique()) continue;
      const bool alone = mkdir(kClaim, 0755) == 0 && rmdir(kClaim) == 0;
      if (!alone) _exit(1);
    }
    _exit(0);
  };
  std::vector<pid_t> contenders;
  for (int i = 0; i < 8; ++i) {
    const pid_t child = fork();
    if (child == 0) contend();
    contenders.push_back(child);
  }
  for (const pid_t child : contenders) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
}
