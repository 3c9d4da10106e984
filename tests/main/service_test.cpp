#include "main/service.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <vector>

#include "gtest/gtest.h"
#include "support/run_state.h"
#include "testing/files.h"

TEST(Options, DebugLevelIsReadFromTheFirstMatch) {
  char program[] = "debug=9", other[] = "xdebug=3", option[] = "debug=5x", later[] = "debug=8";
  char* argv[] = {program, other, nullptr, option, later};
  g_debug = 7;
  EXPECT_EQ(morvan_check_debug(3, argv), 7) << "unchanged without the option";
  EXPECT_EQ(morvan_check_debug(5, argv), 5);
  option[6] = '\0';
  EXPECT_EQ(morvan_check_debug(5, argv), 0);
}

TEST(Signals, OnlyStopSignalsClearTheRunFlagAndEndASleep) {
  for (const auto& [sig, running] : {std::pair(SIGHUP, 1), {SIGINT, 0}, {SIGTERM, 0}}) {
    g_nMainRun = 1;
    CapturedStdout console;
    signal_handler(sig);
    EXPECT_EQ(console.text(), "[main:12]<-1>:Recv signal:" + std::to_string(sig) + " ... \n");
    EXPECT_EQ(g_nMainRun, running);
  }
  const auto start = std::chrono::steady_clock::now();
  sleep_i(10);  // asked to stop before
  g_nMainRun = 1;
  sleep_i(-5);
  signal(SIGALRM, [](int) { g_nMainRun = 0; });
  alarm(1);
  sleep_i(10);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

// Locks are a process's: each contender is one, and claims a folder that only one can make.
TEST(Lock, IsHeldByOneOfManyThatComeAndGo) {
  constexpr char kClaim[] = "/tmp/service_test.claim";
  const auto contend = [&] {
    for (int round = 0; round < 3000; ++round) {
      CCheckUnique unique;
      if (unique.check_unique() && (mkdir(kClaim, 0755) != 0 || rmdir(kClaim) != 0)) _exit(1);
    }
    _exit(0);
  };
  std::vector<pid_t> contenders(8);
  for (pid_t& pid : contenders) {
    if ((pid = fork()) == 0) contend();
  }
  for (const pid_t pid : contenders) {
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
  }
}
