// From mem tables to mid tables: all mid tables of one mem table in one transaction.
//
// Creating a table ends the transaction on every kind of server, which would leave part of a mem
// table's rows converted when a later statement fails, and convert them again the next time. So all
// missing mid tables are created first, and the transaction is begun anew before the first row.

#include <cstring>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/definitions.h"
#include "midtable/mem_file_name.h"
#include "midtable/transaction.h"
#include "midtable/unit.h"
#include "support/paths.h"
#include "support/run_state.h"

int g_NoMidTable = 0;

namespace {

constexpr int kMostFailures = 100;
constexpr std::size_t kDatePosition = 4;  // behind "MEM_"

void LogFailed(const char* statement, const std::string& error) {
  g_loger(kUnit, __LINE__, kError, "sql %s error %s", statement, error.c_str());
}

}  // namespace

int CMidTable::Convert() {
  while (!m_lstConvert.empty()) {
    if (g_nMainRun == 0) return 0;
    const std::string entry = m_lstConvert.front();
    if (ConvertOneMemTable(entry) < 1) {
      g_loger(kUnit, __LINE__, kError, "convert %s error, ignore it", entry.c_str());
    }
    m_lstConvert.pop_front();
  }
  return 1;
}

int CMidTable::ConvertOneMemTable(const std::string& name) {
  m_strMemTable = GetItemFromName(name, "tablename");
  m_strDatabase = GetItemFromName(name, "dbname");
  m_strKind = m_strMemTable.empty() ? std::string() : std::string(1, m_strMemTable.back());
  m_strDate = TextAt(m_strMemTable, kDatePosition, 8);

  const bool switched = m_pSqlBase->changeDB(m_strDatabase.c_str(), NewUserPassword()) == 0;
  if (!TableExist(m_strMemTable, m_strDatabase)) {
    g_loger(kUnit, __LINE__, kDebug, "table %s.%s not exist, ignore", m_strDatabase.c_str(),
            m_strMemTable.c_str());
    return 1;
  }
  // The statements below name tables without their database: in another one they would empty a mem
  // table that nobody converted.
  if (!switched) {
    g_loger(kUnit, __LINE__, kError, "table %s.%s not converted, change db error %s",
            m_strDatabase.c_str(), m_strMemTable.c_str(), m_pSqlBase->getLastError().c_str());
    return 0;
  }

  TableDefinitions definitions;
  if (!definitions.Parse(GetDBType())) {
    // DELIBERATE: this line names the same file for every kind of store.
    g_loger(kUnit, __LINE__, kError, "parse xml file %s faild", paths::kMysqlDefinitions);
    return 0;
  }
  int count = 0;
  if (!definitions.Read(Format("/root/Conv/%s/MidCnt", m_strKind.c_str()), count)) return 0;

  Transaction transaction(*m_pSqlBase,
                          GetDBType() ? "set transaction read write" : "start transaction");
  if (!transaction.Begin()) {
    LogFailed(transaction.begin(), m_pSqlBase->getLastError());
    return 0;
  }
  if (!FillMidTables(definitions, count, transaction)) {
    transaction.Rollback();
    g_loger(kUnit, __LINE__, kError, "convert memtable %s.%s failed!", m_strDatabase.c_str(),
            m_strMemTable.c_str());
    return 0;
  }
  g_loger(kUnit, __LINE__, kInfo, "commit ok!");
  return EmptyMemTable() ? 1 : 0;
}

bool CMidTable::FillMidTables(const TableDefinitions& definitions, int count,
                              Transaction& transaction) {
  std::vector<MidTable> tables;
  bool created = false;
  for (int i = 1; i <= count; ++i) {
    MidTable table{Format("/root/Conv/%s/MidTab%d", m_strKind.c_str(), i), {}, Period::kDay};
    const Step step = PrepareMidTable(definitions, table, created);
    if (step == Step::kAbort) return false;
    if (step == Step::kConvert) tables.push_back(std::move(table));
  }
  if (created && !transaction.Begin()) {
    LogFailed(transaction.begin(), m_pSqlBase->getLastError());
    return false;
  }
  for (const MidTable& table : tables) {
    if (!ConvertMidTable(definitions, table)) return false;
  }
  if (transaction.Commit()) return true;
  LogFailed("commit", m_pSqlBase->getLastError());
  return false;
}

CMidTable::Step CMidTable::PrepareMidTable(const TableDefinitions& definitions, MidTable& table,
                                           bool& created) {
  int always = 0;
  if (!definitions.Read(table.node + "/Always", always)) return Step::kAbort;
  if (g_NoMidTable != 0 && always == 0) return Step::kSkip;

  std::string base;
  if (!definitions.Read(table.node + "/Name", base)) return Step::kAbort;
  table.name = MidTableName(base, m_strDate);
  table.period = PeriodOf(base);
  // Year tables are the operator's: neither tested nor created nor given up here.
  if (table.period == Period::kYear) return Step::kConvert;
  if (!IsSafePath(table.name)) {  // it stands between quotes, too
    g_loger(kUnit, __LINE__, kError, "xml file %s: %s/Name is not safe in a statement",
            TableDefinitions::File(GetDBType()), table.node.c_str());
    return Step::kAbort;
  }
  if (IsBadMidTable(table.name)) return Step::kSkip;

  const std::string database = table.period == Period::kMonth ? kMonthTableDatabase : m_strDatabase;
  if (TableExist(table.name, database)) return Step::kConvert;
  created = true;  // also when it fails: the server may have ended the transaction
  return CreateMidTable(definitions, table) ? Step::kConvert : Step::kAbort;
}

