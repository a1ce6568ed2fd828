// BitWriterTest.cpp - where bits land, and rooms that end.
#include <gtest/gtest.h>

#include <vector>

#include "bitstream/BitWriter.h"

namespace vorn {
namespace {

// Bits land lowest first in little-endian words; a full room overflows without a write behind it.
TEST(BitWriter, PacksLowestFirstAndStopsAtItsEnd) {
    uint8_t room[12] = {};
    BitWriter writer;
    StartWriter(&writer, room, 8);
    WriteBits(&writer, 5, 3);
    WriteBits(&writer, 0x7fffffff, 31); // bits 3 to 33
    WriteBits(&writer, 0xffffff00, 8);  // only the low 8 bits count
    EXPECT_EQ(BitsWritten(&writer), 42u);
    PadToWord(&writer);
    PadToWord(&writer);
    const uint8_t expected[12] = {0xfd, 0xff, 0xff, 0xff, 0x03};
    EXPECT_EQ(std::vector<uint8_t>(room, room + 12), std::vector<uint8_t>(expected, expected + 12));
    EXPECT_FALSE(writer.overflow);
    WriteBits(&writer, 0x7fffffff, 31);
    WriteBits(&writer, 1, 1);
    EXPECT_TRUE(writer.overflow);
    EXPECT_EQ(room[8], 0);
}

} // namespace
} // namespace vorn
