// Statements of the engine: sent as they are, or made from templates.

#include "midtable/Midtable.h"
#include "midtable/definitions.h"
#include "support/trim.h"

bool CMidTable::Execute(const std::string& statement) {
  return m_pSqlBase->executeSQL(statement.c_str(), 1) == 0;
}

CMidTable::Outcome CMidTable::RunTemplate(const std::string& node, const std::string& text,
                                          std::span<const TemplateValue> values) {
  return RunFilled(node, text, FillTemplate(text, values), 1);
}

CMidTable::Outcome CMidTable::RunFilled(const std::string& node, const std::string& text,
                                        const FilledTemplate& filled, int log_on_error) {
  const bool empty = Trim(text).empty();
  if (!filled || empty) {
    const std::string reason = empty ? "template is empty" : filled.error;
    // A file may hold megabytes of it, and each mem file has it logged.
    return {false, text.substr(0, kLongestStatement),
            reason + ", see " + node + " of " + TableDefinitions::File(GetDBType())};
  }
  if (m_pSqlBase->executeSQL(filled.text.c_str(), log_on_error) == 0) {
    return {true, filled.text, {}};
  }
  return {false, filled.text, m_pSqlBase->getLastError()};
}