bool CMidTable::CreateMidTable(const TableDefinitions& definitions, const MidTable& table) {
  const std::string node = table.node + "/Create";
  const TemplateValue values[] = {table.name};
  std::string create;
  if (!definitions.Read(node, create)) return false;
  const Outcome outcome = RunTemplate(node, create, values);
  if (!outcome.ok) {
    g_loger(kUnit, __LINE__, kError, "key<%s>Create table <%s> error %s", node.c_str(),
            outcome.statement.c_str(), outcome.error.c_str());
    g_loger(kUnit, __LINE__, kError, "table name is %s is year table %d", table.name.c_str(),
            table.period == Period::kYear ? 1 : 0);
    CheckMidTable(table.name);
    return false;
  }
  return !GetDBType() || CreateSequence(definitions, table);
}

bool CMidTable::CreateSequence(const TableDefinitions& definitions, const MidTable& table) {
  const TemplateValue values[] = {table.name};
  std::string sequence;
  if (!definitions.Read("/root/Sequence", sequence)) return false;
  const Outcome outcome = RunTemplate("/root/Sequence", sequence, values);
  if (!outcome.ok) {
    g_loger(kUnit, __LINE__, kError, "Create Sequence <%s> error %s", outcome.statement.c_str(),
            outcome.error.c_str());
    return false;
  }
  g_loger(kUnit, __LINE__, kConsole, "sql <%s> success", outcome.statement.c_str());
  return true;
}

bool CMidTable::ConvertMidTable(const TableDefinitions& definitions, const MidTable& table) {
  const std::string node = table.node + (GetDBType() ? "/ConvertOracle" : "/Convert");
  std::string convert;
  if (!definitions.Read(node, convert)) return false;
  const char* const kind = m_strKind.c_str();
  // DELIBERATE: never 0, since no kind is both.
  // NOLINTNEXTLINE(bugprone-suspicious-string-compare)
  const int log_on_error = std::strcmp(kind, "F") | std::strcmp(kind, "A");
  const bool takes_city = GetDBType() && table.period == Period::kYear;
  const FilledTemplate filled =
      FillTemplate(convert, ConversionValues(GetDBType(), table.period, m_strDate, m_strMemTable,
                                             takes_city ? CityValue() : std::string()));
  if (filled && GetDBType() && table.period != Period::kDay) {
    g_loger(kUnit, __LINE__, kInfo, "convert sql is <%s>", filled.text.c_str());
  }
  const Outcome outcome = RunFilled(node, convert, filled, log_on_error);
  if (outcome.ok) return true;
  g_loger(kUnit, __LINE__, kError, "exe <%s> error %s", outcome.statement.c_str(),
          outcome.error.c_str());
  const bool has_fallback = table.period != Period::kYear && (m_strKind == "F" || m_strKind == "A");
  if (has_fallback) return !TransactionIsGone() && RunFallback(definitions, table);
  CheckMidTable(table.name);
  return false;
}

// After a deadlock, and after a lock wait where it is set so, the server has rolled back all mid
// tables before this one; what it took now would stand alone, and the mem table be emptied for it.
// Within a transaction it refuses the statement below, elsewhere that changes nothing of weight.
bool CMidTable::TransactionIsGone() {
  if (GetDBType()) return false;  // there, a failed statement takes back itself alone
  if (m_pSqlBase->executeSQL("set transaction isolation level repeatable read", 0) != 0)
    return false;
  g_loger(kUnit, __LINE__, kError, "memtable %s.%s transaction ended by the server",
          m_strDatabase.c_str(), m_strMemTable.c_str());
  return true;
}

bool CMidTable::RunFallback(const TableDefinitions& definitions, const MidTable& table) {
  const std::string node = table.node + (GetDBType() ? "/ConvertOracle" : "/Convert1");
  std::string fallback;
  if (!definitions.Read(node, fallback)) return false;
  const TemplateValue values[] = {m_strDate, m_strMemTable, m_strDate};
  // The third value is for Oracle alone.
  const Outcome outcome = RunTemplate(node, fallback, std::span(values, GetDBType() ? 3 : 2));
  if (outcome.ok) return true;
  g_loger(kUnit, __LINE__, kError, "exe <%s> error %s", outcome.statement.c_str(),
          outcome.error.c_str());
  CheckMidTable(table.name);
  return false;
}

std::string CMidTable::CityValue() {
  if (m_mapCityCrc[m_strDatabase].empty()) m_localUser.GetCityCRC(m_mapCityCrc, 1);
  std::string& city = m_mapCityCrc[m_strDatabase];
  if (city.empty()) city = '0';
  return city;
}

bool CMidTable::EmptyMemTable() {
  const std::string truncate = Format("truncate table %s", m_strMemTable.c_str());
  if (Execute(truncate)) {
    g_loger(kUnit, __LINE__, kInfo, "convert memtable %s.%s ok!", m_strDatabase.c_str(),
            m_strMemTable.c_str());
    return true;
  }
  const std::string error = m_pSqlBase->getLastError();
  LogFailed(truncate.c_str(), error);
  if (error.find("ORA-00942") != std::string::npos) return true;  // the table is gone already
  m_setConverted.insert(m_strDatabase + "." + m_strMemTable);
  return false;
}

void CMidTable::CheckMidTable(const std::string& midTable) {
  ++m_mapMidTable[m_strDatabase + midTable];
}

bool CMidTable::IsBadMidTable(const std::string& midTable) {
  const auto entry = m_mapMidTable.find(m_strDatabase + midTable);
  if (entry == m_mapMidTable.end()) return false;
  if (entry->second == kMostFailures) {
    ++entry->second;
    g_loger(kUnit, __LINE__, kError, "midtable %s is bad, skipped!", entry->first.c_str());
  }
  return entry->second > kMostFailures;
}
