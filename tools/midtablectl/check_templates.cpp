// Loader templates: whether there is one for each kind, and whether it takes what the service
// gives.

#include "config/XmlStream.h"
#include "midtablectl/check.h"
#include "midtablectl/statement_words.h"
#include "support/database_name.h"
#include "tables/loader_templates.h"
#include "tables/template_values.h"

namespace ctl {

namespace {

// The templates of one statement: elements of one name side by side, each for one kind. The first
// value is the one that no statement can do without.
struct TemplateKind {
  const char* path;
  TemplateValues values;
};

// What is wrong with the template of a kind; empty when nothing is. `line` becomes that of the
// element.
std::string TemplateFault(const CXmlStream& xml, const TemplateKind& wanted,
                          const std::string& kind, long& line) {
  const std::string selector = LoaderSelectorOfKind(kind);
  const CXmlNode node = FindByAttribute(xml.getNode(wanted.path), kTableAttribute, selector);
  line = node.line();
  if (!node) {
    return std::string("no ") + wanted.path + " with " + kTableAttribute + "=\"" + selector +
           "\": no file of that kind is loaded";
  }
  const FilledTemplate filled = FillTemplate(node.getContent(), wanted.values);
  if (!filled) return std::string(wanted.path) + ": " + filled.error;
  if (ContainsWords(filled.text, std::get<std::string>(wanted.values[0]))) return {};
  return std::string(wanted.path) + ": does not use its first value";
}

}  // namespace

void CheckTemplates(const std::string& path, const Dialect& dialect,
                    const std::set<std::string>& kinds, Findings& findings) {
  const bool in_use = dialect.LoadsOverExternalTables();
  CXmlStream xml;
  if (!xml.parseFile(path)) {
    const auto [line, reason] = SplitLine(xml.getError());
    findings.Add(in_use, path, line,
                 "cannot be used: " + reason +
                     (in_use ? "" : "; an error line in the run log with every mem file"),
                 in_use ? "mend it; the Oracle sample of sqlldr_ctl.xml shows one that works"
                        : "copy the sample sqlldr_ctl.xml, which is empty, there");
    return;
  }
  if (!in_use) return;
  // The templates are filled with the values of a made-up file.
  const std::string database = DatabaseName("1a2b3c4d");
  const std::string table = "MEM_x";
  const TemplateKind templates[] = {
      {kDirectoryNode, DirectoryValues(database)},
      {kExternalTableNode, ExternalTableValues(database, table, "file.dat")},
      {kMergeNode, MergeValues(database, table)}};
  for (const TemplateKind& wanted : templates) {
    for (const std::string& kind : kinds) {
      long line = 0;
      const std::string fault = TemplateFault(xml, wanted, kind, line);
      if (fault.empty()) continue;
      findings.Error(
          path, line, fault,
          "see the Oracle sample of sqlldr_ctl.xml for the elements and their placeholders");
    }
  }
}

}  // namespace ctl
