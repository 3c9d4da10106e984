#include "config/TextEncoding.h"

#include <string>
#include <tuple>
#include <vector>

#include "gtest/gtest.h"

using std::string_literals::operator""s;

unsigned int Size(const std::string& text) { return static_cast<unsigned int>(text.size()); }

TEST(TextEncoding, Utf8IsCutAtWhatIsNoCharacter) {
  const struct {
    const char* what;
    std::string kept;
    std::string cut;
  } cases[] = {
      {"sequences of two and three bytes", "aé中", ""},
      {"control characters of texts", "\a\f\x1B中", ""},
      {"a sequence of six bytes", "\xFC\x84\x80\x80\x80\x80", ""},
      {"another control character", "中", "\1"},
      {"delete", "中", "\x7F"},
      {"a sequence without its lead byte", "中", "\x80"},
      {"a byte that leads no sequence", "中", "\xFE\x80\x80\x80\x80\x80"},
      {"a zero byte", "中", "\0x"s},
      {"local text", "", "\xB9\xE3"},
      {"two bytes of three", "中", "\xE4\xB8"},
      {"two bytes of six", "中", "\xFC\x84"},
  };
  for (const auto& [what, kept, cut] : cases) {
    const std::string text = kept + cut;
    // A heap block of just the text and its zero byte: the address sanitizer sees a step beyond.
    std::vector<char> block(text.c_str(), text.c_str() + text.size() + 1);
    EXPECT_EQ(IsUTF8(block.data(), Size(text)), cut.empty()) << what;
    EXPECT_EQ(SplitUTF8(block.data(), Size(text)), cut.empty()) << what;
    EXPECT_EQ(block.data(), kept) << what;
  }
}

TEST(TextEncoding, IsDeliberatelyUtf8OnlyWithOneSequenceOfThreeBytesOrMore) {
  EXPECT_EQ(IsUTF8("", 0), 0);
  EXPECT_EQ(IsUTF8("aéß", 5), 0);
  EXPECT_EQ(IsUTF8("中", 2), 0) << "the sequence ends beyond the length";
  EXPECT_EQ(IsUTF8("中\xE4\xB8x", 6), 0) << "a later one ends too early";
}

using Converted = std::tuple<int, std::string, unsigned int>;  // result, text, room left

// What the local text becomes in the encoding `to`.
Converted Convert(const std::string& text, unsigned int room, const char* to) {
  std::vector<char> dst(room + 1, '#');
  const int result = EncodeConvert(text.c_str(), Size(text), dst.data(), &room, "GBK", to);
  return {result, dst.data(), room};
}

TEST(EncodeConvert, TellsResultTextAndTheRoomThatIsLeft) {
  const struct {
    const char* what;
    std::string text;
    unsigned int room;
    const char* to;
    Converted expected;
  } cases[] = {
      {"the same encoding is a copy", "0123456789", 5, "gbk", {0, "01234", 0}},
      {"so is none, up to a cut character", "a中\0b"s, 3, "", {0, "a", 2}},
      {"invalid input is skipped", "a\xFF\xFF\xB9\xE3\xB6\xABx", 9, "utf-8", {0, "a广东x", 1}},
      {"the last character is incomplete", "a\xB9", 9, "utf-8", {-3, "a", 8}},
      {"there is no room", "\xB9\xE3\xB6\xAB", 5, "utf-8", {-3, "", 2}},
      {"the encoding is not known", "a\xB9\xE3\xB6\xAB", 9, "no such", {-1, "a", 8}},
      {"the encoding lacks two", "a\xB9\xE3\xB6\xABx", 9, "ISO-8859-1", {2, "ax", 7}},
  };
  for (const auto& [what, text, room, to, expected] : cases) {
    EXPECT_EQ(Convert(text, room, to), expected) << what;
  }
}

// A thread keeps eight conversions open, by the names that were asked for. Each text begins with a
// byte-order mark, so no conversion may go on where an earlier text ended.
TEST(EncodeConvert, TakesEachTextOnItsOwnInMoreEncodingsThanAThreadKeeps) {
  for (const char* to :
       {"UTF16", "UTF16", "UTf16", "UtF16", "Utf16", "uTF16", "uTf16", "utF16", "utf16"}) {
    EXPECT_EQ(Convert("a", 9, to), (Converted{0, "\xFF\xFE\x61", 5})) << to;
  }
}

TEST(LocalToUtf8, GivesWhatEncodeConvertGivesForEveryPairOfBytes) {
  for (int pair = 0x0101; pair <= 0xFFFF; ++pair) {
    const char text[] = {static_cast<char>(pair >> 8), static_cast<char>(pair), 'x', '\0'};
    char utf8[16] = "";
    LocalToUtf8_1(text, utf8, 15);
    ASSERT_EQ(utf8, std::get<std::string>(Convert(text, 15, "utf-8"))) << pair;
  }
}
