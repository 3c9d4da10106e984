// Table definitions: the tree, and whether each statement takes what the service gives it.

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <regex>

#include "config/XmlStream.h"
#include "log/zux_center_log.h"
#include "midtable/mem_file_name.h"
#include "midtable/sql_template.h"
#include "midtablectl/check.h"
#include "support/trim.h"

namespace ctl {

namespace {

constexpr std::size_t kLongestIdentifier = 64;

using Values = std::vector<TemplateValue>;

bool Contains(const std::string& text, const std::string& part) {
  return Lower(text).find(Lower(part)) != std::string::npos;
}

// Whether `name` stands in `text` and does not go on there: T_1M_201212 is not in T_1M_20121231.
bool Names(const std::string& text, const std::string& name) {
  const std::string where = Lower(text);
  const std::string what = Lower(name);
  for (std::size_t at = where.find(what); at != std::string::npos; at = where.find(what, at + 1)) {
    const std::string after = TextAt(where, at + what.size(), 1);
    if (after.empty() ||
        (std::isalnum(static_cast<unsigned char>(after[0])) == 0 && after != "_")) {
      return true;
    }
  }
  return false;
}

class DefinitionChecker {
 public:
  DefinitionChecker(DefinitionSet& set, bool oracle, bool in_use, Findings& findings)
      : m_set(set), m_oracle(oracle), m_in_use(in_use), m_findings(findings) {}

  void Check() {
    if (!m_xml.parseFile(m_set.path)) {
      const auto [line, reason] = SplitLine(m_xml.getError());
      Report(line, "cannot be used: " + reason + (m_in_use ? "; every mem file fails" : ""),
             m_oracle ? "copy the sample oracle/oracle_vqlog.xml there, or mend it by that"
                      : "copy the sample vqlog.xml there, or mend it by that");
      return;
    }
    m_set.readable = true;
    const CXmlNode mem = Need(m_xml.getNode("/root"), "Mem");
    const CXmlNode conv = Need(m_xml.getNode("/root"), "Conv");
    if (mem) Entries(mem, [this](CXmlNode entry) { CheckMem(entry); });
    for (CXmlNode kind = conv.child(); kind; kind = kind.next()) CheckKind(kind);
    if (m_oracle) CheckSequence();
    CompareMemAndConv();
  }

 private:
  void Report(long line, std::string what, std::string fix) {
    m_findings.Add(m_in_use, m_set.path, line, std::move(what), std::move(fix));
  }
  void Warn(long line, std::string what, std::string fix) {
    m_findings.Warning(m_set.path, line, std::move(what), std::move(fix));
  }
  static CXmlNode Child(CXmlNode parent, const std::string& name) {
    CXmlNode node = parent.child();
    while (node && node.name() != name) node = node.next();
    return node;
  }
  CXmlNode Need(CXmlNode parent, const std::string& name) {
    const CXmlNode node = Child(parent, name);
    if (!node) {
      Report(parent.line(), "element " + (parent ? parent.name() : "root") + " has no " + name,
             "add it: what needs it is given up");
    }
    return node;
  }

  // Calls `use` for each MidTab that the service reads.
  template <typename Use>
  void Entries(CXmlNode parent, Use use) {
    std::map<std::string, long> tables;
    for (CXmlNode node = parent.child(); node; node = node.next()) {
      if (!node.name().starts_with("MidTab")) continue;
      const auto [first, is_new] = tables.emplace(node.name(), node.line());
      if (!is_new) {
        Report(node.line(),
               node.name() + " again; that of line " + std::to_string(first->second) + " is taken",
               "number the MidTab elements from 1 without a gap");
      }
    }
    const CXmlNode counter = Need(parent, "MidCnt");
    if (!counter) return;
    const std::string text(Trim(counter.getContent()));
    const long count = std::max(std::atoi(text.c_str()), 0);
    // What the service does not look at it does not miss: the mem table is emptied all the same.
    const std::string effect =
        parent.name() == "Mem" ? ": their files fail" : ": their rows are lost";
    if (!IsNumber(text)) {
      Report(counter.line(),
             "MidCnt \"" + text + "\" is no number and taken as " + std::to_string(count),
             "write how many MidTab elements follow");
    } else if (count == 0) {
      Warn(counter.line(), "MidCnt is 0 in " + parent.name() + effect,
           "write how many MidTab elements follow, unless you mean it");
    }
    if (count < static_cast<long>(tables.size())) {
      Report(counter.line(),
             "MidCnt is " + text + " for " + Count(tables.size(), "MidTab element") +
                 ", those beyond it are not looked at" + effect,
             "write how many MidTab elements follow");
    }
    for (long i = 1; i <= count; ++i) {
      const std::string name = "MidTab" + std::to_string(i);
      const CXmlNode entry = Child(parent, name);
      if (!entry) {
        Report(counter.line(),
               Format("MidCnt is %s, but there is no %s", text.c_str(), name.c_str()),
               "number the MidTab elements from 1 without a gap");
        return;  // as the service does
      }
      use(entry);
    }
  }

