// PixelOpsTest.cpp - wrap-around, extremes, pitches and rounding of the pixel operations.
#include "blocks/PixelOps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// Differences wrap to a signed residual, and adding the reference back gives the source for every pair of values.
TEST(PixelOps, DifferencesWrapAndAddBack) {
    uint8_t a[BLOCK_SAMPLES];
    uint8_t b[BLOCK_SAMPLES];
    uint8_t difference[BLOCK_SAMPLES];
    uint8_t sum[BLOCK_SAMPLES];
    std::memset(a, 3, sizeof(a));
    std::memset(b, 250, sizeof(b));
    DiffBlock(difference, a, b, BLOCK_SIDE, BLOCK_SIDE);
    EXPECT_EQ(difference[17], 9);
    DiffBlock(difference, b, a, BLOCK_SIDE, BLOCK_SIDE);
    EXPECT_EQ(static_cast<int8_t>(difference[63]), -9);
    for (int first = 0; first < 256 * 256; first += BLOCK_SAMPLES) {
        for (int i = 0; i < BLOCK_SAMPLES; i++) {
            a[i] = static_cast<uint8_t>((first + i) >> 8);
            b[i] = static_cast<uint8_t>(first + i);
        }
        DiffBlock(difference, a, b, BLOCK_SIDE, BLOCK_SIDE);
        AddBlock(sum, difference, b);
        ASSERT_EQ(0, std::memcmp(sum, a, sizeof(a)));
    }
}

TEST(PixelOps, SadIsExactAtTheExtremes) {
    uint8_t black[HIGH_SAMPLES] = {};
    uint8_t white[HIGH_SAMPLES];
    std::memset(white, 255, sizeof(white));
    EXPECT_EQ(SadBlock(black, white), 16320u);
    EXPECT_EQ(SadBlock(white, black), 16320u);
    EXPECT_EQ(SadSamples(white, black, HIGH_SAMPLES), 65280u);
    EXPECT_EQ(SadColour(white, HIGH_SAMPLES, 0), 65280u);
    EXPECT_EQ(SadColour(white, BLOCK_SAMPLES, 254), 64u);
    black[63] = 7;
    white[63] = 4;
    EXPECT_EQ(SadBlock(black, white), 63u * 255 + 3);
}

// Copies with a pitch touch the 8x8 area and nothing else.
TEST(PixelOps, PitchedCopiesStayInsideTheirArea) {
    constexpr int pitch = 24;
    Noise noise = {1};
    uint8_t plane[pitch * 16];
    uint8_t copy[pitch * 16];
    uint8_t block[BLOCK_SAMPLES];
    FillSamples(plane, pitch, 16, CONTENT_NOISE, &noise);
    std::memcpy(copy, plane, sizeof(plane));
    LoadBlock(block, plane + 2 * pitch + 5, pitch);
    EXPECT_EQ(block[0], plane[2 * pitch + 5]);
    EXPECT_EQ(block[63], plane[9 * pitch + 12]);
    for (uint8_t& sample : block) sample = static_cast<uint8_t>(sample + 1);
    StoreBlock(plane + 2 * pitch + 5, block, pitch);
    for (int i = 0; i < pitch * 16; i++) {
        const bool inside = i / pitch >= 2 && i / pitch < 10 && i % pitch >= 5 && i % pitch < 13;
        EXPECT_EQ(plane[i], static_cast<uint8_t>(copy[i] + (inside ? 1 : 0))) << i;
    }
}

