#include "main/service.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/run_state.h"
#include "testing/files.h"

// The option as had_param finds it, or "none". "midtable" itself is never an option.
std::string Find(std::vector<std::string> arguments, const char* option) {
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);  // is skipped
  const char* found = had_param(static_cast<int>(argv.size()), argv.data(), option);
  return found == nullptr ? "none" : found;
}

TEST(Options, AreFoundByPrefixInAnyPlace) {
  EXPECT_EQ(Find({"-v"}, "-v"), "none");
  EXPECT_EQ(Find({"midtable", "x", "-verbose", "-v"}, "-v"), "-verbose");
  EXPECT_EQ(Find({"midtable", "-ap", "", "app"}, "-app"), "none");
}

TEST(Options, DebugLevelIsReadFromTheFirstMatch) {
  for (const auto& [first, level] : {std::pair("xdebug=3", 8), {"debug=", 0}, {"debug=5x", 5}}) {
    g_debug = 7;
    std::string arguments[] = {"midtable", first, "debug=8"};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data()};
    EXPECT_EQ(morvan_check_debug(3, argv), level) << first;
    EXPECT_EQ(morvan_check_debug(1, argv), level) << "unchanged without the option";
  }
  g_debug = 0;
}

TEST(Signals, OnlyStopSignalsClearTheRunFlagAndEndASleep) {
  for (const auto& [sig, running] : {std::pair(SIGHUP, 1), {SIGINT, 0}, {SIGTERM, 0}}) {
    g_nMainRun = 1;
    CapturedStdout console;
    signal_handler(sig);
    EXPECT_EQ(console.text(), "[main:12]<-1>:Recv signal:" + std::to_string(sig) + " ... \n");
    EXPECT_EQ(g_nMainRun, running);
  }
  const int out = dup(STDOUT_FILENO);
  close(STDOUT_FILENO);
  errno = ENOENT;
  signal_handler(SIGHUP);  // cannot print
  EXPECT_EQ(errno, ENOENT);
  dup2(out, STDOUT_FILENO);
  const auto start = std::chrono::steady_clock::now();
  sleep_i(10);  // asked to stop before
  g_nMainRun = 1;
  sleep_i(-5);
  signal(SIGALRM, [](int) { g_nMainRun = 0; });
  alarm(1);
  sleep_i(10);
  g_nMainRun = 1;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}
