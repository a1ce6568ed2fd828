// CoefficientCoderTest.cpp - strings of DCT and residue blocks: read back by the reader, counted right, cut off anywhere.
#include <gtest/gtest.h>

#include "StreamReading.h"
#include "bitstream/CoefficientCoder.h"
#include "reader/BlockPayloads.h"

namespace vorn {
namespace {

using Block = std::vector<int>; // 64 values in block order

// A string on its way through the reader, and what is found wrong with it.
struct Reading {
    reader::Violations violations;
    reader::BitSource bits;
    reader::Reporter report;
    explicit Reading(const TestStream& stream) : bits(stream.Bits()), report{&violations, {}, &bits} {}
};

// Blocks of all sizes and densities, and extreme ones: everything at the same magnitude or half of it, or a single value.
Block MakeBlock(int round, int greatest, std::mt19937* random) {
    Block block(64, 0);
    if (round < 64) {
        block[static_cast<size_t>(round)] = round % 2 ? -1 : greatest;
        return block;
    }
    const int bits = RandomInt(random, 1, 15);
    const int density = RandomInt(random, 1, 8);
    for (int& value : block) {
        const int noise = RandomInt(random, 0, (1 << bits) - 1) >> RandomInt(random, 0, bits);
        const int wide = greatest >> RandomInt(random, 0, 1);
        const int size = round % 4 == 0 ? greatest : round % 4 == 1 ? wide : std::min(greatest, noise);
        if (RandomInt(random, 1, 8) <= density) value = RandomInt(random, 0, 1) ? -size : size;
    }
    return block;
}

uint32_t WriteAndCount(TestStream* stream, const Block& block) {
    const std::vector<int16_t> coefficients(block.begin(), block.end());
    WriteCoefficients(&stream->writer, coefficients.data());
    const uint32_t bits = BitsWritten(&stream->writer);
    EXPECT_EQ(CountCoefficientBits(coefficients.data()), bits);
    return bits;
}

TEST(Coefficients, ReadBackAndAreCounted) {
    std::mt19937 random(3);
    for (int round = 0; round < 3000; round++) {
        SCOPED_TRACE(round);
        const Block block = MakeBlock(round, round % 3 ? 1024 : 32767, &random);
        TestStream stream(PAYLOAD_ROOM_BYTES);
        const uint32_t bits = WriteAndCount(&stream, block);
        WriteBits(&stream.writer, 13, QUANTISER_BITS);
        PadToWord(&stream.writer);
        Reading reading(stream);
        int16_t read[64] = {static_cast<int16_t>(block[0])}; // travels elsewhere
        ASSERT_EQ(reader::ReadCoefficients(reading.bits, reading.report, read), 13u);
        ASSERT_EQ(Block(read, read + 64), block);
        ASSERT_EQ(reading.bits.Position(), bits + QUANTISER_BITS);
        ASSERT_TRUE(reading.violations.list.empty());
    }
}

// The reader sees what the encoder foresees at every truncation point, and the residual itself if nothing is cut off.
TEST(Residues, ReadBackAtEveryTruncation) {
    std::mt19937 random(5);
    for (int round = 0; round < 800; round++) {
        SCOPED_TRACE(round);
        const bool extreme = round % 14 == 3;
        Block block = MakeBlock(round, extreme ? 128 : 127, &random);
        for (int& value : block)
            if (value == 128) value = -128;
        if (block == Block(64, 0)) block[9] = 1;
        const std::vector<int8_t> residual(block.begin(), block.end());
        TestStream full(PAYLOAD_ROOM_BYTES);
        ASSERT_TRUE(WriteResidue(&full.writer, residual.data()));
        ASSERT_LE(BitsWritten(&full.writer), 3u + 64 * 9 + 19);
        PadToWord(&full.writer);
        BitReader bits;
        StartReader(&bits, full.room.data(), PAYLOAD_ROOM_BYTES);
        int8_t whole[64];
        ReadResidue(whole, &bits, UINT32_MAX);
        if (!extreme) {
            ASSERT_EQ(Block(whole, whole + 64), block);
        }
        for (int i = 0; i < 12; i++) {
            const uint32_t limit = i < 2 ? static_cast<uint32_t>(i) : static_cast<uint32_t>(random() & 127);
            TestStrings strings;
            int8_t shown[64], read[64];
            WriteResiduePayload(&strings.list, residual.data(), limit, shown);
            const TestStream string = strings.Copy();
            Reading reading(string);
            ASSERT_EQ(reader::ReadResidue(reading.bits, reading.report, read), limit);
            ASSERT_EQ(Block(read, read + 64), Block(shown, shown + 64)) << "limit " << limit;
            ASSERT_EQ(reading.bits.Position(), strings.list.first->bits);
            ASSERT_EQ(reading.violations.errors, 0u);
            StartReader(&bits, string.room.data(), PAYLOAD_ROOM_BYTES);
            ReadBits(&bits, RESIDUE_HEAD_BITS);
            ReadResidue(read, &bits, limit);
            ASSERT_EQ(Block(read, read + 64), Block(shown, shown + 64)) << "limit " << limit;
        }
    }
}

// With a -128 the weights are negative from the second plane on: 75 = 64 + 8 + 2 + 1 goes the other way.
TEST(Residues, MinimumTurnsTheSignsBelow) {
    int8_t residual[64] = {-128, 75};
    const int expected[] = {0, -64, -56, -54, -53};
    for (uint32_t limit = 0; limit < 5; limit++) {
        TestStrings strings;
        int8_t shown[64];
        WriteResiduePayload(&strings.list, residual, limit, shown);
        EXPECT_EQ(shown[0], -128);
        EXPECT_EQ(shown[1], expected[limit]) << limit;
    }
    TestStrings strings; // all zero
    int8_t shown[64];
    residual[0] = residual[1] = 0;
    WriteResiduePayload(&strings.list, residual, 5, shown);
    EXPECT_EQ(strings.list.first->bits, 14u);
    EXPECT_TRUE(std::equal(shown, shown + 64, residual));
}

} // namespace
} // namespace vorn
