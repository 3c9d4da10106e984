#include "midtable/conversion.h"

#include <cstring>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/names.h"
#include "support/paths.h"
#include "tables/template_values.h"

int g_NoMidTable = 0;

namespace {

void LogFailed(const char* statement, const std::string& error) {
  g_loger(kUnit, __LINE__, kError, "sql %s error %s", statement, error.c_str());
}

void LogFailed(const Outcome& outcome) {
  g_loger(kUnit, __LINE__, kError, "exe <%s> error %s", outcome.statement.c_str(),
          outcome.error.c_str());
}

}  // namespace

MemTableConversion::MemTableConversion(Store& store, CityValues& cities, MidTableFailures& failures,
                                       NotEmptied& not_emptied, const MemFile& file, bool counts)
    : m_store(store),
      m_cities(cities),
      m_failures(failures),
      m_not_emptied(not_emptied),
      m_database(file.database),
      m_mem_table(file.table),
      m_kind(file.Kind()),
      m_date(file.Date()),
      m_counts(counts) {}

// A mem table that is gone counts as converted: whoever dropped it wanted its rows away. A question
// that got no answer is another matter, since the rows may still be there.
ConversionResult MemTableConversion::Run() {
  const bool switched = SwitchToDatabase();
  switch (m_store.FindTable(m_mem_table, m_database)) {
    case Presence::kUnknown:
      FailedByServer();
      return Result();
    case Presence::kAbsent:
      g_loger(kUnit, __LINE__, kDebug, "table %s.%s not exist, ignore", m_database.c_str(),
              m_mem_table.c_str());
      return ConversionResult::kDone;
    case Presence::kPresent:
      break;
  }
  // The statements below name tables without their database: in another one they would empty a mem
  // table that nobody converted.
  int count = 0;
  if (!switched || !ReadCount(count)) return Result();

  Transaction transaction(m_store);
  if (!transaction.Begin()) {
    LogFailed(transaction.begin(), m_store.LastError());
    FailedByServer();
    return Result();
  }
  if (!FillMidTables(count, transaction)) {
    transaction.Rollback();
    g_loger(kUnit, __LINE__, kError, "convert memtable %s.%s failed!", m_database.c_str(),
            m_mem_table.c_str());
    return Result();
  }
  g_loger(kUnit, __LINE__, kInfo, "commit ok!");
  return EmptyMemTable();
}

bool MemTableConversion::Failed(SqlFailure failure, const std::string& reason) {
  m_failure = failure;
  m_reason = reason;
  return false;
}

// A mid table is given up after its hundredth failure, for good. So a failure counts only where the
// mid table's own statement or rows are at fault, and not when an old failure is merely tried
// again.
bool MemTableConversion::Failed(const Outcome& outcome, const Target& target) {
  const SqlFailure failure = outcome.failure;
  const bool own_fault = failure == SqlFailure::kStatement || failure == SqlFailure::kData;
  if (m_counts && own_fault) m_failures.Count(KeyOf(target));
  return Failed(failure, outcome.error);
}

// The reason decides when the conversion is tried again: after a reconnection, when the server has
// had a minute, or when somebody has changed the definitions. A failure without a reason of the
// server comes from reading the definitions.
ConversionResult MemTableConversion::Result() const {
  switch (m_failure) {
    case SqlFailure::kConnection:
      return ConversionResult::kConnectionLost;
    case SqlFailure::kServer:
    case SqlFailure::kPrivilege:
      return ConversionResult::kByServer;
    case SqlFailure::kNone:
    case SqlFailure::kStatement:
    case SqlFailure::kData:
      break;
  }
  return ConversionResult::kByDefinition;
}

// A failed switch is not the end yet: whether the mem table is there is asked with its database and
// can still be answered.
bool MemTableConversion::SwitchToDatabase() {
  if (m_store.Use(m_database)) return true;
  g_loger(kUnit, __LINE__, kError, "table %s.%s not converted, change db error %s",
          m_database.c_str(), m_mem_table.c_str(), m_store.LastError().c_str());
  return FailedByServer();
}

