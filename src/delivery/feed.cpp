#include "delivery/feed.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "spool/renames.h"
#include "support/names.h"
#include "support/run_state.h"

namespace {

constexpr std::size_t kMostFiles = 256;
constexpr std::uint64_t kMostBytes = 8 << 20;

// 128 bits that no other batch has.
std::string NewToken() {
  unsigned char bytes[16];
  // The kernel's source of random numbers is there once the system is up.
  while (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
  }
  std::string token;
  for (const unsigned char byte : bytes) token += Format("%02x", byte);
  return token;
}

std::string WithEnding(const std::string& path, const char* ending) {
  return path.substr(0, path.rfind('.')) + ending;
}

}  // namespace

Feed::Feed(Common& common, DatabaseNotes& notes, const std::string& table)
    : m_common(common),
      m_notes(notes),
      m_key{notes.database, table},
      m_trouble(common.board, notes.database, "table " + notes.database + "." + table) {}

// Another session, or an operator, may have changed anything meanwhile: the questions are asked
// again.
void Feed::Forget() {
  m_prepared = false;
  m_emptied = false;
  m_settled = true;
  m_tables.clear();
}

// The new definitions may be the very mending that files wait for, so all of them get a new chance
// at once, those under suspicion too.
void Feed::Replan() {
  m_planned = false;
  m_tables.clear();
  m_suspects.clear();
  m_trouble.Hurry();
}

bool Feed::Deliver(Workbench& bench, Trouble::Clock::time_point now) {
  m_bench = &bench;
  m_now = now;
  const std::vector<MemFile> files = ChooseFiles();
  if (files.empty() && !m_owes) {
    if (m_common.backlog.CountFiles(m_key) == 0) m_trouble.Ended();
    return true;
  }
  Step step = Prepare();
  if (step == Step::kDone) m_owes = false;
  if (step == Step::kDone && !files.empty()) step = RunBatches(files);
  if (step == Step::kDone) m_trouble.Ended();
  if (g_nMainRun == 0) return false;
  // A statement that costs the connection each time must not keep the others from their turn.
  if (step == Step::kBroken) Hold(sql().Reason());
  return step != Step::kBroken;
}

Feed::Step Feed::Hold(const std::string& reason) {
  m_trouble.Failed(reason, m_common.backlog.CountFiles(m_key), m_now);
  return Step::kHeld;
}

Feed::Step Feed::Fail() { return FailBy(sql().lastFailure(), sql().Reason()); }

// A lost connection is nobody's trouble yet: the batch is tried again on a new one, and the ledger
// tells what became of it.
Feed::Step Feed::FailBy(SqlFailure failure, const std::string& reason) {
  if (failure == SqlFailure::kConnection) return Step::kBroken;
  // The server's word may mean that something was removed behind our back.
  Forget();
  m_notes.ready = false;
  // Rights are those of the login; and behind the address there may be another server by now.
  m_wants_session = sql().TakesRefusalOfChanges() || failure == SqlFailure::kPrivilege;
  return Hold(reason);
}

// --- what a batch needs

// A wish for another session is Deliver's to pass on, so it stays.
const Plan* Feed::PlanToPrepare(Workbench& bench, Trouble::Clock::time_point now) {
  m_bench = &bench;
  m_now = now;
  const bool wanted = !m_prepared && !m_wants_session && m_common.backlog.CountFiles(m_key) != 0;
  return wanted && MakePlan() == Step::kDone && EnterDatabase() == Step::kDone ? &m_plan : nullptr;
}

void Feed::NotePrepared(const std::string& token) {
  m_token = token;
  m_prepared = m_emptied = true;
  for (const MidTarget& target : m_plan.targets) m_tables.insert(target.name);
}

Feed::Step Feed::Prepare() {
  for (const auto step : {&Feed::MakePlan, &Feed::EnterDatabase}) {
    if (const Step result = (this->*step)(); result != Step::kDone) return result;
  }
  if (!m_prepared) {
    MemTableMark mark;
    if (const Step made = MakeMemTable(mark); made != Step::kDone) return made;
    m_token = mark.token;
    if (mark.counted) {
      if (const Step emptied = Empty(); emptied != Step::kDone) return emptied;
    }
    m_prepared = true;
  }
  for (const auto step : {&Feed::MakeMidTables, &Feed::CheckEngines, &Feed::CountLeftRows}) {
    if (const Step result = (this->*step)(); result != Step::kDone) return result;
  }
  return Step::kDone;
}