TEST(PixelOps, SortsEveryLengthInUse) {
    Noise noise = {2};
    for (int content = 0; content < CONTENTS; content++) {
        for (int count : {0, 1, 2, 3, 15, 16, 17, 64, 256}) {
            uint8_t bytes[257];
            uint8_t expected[257];
            FillSamples(bytes, 257, 1, static_cast<Content>(content), &noise);
            std::memcpy(expected, bytes, sizeof(bytes));
            std::sort(expected, expected + count);
            SortBytes(bytes, count);
            ASSERT_EQ(0, std::memcmp(bytes, expected, sizeof(bytes))) << content << " " << count;
        }
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

// Halving an area with a pitch gives packed rows; what was doubled halves to itself.
TEST(PixelOps, DoublingThenHalvingGivesTheBlockBack) {
    constexpr int pitch = 40;
    Noise noise = {3};
    uint8_t block[BLOCK_SAMPLES];
    uint8_t plane[pitch * 18];
    uint8_t halved[BLOCK_SAMPLES];
    FillSamples(block, 8, 8, CONTENT_NOISE, &noise);
    std::memset(plane, 77, sizeof(plane));
    DoubleBlock(plane + pitch + 3, block, pitch);
    EXPECT_EQ(plane[pitch + 3 + 5 * pitch + 9], block[2 * 8 + 4]);
    int outside = 0;
    for (int i = 0; i < pitch * 18; i++) {
        const bool inside = i / pitch >= 1 && i / pitch < 17 && i % pitch >= 3 && i % pitch < 19;
        if (!inside && plane[i] != 77) outside++;
    }
    EXPECT_EQ(outside, 0);
    HalveBlock(halved, plane + pitch + 3, 16, 16, pitch);
    EXPECT_EQ(0, std::memcmp(halved, block, sizeof(block)));
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
        const auto expectSame = [&](const char* what, auto operation, auto definition) {
            std::memset(fast, 0xa5, room);
            std::memset(plain, 0xa5, room);
            operation(fast + at);
            definition(plain + at);
            EXPECT_EQ(0, std::memcmp(fast, plain, room)) << what << " " << round;
        };
        expectSame(
            "DiffBlock", [&](uint8_t* out) { DiffBlock(out, x, y, pitch, 11); },
            [&](uint8_t* out) { DiffBlockPlain(out, x, y, pitch, 11); });
        expectSame(
            "AddBlock", [&](uint8_t* out) { AddBlock(out, x, y); }, [&](uint8_t* out) { AddBlockPlain(out, x, y); });
        expectSame(
            "DoubleBlock", [&](uint8_t* out) { DoubleBlock(out, x, pitch); },
            [&](uint8_t* out) { DoubleBlockPlain(out, x, pitch); });
        const int width = round % 3 == 0 ? 16 : round % 3 == 1 ? 32 : 10;
        expectSame(
            "HalveBlock", [&](uint8_t* out) { HalveBlock(out, x, width, 16, pitch); },
            [&](uint8_t* out) { HalveBlockPlain(out, x, width, 16, pitch); });
        expectSame(
            "MapToColours", [&](uint8_t* out) { MapToColours(out, x, colour, other); },
            [&](uint8_t* out) { MapToColoursPlain(out, x, colour, other); });
        const int samples = round % 260;
        EXPECT_EQ(SadSamples(x, y, static_cast<uint32_t>(samples)),
                  SadSamplesPlain(x, y, static_cast<uint32_t>(samples)));
        EXPECT_EQ(SadColour(x, samples, colour), SadColourPlain(x, samples, colour));
        EXPECT_EQ(SadDoubled(x, y), SadDoubledPlain(x, y));
        EXPECT_EQ(HighMedian(x), HighMedianPlain(x));
        ASSERT_FALSE(HasFailure()) << round;
    }
}

// What sorts all sequences of zeros and ones sorts everything: here all numbers of ones at many random places.
TEST(PixelOps, SortsZerosAndOnes) {
    Noise noise = {7};
    for (int ones = 0; ones <= BLOCK_SAMPLES; ones++) {
        for (int round = 0; round < 300; round++) {
            uint8_t bytes[BLOCK_SAMPLES] = {};
            for (int set = 0; set < ones;) {
                uint8_t& sample = bytes[NextNoise(&noise) % BLOCK_SAMPLES];
                set += sample == 0 ? 1 : 0;
                sample = 1;
            }
            SortBytes(bytes, BLOCK_SAMPLES);
            for (int i = 0; i < BLOCK_SAMPLES; i++) ASSERT_EQ(bytes[i], i >= BLOCK_SAMPLES - ones ? 1 : 0) << ones;
        }
    }
}

TEST(PixelOps, MiddleOfTwoHalves) {
    uint8_t high[HIGH_SAMPLES];
    for (int lows : {0, 127, 128, 129, 256}) {
        for (int i = 0; i < HIGH_SAMPLES; i++) high[i] = i * 37 % HIGH_SAMPLES < lows ? 10 : 255;
        EXPECT_EQ(HighMedian(high), lows < 128 ? 255 : lows == 128 ? 132 : 10);
    }
}

TEST(PixelOps, ASampleHalfwayGoesToTheHighColour) {
    EXPECT_FALSE(IsNearerLow(10, 20, 15));
    EXPECT_TRUE(IsNearerLow(10, 20, 14));
    EXPECT_FALSE(IsNearerLow(10, 10, 10));
}

} // namespace
} // namespace vorn
