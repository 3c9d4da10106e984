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
// Threads: everything runs on the thread that calls Run; the registry has a watcher thread.
#pragma once

#include <map>
#include <memory>
#include <semaphore>
#include <span>
#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "delivery/connection.h"
#include "delivery/feed.h"
#include "delivery/plan.h"
#include "delivery/trouble.h"
#include "localuser/tourlocaluser.h"
#include "spool/backlog.h"
#include "spool/settled_files.h"
#include "spool/watch.h"
#include "tables/store.h"

class Delivery {
 public:
  // Starts the registry's watcher. `silence`: after how long a connection asks whether the answer
  // that it waits for was lost.
  explicit Delivery(const MYSQLAUTH& auth,
                    std::chrono::milliseconds silence = Connection::kSilence);
  // Waits for the watcher, which ends once g_nMainRun is 0.
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Until g_nMainRun is 0. The server may be away, at the start too.
  void Run();

 private:
  void PauseWatcher(int seconds);
  bool IsConnected();
  void NameRisks();
  // One turn: a batch of each mem table that is due. False when the connection is of no use any
  // more, or another one is wanted.
  bool Turn();
  bool DeliverAll();
  bool HaveARest();
  bool SearchForRows();
  bool KeepLedgersSmall();
  bool KeepLedgerSmall(const std::string& database, std::span<const LedgerFile> renamed);
  bool NoteSeenFiles(Ledger& ledger, const std::string& database);
  bool Enter(const std::string& database);
  std::size_t CountFiles() const;
  void LookAround();
  void TakeEvents(std::chrono::milliseconds longest);

  MYSQLAUTH m_auth;
  std::counting_semaphore<> m_watcher_may_go{0};
  TourLocalUser m_localUser;
  Connection* m_sql;  // that of the store
  Store m_store;
  Definitions m_definitions;
  Backlog m_backlog;
  SettledFiles m_settled;
  SpoolWatch m_watch;
  Workbench m_bench;
  std::map<Backlog::TableKey, Feed> m_feeds;
  Trouble m_connecting{"server", std::chrono::seconds(2)};
  bool m_connected = false;
  bool m_watching = false;
  bool m_worked = false;      // in the last turn
  bool m_rests = false;       // what is done once when there is no more work is done
  Backlog::TableKey m_first;  // of the next turn
  // Databases that were not searched for rows of an earlier run yet; none before m_search_is_due
  // was followed.
  bool m_search_is_due = true;
  std::vector<std::string> m_unsearched;
  Trouble::Clock::time_point m_tidied_at;
  std::map<std::string, std::string> m_seen_up_to;  // file names in ledgers, by database
  Trouble::Clock::time_point m_looked_at;
  Trouble::Clock::time_point m_pinged_at;
};
