// A thread with a connection of its own, which does one job at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>

#include "config/dbinfo.h"
#include "delivery/common.h"
#include "delivery/connection.h"
#include "delivery/database_work.h"
#include "support/pulse.h"
#include "tables/store.h"

// All operations are for the thread that made the object. A worker that is busy, which is so from
// the start of a job until its end was taken, may be asked nothing else.
class Worker {
 public:
  // What became of a job.
  struct Ended {
    DatabaseWork* work;  // of a visit
    DatabaseWork::Visited visited;
    bool connected;      // there is a new connection
    std::string reason;  // why there is none
  };

  // `number`: from 1 on. `ring` is called by the worker's thread at the end of each job. `common`
  // must outlive the object.
  Worker(int number, const MYSQLAUTH& auth, std::chrono::milliseconds silence, Common& common,
         std::function<void()> ring);
  // Waits for the job at work, which ends within a second once g_nMainRun is 0.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // False when no thread can be had.
  bool Start();

  // Begins a job: a visit, which needs a connection; a new connection; or a look whether the
  // connection is alive.
  void Visit(DatabaseWork& work) { Begin(Job::kVisit, &work); }
  void Connect() {
    m_renews = false;
    Begin(Job::kConnect, nullptr);
  }
  void Ping() { Begin(Job::kPing, nullptr); }
  // The job's end, once it has come.
  std::optional<Ended> TakeEnded();

  bool isBusy() const { return m_job != Job::kNone; }
  bool isConnecting() const { return m_job == Job::kConnect; }
  // When it last gave a sign of life: it does so in every loop in which it waits for the server,
  // with each piece of a file, and at the begin of a job.
  Pulse::Clock::time_point livedAt() const { return m_pulse.last(); }
  int number() const { return m_number; }
  // The database that the connection is in.
  const std::string& database() const { return m_bench.database; }
  // When it began its last job, or made its connection.
  DatabaseWork::Clock::time_point usedAt() const { return m_used_at; }
  // The next connection is to be a new one; also for a worker that is busy.
  void RenewSession() { m_renews = true; }
  // Whether it has none, or is to have a new one.
  bool wantsConnection() const { return !m_connected || m_renews; }

 private:
  enum class Job { kNone, kConnect, kPing, kVisit };

  void Begin(Job job, DatabaseWork* work);
  void Run();
  void Do();
  bool MakeConnection();
  void GiveUpConnection();
  void NameRisks();

  const int m_number;
  MYSQLAUTH m_auth;
  Common& m_common;
  const std::function<void()> m_ring;
  Connection* m_sql;  // that of the store
  Store m_store;
  Workbench m_bench;
  Job m_job = Job::kNone;
  Ended m_ended{};
  bool m_connected = false;
  bool m_renews = false;
  std::string m_session;
  DatabaseWork::Clock::time_point m_used_at;
  Pulse m_pulse;
  std::atomic<bool> m_done{false};
  std::counting_semaphore<2> m_may_go{0};  // a job, and the end
  std::atomic<bool> m_stops{false};
  std::thread m_thread;
};
