// One transaction: files of one mem table, a ledger entry for each, and all conversions once.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "delivery/common.h"
#include "delivery/connection.h"
#include "delivery/ledger.h"
#include "delivery/load_source.h"
#include "delivery/plan.h"
#include "spool/mem_file.h"

struct BatchOutcome {
  enum class Kind {
    kCommitted,
    kOvertaken,    // another batch came between: the mark is to be read again
    kFileGone,     // `file` is not there any more
    kFileRefused,  // `file` is no regular file
    kFileChanged,  // `file` was written to while it was read, or could not be read
    kFileApart,   // `file` must stand alone: for a key of another file, or to see whose fault it is
    kLoadFailed,  // the server refused `file`, which stood alone, for the sake of its rows
    kOneByOne,    // the batch is no good as one load
    kFailed,      // anything else, by `failure`
  };
  Kind kind = Kind::kCommitted;
  std::size_t file = 0;
  SqlFailure failure = SqlFailure::kNone;
  std::string reason;
  std::uint64_t lines = 0;  // of `file` that were read, unless the batch was committed
};

// An object runs one batch, once. The connection is in the database of the mem table, which exists
// and is empty or holds rows that are not counted yet; so do the mid tables.
class Batch {
 public:
  Batch(Connection& sql, Common& common, const Backlog::TableKey& mem_table, const Plan& plan)
      : m_sql(sql), m_ledger(sql), m_common(common), m_mem_table(mem_table), m_plan(plan) {}

  // Counts the rows of `files`, and those that the mem table holds already, under `token`, if the
  // mem table's token is `before`. But for kCommitted and a connection that was lost during the
  // commit nothing has happened. The files are loaded by one statement; where the server would not
  // have it so, once more and one after the other, which tells whose fault it is. A server that is
  // far away is first told the whole transaction at once, with the emptying behind it.
  BatchOutcome Run(const std::vector<MemFile>& files, const std::string& before,
                   const std::string& token);

  // After kCommitted: whether files brought rows; whether the mem table is empty again; the files
  // that were counted before, and all that are counted now, each by its number in `files`.
  bool HasCountedRows() const { return m_rows > 0; }
  bool HasEmptiedMemTable() const { return m_emptied; }
  const std::vector<std::size_t>& countedBefore() const { return m_counted_before; }
  const std::vector<LedgerFile>& identities() const { return m_entries; }

 private:
  bool TryAtOnce(const std::vector<MemFile>& files, const std::string& before,
                 const std::string& token, BatchOutcome& outcome);
  std::vector<std::string> ScriptFor(const MemFile& first, const std::string& before,
                                     const std::string& token) const;
  bool ReadAll(const std::vector<MemFile>& files, std::string& bytes);
  void StartOver();
  void ShowLoads(const std::vector<MemFile>& files) const;
  void TellLeftOut(const MemFile& file, std::uint64_t lines) const;
  bool WasCountedBefore(std::size_t number) const;
  BatchOutcome Try(const std::vector<MemFile>& files, const std::string& before,
                   const std::string& token);
  BatchOutcome Fill(const std::vector<MemFile>& files, const std::string& before,
                    const std::string& token);
  bool OpenAll(const std::vector<MemFile>& files, BatchOutcome& outcome);
  bool FindCounted(BatchOutcome& outcome);
  bool LoadAll(const std::vector<MemFile>& files, const std::vector<std::size_t>& numbers,
               BatchOutcome& outcome);
  RunningLoad LoadOf(const std::vector<MemFile>& files,
                     const std::vector<std::size_t>& numbers) const;
  bool LoadTogether(const std::vector<MemFile>& files, const std::vector<std::size_t>& numbers,
                    BatchOutcome& outcome);
  bool Load(std::size_t number, const std::vector<MemFile>& files, BatchOutcome& outcome);
  bool LoadFailed(std::size_t number, bool alone, BatchOutcome& outcome);
  bool Convert(const MidTarget& target, BatchOutcome& outcome);
  bool TransactionIsGone();
  BatchOutcome Failed();

  Connection& m_sql;
  Ledger m_ledger;
  Common& m_common;
  const Backlog::TableKey& m_mem_table;
  const Plan& m_plan;
  std::atomic<std::uint64_t> m_bytes{0};  // of files, that were read for the server
  std::vector<std::unique_ptr<LoadSource>> m_sources;
  std::vector<LedgerFile> m_entries;
  std::vector<std::size_t> m_counted_before;
  std::map<std::size_t, std::uint64_t> m_skipped;  // rows of files that have some, by number
  std::uint64_t m_rows = 0;
  bool m_one_by_one = false;
  bool m_emptied = false;
};