// How many mid tables the mem table feeds. A count that cannot be read would look like none, and
// the rows would be removed without having been converted.
bool MemTableConversion::ReadCount(int& count) {
  if (!m_definitions.Parse(m_store.dialect().DefinitionsFile())) {
    // DELIBERATE: this line names the same file for every kind of store.
    g_loger(kUnit, __LINE__, kError, "parse xml file %s faild", paths::kMysqlDefinitions);
    return FailedByDefinitions();
  }
  const std::string path = CountPath(ConversionsOf(m_kind));
  std::string text;
  if (!m_definitions.Read(path, text)) return FailedByDefinitions();
  count = NumberOf(text);
  if (IsPlainNumber(text)) return true;
  g_loger(kUnit, __LINE__, kError, "xml file %s: %s is no number, table %s.%s not converted",
          m_definitions.file(), path.c_str(), m_database.c_str(), m_mem_table.c_str());
  return FailedByDefinitions();
}

// In two rounds: first every mid table is looked up, and created where it is missing, then rows
// move. A creation ends the transaction, so that mixing the two would commit half a conversion.
bool MemTableConversion::FillMidTables(int count, Transaction& transaction) {
  std::vector<Target> targets;
  bool created = false;
  const bool prepared = ForEachEntry(ConversionsOf(m_kind), count, [&](const std::string& node) {
    Target target{node, {}, Period::kDay};
    const Step step = Prepare(target, created);
    if (step == Step::kConvert) targets.push_back(std::move(target));
    return step != Step::kAbort;
  });
  if (!prepared) return false;
  if (created && !transaction.Begin()) {
    LogFailed(transaction.begin(), m_store.LastError());
    return FailedByServer();
  }
  for (const Target& target : targets) {
    if (!Convert(target)) return false;
  }
  if (transaction.Commit()) return true;
  LogFailed("commit", m_store.LastError());
  return FailedByServer();
}

// The order of the questions is that of the run log's lines, which operators know: Always, Name,
// the failures so far, the table itself.
MemTableConversion::Step MemTableConversion::Prepare(Target& target, bool& created) {
  int always = 0;
  if (!m_definitions.Read(target.node + "/Always", always)) return Step::kAbort;
  if (g_NoMidTable != 0 && always == 0) return Step::kSkip;

  std::string base;
  if (!m_definitions.Read(target.node + "/Name", base)) return Step::kAbort;
  target.name = MidTableName(base, m_date);
  target.period = PeriodOf(base);
  // Year tables are the operator's: neither tested nor created nor given up here.
  if (target.period == Period::kYear) return Step::kConvert;
  // The name goes into a query between quotes, which it must not be able to end.
  if (!IsSafePath(target.name)) {
    g_loger(kUnit, __LINE__, kError, "xml file %s: %s/Name is not safe in a statement",
            m_definitions.file(), target.node.c_str());
    return Step::kAbort;
  }
  if (m_failures.IsBad(KeyOf(target))) return Step::kSkip;

  const std::string database = target.period == Period::kMonth ? kMonthTableDatabase : m_database;
  switch (m_store.FindTable(target.name, database)) {
    case Presence::kPresent:
      return Step::kConvert;
    case Presence::kUnknown:
      FailedByServer();
      return Step::kAbort;
    case Presence::kAbsent:
      break;
  }
  // A creation that fails may have ended the transaction too.
  created = true;
  return Create(target) ? Step::kConvert : Step::kAbort;
}

// The failures of a creation are those of its mid table: a table that can never be made would hold
// up all others of its kind.
bool MemTableConversion::Create(const Target& target) {
  const std::string node = target.node + "/Create";
  std::string create;
  if (!m_definitions.Read(node, create)) return false;
  const Outcome outcome = m_store.RunTemplate(node, create, MidCreateValues(target.name));
  if (!outcome.ok) {
    g_loger(kUnit, __LINE__, kError, "key<%s>Create table <%s> error %s", node.c_str(),
            outcome.statement.c_str(), outcome.error.c_str());
    g_loger(kUnit, __LINE__, kError, "table name is %s is year table %d", target.name.c_str(),
            target.period == Period::kYear ? 1 : 0);
    return Failed(outcome, target);
  }
  return !m_store.dialect().HasSequences() || CreateSequence(target);
}

// One template for all mid tables: on servers that count with sequences a new table needs its own.
bool MemTableConversion::CreateSequence(const Target& target) {
  std::string sequence;
  if (!m_definitions.Read(kSequenceNode, sequence)) return false;
  const Outcome outcome =
      m_store.RunTemplate(kSequenceNode, sequence, MidCreateValues(target.name));
  if (!outcome.ok) {
    g_loger(kUnit, __LINE__, kError, "Create Sequence <%s> error %s", outcome.statement.c_str(),
            outcome.error.c_str());
    return Failed(outcome.failure, outcome.error);
  }
  g_loger(kUnit, __LINE__, kConsole, "sql <%s> success", outcome.statement.c_str());
  return true;
}

