// All that is to be done for one database: its mem tables are fed, its ledger is kept small, rows
// that an earlier run left are looked for.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "delivery/common.h"
#include "delivery/feed.h"
#include "delivery/plan.h"
#include "delivery/trouble.h"

// Of whoever has it at hand, one thread at a time: of a worker during a visit, else of the thread
// that hands it out.
class DatabaseWork {
 public:
  using Clock = Trouble::Clock;

  enum class Visited {
    kYes,
    kBroken,        // the connection is of no use any more, or the service is to stop
    kWantsSession,  // it should be a new one: rights that were granted count for new sessions only
  };

  // `common` must outlive the object.
  DatabaseWork(Common& common, const std::string& database);

  const std::string& database() const { return m_notes.database; }

  // The definitions that count from here on.
  void Use(const std::shared_ptr<const Definitions>& definitions);
  // The next visit looks for rows of an earlier run, in mem tables for which no file may ever come.
  void SearchForRows() { m_search = true; }
  // Gives files that are done with their final names, where that could not be before. What is
  // refused is told like what is held back, since it wants the same of an operator.
  void RetryRenames(Clock::time_point now);

  // Whether a visit is due for files, or for rows that a mem table may hold.
  bool IsDue(Clock::time_point now) const;
  // Since when, which is the beginning of the wait for the next visit.
  Clock::time_point WaitsSince(Clock::time_point now);
  // Whether a visit is due for what is done when there is nothing else to do.
  bool WantsCare(Clock::time_point now) const;

  // Does what is due; of each mem table one batch.
  Visited Visit(Workbench& bench);

  std::size_t CountFeeds() const { return m_feeds.size(); }
  // What is known of tables saves a few questions; years of them are not worth their memory.
  void DropIdleFeeds();

 private:
  Visited DeliverAll(Workbench& bench);
  void PrepareTogether(Workbench& bench);
  bool HaveARest(Workbench& bench);
  bool FindRows(Workbench& bench);
  bool LedgerIsDue(Clock::time_point now) const;
  bool KeepLedgerSmall(Workbench& bench);
  bool TidyLedger(Workbench& bench);
  bool NoteSeenFiles(Ledger& ledger);
  bool Enter(Workbench& bench);
  Clock::time_point OldestFile(Clock::time_point now) const;

  Common& m_common;
  DatabaseNotes m_notes;
  Trouble m_renames;
  std::map<std::string, Feed> m_feeds;  // by mem table
  std::string m_first;                  // of the next visit
  std::uint64_t m_lost_sessions;        // when what is known of the server was learned
  std::uint64_t m_arrivals = 0;         // when the last visit began
  bool m_worked = true;                 // in the last visit
  bool m_rests = true;                  // what is done once after work is done
  bool m_search = false;
  Clock::time_point m_visited_at;  // none: never
  std::optional<Clock::time_point> m_waits_since;
  Clock::time_point m_tidied_at;
  std::string m_seen_up_to;  // file names in the ledger
};
