// A server that takes connections and answers nothing, as behind a broken network.
#pragma once

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "testing/mariadb_server.h"

// Freezes the private MariaDB server for the object's life.
class FrozenServer {
 public:
  explicit FrozenServer(const MariadbServer& server) : m_pid(server.Pid()) {
    Send(SIGSTOP);
    // On a busy machine a thread of the server may answer one more question after the signal.
    for (int tries = 0; tries < 1000 && !AllThreadsStand(); ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(AllThreadsStand());
  }
  ~FrozenServer() { Send(SIGCONT); }
  FrozenServer(const FrozenServer&) = delete;
  FrozenServer& operator=(const FrozenServer&) = delete;

 private:
  void Send(int signal) const {
    EXPECT_GT(m_pid, 1);
    EXPECT_EQ(0, kill(m_pid, signal));
  }

  bool AllThreadsStand() const {
    const std::filesystem::directory_iterator threads("/proc/" + std::to_string(m_pid) + "/task");
    return std::all_of(begin(threads), end(threads), [](const auto& thread) {
      std::ifstream status(thread.path() / "stat");
      const std::string text(std::istreambuf_iterator<char>(status), {});
      const size_t nameEnd = text.rfind(") ");
      return nameEnd == std::string::npos || text[nameEnd + 2] == 'T';  // or the thread has ended
    });
  }

  const pid_t m_pid;
};
