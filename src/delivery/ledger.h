// Which files are counted, and which mem tables hold rows that are counted already: a small table
// in each device's database, written in the transaction that counts. After whatever was killed it
// tells what the last commit did.
//
//   midtable_ledger
//     kind      'F' for a file, 'M' for a mem table
//     name      file name without its folder, or name of the mem table
//     size, modified
//               of a file: bytes, and nanoseconds since the epoch of its last write; of a mem table
//               0
//     file_rows rows that the server read from the file
//     token     of a mem table: the batch that filled it last
//     state     of a mem table: 'E' it was emptied, 'C' the rows that it may hold are counted; of a
//               file: 'S' once it was seen under its final name
//     changed_at
//
// A file with the name of a counted one but another size or time is another file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "delivery/connection.h"
#include "support/file_identity.h"

inline constexpr char kLedgerTable[] = "midtable_ledger";

// A file as the ledger knows it.
struct LedgerFile {
  std::string name;
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  std::uint64_t rows = 0;

  static LedgerFile Of(const std::string& path, const FileIdentity& identity);
  bool IsSameFile(const LedgerFile& other) const {
    return name == other.name && size == other.size && modified == other.modified;
  }
};

// What the ledger says of a mem table.
struct MemTableMark {
  bool known = false;    // the mem table was made by this way of working, to its end
  bool counted = false;  // rows that it holds are in the mid tables
  std::string token;
};

// That of the database at hand, which the caller has switched to. Each operation is one statement;
// false when it failed, the reason in the connection. Nothing is logged. Names must be safe in
// a statement. For one thread, as the connection.
class Ledger {
 public:
  explicit Ledger(Connection& sql) : m_sql(sql) {}

  // Makes the table where it is missing.
  bool Create();

  bool ReadMark(const std::string& mem_table, MemTableMark& mark);
  // Notes that the mem table is made and empty, unless there is a mark.
  bool AddMark(const std::string& mem_table);
  // In the transaction of a batch, first of all: the mem table's rows will be counted under
  // `token`. `taken` is false when another batch came between `before` and this one. A transaction
  // of another session that has done the same and not ended yet is waited for.
  bool TakeMark(const std::string& mem_table, const std::string& before, const std::string& token,
                bool& taken);
  // Notes that the mem table is empty.
  bool MarkEmptied(const std::string& mem_table, const std::string& token);

  // Those of `files` that are counted.
  bool FindCounted(std::span<const LedgerFile> files, std::vector<LedgerFile>& counted);
  // In the transaction of a batch.
  bool AddFiles(std::span<const LedgerFile> files);

  // The statements of TakeMark and AddFiles, and one that fails unless the mem table holds so many
  // rows and its token is this one: for those who send several statements at once.
  static std::string TakingMark(const std::string& mem_table, const std::string& before,
                                const std::string& token);
  static std::string AddingFiles(std::span<const LedgerFile> files);
  static std::string ProvingMark(const std::string& mem_table, const std::string& token,
                                 std::uint64_t rows);
  // Those of Create and AddMark.
  static std::string Creating();
  static std::string AddingMark(const std::string& mem_table);

  // The first `most` files behind that name that were not seen under their final name.
  bool FilesNotSeen(const std::string& behind, std::size_t most, std::vector<LedgerFile>& files);
  bool MarkSeen(std::span<const LedgerFile> files);
  bool CountSeen(std::uint64_t& files);
  // Of the files that were seen, the `most` that were counted first.
  bool RemoveOldestSeen(std::size_t most);
  // Those of mem tables that have been empty for a week: without a mark a mem table is looked at
  // anew, which costs a few statements and no row.
  bool RemoveEmptiedMarks();

 private:
  bool Query(const std::string& query, std::vector<LedgerFile>& files);

  Connection& m_sql;
};
