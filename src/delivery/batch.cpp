#include "delivery/batch.h"

#include <algorithm>
#include <numeric>
#include <optional>

#include "delivery/joined_source.h"
#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/names.h"
#include "support/run_state.h"

using Kind = BatchOutcome::Kind;

namespace {

// Bytes of files that are read into memory to be told at once. A larger batch keeps the server busy
// for longer than the journeys take.
constexpr std::uint64_t kMostAtOnce = 4 << 20;
// Which statement of such a text proves what nobody here can look at, counted from 0.
constexpr std::size_t kProof = 3;

// Bytes that were read before.
class HeldBytes : public LoadBytes {
 public:
  explicit HeldBytes(std::string_view bytes) : m_rest(bytes) {}
  int Read(char* buffer, unsigned int size) override {
    const std::size_t part = m_rest.copy(buffer, size);
    m_rest.remove_prefix(part);
    return static_cast<int>(part);
  }
  std::string error() const override { return {}; }

 private:
  std::string_view m_rest;
};

// The name is for those who look at what the server does.
std::string LoadStatement(const MemFile& file) {
  return "load data local infile '" + std::string(FileNameOf(file.path)) + "' ignore into table " +
         file.QualifiedTable();
}

}  // namespace

BatchOutcome Batch::Failed() { return {Kind::kFailed, 0, m_sql.lastFailure(), m_sql.Reason()}; }

BatchOutcome Batch::Run(const std::vector<MemFile>& files, const std::string& before,
                        const std::string& token) {
  BatchOutcome outcome;
  if (m_sql.IsFar()) {
    if (TryAtOnce(files, before, token, outcome)) return outcome;
    StartOver();
  }
  outcome = Try(files, before, token);
  if (outcome.kind != Kind::kOneByOne) return outcome;
  m_one_by_one = true;
  StartOver();
  return Try(files, before, token);
}

void Batch::StartOver() {
  m_sources.clear();
  m_entries.clear();
  m_counted_before.clear();
  m_skipped.clear();
  m_rows = m_bytes = 0;
}

// Nobody here can look at an answer before the commit is sent. So the server itself looks: a mark
// that another batch has taken, and rows that are missing or too many, are an error, and so is a
// file that the ledger has already; a statement that fails ends the script before its commit. What
// was wrong then is found step by step. False when that is to be done.
bool Batch::TryAtOnce(const std::vector<MemFile>& files, const std::string& before,
                      const std::string& token, BatchOutcome& outcome) {
  std::string bytes;
  if (!OpenAll(files, outcome) || !ReadAll(files, bytes) || m_rows == 0) return false;
  const std::vector<std::string> script = ScriptFor(files.front(), before, token);
  HeldBytes held(bytes);
  std::vector<std::size_t> numbers(files.size());
  std::iota(numbers.begin(), numbers.end(), std::size_t{0});
  const LoadOnBoard shown(m_common.board, m_mem_table.database, LoadOf(files, numbers), &m_bytes);
  std::size_t done = 0;
  std::vector<SqlReply> replies;
  m_emptied = m_sql.RunAll(script, &held, done, replies);
  if (done + 1 >= script.size()) {
    outcome = {};
    ShowLoads(files);
    g_loger(kUnit, __LINE__, kInfo, "commit ok!");
    return true;
  }
  outcome = Failed();
  if (outcome.failure == SqlFailure::kConnection) return true;
  m_sql.Run("rollback");
  m_one_by_one = done == kProof || (done < kProof && outcome.failure == SqlFailure::kData);
  return false;
}

std::vector<std::string> Batch::ScriptFor(const MemFile& first, const std::string& before,
                                          const std::string& token) const {
  std::vector<std::string> script = {
      "start transaction", Ledger::TakingMark(m_mem_table.table, before, token),
      LoadStatement(first), Ledger::ProvingMark(m_mem_table.table, token, m_rows),
      Ledger::AddingFiles(m_entries)};
  for (const MidTarget& target : m_plan.targets) script.push_back(target.convert);
  script.emplace_back("commit");
  script.push_back("truncate table " + m_mem_table.table);
  return script;
}

