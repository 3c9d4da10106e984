// The way of working that counts every row exactly once, whatever is killed: the setting
// delivery=once.
//
// Files that wait for one mem table form a batch. One transaction holds the batch: the files'
// rows, an entry for each in the ledger, and what the conversions make of the rows. Then the mem
// table is emptied and the files are renamed. After any crash the ledger says what was committed.
//
// A file is set aside for its own fault alone. Trouble of the server or of a definition holds files
// back until it ends; they keep their names. No mid table is ever given up.
//
// Threads: the one that calls Run watches the spool and hands databases out to workers, each a
// thread with a connection of its own. A database is with one worker or with nobody, and passes
// from one to the next with all that is known of it. The registry has a watcher thread.
#pragma once

#include <map>
#include <memory>
#include <semaphore>
#include <set>
#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "delivery/common.h"
#include "delivery/connection.h"
#include "delivery/database_work.h"
#include "delivery/plan.h"
#include "delivery/spool_figures.h"
#include "delivery/trouble.h"
#include "delivery/worker.h"
#include "localuser/tourlocaluser.h"
#include "spool/watch.h"
#include "state/supervisor.h"

class Delivery {
 public:
  // How long a worker may give no sign of life.
  static constexpr std::chrono::minutes kStuckAfter{5};

  // Starts the registry's watcher. `workers`: how many databases may be worked on at a time, from 1
  // to kMostWorkers. `silence`: after how long a connection asks whether the answer that it waits
  // for was lost. `stuck_after`: how long a worker may give no sign of life.
  explicit Delivery(const MYSQLAUTH& auth, int workers = 1,
                    std::chrono::milliseconds silence = Connection::kSilence,
                    std::chrono::milliseconds stuck_after = kStuckAfter);
  // Waits for the workers and the watcher, which end once g_nMainRun is 0.
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Until g_nMainRun is 0. The server may be away, at the start too.
  void Run();

 private:
  using Clock = Trouble::Clock;

  void PauseWatcher(int seconds);
  bool StartWorkers();
  void TakeBack();
  void Connected(const Worker::Ended& ended);
  void DropIdleFeeds();
  void RefreshDefinitions();
  void HandOut();
  std::vector<DatabaseWork*> DueDatabases(Clock::time_point now);
  void CareForOne(Clock::time_point now);
  DatabaseWork& WorkOf(const std::string& database);
  bool IsOut(const DatabaseWork& work) const { return m_out.count(&work) != 0; }
  bool Give(DatabaseWork& work);
  void KeepConnections(Clock::time_point now, bool more_wanted);
  void KeepHouseInTime();
  void TellSupervisor(Clock::time_point now);
  bool HasStuckWorker(Clock::time_point now);
  std::string StatusLine() const;
  void LookAround(bool changed_only);
  void TakeEvents(std::chrono::milliseconds longest);

  const MYSQLAUTH m_auth;
  const std::chrono::milliseconds m_stuck_after;
  std::counting_semaphore<> m_watcher_may_go{0};
  TourLocalUser m_localUser;
  Common m_common;
  std::shared_ptr<const Definitions> m_definitions;
  SpoolWatch m_watch;
  std::map<std::string, DatabaseWork> m_databases;  // by name
  std::set<const DatabaseWork*> m_out;              // with a worker
  const DatabaseWork* m_cared_for = nullptr;        // of those, the one that no file made due
  int m_visits = 0;                                 // since the last such one
  SpoolFigures m_figures{m_common.backlog, m_common.board};
  Supervisor m_supervisor;
  int m_stuck = 0;  // the worker that the run log was told of; 0: none
  Trouble m_connecting{m_common.board, {}, "server", std::chrono::seconds(2)};
  bool m_watching = false;
  Clock::time_point m_looked_at;
  Clock::time_point m_kept_house_at;
  Clock::time_point m_shown_at;
  std::vector<std::unique_ptr<Worker>> m_workers;
};
