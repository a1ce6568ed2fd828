// CoefficientCoderTest.cpp - strings at the ends of what they can hold. Others are read back by the fuzz target `strings`, and
// by the reader in whole planes.
#include <gtest/gtest.h>

#include <algorithm>

#include "bitstream/CoefficientCoder.h"
#include "reader/BlockPayloads.h"
#include "tests/bitstream/StreamReading.h"

namespace vorn {
namespace {

// Blocks of any greatest bit length, up to what 16 bits hold: all values of that length or one less, and fewer and fewer.
TEST(Coefficients, ReadBackAndAreCounted) {
    std::mt19937 random(3);
    for (int round = 0; round < 1600; round++) {
        SCOPED_TRACE(round);
        const int most = (1 << round / 2 % 16) - 1;
        const int thinning = round / 32 % 10;
        int16_t block[64];
        for (int16_t& value : block) {
            const int shorter = RandomInt(&random, 0, RandomInt(&random, 0, 9) < thinning ? 15 : round % 2);
            value = static_cast<int16_t>((most >> shorter) * (RandomInt(&random, 0, 1) * 2 - 1));
        }
        TestStream stream(PAYLOAD_ROOM_BYTES);
        WriteCoefficients(&stream.writer, block);
        const uint32_t bits = BitsWritten(&stream.writer);
        ASSERT_EQ(CountCoefficientBits(block), bits);
        WriteBits(&stream.writer, 13, QUANTISER_BITS);
        PadToWord(&stream.writer);
        reader::Violations violations;
        reader::BitSource source = stream.Bits();
        reader::Reporter report = {&violations, {}, &source};
        int16_t read[64] = {block[0]}; // travels elsewhere
        ASSERT_EQ(reader::ReadCoefficients(source, report, read), 13u);
        ASSERT_TRUE(std::equal(read, read + 64, block));
        ASSERT_EQ(source.Position(), bits + QUANTISER_BITS);
        ASSERT_TRUE(violations.list.empty());
    }
}

// With a -128 the weights are negative from the second plane on: 75 = 64 + 8 + 2 + 1 goes the other way.
TEST(Residues, MinimumTurnsTheSignsBelow) {
    int8_t residual[64] = {-128, 75};
    const int expected[] = {0, -64, -56, -54, -53};
    std::vector<uint64_t> room(1 << 10);
    Arena arena = MakeArena(reinterpret_cast<uint8_t*>(room.data()), room.size() * 8);
    BlockDataList list;
    StartBlockDataList(&list, &arena);
    int8_t shown[64];
    for (uint32_t limit = 0; limit < 5; limit++) {
        WriteResiduePayload(&list, residual, limit, shown);
        EXPECT_EQ(shown[0], -128);
        EXPECT_EQ(shown[1], expected[limit]) << limit;
    }
    residual[0] = residual[1] = 0;
    WriteResiduePayload(&list, residual, 5, shown);
    EXPECT_TRUE(std::equal(shown, shown + 64, residual));
}

} // namespace
} // namespace vorn