  // The statement of `node` filled with `values`; it must use each of `names`. Empty when faulty.
  std::string Fill(CXmlNode node, const Values& values, const std::vector<std::string>& names) {
    const std::string text = node.getContent();
    if (Trim(text).empty()) {
      Report(node.line(), node.name() + " is empty", "write the statement, or remove its MidTab");
      return {};
    }
    const FilledTemplate filled = FillTemplate(text, values);
    if (!filled) {
      Report(node.line(), node.name() + ": " + filled.error,
             "see the placeholders in the head of the sample: %s text, %d number, %% a percent "
             "sign");
      return {};
    }
    for (const std::string& name : names) {
      if (Names(filled.text, name)) continue;
      Report(node.line(), node.name() + " does not use its table " + name,
             "write its placeholders in their order, %.6s for YYYYMM and %.4s for YYYY of a date");
      return {};
    }
    return filled.text;
  }

  void CheckMem(CXmlNode entry) {
    const CXmlNode name = Need(entry, "Name");
    const CXmlNode create = Need(entry, "Create");
    const std::string kind = name.getContent();
    if (name && kind.size() != 1) {
      Report(name.line(),
             "Name \"" + kind + "\" is not one character and never matches a mem table",
             "write the kind letter alone, without blanks and line feeds around it");
    }
    if (!name || !create) return;
    const std::string table = SampleMemTable(kind);
    m_set.mem.push_back({kind, Fill(create, {table}, {table}), create.line()});
    if (m_oracle || m_set.mem.back().create.empty()) return;
    const std::string& statement = m_set.mem.back().create;
    const std::string engine = EngineOf(statement);
    if (!engine.empty() && engine != "innodb") {
      Report(create.line(),
             "engine " + engine + " keeps half of a load that failed, and rows that it altered",
             "write engine = InnoDB");
    }
    if (!NamesKey(statement))
      Warn(create.line(), std::string("mem table") + kMemWithoutKey, kGiveKey);
  }

  void CheckKind(CXmlNode kind) {
    if (kind.name().size() != 1) {
      Report(kind.line(), "element " + kind.name() + " is no kind of one character, never read",
             "name it by the kind letter");
    }
    m_conv_kinds.insert(kind.name());
    Entries(kind, [this, kind](CXmlNode entry) { CheckMid(kind.name(), entry); });
  }

  void CheckMid(const std::string& kind, CXmlNode entry) {
    const CXmlNode always = Need(entry, "Always");
    if (always && !IsNumber(Trim(always.getContent()))) {
      Warn(always.line(), "Always is no number and counts as 0", "write 1");
    }
    const CXmlNode name_node = Need(entry, "Name");
    if (!name_node) return;
    const std::string name = name_node.getContent();
    if (!CheckMidName(name, name_node.line())) return;
    MidDefinition mid{kind, name, PeriodOf(name), true, {}, {}, entry.line()};
    const std::string table = SampleMemTable(kind);
    const std::string full = mid.NameAt(kSampleDate);
    const Values values = ConversionValues(m_oracle, mid.period, kSampleDate, table, "1");
    if (mid.period != Period::kYear) {
      if (const CXmlNode create = Need(entry, "Create")) {
        mid.create = Fill(create, {full}, {full});
        CheckMidCreate(mid, create.line());
      }
    }
    if (const CXmlNode convert = Need(entry, m_oracle ? "ConvertOracle" : "Convert")) {
      // A year table is not made by the service, so a statement may go without one.
      mid.has_table = mid.period != Period::kYear || Contains(convert.getContent(), name);
      mid.convert =
          mid.has_table ? Fill(convert, values, {table, full}) : Fill(convert, values, {table});
      CheckConvert(mid, convert.line());
    }
    const bool has_fallback = kind == "F" || kind == "A";
    if (!m_oracle && has_fallback && mid.period != Period::kYear) {
      if (const CXmlNode fallback = Child(entry, "Convert1")) {
        Fill(fallback, values, {table, full});
      } else {
        Warn(entry.line(), "no Convert1, which kinds F and A fall back to when Convert fails",
             "add one; it may be a copy of Convert");
      }
    }
    m_set.mid.push_back(std::move(mid));
  }

  // Whether it can be the name of a table.
  bool CheckMidName(const std::string& name, long line) {
    if (name.empty() || !IsSafeIdentifier(name) || name.size() + 8 > kLongestIdentifier) {
      Report(line, "Name \"" + name + "\" is no name of a table",
             "letters, digits and underscores alone, no blanks or line feeds around them");
      return false;
    }
    const std::string mark = PeriodMark(name);
    if (mark == "1D" || mark == "1M" || mark == "1Y") return true;
    Warn(line,
         "Name \"" + name + "\" counts as a day table: its 7th and 8th character are \"" + mark +
             "\"",
         "put 1D, 1M or 1Y there, as in T_FLOW1M_");
    return true;
  }