// A kind that the definitions do not know sets its files aside. Rows that an earlier run left in
// such a table stay there: without definitions nobody knows what to make of them.
Feed::Step Feed::MakePlan() {
  if (m_planned) return Step::kDone;
  std::string error;
  switch (m_notes.definitions->MakePlan(m_key.table, m_key.database, m_plan, error)) {
    case PlanResult::kReady:
      m_planned = true;
      return Step::kDone;
    case PlanResult::kUnknownKind:
      if (m_common.backlog.CountFiles(m_key) == 0) break;
      for (const MemFile& file : ChooseFiles()) SetAside(file, error);
      return Step::kHeld;
    case PlanResult::kFaulty:
      break;
  }
  return Hold(error);
}

// Sessions that a killed service left behind are ended, since the batch would wait for their locks.
// That is done by the first worker that comes here; each one claims the database.
Feed::Step Feed::EnterDatabase() {
  const std::string& database = m_key.database;
  if (!m_notes.ready && sql().IsFar() &&
      sql().EnterAtOnce(database, m_common.sessions, Ledger::Creating())) {
    m_notes.ready = true;
    m_bench->database = database;
    m_bench->claims.insert(database);
  }
  if (!m_notes.ready) {
    bool there = false;
    if (!sql().FindDatabase(database, there)) return Fail();
    if (!there && !sql().Run("create database " + database)) return Fail();
    m_bench->database.clear();
  }
  if (m_bench->database != database) {
    if (!m_bench->store.Use(database)) return Fail();
    m_bench->database = database;
  }
  if (!m_notes.ready && !sql().EndLeftSessions(database, m_common.sessions)) return Fail();
  if (m_bench->claims.count(database) == 0) {
    if (!sql().Claim(database)) return Fail();
    m_bench->claims.insert(database);
  }
  if (!m_notes.ready && !ledger().Create()) return Fail();
  m_notes.ready = true;
  return Step::kDone;
}

// A mark says that all Create statements have run. Without one they run again, and what is there
// already is as good as made: a kill may have come between two of them.
Feed::Step Feed::MakeMemTable(MemTableMark& mark) {
  if (!ledger().ReadMark(m_key.table, mark)) return Fail();
  bool there = false;
  if (!sql().FindTable(m_key.database, m_key.table, there)) return Fail();
  if (mark.known && there) return Step::kDone;
  for (const std::string& create : m_plan.mem_creates) {
    if (!sql().Run(create) && !sql().SaysItExists()) return Fail();
  }
  if (mark.known) return Step::kDone;
  if (!ledger().AddMark(m_key.table) || !ledger().ReadMark(m_key.table, mark)) return Fail();
  return mark.known ? Step::kDone : Hold("the ledger takes no entry");
}

// Before the transaction begins, which a creation would end.
Feed::Step Feed::MakeMidTables() {
  for (const MidTarget& target : m_plan.targets) {
    if (target.database.empty() || m_tables.count(target.name) != 0) continue;
    bool there = false;
    if (!sql().FindTable(target.database, target.name, there)) return Fail();
    // Another worker may have made a table that is not of one database alone.
    if (!there && !sql().Run(target.create) && !sql().SaysItExists()) return Fail();
  }
  return Step::kDone;
}

// Tables that cannot be rolled back would keep half of a batch.
Feed::Step Feed::CheckEngines() {
  std::string names = "'" + m_key.table + "','" + kLedgerTable + "'";
  bool is_known = true;
  for (const MidTarget& target : m_plan.targets) {
    is_known = m_tables.count(target.name) != 0 && is_known;
    names += ",'" + target.name + "'";
  }
  if (is_known && !m_tables.empty()) return Step::kDone;
  std::vector<SqlRecord> rows;
  const std::string query =
      "select concat(t.table_schema, '.', t.table_name) as name, t.engine as engine from "
      "information_schema.tables t left join information_schema.engines e on e.engine = t.engine "
      "where t.table_schema in ('" +
      m_key.database + "', '" + kMonthTableDatabase + "') and t.table_name in (" + names +
      ") and t.table_type = 'BASE TABLE' and ifnull(e.transactions, 'NO') <> 'YES'";
  if (!sql().Query(query, rows)) return Fail();
  if (!rows.empty()) {
    return Hold("table " + rows.front()["name"] + " has engine " + rows.front()["engine"] +
                ", which cannot be rolled back");
  }
  for (const MidTarget& target : m_plan.targets) m_tables.insert(target.name);
  return Step::kDone;
}

// Rows without a batch of theirs were left by the other way of working. They are counted once.
Feed::Step Feed::CountLeftRows() {
  if (m_emptied) return Step::kDone;
  std::vector<SqlRecord> rows;
  if (!sql().Query("select 1 as n from " + m_key.table + " limit 1", rows)) return Fail();
  if (rows.empty()) {
    m_emptied = true;
    return Step::kDone;
  }
  g_loger(kUnit, __LINE__, kInfo, "memtable %s holds rows of an earlier run",
          (m_key.database + "." + m_key.table).c_str());
  const Step counted = RunBatches({});
  return counted == Step::kDone && !m_emptied ? Step::kHeld : counted;
}

