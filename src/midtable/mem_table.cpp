// Mem tables: whether they exist, and their creation from the definition file.

#include "db/OracleBase.h"
#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/definitions.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"
#include "support/paths.h"

namespace {

void LogRows(const std::vector<SqlRecord>& rows) {
  for (const SqlRecord& row : rows) {
    g_loger(kUnit, __LINE__, kConsoleRow, "******************************");
    for (const auto& [column, value] : row) {
      g_loger(kUnit, __LINE__, kConsoleRow, "%s:\t%s", column.c_str(), value.c_str());
    }
  }
}

}  // namespace

bool CMidTable::TableExist(const std::string& tablename, const std::string& dbname) {
  if (tablename.empty()) {
    g_loger(kUnit, __LINE__, kConsole, "table name is null, not exist");
    return false;
  }
  const std::string sql =
      GetDBType() ? Format(
                        "select object_name from all_objects where owner= upper('%s') and "
                        "object_type='TABLE' and object_name = upper('%s')",
                        dbname.c_str(), OracleToUpper(tablename).c_str())
                  : Format("show tables from %s like \"%s\"", dbname.c_str(), tablename.c_str());
  g_loger(kUnit, __LINE__, kConsole, "strSql is %s", sql.c_str());
  std::vector<SqlRecord> rows;
  const int result = m_pSqlBase->fetchRecordSet(sql.c_str(), rows);
  if (result != 0) {
    g_loger(kUnit, __LINE__, kError, "sql (%s) failed ret (%d) (%s) ", sql.c_str(), result,
            m_pSqlBase->getLastError().c_str());
    return false;
  }
  LogRows(rows);
  return !rows.empty();
}

bool CMidTable::CreateOneMemTable(const std::string& tablename, const std::string& dbname) {
  // After a refused switch the statements below would look for the table, and make it, in another
  // database.
  if (!dbname.empty() && m_pSqlBase->changeDB(dbname.c_str(), NewUserPassword()) != 0) {
    g_loger(kUnit, __LINE__, kError, "table %s.%s not made, change db error %s", dbname.c_str(),
            tablename.c_str(), m_pSqlBase->getLastError().c_str());
    return false;
  }
  if (m_pSqlBase->existTable(tablename.c_str())) return true;

  TableDefinitions definitions;
  if (!definitions.Parse(GetDBType())) {
    // DELIBERATE: this line names the same file for every kind of store.
    g_loger(kUnit, __LINE__, kError, "parse xml file %s failed", paths::kMysqlDefinitions);
    return false;
  }
  int count = 0;
  if (!definitions.Read("/root/Mem/MidCnt", count)) return false;
  const std::string kind =
      tablename.empty() ? std::string() : tablename.substr(tablename.size() - 1);
  bool defined = false;
  for (int i = 1; i <= count; ++i) {
    const std::string node = Format("/root/Mem/MidTab%d", i);
    std::string name;
    if (!definitions.Read(node + "/Name", name)) return false;
    if (name != kind) continue;
    defined = true;
    std::string create;
    if (!definitions.Read(node + "/Create", create)) return false;
    const TemplateValue values[] = {tablename};
    const Outcome outcome = RunTemplate(node + "/Create", create, values);
    if (!outcome.ok) {
      g_loger(kUnit, __LINE__, kError, "executeSQL < %s > error %s", outcome.statement.c_str(),
              outcome.error.c_str());
      return false;
    }
  }
  if (!defined) {
    g_loger(kUnit, __LINE__, kAlarm, "xml file %s: no Name in /root/Mem is kind (%s) of table %s",
            TableDefinitions::File(GetDBType()), kind.c_str(), tablename.c_str());
  }
  return true;
}

// Rows that are converted already, and could not be removed then, would be counted again together
// with the next file's.
bool CMidTable::RemoveConvertedRows(const std::string& table) {
  if (m_setConverted.count(table) == 0) return true;
  const std::string truncate = "truncate table " + table;
  if (!Execute(truncate)) {
    g_loger(kUnit, __LINE__, kError, "sql %s error %s", truncate.c_str(),
            m_pSqlBase->getLastError().c_str());
    g_loger(kUnit, __LINE__, kError, "table (%s) still holds converted rows not load",
            table.c_str());
    return false;
  }
  m_setConverted.erase(table);
  return true;
}

bool CMidTable::CreateMemTable() {
  for (const std::string& entry : m_lstConvert) {
    if (!CreateOneMemTable(entry, "")) return false;
  }
  return true;
}

std::string CMidTable::GetXMLFields(const std::string& file, const std::string& path,
                                    const std::pair<std::string, std::string>& prop) {
  CXmlStream xml;
  if (!xml.parseFile(file)) {
    g_loger(kUnit, __LINE__, kError, "xml file %s: %s", file.c_str(), xml.getError().c_str());
    g_loger(kUnit, __LINE__, kError, "parse xml file %s failed", file.c_str());
    return {};
  }
  CXmlNode node = xml.getNode(path);
  if (!node) {
    g_loger(kUnit, __LINE__, kConsole, "getNode:%s failed", path.c_str());
    return {};
  }
  if (prop.first.empty() || prop.second.empty()) return node.getContent();
  for (; node; node = node.next()) {
    std::string value;
    node.getProp(prop.first.c_str(), value);
    g_loger(kUnit, __LINE__, kConsole, "curprop is <%s> wanted prop is <%s>", value.c_str(),
            prop.second.c_str());
    if (value == prop.second) return node.getContent();
  }
  return {};
}
