// Table definitions: the tree of the file, and whether every statement takes what the service
// gives.

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>

#include "midtablectl/definition_report.h"
#include "midtablectl/log_phrases.h"
#include "midtablectl/statement_words.h"
#include "midtablectl/text.h"
#include "support/names.h"
#include "support/trim.h"
#include "tables/definitions.h"

namespace ctl {

namespace {

constexpr char kCountEntries[] = "write how many MidTab elements follow";

// Reports every MidTab that has the name of an earlier one. The number of different names is the
// result.
std::size_t CheckEntryNames(CXmlNode parent, DefinitionReport& report) {
  std::map<std::string, long> lines;
  for (CXmlNode node = parent.child(); node; node = node.next()) {
    if (!node.name().starts_with(kEntryElement)) continue;
    const auto [first, is_new] = lines.emplace(node.name(), node.line());
    if (is_new) continue;
    report.Fault(
        node.line(),
        node.name() + " again; that of line " + std::to_string(first->second) + " is taken",
        "number the MidTab elements from 1 without a gap");
  }
  return lines.size();
}

// Compares the number in MidCnt with that of the entries, `entries`. The result is the number of
// those to look at: as many as the service takes or, where it takes none, all.
int CheckCount(CXmlNode parent, CXmlNode counter, std::size_t entries, DefinitionReport& report) {
  const std::string text(Trim(counter.getContent()));
  const int count = std::max(NumberOf(text), 0);
  const bool is_mem = parent.name() == FileNameOf(kMemDefinitions);
  if (!is_mem && !IsPlainNumber(text)) {
    report.Fault(counter.line(),
                 "MidCnt \"" + text + "\" is no number: nothing of kind " + parent.name() +
                     " is converted, its rows stay in the mem tables",
                 kCountEntries);
    return static_cast<int>(entries);
  }
  // The service does not miss the entries beyond the number. It empties the mem table all the same,
  // so the rows that they would have taken are gone.
  const std::string effect = is_mem ? ": their files fail" : ": their rows are lost";
  if (!IsPlainNumber(text)) {
    report.Fault(counter.line(),
                 "MidCnt \"" + text + "\" is no number and taken as " + std::to_string(count),
                 kCountEntries);
  } else if (count == 0) {
    report.Warn(counter.line(), "MidCnt is 0 in " + parent.name() + effect,
                std::string(kCountEntries) + ", unless you mean it");
  }
  if (static_cast<std::size_t>(count) < entries) {
    report.Fault(counter.line(),
                 "MidCnt is " + text + " for " + Count(entries, "MidTab element") +
                     ", those beyond it are not looked at" + effect,
                 kCountEntries);
  }
  return count;
}

// The check of one file. What could be read of it goes into `set`.
class DefinitionChecker {
 public:
  DefinitionChecker(DefinitionSet& set, const Dialect& dialect, bool in_use, Findings& findings)
      : m_set(set), m_dialect(dialect), m_in_use(in_use), m_report(set.path, in_use, findings) {}

  void Run() {
    if (!m_xml.parseFile(m_set.path)) {
      ReportUnusable();
      return;
    }
    m_set.readable = true;
    const CXmlNode mem = Required(kMemDefinitions);
    const CXmlNode conv = Required(kConversionDefinitions);
    if (mem) CheckEntries(kMemDefinitions, [this](CXmlNode entry) { CheckMem(entry); });
    for (CXmlNode kind = conv.child(); kind; kind = kind.next()) CheckKind(kind);
    if (m_dialect.HasSequences()) CheckSequence();
    CompareMemAndConv();
  }

 private:
  void ReportUnusable() {
    const auto [line, reason] = SplitLine(m_xml.getError());
    m_report.Fault(line, "cannot be used: " + reason + (m_in_use ? "; every mem file fails" : ""),
                   std::string("copy the sample ") + m_dialect.DefinitionsSample() +
                       " there, or mend it by that");
  }

  // The element at `path`; null, with a report, where there is none.
  CXmlNode Required(const std::string& path) {
    const std::string name(FileNameOf(path));
    return m_report.RequiredChild(m_xml.getNode(path.substr(0, path.size() - name.size() - 1)),
                                  name);
  }

  // Calls `use` for each MidTab of `parent` that the service reads: as many as MidCnt says, up to
  // the first that is missing.
  void CheckEntries(const std::string& parent, const std::function<void(CXmlNode)>& use) {
    const CXmlNode node = m_xml.getNode(parent);
    const std::size_t entries = CheckEntryNames(node, m_report);
    const CXmlNode counter = Required(CountPath(parent));
    if (!counter) return;
    const int count = CheckCount(node, counter, entries, m_report);
    ForEachEntry(parent, count, [&](const std::string& path) {
      const CXmlNode entry = m_xml.getNode(path);
      if (entry) {
        use(entry);
      } else {
        m_report.Fault(counter.line(),
                       "MidCnt is " + std::string(Trim(counter.getContent())) +
                           ", but there is no " + std::string(FileNameOf(path)),
                       "number the MidTab elements from 1 without a gap");
      }
      return static_cast<bool>(entry);
    });
  }