// Kinds F and A have a second statement for rows that the first one cannot place, for instance
// since a row of their key is there already. Year tables have none.
bool MemTableConversion::Convert(const Target& target) {
  const std::string node = target.node + "/" + m_store.dialect().ConvertElement();
  std::string convert;
  if (!m_definitions.Read(node, convert)) return false;
  const char* const kind = m_kind.c_str();
  // DELIBERATE: never 0, since no kind is both.
  // NOLINTNEXTLINE(bugprone-suspicious-string-compare)
  const int log_on_error = std::strcmp(kind, "F") | std::strcmp(kind, "A");
  const Outcome outcome =
      m_store.RunFilled(node, convert, FillConvert(target, convert), log_on_error);
  if (outcome.ok) return true;
  LogFailed(outcome);
  const bool has_fallback = target.period != Period::kYear && HasFallback(m_kind);
  if (!has_fallback || outcome.failure == SqlFailure::kConnection) {
    return Failed(outcome, target);
  }
  return !TransactionIsGone() && RunFallback(target);
}

// Statements with many values are shown in the run log, because the definition alone does not tell
// what became of them.
FilledTemplate MemTableConversion::FillConvert(const Target& target, const std::string& text) {
  const Dialect& dialect = m_store.dialect();
  FilledTemplate filled = FillTemplate(text, dialect.ConvertValues(InputOf(target)));
  if (filled && dialect.ShowsConversion(target.period)) {
    g_loger(kUnit, __LINE__, kInfo, "convert sql is <%s>", filled.text.c_str());
  }
  return filled;
}

// The city is looked up only for templates that take one: on the other servers no device needs to
// have a city.
ConversionInput MemTableConversion::InputOf(const Target& target) {
  const bool takes_city = m_store.dialect().TakesCity(target.period);
  return {target.period, m_date, m_mem_table, takes_city ? m_cities.Of(m_database) : std::string()};
}

// A deadlock ends the whole transaction on some servers, and so does a lock wait where it is set
// so: the mid tables before this one are rolled back then. A second statement that succeeded after
// that would be the only one to count, and the mem table would be emptied for it. So the server is
// asked before. It refuses the statement below within a transaction; outside of a transaction the
// statement changes nothing of weight.
bool MemTableConversion::TransactionIsGone() {
  if (!m_store.dialect().FailureMayEndTransaction()) return false;
  if (!m_store.ExecuteQuietly("set transaction isolation level repeatable read")) return false;
  g_loger(kUnit, __LINE__, kError, "memtable %s.%s transaction ended by the server",
          m_database.c_str(), m_mem_table.c_str());
  Failed(SqlFailure::kServer, "the server ended the transaction");
  return true;
}

// The second statement of kinds F and A.
bool MemTableConversion::RunFallback(const Target& target) {
  const std::string node = target.node + "/" + m_store.dialect().FallbackElement();
  std::string fallback;
  if (!m_definitions.Read(node, fallback)) return false;
  const Outcome outcome =
      m_store.RunTemplate(node, fallback, m_store.dialect().FallbackValues(InputOf(target)));
  if (outcome.ok) return true;
  LogFailed(outcome);
  return Failed(outcome, target);
}

// The rows are committed: what fails here must not have them counted again, so a mem table that
// keeps them is remembered and emptied before anything else happens to it.
ConversionResult MemTableConversion::EmptyMemTable() {
  const std::string truncate = "truncate table " + m_mem_table;
  if (m_store.Execute(truncate)) {
    g_loger(kUnit, __LINE__, kInfo, "convert memtable %s.%s ok!", m_database.c_str(),
            m_mem_table.c_str());
    return ConversionResult::kDone;
  }
  const std::string error = m_store.LastError();
  LogFailed(truncate.c_str(), error);
  // A table that was dropped in the meantime has no rows to be counted twice.
  const bool is_gone = error.find("ORA-00942") != std::string::npos;
  if (is_gone) return ConversionResult::kDone;
  m_not_emptied.Add(m_database + "." + m_mem_table);
  return ConversionResult::kNotEmptied;
}