// A truncate and not a delete: it costs the same however many rows there are, and leaves no old
// versions of them behind.
Feed::Step Feed::Empty() {
  if (!sql().Run("truncate table " + m_key.table)) {
    m_prepared = false;
    return Fail();
  }
  return NoteEmptied();
}

Feed::Step Feed::NoteEmptied() {
  m_emptied = true;
  m_owes = false;
  return Step::kDone;
}

// Only once there is nothing else to do: the word saves a truncate after a restart, and costs a
// transaction.
bool Feed::Settle(Workbench& bench) {
  if (m_settled || !m_prepared || !m_emptied) return true;
  m_bench = &bench;
  if (EnterDatabase() == Step::kBroken) return false;
  if (!ledger().MarkEmptied(m_key.table, m_token)) return Fail() != Step::kBroken;
  m_settled = true;
  return true;
}

// --- batches

// The files of the next batch. A suspect stands alone, once another file of its kind has passed.
std::vector<MemFile> Feed::ChooseFiles() {
  const std::uint64_t commits = m_common.commits.Of(MemFile{{}, {}, m_key.table}.Kind());
  for (const auto& [path, then] : m_suspects) {
    if (commits > then) return {MemFile{path, m_key.database, m_key.table}};
  }
  const auto passes = [this](const std::string& path) {
    const auto put_off = m_put_off.find(path);
    return m_suspects.count(path) != 0 || m_notes.settled.Contains(path) ||
           (put_off != m_put_off.end() && !put_off->second.IsDue(m_now));
  };
  std::vector<MemFile> files = m_common.backlog.First(m_key, kMostFiles, kMostBytes, passes);
  std::erase_if(files, [this](const MemFile& file) {
    if (file.Refusal() == NameRefusal::kNone) return false;
    SetAside(file, "name is not safe in a statement, refused");
    return true;
  });
  return files.empty() ? ChooseSuspect() : files;
}

// Where nothing but suspects waits, the fault may have been mended in the tables: each in turn.
std::vector<MemFile> Feed::ChooseSuspect() {
  if (m_suspects.empty()) return {};
  auto next = m_suspects.upper_bound(m_last_suspect);
  if (next == m_suspects.end()) next = m_suspects.begin();
  m_last_suspect = next->first;
  return {MemFile{next->first, m_key.database, m_key.table}};
}

Feed::Step Feed::RunBatches(std::vector<MemFile> files) {
  std::vector<std::vector<MemFile>> batches;
  batches.push_back(std::move(files));
  while (!batches.empty()) {
    if (g_nMainRun == 0) return Step::kBroken;
    const std::vector<MemFile> next = std::move(batches.back());
    batches.pop_back();
    Batch batch(sql(), m_common, m_key, m_plan);
    const std::string token = NewToken();
    const BatchOutcome outcome = batch.Run(next, m_token, token);
    if (outcome.kind != BatchOutcome::Kind::kCommitted) {
      const Step settled = Settle(outcome, next, batches);
      if (settled != Step::kDone) return settled;
      continue;
    }
    m_token = token;
    m_settled = m_emptied = false;
    m_owes = true;
    if (batch.HasCountedRows()) m_common.commits.Add(MemFile{{}, {}, m_key.table}.Kind());
    const Step emptied = batch.HasEmptiedMemTable() ? NoteEmptied() : Empty();
    FinishFiles(next, batch);
    if (emptied != Step::kDone) return emptied;
    if (!next.empty() && batch.countedBefore().size() == next.size()) continue;
    g_loger(kUnit, __LINE__, kInfo, "convert memtable %s.%s ok!", m_key.database.c_str(),
            m_key.table.c_str());
  }
  return Step::kDone;
}