  // One MidTab below Mem.
  void CheckMem(CXmlNode entry) {
    const CXmlNode name = m_report.RequiredChild(entry, "Name");
    const CXmlNode create = m_report.RequiredChild(entry, "Create");
    const std::string kind = name.getContent();
    if (name && kind.size() != 1) {
      m_report.Fault(name.line(),
                     "Name \"" + kind + "\" is not one character and never matches a mem table",
                     "write the kind letter alone, without blanks and line feeds around it");
    }
    if (!name || !create) return;
    const std::string table = SampleMemTable(kind);
    m_set.mem.push_back(
        {kind, m_report.Fill(create, MemCreateValues(table), {table}), create.line()});
    if (m_dialect.HasMysqlSyntax()) CheckMemTable(m_set.mem.back());
  }

  // What the words of a create statement tell of a mem table on MySQL.
  void CheckMemTable(const MemDefinition& mem) {
    if (mem.create.empty()) return;
    const std::string engine = EngineOf(mem.create);
    if (!engine.empty() && engine != "innodb") {
      m_report.Fault(
          mem.line,
          "engine " + engine + " keeps half of a load that failed, and rows that it altered",
          "write engine = InnoDB");
    }
    if (!NamesKey(mem.create)) {
      m_report.Warn(mem.line, std::string("mem table") + kMemWithoutKey, kGiveKey);
    }
  }

  // The element of one kind below Conv, with an entry for each table that its rows go to.
  void CheckKind(CXmlNode kind) {
    const std::string name = kind.name();
    if (name.size() != 1) {
      m_report.Fault(kind.line(), "element " + name + " is no kind of one character, never read",
                     "name it by the kind letter");
    }
    if (!m_conv_kinds.insert(name).second) {
      m_report.Fault(kind.line(), "element " + name + " again; the first one is taken",
                     "join the two");
      return;
    }
    CheckEntries(ConversionsOf(name), [this, &name](CXmlNode entry) {
      if (auto mid = CheckConversion(entry, name, m_dialect, m_report)) {
        m_set.mid.push_back(std::move(*mid));
      }
    });
  }

  // On Oracle the rows of a mid table get their numbers from a sequence of its own.
  void CheckSequence() {
    const std::string table = std::string("T_NAME1D_") + kSampleDate;
    if (const CXmlNode node = Required(kSequenceNode)) {
      m_report.Fill(node, MidCreateValues(table), {table});
    }
  }

  // Every kind needs both: a mem table to be loaded into, and a conversion that empties it again.
  void CompareMemAndConv() {
    const std::set<std::string> mem = m_set.MemKinds();
    for (const std::string& kind : mem) {
      if (m_conv_kinds.count(kind) != 0) continue;
      m_report.Fault(m_xml.getNode(kConversionDefinitions).line(),
                     "kind " + kind + " has a mem table but no conversion: its rows stay there",
                     "add element " + kind + " under Conv");
    }
    for (const std::string& kind : m_conv_kinds) {
      if (mem.count(kind) != 0) continue;
      m_report.Fault(m_xml.getNode(ConversionsOf(kind)).line(),
                     "kind " + kind + " has conversions but no mem table: its files fail",
                     "add its MidTab under Mem");
    }
  }

  DefinitionSet& m_set;
  const Dialect& m_dialect;
  const bool m_in_use;
  DefinitionReport m_report;
  CXmlStream m_xml;
  std::set<std::string> m_conv_kinds;
};

}  // namespace

std::pair<long, std::string> SplitLine(const std::string& error) {
  const std::string_view mark = kParserLine.text;
  if (!error.starts_with(mark)) return {0, error};
  char* end = nullptr;
  const long line = std::strtol(error.c_str() + mark.size(), &end, 10);
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

DefinitionSet CheckDefinitions(const std::string& path, const Dialect& dialect, bool in_use,
                               Findings& findings) {
  DefinitionSet set;
  set.path = path;
  DefinitionChecker(set, dialect, in_use, findings).Run();
  return set;
}

void CompareKinds(const DefinitionSet& used, const DefinitionSet& other, Findings& findings) {
  // Where one of the files cannot be read, nobody knows what is missing in it.
  if (!used.readable || !other.readable) return;
  const auto report_missing = [&findings](const DefinitionSet& has, const DefinitionSet& lacks) {
    const std::set<std::string> there = lacks.MemKinds();
    for (const std::string& kind : has.MemKinds()) {
      if (there.count(kind) != 0) continue;
      findings.Warning(lacks.path, 0, "kind " + kind + " is defined in " + has.path + " alone",
                       "give both files the same kinds, or remove the file that is not used");
    }
  };
  report_missing(used, other);
  report_missing(other, used);
}

}  // namespace ctl
