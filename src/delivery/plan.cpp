#include "delivery/plan.h"

#include "spool/mem_file.h"
#include "support/names.h"
#include "support/trim.h"
#include "tables/definitions.h"
#include "tables/mid_table_name.h"
#include "tables/sql_template.h"

// The identity is that of before the reading: a file that changes meanwhile is read again.
Definitions::Definitions(const Dialect& dialect)
    : m_dialect(dialect), m_identity(IdentityBehindLinks(dialect.DefinitionsFile())) {
  if (m_xml.parseFile(m_dialect.DefinitionsFile())) return;
  m_error = std::string("xml file ") + m_dialect.DefinitionsFile() + ": " + m_xml.getError();
}

bool Definitions::IsCurrent() const {
  return IdentityBehindLinks(m_dialect.DefinitionsFile()) == m_identity;
}

// The error says the same as the run log's lines of the other way of working, so that an operator
// finds one explanation for both.
bool Definitions::ReadText(const std::string& path, std::string& text, std::string& error) const {
  const CXmlNode node = m_xml.getNode(path);
  if (node) {
    text = node.getContent();
    return true;
  }
  error = std::string("xml file ") + m_dialect.DefinitionsFile() + ": no " + path;
  return false;
}

bool Definitions::ReadCount(const std::string& parent, int& count, std::string& error) const {
  std::string text;
  if (!ReadText(CountPath(parent), text, error)) return false;
  count = NumberOf(text);
  if (IsPlainNumber(text)) return true;
  error = std::string("xml file ") + m_dialect.DefinitionsFile() + ": " + CountPath(parent) +
          " is no number";
  return false;
}

// An empty template would be refused by the server with a text that names no file.
bool Definitions::FillAt(const std::string& path, const TemplateValues& values,
                         std::string& statement, std::string& error) const {
  std::string text;
  if (!ReadText(path, text, error)) return false;
  const FilledTemplate filled = FillTemplate(text, values);
  const bool empty = Trim(text).empty();
  if (filled && !empty) {
    statement = filled.text;
    return true;
  }
  error = (empty ? "template is empty" : filled.error) + ", see " + path + " of " +
          m_dialect.DefinitionsFile();
  return false;
}

// All statements of a batch are made before the first of them is sent: a definition that is wrong
// in its last template holds the files back before any row has moved. A kind without a mem table is
// the file's fault, since no definition of other kinds can mend it; a kind without conversions is
// the definition's.
PlanResult Definitions::MakePlan(const std::string& mem_table, const std::string& database,
                                 Plan& plan, std::string& error) const {
  plan = {};
  if (!m_error.empty()) {
    error = m_error;
    return PlanResult::kFaulty;
  }
  const MemFile file{{}, database, mem_table};
  const std::string kind = file.Kind();
  int count = 0;
  if (!ReadCount(kMemDefinitions, count, error)) return PlanResult::kFaulty;
  const bool mem_ready = ForEachEntry(kMemDefinitions, count, [&](const std::string& node) {
    std::string name;
    if (!ReadText(node + "/Name", name, error)) return false;
    if (name != kind) return true;
    plan.mem_creates.emplace_back();
    return FillAt(node + "/Create", MemCreateValues(mem_table), plan.mem_creates.back(), error);
  });
  if (!mem_ready) return PlanResult::kFaulty;
  if (plan.mem_creates.empty()) {
    error = "no Name in /root/Mem is kind (" + kind + ")";
    return PlanResult::kUnknownKind;
  }
  const std::string conversions = ConversionsOf(kind);
  if (!ReadCount(conversions, count, error)) return PlanResult::kFaulty;
  const ConversionInput input{Period::kDay, file.Date(), mem_table, {}};
  const bool ready = ForEachEntry(conversions, count, [&](const std::string& node) {
    return ReadTarget(node, input, database, kind, plan, error);
  });
  return ready ? PlanResult::kReady : PlanResult::kFaulty;
}

// "Always" is read because a definition without it counts as incomplete; its value decides nothing.
// Year tables are made by the operator, so they have no Create and are not looked for.
bool Definitions::ReadTarget(const std::string& node, const ConversionInput& input,
                             const std::string& database, const std::string& kind, Plan& plan,
                             std::string& error) const {
  std::string text;
  if (!ReadText(node + "/Always", text, error) || !ReadText(node + "/Name", text, error)) {
    return false;
  }
  ConversionInput own = input;
  own.period = PeriodOf(text);
  MidTarget target;
  target.name = MidTableName(text, input.date);
  if (own.period != Period::kYear) {
    if (!IsSafePath(target.name)) {
      error = std::string("xml file ") + m_dialect.DefinitionsFile() + ": " + node +
              "/Name is not safe in a statement";
      return false;
    }
    target.database = own.period == Period::kMonth ? kMonthTableDatabase : database;
    if (!FillAt(node + "/Create", MidCreateValues(target.name), target.create, error)) return false;
  }
  if (!FillAt(node + "/" + m_dialect.ConvertElement(), m_dialect.ConvertValues(own), target.convert,
              error)) {
    return false;
  }
  const std::string fallback = node + "/" + m_dialect.FallbackElement();
  // Only these kinds and periods have a second statement in the other way of working, and the sums
  // of both ways are to be the same.
  const bool may_fall_back = own.period != Period::kYear && HasFallback(kind);
  if (may_fall_back && m_xml.getNode(fallback) &&
      !FillAt(fallback, m_dialect.FallbackValues(own), target.fallback, error)) {
    return false;
  }
  plan.targets.push_back(std::move(target));
  return true;
}
