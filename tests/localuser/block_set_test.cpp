#include "localuser/block_set.h"

#include <string>

#include "gtest/gtest.h"

const std::string kTexts[] = {"1380013", "0012345", "138001x", "+123456", "13800", "北", ""};

class FilledBlockSet : public testing::Test {
 protected:
  FilledBlockSet() {
    for (const std::string& text : kTexts) m_set.insert(text);
  }
  BlockSet m_set;
};

TEST_F(FilledBlockSet, HoldsExactlyWhatWasInserted) {
  for (const std::string& text : kTexts) EXPECT_TRUE(m_set.contains(text)) << text;
  for (const char* text : {"1380014", "138001X", "0123456", "12345", "013800", "+12345"}) {
    EXPECT_FALSE(m_set.contains(text)) << text;
  }
}

TEST_F(FilledBlockSet, FindsSevenDigitsByTheirNumber) {
  EXPECT_TRUE(m_set.containsBlock(12'345));
  EXPECT_FALSE(m_set.containsBlock(123'456)) << "a sign is no digit";
  EXPECT_FALSE(m_set.containsBlock(13'800)) << "these are five digits";
}

TEST_F(FilledBlockSet, HoldsNothingOnceItIsCleared) {
  m_set.clear();
  for (const std::string& text : kTexts) EXPECT_FALSE(m_set.contains(text)) << text;
  EXPECT_FALSE(m_set.containsBlock(12'345));
}
