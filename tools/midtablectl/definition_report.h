// What the checks of a definition file have in common: reporting, and reading with a report of what
// is missing or does not fit. For check_definitions.cpp and check_conversions.cpp.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/XmlStream.h"
#include "midtablectl/check.h"
#include "tables/template_values.h"

namespace ctl {

class DefinitionReport {
 public:
  // A fault of a file that is not in use is a warning.
  DefinitionReport(std::string path, bool in_use, Findings& findings)
      : m_path(std::move(path)), m_in_use(in_use), m_findings(findings) {}

  void Fault(long line, std::string what, std::string fix) {
    m_findings.Add(m_in_use, m_path, line, std::move(what), std::move(fix));
  }
  void Warn(long line, std::string what, std::string fix) {
    m_findings.Warning(m_path, line, std::move(what), std::move(fix));
  }

  // The first child of that name; null where there is none, which the second one reports.
  static CXmlNode Child(CXmlNode parent, const std::string& name);
  CXmlNode RequiredChild(CXmlNode parent, const std::string& name);

  // The statement in `node` as the service would send it. It takes `values` and must use each of
  // the `tables`; empty, with a report, when it does not.
  std::string Fill(CXmlNode node, const TemplateValues& values,
                   const std::vector<std::string>& tables);

 private:
  const std::string m_path;
  const bool m_in_use;
  Findings& m_findings;
};

// Looks at one MidTab of a kind below Conv. Nothing when it has no usable name: then there is no
// table to speak of.
std::optional<MidDefinition> CheckConversion(CXmlNode entry, const std::string& kind,
                                             const Dialect& dialect, DefinitionReport& report);

}  // namespace ctl
