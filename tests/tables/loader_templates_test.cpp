#include "tables/loader_templates.h"

#include "gmock/gmock.h"
#include "testing/files.h"

namespace {

constexpr char kFile[] = "/tmp/loader_templates.xml";

// What the template for `value` says, in a file whose elements in external_load are these.
std::string Found(const std::string& elements, const char* first, const std::string& value) {
  WriteFile(kFile, "<root><external_load>" + elements + "</external_load></root>");
  CXmlStream xml;
  EXPECT_TRUE(xml.parseFile(kFile)) << xml.getError();
  return FindByAttribute(xml.getNode(first), kTableAttribute, value).getContent();
}

TEST(LoaderTemplates, OfAFileThatIsGroupedByKindAreAllFound) {
  const std::string grouped =
      "<create_memdir table='MEM_F'>dir of F</create_memdir>"
      "<create_table table='MEM_F'>table of F</create_table>"
      "<create_memdir table='MEM_A'>dir of A</create_memdir>"
      "<create_table table='MEM_A'>table of A</create_table>"
      "<create_table table='MEM_A'>another</create_table><other table='MEM_G'>no</other>";
  EXPECT_EQ(Found(grouped, kDirectoryNode, "MEM_F"), "dir of F");
  EXPECT_EQ(Found(grouped, kExternalTableNode, "MEM_F"), "table of F");
  EXPECT_EQ(Found(grouped, kDirectoryNode, "MEM_A"), "dir of A");
  EXPECT_EQ(Found(grouped, kExternalTableNode, "MEM_A"), "table of A");
  EXPECT_EQ(Found(grouped, kExternalTableNode, "MEM_G"), "");
}

}  // namespace