// The rows of all files, and how many each has. False where that is too much or cannot be had.
bool Batch::ReadAll(const std::vector<MemFile>& files, std::string& bytes) {
  const auto add_size = [](std::uint64_t sum, const LedgerFile& file) { return sum + file.size; };
  if (std::accumulate(m_entries.begin(), m_entries.end(), std::uint64_t{0}, add_size) >
      kMostAtOnce) {
    return false;
  }
  std::vector<LoadSource*> sources;
  sources.reserve(m_sources.size());
  for (const auto& source : m_sources) sources.push_back(source.get());
  JoinedSource joined(sources);
  char piece[16 * 1024];
  int got = 0;
  while ((got = joined.Read(piece, sizeof piece)) > 0) {
    bytes.append(piece, static_cast<std::size_t>(got));
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (m_sources[i]->HasChanged()) return false;
    m_entries[i].rows = m_sources[i]->lines();
  }
  m_rows = joined.lines();
  return got == 0;
}

// A commit that failed may still have happened, when the connection was lost under it. Nobody needs
// to know here: the next batch asks the ledger, which was part of the same transaction.
BatchOutcome Batch::Try(const std::vector<MemFile>& files, const std::string& before,
                        const std::string& token) {
  if (!m_sql.Run("start transaction")) return Failed();
  BatchOutcome outcome = Fill(files, before, token);
  if (outcome.kind == Kind::kCommitted) {
    if (m_sql.Run("commit")) {
      ShowLoads(files);
      g_loger(kUnit, __LINE__, kInfo, "commit ok!");
      return outcome;
    }
    outcome = Failed();
  }
  m_sql.Run("rollback");
  if (outcome.file < m_sources.size()) outcome.lines = m_sources[outcome.file]->lines();
  return outcome;
}

// Once it is certain: a file of a batch that falls apart is loaded again.
void Batch::ShowLoads(const std::vector<MemFile>& files) const {
  m_common.board.Loaded(m_mem_table.database, files.size() - m_counted_before.size(), m_rows);
  m_common.board.Counted(m_mem_table.database, m_rows);
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (WasCountedBefore(i)) continue;
    std::uint64_t left_out = m_sources[i]->LogCounts();
    if (const auto skipped = m_skipped.find(i); skipped != m_skipped.end()) {
      left_out += skipped->second;
    }
    if (left_out > 0) TellLeftOut(files[i], left_out);
    g_loger(kUnit, __LINE__, kDebug, "load table (%s.%s) success", files[i].database.c_str(),
            files[i].table.c_str());
  }
}

// The file ends as one that was loaded, so that this line is all that tells of them.
void Batch::TellLeftOut(const MemFile& file, std::uint64_t lines) const {
  const std::string path = Printable(file.path);
  g_loger(kUnit, __LINE__, kAlarm, "file (%s) lines left out: %llu", path.c_str(),
          static_cast<unsigned long long>(lines));
  m_common.board.LeftOut(m_mem_table.database, lines,
                         "file (" + path + ") lines left out: " + std::to_string(lines));
}

bool Batch::WasCountedBefore(std::size_t number) const {
  return std::find(m_counted_before.begin(), m_counted_before.end(), number) !=
         m_counted_before.end();
}

