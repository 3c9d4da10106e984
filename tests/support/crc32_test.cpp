#include "support/crc32.h"

#include "gtest/gtest.h"

// The check value of this CRC in the literature, and one with bytes above 0x7F.
TEST(Crc32, IsTheStandardOne) {
  EXPECT_EQ(morvan_crc32("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(morvan_crc32("/\xB9\xE3/", 4), 0xCD18389Du);
}
