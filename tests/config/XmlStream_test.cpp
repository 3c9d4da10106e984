#include "config/XmlStream.h"

#include <sys/stat.h>

#include "gtest/gtest.h"
#include "testing/files.h"

const std::string kGood =
    "<?xml version=\"1.0\"?><!-- c --><root><Mem> a &lt; b <x/>&#99;<![CDATA[<%s>]]>\n</Mem> "
    "<Mem>2<!--3--></Mem><Conv><F><Name>f</Name></F> <t table=\"all\" n='1'>T</t></Conv></root>";

void Parse(CXmlStream& xml, const std::string& content, bool accepted) {
  WriteFile("/tmp/test.xml", content);
  EXPECT_EQ(xml.parseFile("/tmp/test.xml"), accepted) << content;
  EXPECT_EQ(xml.getError().empty(), accepted) << content;
  EXPECT_EQ(static_cast<bool>(xml.getNode("/root")), accepted) << content;
}

TEST(Xml, FindsNodesTextsAndAttributes) {
  CXmlStream xml;
  Parse(xml, kGood, true);
  for (const char* path : {"", "root", "//root", "/root/", "/Mem", "/root/mem", "/root/Mem/F"}) {
    EXPECT_FALSE(xml.getNode(path)) << path;
  }
  const CXmlNode first = xml.getNode("/root/Mem"), last = xml.getNode("/root/Conv/F").next();
  EXPECT_EQ(first.getContent() + first.next().getContent(), " a < b c<%s>\n2");
  EXPECT_EQ(last.getContent() + last.next().getContent() + last.next().next().getContent(), "T");
  std::string value, none = "old";
  last.getProp("table", value);
  last.next().getProp("table", none);
  EXPECT_EQ(value + none, "all");
}

TEST(Xml, NothingButWholeDocumentsIsAccepted) {
  CXmlStream xml;
  for (std::size_t size = 0; size < kGood.size(); ++size) Parse(xml, kGood.substr(0, size), false);
  for (const char* content :
       {"<root/><b/>", "<root x='1' x='2'/>", "<root>&nbsp;</root>", "<root>\xd6\xd0</root>",
        "<!DOCTYPE root SYSTEM 'x'><root/>", "<!DOCTYPE root [<!ENTITY e 'x'>]><root>&e;</root>",
        "<!DOCTYPE root [<!ENTITY % e SYSTEM 'x'> %e;]><root/>",
        "<!DOCTYPE root [<!ATTLIST root a CDATA '1'>]><root/>", "<?xml encoding='none'?><root/>",
        "<!DOCTYPE root [<!ENTITY a 'a'><!ENTITY b '&a;&a;'>]><root x='&b;'/>"}) {
    Parse(xml, content, false);
  }
  const std::string tail(4 << 20,
                         ' ');  // read up to 4 MiB, which is some thirty times that as a tree
  Parse(xml, "<root/>" + tail, false);
  Parse(xml, "<root/>" + tail.substr(7), true);
  Parse(xml, "\xef\xbb\xbf<root/>", true);
  Parse(xml, {"\xff\xfe<\0r\0o\0o\0t\0/\0>\0", 16}, true);
  Parse(xml, std::string("<root>") + '\0' + "</root>", false);
  ASSERT_EQ(mkfifo("/tmp/pipe.xml", 0600), 0);  // nobody is at its other end
  EXPECT_FALSE(xml.parseFile("/tmp/missing.xml") || xml.parseFile("/tmp/pipe.xml"));
  EXPECT_EQ(xml.getError(), "not a regular file");
  Parse(xml, "<root>\n<a>\n</b>\n<c>", false);
  EXPECT_EQ(xml.getError().find("line 3: "), 0U) << "the first complaint: " << xml.getError();
  Parse(xml, "<!DOCTYPE root><root/>\n", true);
}
