#include "tables/loader_templates.h"

#include "support/names.h"

namespace {

// The letter of the kind stands here in MEM_YYYYMMDD_HHMMk.
constexpr std::size_t kKindPosition = 17;

}  // namespace

std::string LoaderSelector(const std::string& mem_table) {
  const std::string kind = TextAt(mem_table, kKindPosition, 1);
  return kind.empty() ? std::string() : LoaderSelectorOfKind(kind);
}

std::string LoaderSelectorOfKind(const std::string& kind) { return "MEM_" + kind; }

// Siblings of another element name are passed over: a file may keep together what belongs to one
// kind, so that between two templates of one element stand those of others.
CXmlNode FindByAttribute(CXmlNode node, const std::string& attribute, const std::string& value,
                         const std::function<void(const std::string&)>& seen) {
  const std::string name = node.name();
  for (; node; node = node.next()) {
    if (node.name() != name) continue;
    std::string found;
    node.getProp(attribute.c_str(), found);
    if (seen) seen(found);
    if (found == value) break;
  }
  return node;
}
