// One mem table of one database, and how its files get counted: prepared once for a connection,
// then batch after batch.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "delivery/batch.h"
#include "delivery/common.h"
#include "delivery/connection.h"
#include "delivery/ledger.h"
#include "delivery/plan.h"
#include "delivery/trouble.h"
#include "spool/backlog.h"
#include "spool/settled_files.h"
#include "tables/store.h"

// What a worker works with. Of one thread.
struct Workbench {
  Connection& sql;
  Store& store;
  std::string database;          // that the connection is in
  std::set<std::string> claims;  // databases that the session has claimed
};

// What all feeds of a database share.
struct DatabaseNotes {
  std::string database;
  std::shared_ptr<const Definitions> definitions;
  bool ready = false;  // known to be there, with its ledger and without sessions left behind
  SettledFiles settled;
  std::vector<LedgerFile> renamed;  // that the ledger does not know yet to have their final name
  std::uint64_t done = 0;           // files that were counted, or set aside, or were gone
};

// For one thread at a time, each with a workbench of its own. What the constructor is given must
// outlive the object.
class Feed {
 public:
  Feed(Common& common, DatabaseNotes& notes, const std::string& table);

  // Counts waiting files, one batch and what it falls into, and rows that the mem table holds.
  // False when the connection is of no use any more, or the service is to stop.
  bool Deliver(Workbench& bench, Trouble::Clock::time_point now);
  // Whether a call could do anything at this time.
  bool IsDue(Trouble::Clock::time_point now) const { return m_trouble.IsDue(now); }
  // Whether a call is wanted although no file may wait.
  bool HasWork() const { return m_owes || m_trouble.lasts(); }
  // The mem table may hold rows, of an earlier run say.
  void LookForRows() { m_owes = true; }
  // Whether the next call should have a new connection: rights that were granted count for new
  // sessions only. Asking takes the wish away.
  bool TakesWishForSession() { return std::exchange(m_wants_session, false); }
  // The plan of a mem table that files wait for and of which nothing is known yet; null for others,
  // and where the next call of Deliver has to tell of trouble. The session is in the database then.
  const Plan* PlanToPrepare(Workbench& bench, Trouble::Clock::time_point now);
  // Such a mem table was found or made, with all that its plan needs: it is empty, and its mark in
  // the ledger has that token.
  void NotePrepared(const std::string& token);
  // What is known of the server holds no longer: a session was lost.
  void Forget();
  // The definitions have changed.
  void Replan();
  // Notes in the ledger that the mem table is empty, where it is and the ledger has another word.
  // False as that of Deliver.
  bool Settle(Workbench& bench);

 private:
  // How a step ended: done, or with trouble that was told, or with a connection of no use.
  enum class Step { kDone, kHeld, kBroken };

  Step Prepare();
  Step MakePlan();
  Step EnterDatabase();
  Step MakeMemTable(MemTableMark& mark);
  Step CheckEngines();
  Step MakeMidTables();
  Step CountLeftRows();
  Step Empty();
  Step NoteEmptied();
  Step RunBatches(std::vector<MemFile> files);
  // What becomes of the files of a batch; those that are to be tried again in other company go to
  // `batches`, of which the last comes next.
  Step Settle(const BatchOutcome& outcome, const std::vector<MemFile>& files,
              std::vector<std::vector<MemFile>>& batches);
  Step SettleFailed(const BatchOutcome& outcome, const std::vector<MemFile>& files,
                    std::vector<std::vector<MemFile>>& batches);
  std::vector<MemFile> ChooseFiles();
  std::vector<MemFile> ChooseSuspect();
  Step Suspect(const MemFile& file, const BatchOutcome& outcome, bool others_follow);
  void FinishFiles(const std::vector<MemFile>& files, const Batch& batch);
  // `lines`: those of the file that were read.
  void SetAside(const MemFile& file, const std::string& reason, std::uint64_t lines = 0);
  void PutOff(const MemFile& file, const std::string& reason);
  Step Fail();  // by the connection's last failure
  Step FailBy(SqlFailure failure, const std::string& reason);
  Step Hold(const std::string& reason);

  Connection& sql() { return m_bench->sql; }
  Ledger ledger() { return Ledger(m_bench->sql); }

  Common& m_common;
  DatabaseNotes& m_notes;
  Workbench* m_bench = nullptr;  // that of the call at work
  const Backlog::TableKey m_key;
  Plan m_plan;
  bool m_planned = false;
  bool m_prepared = false;         // the members below hold
  bool m_emptied = false;          // the mem table is empty
  bool m_settled = true;           // the ledger says so, or there is nothing to say
  std::string m_token;             // of the batch that filled the mem table last
  std::set<std::string> m_tables;  // mid tables known to be there
  Trouble m_trouble;
  bool m_owes = false;  // the mem table may hold rows
  bool m_wants_session = false;
  std::map<std::string, Trouble> m_put_off;  // by path: files that could not be read whole
  // Files that failed alone in a conversion, with the commits of their kind by then. Whether the
  // file is at fault or the definition shows once another file of the kind has passed.
  std::map<std::string, std::uint64_t> m_suspects;
  std::string m_last_suspect;  // that was tried again
  Trouble::Clock::time_point m_now;
};
