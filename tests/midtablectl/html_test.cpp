// No text that comes from outside can become markup of the page.
#include "midtablectl/page/html.h"

#include <type_traits>

#include "gtest/gtest.h"

namespace ctl {
namespace {

// What is read at run time is no literal. For a pointer to characters the compiler says so where
// the page is built.
static_assert(!std::is_convertible_v<std::string, Literal>);
static_assert(!std::is_convertible_v<std::string_view, Literal>);

struct HostileText {
  const char* name;
  std::string text;
  std::string escaped;
  friend void PrintTo(const HostileText& one, std::ostream* out) { *out << one.name; }
};

class Escaping : public testing::TestWithParam<HostileText> {};

TEST_P(Escaping, LeavesNothingThatIsMarkup) {
  EXPECT_EQ(Escaped(GetParam().text), GetParam().escaped);
}

INSTANTIATE_TEST_SUITE_P(
    Of, Escaping,
    testing::Values(
        HostileText{"PlainText", "MEM_20121230_0000F.dat", "MEM_20121230_0000F.dat"},
        HostileText{"ATag", "<img src=x onerror=alert(1)>", "&lt;img src=x onerror=alert(1)&gt;"},
        HostileText{"AnEntity", "&lt;b&#62;", "&amp;lt;b&amp;#62;"},
        HostileText{"QuotesThatEndAnAttribute", "\" onload='x'", "&quot; onload=&#39;x&#39;"},
        HostileText{"ControlCharacters", std::string("a\n\0\x1b[31m", 8), "a???[31m"},
        HostileText{"OtherScripts", "\xE6\x9D\xAD\xE5\xB7\x9E \xF0\x9F\x90\x8D",
                    "\xE6\x9D\xAD\xE5\xB7\x9E \xF0\x9F\x90\x8D"},
        HostileText{"BytesThatAreNoUtf8",
                    "a\xFF\xE6\x9D"
                    "b",
                    "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
                    "b"},
        HostileText{"ATagInTooManyBytes", "\xC0\xBCscript\xC0\xBE",
                    "\xEF\xBF\xBD\xEF\xBF\xBDscript\xEF\xBF\xBD\xEF\xBF\xBD"},
        HostileText{"ATagInFourBytes", "\xF0\x80\x80\xBC",
                    "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        HostileText{"ASurrogate", "\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        HostileText{"TextThatRunsBackwards", "a\xE2\x80\xAEtad.b", "a\xEF\xBF\xBDtad.b"},
        HostileText{"ControlCharactersOfUnicode",
                    "a\xC2\x9B"
                    "31m",
                    "a\xEF\xBF\xBD"
                    "31m"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(HtmlTest, ElementsEndInTheOrderInWhichTheyWereNested) {
  Html html;
  {
    const auto outer = html.Begin("p");
    const auto inner = html.Begin("a", {{"href", "#x"}});
    html.Element("b", "bold");
  }
  EXPECT_EQ(html.document(), "\n<p>\n<a href=\"#x\"><b>bold</b></a></p>");
}

TEST(HtmlTest, TextsAndAttributesAreEscaped) {
  Html html;
  html.Element("td", "<b>", {{"title", "\"><script>"}});
  html.Void("path", {{"d", "'"}});
  html.Text("&");
  EXPECT_EQ(html.document(),
            "<td title=\"&quot;&gt;&lt;script&gt;\">&lt;b&gt;</td><path d=\"&#39;\"/>&amp;");
}

}  // namespace
}  // namespace ctl
