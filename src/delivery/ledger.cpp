#include "delivery/ledger.h"

#include <cstdlib>

#include "log/zux_center_log.h"
#include "support/names.h"

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// The condition for rows of these files. The list of names is what finds them by the primary key.
std::string IsOneOf(std::span<const LedgerFile> files) {
  std::string names;
  std::string keys;
  const char* separator = "";
  for (const LedgerFile& file : files) {
    names += separator + Quoted(file.name);
    keys += separator + ("(" + Quoted(file.name) + "," + std::to_string(file.size) + "," +
                         std::to_string(file.modified) + ")");
    separator = ",";
  }
  return "kind = 'F' and name in (" + names + ") and (name, size, modified) in (" + keys + ")";
}

}  // namespace

LedgerFile LedgerFile::Of(const std::string& path, const FileIdentity& identity) {
  return {std::string(FileNameOf(path)), static_cast<std::uint64_t>(identity.size),
          identity.seconds * kNanosecondsPerSecond + identity.nanoseconds};
}

// Names are bytes, as in the file system: no collation takes two of them for one. The key begins
// with what every question asks for. Text of the server's own types keeps the table readable by
// hand.
std::string Ledger::Creating() {
  return Format(
      "create table if not exists %s (kind char(1) not null, name varbinary(255) not null, "
      "size bigint unsigned not null, modified bigint not null, file_rows bigint unsigned "
      "not null default 0, token char(32) not null default '', state char(1) not null "
      "default '', changed_at timestamp not null default current_timestamp on update "
      "current_timestamp, primary key (kind, name, size, modified)) engine = InnoDB",
      kLedgerTable);
}

bool Ledger::Create() { return m_sql.Run(Creating()); }

// Of a table without a mark nothing was ever counted in this way.
bool Ledger::ReadMark(const std::string& mem_table, MemTableMark& mark) {
  std::vector<SqlRecord> rows;
  if (!m_sql.Query(Format("select token, state from %s where kind = 'M' and name = '%s'",
                          kLedgerTable, mem_table.c_str()),
                   rows)) {
    return false;
  }
  mark = {};
  if (rows.empty()) return true;
  mark = {true, rows.front()["state"] == "C", rows.front()["token"]};
  return true;
}

// Two sessions may add the mark at the same time; the second one finds it there.
bool Ledger::AddMark(const std::string& mem_table) { return m_sql.Run(AddingMark(mem_table)); }

std::string Ledger::AddingMark(const std::string& mem_table) {
  return Format(
      "insert ignore into %s (kind, name, size, modified, state) values ('M', '%s', 0, 0, 'E')",
      kLedgerTable, mem_table.c_str());
}

// The row stays locked until the transaction ends. A session that waited for it sees the token that
// the other one wrote, changes no row, and knows that it was overtaken.
bool Ledger::TakeMark(const std::string& mem_table, const std::string& before,
                      const std::string& token, bool& taken) {
  if (!m_sql.Run(TakingMark(mem_table, before, token))) return false;
  taken = m_sql.affectedRows() == 1;
  return true;
}

std::string Ledger::TakingMark(const std::string& mem_table, const std::string& before,
                               const std::string& token) {
  return Format(
      "update %s set token = '%s', state = 'C' where kind = 'M' and name = '%s' and size = "
      "0 and modified = 0 and token = '%s'",
      kLedgerTable, token.c_str(), mem_table.c_str(), before.c_str());
}

// One more than the largest number is an error on every server.
std::string Ledger::ProvingMark(const std::string& mem_table, const std::string& token,
                                std::uint64_t rows) {
  return Format(
      "select 18446744073709551615 + (count(*) <> %llu or not ((select token from %s where kind = "
      "'M' and name = '%s' and size = 0 and modified = 0) <=> '%s')) as proof from %s",
      static_cast<unsigned long long>(rows), kLedgerTable, mem_table.c_str(), token.c_str(),
      mem_table.c_str());
}

// By the token: a late word about an earlier batch must not hide the rows of a newer one.
bool Ledger::MarkEmptied(const std::string& mem_table, const std::string& token) {
  return m_sql.Run(
      Format("update %s set state = 'E' where kind = 'M' and name = '%s' and size = 0 and modified "
             "= 0 and token = '%s'",
             kLedgerTable, mem_table.c_str(), token.c_str()));
}

bool Ledger::Query(const std::string& query, std::vector<LedgerFile>& files) {
  std::vector<SqlRecord> rows;
  if (!m_sql.Query(query, rows)) return false;
  for (SqlRecord& row : rows) {
    files.push_back({row["name"], std::strtoull(row["size"].c_str(), nullptr, 10),
                     std::strtoll(row["modified"].c_str(), nullptr, 10)});
  }
  return true;
}

// One question for the whole batch, which is at most 256 files.
bool Ledger::FindCounted(std::span<const LedgerFile> files, std::vector<LedgerFile>& counted) {
  if (files.empty()) return true;
  return Query(
      std::string("select name, size, modified from ") + kLedgerTable + " where " + IsOneOf(files),
      counted);
}

bool Ledger::AddFiles(std::span<const LedgerFile> files) {
  return files.empty() || m_sql.Run(AddingFiles(files));
}

std::string Ledger::AddingFiles(std::span<const LedgerFile> files) {
  std::string insert = std::string("insert into ") + kLedgerTable +
                       " (kind, name, size, modified, file_rows) values ";
  const char* separator = "";
  for (const LedgerFile& file : files) {
    insert += separator + std::string("('F',") + Quoted(file.name) + "," +
              std::to_string(file.size) + "," + std::to_string(file.modified) + "," +
              std::to_string(file.rows) + ")";
    separator = ",";
  }
  return insert;
}

// In pieces, each of which begins behind the last name of the piece before: a ledger that has grown
// while the service was away is gone through without a long read.
bool Ledger::FilesNotSeen(const std::string& behind, std::size_t most,
                          std::vector<LedgerFile>& files) {
  return Query(Format("select name, size, modified from %s where kind = 'F' and state = '' and "
                      "name > '%s' order by name limit %zu",
                      kLedgerTable, behind.c_str(), most),
               files);
}

// The time stays that of the counting.
bool Ledger::MarkSeen(std::span<const LedgerFile> files) {
  if (files.empty()) return true;
  return m_sql.Run(std::string("update ") + kLedgerTable +
                   " set state = 'S', changed_at = changed_at where " + IsOneOf(files));
}

bool Ledger::CountSeen(std::uint64_t& files) {
  std::vector<SqlRecord> rows;
  if (!m_sql.Query(
          Format("select count(*) as n from %s where kind = 'F' and state = 'S'", kLedgerTable),
          rows) ||
      rows.empty()) {
    return false;
  }
  files = std::strtoull(rows.front()["n"].c_str(), nullptr, 10);
  return true;
}

// The oldest first, since a file comes back under an old name soon or never.
bool Ledger::RemoveOldestSeen(std::size_t most) {
  return m_sql.Run(
      Format("delete from %s where kind = 'F' and state = 'S' order by changed_at limit %zu",
             kLedgerTable, most));
}

// Mem tables are named by day, so their marks would grow with the years. A mark that is gone costs
// a few questions if its mem table is ever used again.
bool Ledger::RemoveEmptiedMarks() {
  return m_sql.Run(
      Format("delete from %s where kind = 'M' and state = 'E' and changed_at < now() - "
             "interval 7 day",
             kLedgerTable));
}
