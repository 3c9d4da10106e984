#include "config/XmlStream.h"

#include <sys/stat.h>

#include "gtest/gtest.h"
#include "testing/files.h"

const std::string kGood =
    R"(<?xml version="1.0"?><!-- c --><root><Mem> a &lt; b <x/>&#99;<![CDATA[<%s>]]>
</Mem> <Mem>2<!--3--></Mem><Conv><F><Name>f</Name></F> <t table="all" n='1'>T</t></Conv></root>)";

class Xml : public testing::Test {
 protected:
  // Parses a document. One that is refused must leave a reason and no nodes.
  bool Accepts(const std::string& content) {
    WriteFile("/tmp/test.xml", content);
    const bool accepted = m_xml.parseFile("/tmp/test.xml");
    EXPECT_EQ(m_xml.getError().empty(), accepted) << content;
    EXPECT_EQ(static_cast<bool>(m_xml.getNode("/root")), accepted) << content;
    return accepted;
  }
  CXmlStream m_xml;
};

class GoodXml : public Xml {
 protected:
  GoodXml() { EXPECT_TRUE(Accepts(kGood)); }
};

TEST_F(GoodXml, ATextIsTheElementsOwnAsStored) {
  EXPECT_EQ(m_xml.getNode("/root/Mem").getContent(), " a < b c<%s>\n");
}

TEST_F(GoodXml, ASiblingIsTheNextElementOfAnyName) {
  EXPECT_EQ(m_xml.getNode("/root/Mem").next().getContent(), "2");
  EXPECT_EQ(m_xml.getNode("/root/Conv/F").next().getContent(), "T");
}

TEST_F(GoodXml, APathThatIsNotThereGivesANullHandle) {
  for (const char* path : {"", "root", "//root", "/root/", "/Mem", "/root/mem", "/root/Mem/F"}) {
    EXPECT_FALSE(m_xml.getNode(path)) << path;
  }
}

TEST_F(GoodXml, AnAttributeThatIsMissingIsEmptyAlsoBehindTheLastElement) {
  const CXmlNode last = m_xml.getNode("/root/Conv/t");
  std::string value;
  last.getProp("table", value);
  EXPECT_EQ(value, "all");
  last.next().getProp("table", value);
  EXPECT_EQ(value, "");
  EXPECT_EQ(last.next().next().getContent(), "");
}

TEST_F(GoodXml, IsRefusedWhereverItIsCut) {
  for (std::size_t size = 0; size < kGood.size(); ++size) {
    EXPECT_FALSE(Accepts(kGood.substr(0, size)));
  }
}

// The tree of a document takes some thirty times its size.
TEST_F(Xml, ReadsNoMoreThan4MiB) {
  const std::string longest = "<root/>" + std::string((4 << 20) - 7, ' ');
  EXPECT_TRUE(Accepts(longest));
  EXPECT_FALSE(Accepts(longest + ' '));
}

TEST_F(Xml, RefusesWhatIsNoRegularFile) {
  EXPECT_FALSE(m_xml.parseFile("/tmp/missing.xml"));
  ASSERT_EQ(mkfifo("/tmp/pipe.xml", 0600), 0);
  EXPECT_FALSE(m_xml.parseFile("/tmp/pipe.xml")) << "nobody is at its other end";
  EXPECT_EQ(m_xml.getError(), "not a regular file");
}

TEST_F(Xml, TellsTheParsersFirstComplaint) {
  EXPECT_FALSE(Accepts("<root>\n<a>\n</b>\n<c>"));
  EXPECT_TRUE(m_xml.getError().starts_with("line 3: ")) << m_xml.getError();
}
