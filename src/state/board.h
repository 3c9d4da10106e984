// What the service tells of itself while it runs: figures of each database, and what holds files
// back. The engine tells them here as it works, and StateFile shows them to others.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/mutex.h"

// Files of a folder that are done with.
struct InSpool {
  std::uint64_t loaded = 0;  // .mid
  std::uint64_t failed = 0;  // .err whose rows are nowhere else
  bool operator==(const InSpool&) const = default;
};

// What holds files back.
struct HeldBack {
  std::string what;  // "server" or another of those that docs/state.md lists
  std::size_t files = 0;
  std::string reason;
  std::time_t since = 0;
};

// A load that is under way.
struct RunningLoad {
  std::string file;  // the path of the file, or of the first one
  std::string table;
  std::size_t files = 1;
  std::uint64_t bytes_total = 0;
  // The board fills these two in. None where the server reads the file by itself.
  std::optional<std::uint64_t> bytes_done = {};
  std::time_t since = 0;
};

// What was loaded in the last minute or so. The time is cut into tenths of a minute, so that the
// figures of a service without work come to rest.
class LastMinute {
 public:
  void Add(std::time_t now, std::uint64_t files, std::uint64_t rows);
  std::uint64_t Files(std::time_t now) const { return Sum(now, &Slot::files); }
  std::uint64_t Rows(std::time_t now) const { return Sum(now, &Slot::rows); }

 private:
  struct Slot {
    std::time_t number = 0;
    std::uint64_t files = 0;
    std::uint64_t rows = 0;
  };
  std::uint64_t Sum(std::time_t now, std::uint64_t Slot::*figure) const;

  std::array<Slot, 6> m_slots;
};

// The figures of one database. Counters begin with the service.
struct DatabaseFigures {
  std::size_t waiting = 0;
  std::optional<std::time_t> oldest_waiting_at;
  std::optional<RunningLoad> load;
  std::uint64_t loaded_files = 0;
  std::uint64_t loaded_rows = 0;
  std::uint64_t counted_rows = 0;
  std::uint64_t failed_files = 0;
  std::optional<std::uint64_t> failed_rows;  // none where nobody sees the lines
  std::uint64_t left_out_rows = 0;           // of files that were loaded
  LastMinute last_minute;
  std::optional<InSpool> in_spool;
  std::vector<HeldBack> held_back;
  std::time_t last_success_at = 0;  // 0: never
  std::time_t last_error_at = 0;    // 0: never
  std::string last_error;
};

// Any thread may call any operation; each takes a lock for microseconds. What is told a second time
// is no change. A database that was never told of comes into being with the first word of it.
class StateBoard {
 public:
  // Files wait, the oldest since that time, where it is known.
  void SetWaiting(const std::string& database, std::size_t files, std::optional<std::time_t> oldest)
      EXCLUDES(m_lock);
  // The folder of the database was read; nothing is known of one that cannot be.
  void SetInSpool(const std::string& database, const std::optional<InSpool>& counts)
      EXCLUDES(m_lock);
  // Only these databases have a folder: others are forgotten unless something is known to wait.
  void Keep(const std::set<std::string>& databases) EXCLUDES(m_lock);

  // `bytes_done` may grow during the load, and must live until the load has ended; null where
  // nobody sees the bytes.
  void BeginLoad(const std::string& database, const RunningLoad& load,
                 const std::atomic<std::uint64_t>* bytes_done) EXCLUDES(m_lock);
  void EndLoad(const std::string& database) EXCLUDES(m_lock);
  // The server took so many rows of files, which wait no more. Nothing for no file at all.
  void Loaded(const std::string& database, std::size_t files, std::uint64_t rows) EXCLUDES(m_lock);
  // Rows came into the mid tables.
  void Counted(const std::string& database, std::uint64_t rows) EXCLUDES(m_lock);
  // Lines of a loaded file are in no table. `error`: what the run log says of them.
  void LeftOut(const std::string& database, std::uint64_t rows, const std::string& error)
      EXCLUDES(m_lock);
  // A file failed and waits no more. `rows`: its lines, where they were seen.
  void Failed(const std::string& database, std::optional<std::uint64_t> rows,
              const std::string& error) EXCLUDES(m_lock);

  // Files of the database are held back, or of all databases where the name is empty. `what` is
  // held back from the first call until it is released; a new reason is an error of the database.
  void Hold(const std::string& database, const std::string& what, std::size_t files,
            const std::string& reason) EXCLUDES(m_lock);
  void Release(const std::string& database, const std::string& what) EXCLUDES(m_lock);

  // --- for whoever shows the figures

  // Differs from an earlier one once anything was told, a load went on, or the last minute is
  // another.
  struct Stamp {
    std::uint64_t changes = 0;
    std::uint64_t bytes = 0;
    std::time_t minute = 0;
    bool operator==(const Stamp&) const = default;
  };
  Stamp StampAt(std::time_t now) const EXCLUDES(m_lock);
  // What holds back files of every database.
  std::vector<HeldBack> HeldBackOfAll() const EXCLUDES(m_lock);
  // Those, and then what holds back files of one database.
  std::vector<HeldBack> AllHeldBack() const EXCLUDES(m_lock);
  // The figures of the first database behind `database`, whose name it becomes; false when there is
  // none. One after the other, so that nobody waits while a thousand of them are put into words.
  bool Next(std::string& database, DatabaseFigures& figures) const EXCLUDES(m_lock);
  // Files that wait for all databases.
  std::size_t CountWaiting() const EXCLUDES(m_lock);

 private:
  std::vector<HeldBack>& HeldOf(const std::string& database) REQUIRES(m_lock);
  void NoteError(DatabaseFigures& figures, const std::string& text) REQUIRES(m_lock);

  mutable Mutex m_lock;
  std::map<std::string, DatabaseFigures> m_databases GUARDED_BY(m_lock);
  std::vector<HeldBack> m_held_back GUARDED_BY(m_lock);  // of all databases
  // Bytes of loads under way, by database.
  std::map<std::string, const std::atomic<std::uint64_t>*> m_loads GUARDED_BY(m_lock);
  std::uint64_t m_changes GUARDED_BY(m_lock) = 0;
  std::time_t m_loaded_at GUARDED_BY(m_lock) = 0;  // the last time, of any database
};

// Tells of a load from its construction to its end.
class LoadOnBoard {
 public:
  LoadOnBoard(StateBoard& board, std::string database, const RunningLoad& load,
              const std::atomic<std::uint64_t>* bytes_done = nullptr)
      : m_board(board), m_database(std::move(database)) {
    m_board.BeginLoad(m_database, load, bytes_done);
  }
  ~LoadOnBoard() { m_board.EndLoad(m_database); }
  LoadOnBoard(const LoadOnBoard&) = delete;
  LoadOnBoard& operator=(const LoadOnBoard&) = delete;

 private:
  StateBoard& m_board;
  const std::string m_database;
};