  void CheckMidCreate(const MidDefinition& mid, long line) {
    if (mid.create.empty() || m_oracle) return;
    if (mid.period == Period::kMonth && !Contains(mid.create, "if not exists")) {
      Report(line,
             "the month table is created again with every conversion, and without \"if not "
             "exists\" fails from the second on",
             "write create table if not exists");
    }
    const std::string engine = EngineOf(mid.create);
    if (!engine.empty() && engine != "innodb") {
      Warn(line, "engine " + engine + " keeps half of a conversion that is taken back",
           "use InnoDB for all tables");
    }
  }

  void CheckConvert(const MidDefinition& mid, long line) {
    const std::string_view statement = Trim(mid.convert);
    const std::string verb = Lower(statement.substr(0, statement.find_first_of(" \t\r\n(")));
    static const std::set<std::string> kEnders = {"create", "alter",  "drop",     "truncate",
                                                  "rename", "commit", "rollback", "start"};
    if (!m_oracle && kEnders.count(verb) != 0) {
      Report(line,
             "\"" + verb + "\" ends the transaction: rows would be counted twice on a failure",
             "fill the table with insert or update alone");
    }
    if (!m_oracle && !mid.create.empty() && !NamesKey(mid.create) && AddsUp(mid.convert)) {
      Report(line, mid.name + kMidWithoutKey, kGiveKey);
    }
  }

  void CheckSequence() {
    const std::string table = std::string("T_NAME1D_") + kSampleDate;
    if (const CXmlNode node = Need(m_xml.getNode("/root"), "Sequence"))
      Fill(node, {table}, {table});
  }

  void CompareMemAndConv() {
    const std::set<std::string> mem = m_set.MemKinds();
    for (const std::string& kind : mem) {
      if (m_conv_kinds.count(kind) != 0) continue;
      Report(m_xml.getNode("/root/Conv").line(),
             "kind " + kind + " has a mem table but no conversion: its rows stay there",
             "add element " + kind + " under Conv");
    }
    for (const std::string& kind : m_conv_kinds) {
      if (mem.count(kind) != 0) continue;
      Report(m_xml.getNode("/root/Conv/" + kind).line(),
             "kind " + kind + " has conversions but no mem table: its files fail",
             "add its MidTab under Mem");
    }
  }

  DefinitionSet& m_set;
  const bool m_oracle;
  const bool m_in_use;
  Findings& m_findings;
  CXmlStream m_xml;
  std::set<std::string> m_conv_kinds;
};

}  // namespace

std::pair<long, std::string> SplitLine(const std::string& error) {
  char* end = nullptr;
  if (!error.starts_with("line ")) return {0, error};
  const long line = std::strtol(error.c_str() + 5, &end, 10);
  return {line, end + (*end == ':' ? 2 : 0)};
}

std::string SampleMemTable(const std::string& kind) {
  return std::string("MEM_") + kSampleDate + "_0000" + kind;
}

std::set<std::string> DefinitionSet::MemKinds() const {
  std::set<std::string> kinds;
  for (const MemDefinition& entry : mem) kinds.insert(entry.kind);
  return kinds;
}

std::string EngineOf(const std::string& create) {
  const std::string text = Lower(create);
  std::size_t at = text.rfind("engine");
  if (at == std::string::npos) return {};
  at = text.find_first_not_of(" \t\r\n=", at + 6);
  if (at == std::string::npos) return {};
  const std::size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789", at);
  return text.substr(at, end == std::string::npos ? end : end - at);
}

bool NamesKey(const std::string& create) {
  static const std::regex kKey(R"(\b(key|unique)\b)", std::regex::icase);
  return std::regex_search(create, kKey);
}

bool AddsUp(const std::string& convert) {
  static const std::regex kAddsUp(R"(\bon\s+duplicate\s+key\b)", std::regex::icase);
  return std::regex_search(convert, kAddsUp);
}

DefinitionSet CheckDefinitions(const std::string& path, bool oracle, bool in_use,
                               Findings& findings) {
  DefinitionSet set;
  set.path = path;
  DefinitionChecker(set, oracle, in_use, findings).Check();
  return set;
}

void CompareKinds(const DefinitionSet& used, const DefinitionSet& other, Findings& findings) {
  if (!used.readable || !other.readable) return;
  const auto missing = [&findings](const DefinitionSet& has, const DefinitionSet& lacks) {
    const std::set<std::string> there = lacks.MemKinds();
    for (const std::string& kind : has.MemKinds()) {
      if (there.count(kind) != 0) continue;
      findings.Warning(lacks.path, 0, "kind " + kind + " is defined in " + has.path + " alone",
                       "give both files the same kinds, or remove the file that is not used");
    }
  };
  missing(used, other);
  missing(other, used);
}

}  // namespace ctl
