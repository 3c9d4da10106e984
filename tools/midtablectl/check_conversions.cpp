// One MidTab below Conv: the name of a mid table, its create statement and its conversion.

#include <set>

#include "midtablectl/definition_report.h"
#include "midtablectl/statement_words.h"
#include "midtablectl/text.h"
#include "support/names.h"
#include "support/trim.h"
#include "tables/definitions.h"

namespace ctl {

namespace {

constexpr std::size_t kLongestIdentifier = 64;  // of MySQL and MariaDB
constexpr std::size_t kDateLength = 8;          // what a day table's name gets behind it

// Statements that end a transaction of MySQL, by their first word.
const std::set<std::string> kTransactionEnders = {"create", "alter",  "drop",     "truncate",
                                                  "rename", "commit", "rollback", "start"};

class ConversionCheck {
 public:
  ConversionCheck(CXmlNode entry, const std::string& kind, const Dialect& dialect,
                  DefinitionReport& report)
      : m_entry(entry), m_kind(kind), m_dialect(dialect), m_report(report) {}

  std::optional<MidDefinition> Run() {
    const CXmlNode always = m_report.RequiredChild(m_entry, "Always");
    if (always && !IsPlainNumber(always.getContent())) {
      m_report.Warn(always.line(), "Always is no number and counts as 0", "write 1");
    }
    const CXmlNode name_node = m_report.RequiredChild(m_entry, "Name");
    const std::string name = name_node.getContent();
    if (!name_node || !IsTableName(name, name_node.line())) return std::nullopt;
    MidDefinition mid{m_kind, name, PeriodOf(name), true, {}, {}, m_entry.line()};
    const ConversionInput input = {mid.period, kSampleDate, MemTable(), "1"};
    // Year tables are the operator's: the service creates none, so the entry needs no Create.
    if (mid.period != Period::kYear) ReadCreate(mid);
    ReadConvert(mid, m_dialect.ConvertValues(input));
    if (mid.period != Period::kYear) CheckFallback(mid, m_dialect.FallbackValues(input));
    return mid;
  }

 private:
  // The statements are filled for one day that is always the same, so that findings do not depend
  // on when they were looked for.
  std::string MemTable() const { return SampleMemTable(m_kind); }

  // Whether the name can be that of a table. One that is not meant as it stands is a warning.
  bool IsTableName(const std::string& name, long line) {
    if (name.empty() || !IsSafeIdentifier(name) || name.size() + kDateLength > kLongestIdentifier) {
      m_report.Fault(line, "Name \"" + name + "\" is no name of a table",
                     "letters, digits and underscores alone, no blanks or line feeds around them");
      return false;
    }
    const std::string mark = PeriodMark(name);
    if (mark == "1D" || mark == "1M" || mark == "1Y") return true;
    m_report.Warn(line,
                  "Name \"" + name + "\" counts as a day table: its 7th and 8th character are \"" +
                      mark + "\"",
                  "put 1D, 1M or 1Y there, as in T_FLOW1M_");
    return true;
  }

  void ReadCreate(MidDefinition& mid) {
    const CXmlNode create = m_report.RequiredChild(m_entry, "Create");
    if (!create) return;
    const std::string table = mid.NameAt(kSampleDate);
    mid.create = m_report.Fill(create, MidCreateValues(table), {table});
    if (mid.create.empty() || !m_dialect.HasMysqlSyntax()) return;
    // The service looks for month tables in another database than it makes them in, so it makes
    // them every time.
    if (mid.period == Period::kMonth && !ContainsWords(mid.create, "if not exists")) {
      m_report.Fault(create.line(),
                     "the month table is created again with every conversion, and without \"if not "
                     "exists\" fails from the second on",
                     "write create table if not exists");
    }
    const std::string engine = EngineOf(mid.create);
    if (!engine.empty() && engine != "innodb") {
      m_report.Warn(create.line(),
                    "engine " + engine + " keeps half of a conversion that is taken back",
                    "use InnoDB for all tables");
    }
  }

  void ReadConvert(MidDefinition& mid, const TemplateValues& values) {
    const CXmlNode convert = m_report.RequiredChild(m_entry, m_dialect.ConvertElement());
    if (!convert) return;
    // An entry for a year table may have a statement that only works on the mem table, since the
    // service makes no table for the entry.
    mid.has_table = mid.period != Period::kYear || ContainsWords(convert.getContent(), mid.name);
    std::vector<std::string> tables = {MemTable()};
    if (mid.has_table) tables.push_back(mid.NameAt(kSampleDate));
    mid.convert = m_report.Fill(convert, values, tables);
    if (m_dialect.HasMysqlSyntax()) CheckConvert(mid, convert.line());
  }

  // What only a statement for MySQL can do wrong.
  void CheckConvert(const MidDefinition& mid, long line) {
    const std::string_view statement = Trim(mid.convert);
    const std::string verb = Lower(statement.substr(0, statement.find_first_of(" \t\r\n(")));
    if (kTransactionEnders.count(verb) != 0) {
      m_report.Fault(
          line, "\"" + verb + "\" ends the transaction: rows would be counted twice on a failure",
          "fill the table with insert or update alone");
    }
    if (!mid.create.empty() && !NamesKey(mid.create) && AddsUp(mid.convert)) {
      m_report.Fault(line, mid.name + kMidWithoutKey, kGiveKey);
    }
  }

  // The second statement, unless it is the first one again.
  void CheckFallback(const MidDefinition& mid, const TemplateValues& values) {
    const std::string element = m_dialect.FallbackElement();
    const std::string first = m_dialect.ConvertElement();
    if (element == first || !HasFallback(m_kind)) return;
    if (const CXmlNode fallback = DefinitionReport::Child(m_entry, element)) {
      m_report.Fill(fallback, values, {MemTable(), mid.NameAt(kSampleDate)});
    } else {
      m_report.Warn(m_entry.line(),
                    "no " + element + ", which kinds F and A fall back to when " + first + " fails",
                    "add one; it may be a copy of " + first);
    }
  }

  const CXmlNode m_entry;
  const std::string& m_kind;
  const Dialect& m_dialect;
  DefinitionReport& m_report;
};

}  // namespace

std::optional<MidDefinition> CheckConversion(CXmlNode entry, const std::string& kind,
                                             const Dialect& dialect, DefinitionReport& report) {
  return ConversionCheck(entry, kind, dialect, report).Run();
}

}  // namespace ctl
