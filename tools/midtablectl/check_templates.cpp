// Loader templates: whether there is one for each kind that takes what the service gives it.

#include "config/XmlStream.h"
#include "midtable/sql_template.h"
#include "midtablectl/check.h"

namespace ctl {

namespace {

// One kind of loader template: the siblings of one name, chosen by their attribute "table".
struct TemplateKind {
  const char* path;
  std::vector<TemplateValue> values;
};

bool Uses(const std::string& statement, const TemplateValue& value) {
  return Lower(statement).find(Lower(std::get<std::string>(value))) != std::string::npos;
}

}  // namespace

void CheckTemplates(const std::string& path, bool oracle, const std::set<std::string>& kinds,
                    Findings& findings) {
  CXmlStream xml;
  if (!xml.parseFile(path)) {
    const auto [line, reason] = SplitLine(xml.getError());
    findings.Add(oracle, path, line,
                 "cannot be used: " + reason +
                     (oracle ? "" : "; an error line in the run log with every mem file"),
                 oracle ? "mend it; the Oracle sample of sqlldr_ctl.xml shows one that works"
                        : "copy the sample sqlldr_ctl.xml, which is empty, there");
    return;
  }
  if (!oracle) return;
  const std::string external = "WLAN_1a2b3c4d.MEM_x_external";
  const TemplateKind templates[] = {
      {"/root/external_load/create_memdir", {"WLAN_1a2b3c4d", "1a2b3c4d"}},
      {"/root/external_load/create_table", {external, "WLAN_1a2b3c4d", "file.dat"}},
      {"/root/external_merge", {"WLAN_1a2b3c4d.MEM_x", external}}};
  for (const TemplateKind& wanted : templates) {
    for (const std::string& kind : kinds) {
      CXmlNode node = xml.getNode(wanted.path);
      std::string table;
      for (; node; node = node.next()) {
        node.getProp("table", table);
        if (table == "MEM_" + kind) break;
      }
      const FilledTemplate filled = FillTemplate(node.getContent(), wanted.values);
      if (node && filled && Uses(filled.text, wanted.values[0])) continue;
      findings.Error(
          path, node.line(),
          !node ? std::string("no ") + wanted.path + " with table=\"MEM_" + kind +
                      "\": no file of that kind is loaded"
                : std::string(wanted.path) + ": " +
                      (filled ? "does not use its first value" : filled.error),
          "see the Oracle sample of sqlldr_ctl.xml for the elements and their placeholders");
    }
  }
}

}  // namespace ctl
