#include "config/TextEncoding.h"

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "gtest/gtest.h"

namespace {

using std::string_literals::operator""s;

// A heap block of just the text and its zero byte: the address sanitizer sees a step beyond.
std::vector<char> Exact(const std::string& t) { return {t.c_str(), t.c_str() + t.size() + 1}; }

using Converted = std::tuple<int, std::string, unsigned int>;  // result, text, room left

Converted Convert(const std::string& text, unsigned int room, const char* from, const char* to) {
  std::vector<char> dst(room + 1, '#');
  const auto length = static_cast<unsigned int>(text.size());
  const int result = EncodeConvert(Exact(text).data(), length, dst.data(), &room, from, to);
  return {result, dst.data(), room};
}

TEST(TextEncoding, IsDeliberatelyUtf8OnlyWithOneSequenceOfThreeBytesOrMore) {
  const auto is_utf8 = [](const std::string& text) {
    return IsUTF8(Exact(text).data(), static_cast<unsigned int>(text.size()));
  };
  for (const auto& text :
       {"aé中"s, "\a\f\x1B中"s, "\xF0\x9F\x98\x80"s, "\xFC\x84\x80\x80\x80\x80"s}) {
    EXPECT_EQ(is_utf8(text), 1) << text;
  }
  for (const auto& text : {""s, "abc"s, "aéß"s, "中\1"s, "中\x7F"s, "中\x80"s, "中\xFE"s, "中\0x"s,
                           "\xB9\xE3"s, "中\xE4\xB8"s, "中\xFC\x84"s, "中\xE4\xB8x"s}) {
    EXPECT_EQ(is_utf8(text), 0) << text;
  }
  EXPECT_EQ(IsUTF8("中", 2), 0) << "the last sequence runs past the length";
}

TEST(TextEncoding, SplitsAtTheFirstByteThatStartsNoWholeCharacter) {
  for (const auto& text : {""s, "a中"s, "\xE4xy"s, "\xFC\1\2\3\4\5"s, "a\xE4\xB8"s, "a\1b"s,
                           "a\x80"s, "a\xFF"s, "a\0b"s}) {
    std::vector<char> cut = Exact(text);
    const int result = SplitUTF8(cut.data(), static_cast<unsigned int>(text.size()));
    EXPECT_EQ(cut.data(), result == 1 ? text : "a");
    EXPECT_EQ(result, text[0] != 'a' || text == "a中") << text;
  }
}

TEST(TextEncoding, CopiesWhatNeedsNoConversion) {
  EXPECT_EQ(Convert("0123456789", 5, "GBK", "gbk"), (Converted{0, "01234", 0}));
  EXPECT_EQ(Convert("0123456789", 5, nullptr, "GBK"), (Converted{0, "01234", 0}));
  EXPECT_EQ(Convert("0123456789", 5, "GBK", ""), (Converted{0, "01234", 0}));
  EXPECT_EQ(Convert("a中\0b"s, 3, "x", "X"), (Converted{0, "a", 2}));
}

TEST(TextEncoding, ConvertsEachTextOnItsOwn) {
  const std::string gbk = "\xB9\xE3\xB6\xAB";
  EXPECT_EQ(Convert("a\xB9", 9, "GBK", "utf-8"), (Converted{-3, "a", 8})) << "incomplete";
  EXPECT_EQ(Convert(gbk, 5, "GBK", "utf-8"), (Converted{-3, "", 2})) << "no room";
  EXPECT_EQ(Convert("a\xFF\xFF" + gbk + "b", 9, "GBK", "utf-8"), (Converted{0, "a广东b", 1}));
  EXPECT_EQ(Convert("a" + gbk, 9, "GBK", "no such"), (Converted{-1, "a", 8}));
  EXPECT_EQ(Convert("a" + gbk + "b", 9, "GBK", "ISO-8859-1"), (Converted{2, "ab", 7})) << "none";
  EXPECT_EQ(Convert("a", 9, "GBK", "UTF-16"), (Converted{0, "\xFF\xFE\x61", 5}));
  EXPECT_EQ(Convert("a", 9, "GBK", "UTF-16"), (Converted{0, "\xFF\xFE\x61", 5})) << "marked again";
  std::string in_place;
  while (in_place.size() < 40'000) in_place += gbk;
  in_place.resize(60'001);
  unsigned int left = 60'000;
  EncodeConvert(in_place.data(), 40'000, in_place.data(), &left, "GBK", "utf-8");
  EXPECT_EQ(in_place.substr(30'000, 6), "广东");
  EXPECT_EQ(left, 0u);
}

TEST(TextEncoding, LooksUpLocalCharactersAsTheConversionGivesThem) {
  for (int pair = 0x0101; pair <= 0xFFFF; ++pair) {
    const std::string text = {static_cast<char>(pair >> 8), static_cast<char>(pair), 'x'};
    char dst[16];
    LocalToUtf8_1(text.c_str(), dst, sizeof dst - 1);
    ASSERT_EQ(dst, std::get<std::string>(Convert(text.c_str(), 15, "GBK", "utf-8"))) << pair;
  }
}

TEST(TextEncoding, ThreadsUseMorePairsThanTheyKeep) {
  const auto convert_in_turn = [] {
    for (const char* to : {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "1", "2"}) {
      EXPECT_EQ(Convert("abc", 9, "GBK", ("ISO-8859-"s + to).c_str()), (Converted{0, "abc", 6}));
    }
  };
  const std::jthread one(convert_in_turn), other(convert_in_turn);
}

}  // namespace
