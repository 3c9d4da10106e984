#include "midtablectl/definition_report.h"

#include "midtablectl/statement_words.h"
#include "support/trim.h"

namespace ctl {

// The service takes the first element of a name and does not see a second one.
CXmlNode DefinitionReport::Child(CXmlNode parent, const std::string& name) {
  CXmlNode node = parent.child();
  while (node && node.name() != name) node = node.next();
  return node;
}

// A missing element is one finding. The caller gets null then and leaves out what would only repeat
// it.
CXmlNode DefinitionReport::RequiredChild(CXmlNode parent, const std::string& name) {
  const CXmlNode node = Child(parent, name);
  if (!node) {
    Fault(parent.line(), "element " + (parent ? parent.name() : "root") + " has no " + name,
          "add it: what needs it is given up");
  }
  return node;
}

// The statement is filled with sample values exactly as the service does it. A statement that never
// names its table is reported although the service would run it, since the work would be done
// somewhere else.
std::string DefinitionReport::Fill(CXmlNode node, const TemplateValues& values,
                                   const std::vector<std::string>& tables) {
  const std::string text = node.getContent();
  if (Trim(text).empty()) {
    Fault(node.line(), node.name() + " is empty", "write the statement, or remove its MidTab");
    return {};
  }
  const FilledTemplate filled = FillTemplate(text, values);
  if (!filled) {
    Fault(node.line(), node.name() + ": " + filled.error,
          "see the placeholders in the head of the sample: %s text, %d number, %% a percent sign");
    return {};
  }
  for (const std::string& table : tables) {
    if (NamesTable(filled.text, table)) continue;
    Fault(node.line(), node.name() + " does not use its table " + table,
          "write its placeholders in their order, %.6s for YYYYMM and %.4s for YYYY of a date");
    return {};
  }
  return filled.text;
}

}  // namespace ctl
