#include "config/TextEncoding.h"

#include <thread>
#include <tuple>
#include <vector>

#include "gtest/gtest.h"

using std::string_literals::operator""s;

using Converted = std::tuple<int, std::string, unsigned int>;  // result, text, room left

Converted Convert(const std::string& text, unsigned int room, const char* to) {
  std::vector<char> dst(room + 1, '#');
  const auto length = static_cast<unsigned int>(text.size());
  const int result = EncodeConvert(text.c_str(), length, dst.data(), &room, "GBK", to);
  return {result, dst.data(), room};
}

TEST(TextEncoding, IsDeliberatelyUtf8OnlyWithOneSequenceOfThreeBytesOrMore) {
  for (std::string text :
       {"aé中|"s, "\a\f\x1B中|"s, "\xFC\x84\x80\x80\x80\x80|"s, "中|\1"s, "中|\x7F"s, "中|\x80"s,
        "中|\xFE\x80\x80\x80\x80\x80"s, "中|\0x"s, "|\xB9\xE3"s, "中|\xE4\xB8"s, "中|\xFC\x84"s}) {
    const std::size_t kept = text.find('|');
    const auto length = static_cast<unsigned int>(text.erase(kept, 1).size());
    // A heap block of just the text and its zero byte: the address sanitizer sees a step beyond.
    std::vector<char> block(text.c_str(), text.c_str() + length + 1);
    EXPECT_EQ(IsUTF8(block.data(), length), kept == length) << text;
    EXPECT_EQ(SplitUTF8(block.data(), length), kept == length) << text;
    EXPECT_EQ(block.data(), text.substr(0, kept));
  }
  EXPECT_EQ(IsUTF8("", 0) + IsUTF8("aéß", 5) + IsUTF8("中", 2) + IsUTF8("中\xE4\xB8x", 6), 0);
}

TEST(TextEncoding, ConvertsEachTextOnItsOwn) {
  EXPECT_EQ(Convert("0123456789", 5, "gbk"), (Converted{0, "01234", 0}));
  EXPECT_EQ(Convert("a中\0b"s, 3, ""), (Converted{0, "a", 2}));
  EXPECT_EQ(Convert("a\xB9", 9, "utf-8"), (Converted{-3, "a", 8})) << "incomplete";
  EXPECT_EQ(Convert("\xB9\xE3\xB6\xAB", 5, "utf-8"), (Converted{-3, "", 2})) << "no room";
  EXPECT_EQ(Convert("a\xFF\xFF\xB9\xE3\xB6\xABx", 9, "utf-8"), (Converted{0, "a广东x", 1}));
  EXPECT_EQ(Convert("a\xB9\xE3\xB6\xAB", 9, "no such"), (Converted{-1, "a", 8}));
  EXPECT_EQ(Convert("a\xB9\xE3\xB6\xABx", 9, "ISO-8859-1"), (Converted{2, "ax", 7})) << "none";
  std::vector<char> small(6);
  LocalToUtf8_1("\xB9\xE3\xB6\xAB", small.data(), 5);
  EXPECT_STREQ(small.data(), "") << "no room";
  for (int pair = 0x0101; pair <= 0xFFFF; ++pair) {
    const char text[] = {static_cast<char>(pair >> 8), static_cast<char>(pair), 'x', '\0'};
    char dst[16];
    LocalToUtf8_1(text, dst, sizeof dst - 1);
    ASSERT_EQ(dst, std::get<std::string>(Convert(text, sizeof dst - 1, "utf-8"))) << pair;
  }
  std::string in_place(60'001, '\0');
  for (unsigned int i = 0; i < 40'000; i += 4) in_place.replace(i, 4, "\xB9\xE3\xB6\xAB");
  unsigned int left = 60'000;
  EncodeConvert(in_place.data(), 40'000, in_place.data(), &left, "GBK", "utf-8");
  EXPECT_EQ(in_place.substr(59'994), "广东\0"s);
  const auto convert = [] {  // into more encodings, as they are named, than a thread keeps
    for (const char* to :
         {"UTF16", "UTF16", "UTf16", "UtF16", "Utf16", "uTF16", "uTf16", "utF16", "utf16"}) {
      EXPECT_EQ(Convert("a", 9, to), (Converted{0, "\xFF\xFE\x61", 5})) << "a mark each time";
    }
  };
  const std::jthread one(convert), other(convert);
}