BatchOutcome Batch::Fill(const std::vector<MemFile>& files, const std::string& before,
                         const std::string& token) {
  BatchOutcome outcome;
  if (!OpenAll(files, outcome)) return outcome;
  // The mark comes first: a session that was left behind and is still at work holds it.
  bool taken = false;
  if (!m_ledger.TakeMark(m_mem_table.table, before, token, taken)) return Failed();
  if (!taken) return {Kind::kOvertaken, 0, SqlFailure::kNone, {}};
  if (!FindCounted(outcome)) return outcome;
  std::vector<std::size_t> numbers;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!WasCountedBefore(i)) numbers.push_back(i);
  }
  // The conversions belong to it: a load is over once its rows are counted.
  std::optional<LoadOnBoard> shown;
  if (!numbers.empty()) {
    shown.emplace(m_common.board, m_mem_table.database, LoadOf(files, numbers), &m_bytes);
  }
  if (!LoadAll(files, numbers, outcome)) return outcome;
  std::vector<LedgerFile> added;
  added.reserve(numbers.size());
  for (const std::size_t number : numbers) added.push_back(m_entries[number]);
  // Nothing new: the commit then only takes the mark, and the files get their final names.
  if (added.empty() && !files.empty()) return outcome;
  if (!m_ledger.AddFiles(added)) return Failed();
  for (const MidTarget& target : m_plan.targets) {
    if (!Convert(target, outcome)) return outcome;
  }
  return outcome;
}

// All files are open before the first row moves. Whatever happens to their names from here on, the
// bytes that are loaded and the identities in the ledger belong together.
bool Batch::OpenAll(const std::vector<MemFile>& files, BatchOutcome& outcome) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    m_sources.push_back(std::make_unique<LoadSource>(files[i], m_common.registry, &m_bytes));
    switch (m_sources.back()->Open()) {
      case LoadSource::Opened::kReady:
        m_entries.push_back(LedgerFile::Of(files[i].path, m_sources.back()->identity()));
        break;
      case LoadSource::Opened::kGone:
        outcome = {Kind::kFileGone, i, SqlFailure::kNone, {}};
        return false;
      case LoadSource::Opened::kNotRegular:
        outcome = {Kind::kFileRefused, i, SqlFailure::kNone, {}};
        return false;
      case LoadSource::Opened::kUnreadable:
        outcome = {Kind::kFileChanged, i, SqlFailure::kNone, m_sources.back()->error()};
        return false;
    }
  }
  return true;
}

// Asked within the transaction and behind the mark: an earlier session that was left behind has
// either committed by now, and its files are found, or it will meet another token and give up.
bool Batch::FindCounted(BatchOutcome& outcome) {
  std::vector<LedgerFile> counted;
  if (!m_ledger.FindCounted(m_entries, counted)) {
    outcome = Failed();
    return false;
  }
  for (std::size_t i = 0; i < m_entries.size(); ++i) {
    if (std::any_of(counted.begin(), counted.end(),
                    [&](const LedgerFile& file) { return file.IsSameFile(m_entries[i]); })) {
      m_counted_before.push_back(i);
    }
  }
  return true;
}

bool Batch::LoadAll(const std::vector<MemFile>& files, const std::vector<std::size_t>& numbers,
                    BatchOutcome& outcome) {
  if (numbers.size() > 1 && !m_one_by_one) return LoadTogether(files, numbers, outcome);
  return std::all_of(numbers.begin(), numbers.end(),
                     [&](std::size_t number) { return Load(number, files, outcome); });
}

RunningLoad Batch::LoadOf(const std::vector<MemFile>& files,
                          const std::vector<std::size_t>& numbers) const {
  RunningLoad load{files[numbers.front()].path, m_mem_table.table, numbers.size()};
  for (const std::size_t number : numbers) load.bytes_total += m_entries[number].size;
  return load;
}

