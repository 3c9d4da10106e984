#include "config/XmlStream.h"

#include "gtest/gtest.h"
#include "testing/files.h"

constexpr char kPath[] = "/tmp/test.xml";
const std::string kGood =
    "<?xml version=\"1.0\"?><!-- c --><root><Mem> a &lt; b <x/>&#99;<![CDATA[<%s>]]>\n</Mem>"
    "<Mem>second</Mem><Conv><F><Name>f</Name></F><t table=\"all\" n='1'>T</t></Conv></root>";

bool Parse(CXmlStream& xml, const std::string& content) {
  WriteFile(kPath, content);
  const bool parsed = xml.parseFile(kPath);
  EXPECT_EQ(parsed, xml.getError().empty()) << content;
  return parsed;
}

TEST(Xml, NodesAndTexts) {
  CXmlStream xml;
  EXPECT_FALSE(xml.getNode("/root"));
  ASSERT_TRUE(Parse(xml, kGood));
  EXPECT_EQ(xml.getNode("/root/Mem").getContent(), " a < b c<%s>\n");
  EXPECT_TRUE(xml.getNode("/root/Conv/F/Name"));
  for (const char* path : {"", "/", "root", "//root", "/root/", "/Mem", "/root/mem", "/root/Mem/F",
                           "/root/Conv/F/Name/x", "/root/Mem[1]", "/root/*"}) {
    EXPECT_FALSE(xml.getNode(path)) << path;
  }
}

TEST(Xml, SiblingsAndAttributes) {
  CXmlStream xml;
  ASSERT_TRUE(Parse(xml, kGood));
  const CXmlNode last = xml.getNode("/root/Conv/F").next();
  EXPECT_EQ(xml.getNode("/root/Mem").next().getContent() + last.getContent(), "secondT");
  std::string value = "old";
  for (const auto& [name, expected] : {std::pair("table", "all"), {"Table", ""}, {"n", "1"}}) {
    last.getProp(name, value);
    EXPECT_EQ(value, expected) << name;
  }
  EXPECT_FALSE(last.next());
  last.next().getProp("table", value);
  EXPECT_EQ(value + last.next().getContent() + last.next().next().getContent(), "");
}

TEST(Xml, NothingButWholeDocumentsIsAccepted) {
  CXmlStream xml;
  for (std::size_t size = 0; size < kGood.size(); ++size) {
    EXPECT_FALSE(Parse(xml, kGood.substr(0, size))) << size;
  }
  for (const char* content : {"<a/><b/>", "<a x='1' x='2'/>", "<a>&nbsp;</a>", "<a>\xd6\xd0</a>",
                              "<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a/>",
                              "<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>",
                              "<!DOCTYPE a [<!ENTITY % e SYSTEM 'file:///etc/passwd'> %e;]><a/>"}) {
    EXPECT_FALSE(Parse(xml, content)) << content;
  }
  EXPECT_FALSE(xml.parseFile("/tmp/missing.xml") || xml.parseFile("/tmp"));
  EXPECT_TRUE(Parse(xml, "<!DOCTYPE root><root/>\n"));
}
