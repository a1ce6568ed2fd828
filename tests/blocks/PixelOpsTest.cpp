// PixelOpsTest.cpp - extremes and rounding of the pixel operations.
#include "blocks/PixelOps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// What sorts all sequences of zeros and ones sorts everything: here many of all mixtures.
TEST(PixelOps, SortsEveryLengthInUse) {
    Noise noise = {2};
    for (uint32_t round = 0; round < 20000; round++) {
        const int lengths[] = {64, 0, 64, 1, 64, 2, 64, 3, 64, 15, 64, 16, 64, 17, 64, 256};
        const int count = lengths[round % 16];
        uint8_t bytes[257];
        uint8_t expected[257];
        for (uint8_t& byte : bytes) {
            const uint32_t random = NextNoise(&noise);
            byte = static_cast<uint8_t>(round % 7 == 0 ? random : random % 64 < round % 65 ? 1 : 0);
        }
        std::memcpy(expected, bytes, sizeof(bytes));
        std::sort(expected, expected + count);
        SortBytes(bytes, count);
        ASSERT_EQ(0, std::memcmp(bytes, expected, sizeof(bytes))) << round;
    }
}

// The mean of the two middle values of a group, rounded down, however the group is arranged.
TEST(PixelOps, HalvingTakesTheMedianOfEachGroup) {
    const struct {
        uint8_t group[4];
        int median;
    } cases[] = {{{0, 0, 255, 255}, 127}, {{10, 10, 10, 200}, 10}, {{1, 2, 4, 9}, 3}, {{0, 7, 8, 255}, 7}};
    for (const auto& one : cases) {
        uint8_t group[4];
        std::memcpy(group, one.group, 4);
        do {
            uint8_t out = 0;
            HalveBlock(&out, group, 2, 2, 2);
            EXPECT_EQ(out, one.median);
        } while (std::next_permutation(group, group + 4));
    }
}

// Every operation against its plain version: all contents, odd addresses, pitches with room between the rows, and nothing
// written beside the output.
TEST(PixelOps, FastVersionsEqualThePlainOnes) {
    constexpr int pitch = 37;
    constexpr int room = pitch * 20;
    Noise noise = {6};
    for (int round = 0; round < 600; round++) {
        uint8_t a[room];
        uint8_t b[room];
        uint8_t fast[room];
        uint8_t plain[room];
        FillSamples(a, pitch, 20, static_cast<Content>(round % CONTENTS), &noise);
        FillSamples(b, pitch, 20, static_cast<Content>(round / CONTENTS % CONTENTS), &noise);
        const uint8_t* x = a + round % 17;
        const uint8_t* y = b + round % 13;
        const int at = 5 + round % 16;
        const int colour = static_cast<int>(NextNoise(&noise) % 256);
        const int other = static_cast<int>(NextNoise(&noise) % 256);
        const auto expectSame = [&](const char* what, auto operation, auto definition, auto... arguments) {
            std::memset(fast, 0xa5, room);
            std::memset(plain, 0xa5, room);
            operation(fast + at, arguments...);
            definition(plain + at, arguments...);
            EXPECT_EQ(0, std::memcmp(fast, plain, room)) << what;
        };
        const int width = round % 3 == 0 ? 16 : round % 3 == 1 ? 32 : 10;
        expectSame("DiffBlock", DiffBlock, DiffBlockPlain, x, y, pitch, 11);
        expectSame("AddBlock", AddBlock, AddBlockPlain, x, y);
        expectSame("DoubleBlock", DoubleBlock, DoubleBlockPlain, x, pitch);
        expectSame("HalveBlock", HalveBlock, HalveBlockPlain, x, width, 16, pitch);
        expectSame("MapToColours", MapToColours, MapToColoursPlain, x, colour, other);
        const int samples = round % 260;
        const uint32_t some = static_cast<uint32_t>(samples);
        EXPECT_EQ(SadSamples(x, y, some), SadSamplesPlain(x, y, some));
        EXPECT_EQ(SadColour(x, samples, colour), SadColourPlain(x, samples, colour));
        EXPECT_EQ(SadDoubled(x, y), SadDoubledPlain(x, y));
        EXPECT_EQ(HighMedian(x), HighMedianPlain(x));
        ASSERT_FALSE(HasFailure()) << round;
    }
}

// Greatest sums; a middle between two halves; a sample halfway goes to the high colour.
TEST(PixelOps, KnownResults) {
    uint8_t black[HIGH_SAMPLES] = {};
    uint8_t white[HIGH_SAMPLES];
    std::memset(white, 255, sizeof(white));
    EXPECT_EQ(SadBlock(black, white), 16320u);
    EXPECT_EQ(SadSamples(white, black, HIGH_SAMPLES), 65280u);
    EXPECT_EQ(SadColour(white, HIGH_SAMPLES, 0), 65280u);
    EXPECT_EQ(SadColour(white, BLOCK_SAMPLES, 254), 64u);
    uint8_t high[HIGH_SAMPLES];
    for (int lows : {0, 127, 128, 129, 256}) {
        for (int i = 0; i < HIGH_SAMPLES; i++) high[i] = i * 37 % HIGH_SAMPLES < lows ? 10 : 255;
        EXPECT_EQ(HighMedian(high), lows < 128 ? 255 : lows == 128 ? 132 : 10);
    }
    EXPECT_FALSE(IsNearerLow(10, 20, 15));
    EXPECT_TRUE(IsNearerLow(10, 20, 14));
    EXPECT_FALSE(IsNearerLow(10, 10, 10));
}

} // namespace
} // namespace vorn