Feed::Step Feed::Settle(const BatchOutcome& outcome, const std::vector<MemFile>& files,
                        std::vector<std::vector<MemFile>>& batches) {
  using Kind = BatchOutcome::Kind;
  std::vector<MemFile> others = files;
  if (outcome.file < others.size()) {
    others.erase(others.begin() + static_cast<std::ptrdiff_t>(outcome.file));
  }
  switch (outcome.kind) {
    case Kind::kCommitted:
    case Kind::kOneByOne:
      return Step::kDone;
    case Kind::kOvertaken:
      Forget();
      return Hold("another batch came between");
    // Somebody took the file away before its rows were counted.
    case Kind::kFileGone:
      m_common.backlog.RemoveIfGone(files[outcome.file]);
      ++m_notes.done;
      m_suspects.erase(files[outcome.file].path);
      m_put_off.erase(files[outcome.file].path);
      break;
    case Kind::kFileRefused:
      SetAside(files[outcome.file], "is not a regular file, refused");
      break;
    case Kind::kLoadFailed:
      SetAside(files[outcome.file], outcome.reason, outcome.lines);
      break;
    case Kind::kFileChanged:
      PutOff(files[outcome.file], outcome.reason);
      break;
    case Kind::kFileApart: {
      // Those before it come first, as if the files were loaded one by one.
      const auto at = files.begin() + static_cast<std::ptrdiff_t>(outcome.file);
      if (at + 1 != files.end()) batches.emplace_back(at + 1, files.end());
      batches.push_back({*at});
      if (at != files.begin()) batches.emplace_back(files.begin(), at);
      return Step::kDone;
    }
    case Kind::kFailed:
      return SettleFailed(outcome, files, batches);
  }
  if (!others.empty()) batches.push_back(std::move(others));
  return Step::kDone;
}

Feed::Step Feed::SettleFailed(const BatchOutcome& outcome, const std::vector<MemFile>& files,
                              std::vector<std::vector<MemFile>>& batches) {
  if (outcome.failure != SqlFailure::kData) return FailBy(outcome.failure, outcome.reason);
  if (files.empty()) return Hold(outcome.reason);
  if (files.size() == 1) return Suspect(files.front(), outcome, !batches.empty());
  const auto half = files.begin() + static_cast<std::ptrdiff_t>(files.size() / 2);
  batches.emplace_back(half, files.end());
  batches.emplace_back(files.begin(), half);
  return Step::kDone;
}

// A conversion has refused the rows of this file alone. Where another file of the kind passes, the
// file is at fault and not the definition.
Feed::Step Feed::Suspect(const MemFile& file, const BatchOutcome& outcome, bool others_follow) {
  const std::uint64_t commits = m_common.commits.Of(file.Kind());
  const auto suspect = m_suspects.find(file.path);
  if (suspect != m_suspects.end() && commits > suspect->second) {
    SetAside(file, outcome.reason, outcome.lines);
    return Step::kDone;
  }
  m_suspects.insert_or_assign(file.path, commits);
  return others_follow ? Step::kDone : Hold(outcome.reason);
}

// --- files

void Feed::FinishFiles(const std::vector<MemFile>& files, const Batch& batch) {
  for (const std::size_t number : batch.countedBefore()) {
    g_loger(kUnit, __LINE__, kInfo, "file (%s) is counted already", files[number].path.c_str());
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string& path = files[i].path;
    m_suspects.erase(path);
    if (const auto put_off = m_put_off.find(path); put_off != m_put_off.end()) {
      put_off->second.Ended();
      m_put_off.erase(put_off);
    }
    const auto identity = IdentityOf(path);
    // Another file that has taken the name meanwhile waits for a batch of its own.
    if (identity && !LedgerFile::Of(path, *identity).IsSameFile(batch.identities()[i])) continue;
    m_common.backlog.Remove(files[i]);
    ++m_notes.done;
    const std::string target = WithEnding(path, ".mid");
    if (!identity) continue;
    if (MoveMemFile(path, target)) {
      m_notes.renamed.push_back(batch.identities()[i]);
      continue;
    }
    g_loger(kUnit, __LINE__, kError, "file (%s) rename to (%s) failed errno (%d)", path.c_str(),
            target.c_str(), errno);
    m_notes.settled.Add(path, target, identity);
  }
}

// It is written to, or cannot be read at present.
void Feed::PutOff(const MemFile& file, const std::string& reason) {
  const std::string what = "file (" + Printable(file.path) + ")";
  m_put_off.try_emplace(file.path, m_common.board, m_key.database, what)
      .first->second.Failed(reason, 1, m_now);
}

void Feed::SetAside(const MemFile& file, const std::string& reason, std::uint64_t lines) {
  const std::string path = Printable(file.path);
  m_common.board.Failed(m_key.database, lines, "file (" + path + ") set aside: " + reason);
  g_loger(kUnit, __LINE__, kError, "file (%s) set aside: %s", path.c_str(),
          Printable(reason).c_str());
  m_common.backlog.Remove(file);
  ++m_notes.done;
  m_suspects.erase(file.path);
  m_put_off.erase(file.path);
  const std::string target = WithEnding(file.path, ".err");
  if (MoveMemFile(file.path, target)) return;
  g_loger(kUnit, __LINE__, kError, "file (%s) rename to (%s) failed errno (%d)", path.c_str(),
          Printable(target).c_str(), errno);
  m_notes.settled.Add(file.path, target, IdentityOf(file.path));
}
