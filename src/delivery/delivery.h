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
#include <string>

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
  // Starts the registry's watcher.
  explicit Delivery(const MYSQLAUTH& auth);
  // Waits for the watcher, which ends once g_nMainRun is 0.
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Until g_nMainRun is 0. The server may be away, at the start too.
  void Run();

 private:
  bool IsConnected();
  void NameRisks();
  // One turn: all that is due. False when the connection is of no use any more.
  bool Turn();
  bool DeliverAll();
  bool KeepLedgersSmall();
  bool KeepLedgerSmall(const std::string& database);
  void LookAround();
  void TakeEvents(std::chrono::milliseconds longest);
  Feed& FeedOf(const Backlog::TableKey& key);

  MYSQLAUTH m_auth;
  TourLocalUser m_localUser;
  Connection* m_sql;  // that of the store
  Store m_store;
  Definitions m_definitions;
  Backlog m_backlog;
  SettledFiles m_settled;
  SpoolWatch m_watch;
  Workbench m_bench;
  std::map<Backlog::TableKey, Feed> m_feeds;
  Trouble m_connecting{"server"};
  bool m_connected = false;
  bool m_watching = false;
  bool m_idle = false;  // nothing was done since the last look at the ledgers
  std::map<std::string, Trouble::Clock::time_point> m_tidied;  // ledgers, by database
  Trouble::Clock::time_point m_looked_at;
  Trouble::Clock::time_point m_pinged_at;
};
