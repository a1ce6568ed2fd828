// PixelOpsTest.cpp - sorting, and the fast pixel operations against the plain ones.
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

} // namespace
} // namespace vorn
