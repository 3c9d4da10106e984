// Documents that would cost much, or bring something along, if the parser were let.
#include <sys/stat.h>

#include <ctime>
#include <functional>

#include "config/XmlStream.h"
#include "gtest/gtest.h"
#include "testing/files.h"

namespace {

using std::string_literals::operator""s;

// The texts of the numbers from 0 on, one behind the other.
std::string ForEach(int count, const std::function<std::string(int)>& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text(i);
  return all;
}

std::string Attributes(int count) {
  return ForEach(count, [](int i) { return " a" + std::to_string(i) + "=''"; });
}

std::string Namespaces(int count) {
  return ForEach(count, [](int i) { return " xmlns:n" + std::to_string(i) + "='u'"; });
}

class HostileXml : public testing::Test {
 protected:
  bool Accepts(const std::string& content) {
    WriteFile("/tmp/hostile.xml", content);
    return m_xml.parseFile("/tmp/hostile.xml");
  }
  // Why the document was refused; empty when it was accepted. The processor time counts: on a busy
  // machine any document may take seconds.
  std::string RefusalWithinASecond(const std::string& content) {
    const std::clock_t start = std::clock();
    Accepts(content);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
    return m_xml.getError();
  }

  CXmlStream m_xml;
};

TEST_F(HostileXml, AnElementMayHave256Attributes) {
  EXPECT_TRUE(Accepts("<root" + Attributes(256) + "/>")) << m_xml.getError();
  EXPECT_FALSE(Accepts("<root" + Attributes(257) + "/>"));
}

TEST_F(HostileXml, RefusesAnElementWith200000AttributesAtOnce) {
  EXPECT_EQ(RefusalWithinASecond("<root>\n<a" + Attributes(200'000) + "/></root>"),
            "line 2: an element with more than 256 attributes is not accepted");
}

TEST_F(HostileXml, Refuses200000NamespacesAtOnce) {
  EXPECT_EQ(RefusalWithinASecond("<root>\n<a" + Namespaces(200'000) + "/></root>"),
            "line 2: more than 64 namespaces are not accepted");
}

TEST_F(HostileXml, TakesAValueATextOrACommentOfFourMegabytes) {
  const std::string much((4 << 20) - 100, 'x');
  for (const std::string& content :
       {"<root a='" + much + "'/>", "<root>" + much + "</root>", "<root><!--" + much + "--></root>",
        "<root><![CDATA[" + much + "]]></root>"}) {
    EXPECT_EQ(RefusalWithinASecond(content), "") << content.substr(0, 20);
  }
}

TEST_F(HostileXml, NeverFetchesAnExternalFile) {
  ASSERT_EQ(mkfifo("/tmp/endless.dtd", 0600), 0) << "an opening would wait for ever";
  for (const std::string type : {"SYSTEM '/tmp/endless.dtd'", "PUBLIC '-//a' '/tmp/endless.dtd'",
                                 "SYSTEM '[<!ENTITY a>]'"}) {
    EXPECT_TRUE(Accepts("<!DOCTYPE root " + type + "><root/>")) << m_xml.getError();
  }
}

TEST_F(HostileXml, RefusesAReferenceThatOnlyAnExternalFileCouldExplain) {
  WriteFile("/tmp/external.dtd", "<!ENTITY e 'text'>");
  const std::string type = "<!DOCTYPE root SYSTEM '/tmp/external.dtd'>\n";
  EXPECT_EQ(RefusalWithinASecond(type + "<root>a&e;b</root>"), "line 2: Entity 'e' not defined");
}

TEST_F(HostileXml, RefusesWhateverADocumentTypeDeclares) {
  const auto notation = [](int i) { return "n" + std::to_string(i) + "|"; };
  for (const std::string& declaration :
       {"<!ELEMENT root ANY>"s, "<!ATTLIST root a CDATA '1'>"s, "<!NOTATION n SYSTEM 'x'>"s,
        "<!ENTITY % e SYSTEM '/tmp/none'> %e;"s, "<!ENTITY e SYSTEM '/etc/passwd'>"s,
        "<!ENTITY a 'x'><!ENTITY e9 '&a;&a;&a;'>"s,
        "<!ATTLIST root a NOTATION (" + ForEach(400'000, notation) + "n)>"}) {
    EXPECT_EQ(RefusalWithinASecond("<!DOCTYPE\nroot [" + declaration + "]><root>&e9;</root>"),
              "line 2: a document type with declarations is not accepted")
        << declaration.substr(0, 40);
  }
}

}  // namespace
