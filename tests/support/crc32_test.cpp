#include "support/crc32.h"

#include "gtest/gtest.h"

// The literature gives this value for every implementation of this CRC to compare with.
TEST(Crc32, GivesItsCheckValue) { EXPECT_EQ(morvan_crc32("123456789", 9), 0xCBF43926u); }

TEST(Crc32, TakesBytesAbove0x7FAsUnsigned) {
  EXPECT_EQ(morvan_crc32("/\xB9\xE3/", 4), 0xCD18389Du);
}