// Whatever goes wrong is looked at file by file. So is a batch of which the server skipped rows,
// which may be those of one file for the sake of another one; and a batch of which it counted other
// records than there are lines, since an escaped line end may have joined lines of two files.
bool Batch::LoadTogether(const std::vector<MemFile>& files, const std::vector<std::size_t>& numbers,
                         BatchOutcome& outcome) {
  std::vector<LoadSource*> sources;
  sources.reserve(numbers.size());
  for (const std::size_t number : numbers) sources.push_back(m_sources[number].get());
  JoinedSource joined(sources);
  LoadCounts counts;
  const std::string load = LoadStatement(files[numbers.front()]);
  outcome = {Kind::kOneByOne, 0, SqlFailure::kNone, {}};
  if (m_sql.loadLocal(load.c_str(), joined, counts) != 0) {
    if (g_nMainRun == 0) {
      outcome = {Kind::kFailed, 0, SqlFailure::kConnection, "stopped"};
    } else if (joined.error().empty() && m_sql.lastFailure() != SqlFailure::kData) {
      outcome = Failed();
    }
    return false;
  }
  const bool changed = std::any_of(sources.begin(), sources.end(),
                                   [](const LoadSource* source) { return source->HasChanged(); });
  if (changed || counts.skipped > 0 || counts.records != joined.lines()) return false;
  for (const std::size_t number : numbers) m_entries[number].rows = m_sources[number]->lines();
  m_rows += counts.records;
  outcome = {};
  return true;
}

bool Batch::Load(std::size_t number, const std::vector<MemFile>& files, BatchOutcome& outcome) {
  const MemFile& file = files[number];
  LoadSource& source = *m_sources[number];
  const std::string load = LoadStatement(file);
  LoadCounts counts;
  if (m_sql.loadLocal(load.c_str(), source, counts) != 0) {
    return LoadFailed(number, files.size() == 1, outcome);
  }
  if (source.HasChanged()) {
    outcome = {Kind::kFileChanged, number, SqlFailure::kNone, "changed while it was read"};
    return false;
  }
  // Rows were skipped for a key: for one of this file, which counts as it would alone, or for one
  // of a file before, which would make the sums others than those of loading file by file.
  if (counts.skipped > 0 && number > 0) {
    outcome = {Kind::kFileApart, number, SqlFailure::kNone, {}};
    return false;
  }
  m_entries[number].rows = counts.records;
  if (counts.skipped > 0) m_skipped[number] = counts.skipped;
  m_rows += counts.records;
  return true;
}

// Whose fault it is: a stop and a file that could not be read end the load from this side, and the
// server's text would only repeat that. Data that the server refuses is the file's fault for
// certain only where the file stood alone: a trigger may look at the rows of the files before it.
bool Batch::LoadFailed(std::size_t number, bool alone, BatchOutcome& outcome) {
  if (g_nMainRun == 0) {
    outcome = {Kind::kFailed, number, SqlFailure::kConnection, "stopped"};
    return false;
  }
  const std::string& unread = m_sources[number]->error();
  if (!unread.empty()) {
    outcome = {Kind::kFileChanged, number, SqlFailure::kNone, unread};
    return false;
  }
  outcome = Failed();
  outcome.file = number;
  if (outcome.failure != SqlFailure::kData) return false;
  outcome.kind = alone ? Kind::kLoadFailed : Kind::kFileApart;
  return false;
}

// The second statement is for what the first one cannot digest, its data or its form. Trouble of
// the server would meet both.
bool Batch::Convert(const MidTarget& target, BatchOutcome& outcome) {
  if (m_sql.Run(target.convert)) return true;
  outcome = Failed();
  const bool may_fall_back =
      outcome.failure == SqlFailure::kData || outcome.failure == SqlFailure::kStatement;
  if (!may_fall_back || target.fallback.empty()) return false;
  if (TransactionIsGone()) {
    outcome.failure = SqlFailure::kServer;
    return false;
  }
  if (m_sql.Run(target.fallback)) return true;
  outcome = Failed();
  return false;
}

// A server that has ended the transaction would count the fallback's rows alone. Within a
// transaction it refuses the statement below; outside of one the statement changes nothing of
// weight.
bool Batch::TransactionIsGone() {
  return m_sql.Run("set transaction isolation level repeatable read");
}
