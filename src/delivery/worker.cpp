#include "delivery/worker.h"

#include <pthread.h>

#include <system_error>
#include <utility>
#include <vector>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"

using Visited = DatabaseWork::Visited;

Worker::Worker(int number, const MYSQLAUTH& auth, std::chrono::milliseconds silence, Common& common,
               std::function<void()> ring)
    : m_number(number),
      m_auth(auth),
      m_common(common),
      m_ring(std::move(ring)),
      m_sql(new Connection(&m_auth, silence, number)),
      m_store(std::unique_ptr<CSqlBase>(m_sql), m_auth),
      m_bench{*m_sql, m_store, {}, {}} {}

Worker::~Worker() {
  if (!m_thread.joinable()) return;
  m_stops = true;
  m_may_go.release();
  m_thread.join();
}

bool Worker::Start() {
  try {
    m_thread = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    g_loger(kUnit, __LINE__, kError, "worker %d has no thread", m_number);
  }
  return m_thread.joinable();
}

void Worker::Begin(Job job, DatabaseWork* work) {
  m_job = job;
  m_ended = {work, Visited::kYes, false, {}};
  m_used_at = DatabaseWork::Clock::now();
  m_pulse.Touch();
  m_may_go.release();
}

std::optional<Worker::Ended> Worker::TakeEnded() {
  if (!isBusy() || !m_done.exchange(false)) return std::nullopt;
  m_job = Job::kNone;
  return std::move(m_ended);
}

// --- the worker's thread. What it shares with the other one passes over the semaphore and m_done.

// A job that was begun is done even when the end was asked for meanwhile: it ends at once then, and
// whoever waits for it is told.
void Worker::Run() {
  pthread_setname_np(pthread_self(), ("worker " + std::to_string(m_number)).c_str());
  m_pulse.Bind();
  for (;;) {
    m_may_go.acquire();
    if (m_stops) return;
    Do();
    m_done = true;
    m_ring();
  }
}

void Worker::Do() {
  switch (m_job) {
    case Job::kConnect:
      m_ended.connected = MakeConnection();
      if (!m_ended.connected) m_ended.reason = m_sql->Reason();
      break;
    case Job::kPing:
      if (!m_store.IsAlive()) GiveUpConnection();
      break;
    case Job::kVisit:
      m_ended.visited = m_ended.work->Visit(m_bench);
      if (m_ended.visited == Visited::kBroken) GiveUpConnection();
      break;
    case Job::kNone:
      break;
  }
}

bool Worker::MakeConnection() {
  if (m_connected) GiveUpConnection();
  m_connected = m_store.Reconnect();
  if (!m_connected) return false;
  m_session = m_sql->sessionId();
  m_common.sessions.Add(m_session);
  // All sessions are of one server: the first worker's word is enough.
  if (m_number == 1) NameRisks();
  return true;
}

// From here on the session counts as left behind: the server may still be at work on what it was
// told last.
void Worker::GiveUpConnection() {
  m_connected = false;
  m_common.sessions.Remove(m_session);
  ++m_common.lost_sessions;
  m_sql->closeDB();
  m_bench.database.clear();
  m_bench.claims.clear();
}

// What a power loss could take although it was counted.
void Worker::NameRisks() {
  std::vector<SqlRecord> rows;
  if (!m_sql->Query("select @@innodb_flush_log_at_trx_commit as f, @@log_bin as b, @@sync_binlog "
                    "as s",
                    rows) ||
      rows.empty()) {
    return;
  }
  SqlRecord& row = rows.front();
  if (row["f"] != "1") {
    g_loger(
        kUnit, __LINE__, kAlarm,
        "innodb_flush_log_at_trx_commit is %s: a power loss of the server may lose counted rows",
        row["f"].c_str());
  }
  if (row["b"] == "1" && row["s"] != "1") {
    g_loger(kUnit, __LINE__, kAlarm,
            "sync_binlog is %s: a power loss of the server may lose counted rows on replicas",
            row["s"].c_str());
  }
}
