// A server that takes connections and answers nothing, as behind a broken network.
#pragma once

#include <signal.h>

#include "gtest/gtest.h"
#include "testing/mariadb_server.h"

// Freezes the private MariaDB server for the object's life.
class FrozenServer {
 public:
  explicit FrozenServer(const MariadbServer& server) : m_pid(server.Pid()) { Send(SIGSTOP); }
  ~FrozenServer() { Send(SIGCONT); }
  FrozenServer(const FrozenServer&) = delete;
  FrozenServer& operator=(const FrozenServer&) = delete;

 private:
  void Send(int signal) const {
    EXPECT_GT(m_pid, 1);
    EXPECT_EQ(0, kill(m_pid, signal));
  }

  const pid_t m_pid;
};
