// RunPatternTest.cpp - run and pattern blocks: what goes into bundles and string, worked out by hand.
#include <gtest/gtest.h>

#include <cstring>

#include "StreamReading.h"
#include "bitstream/RunPatternBlocks.h"
#include "format/BlockFormat.h"

namespace vorn {
namespace {

constexpr int PITCH = 13;

struct Bundles {
    std::vector<uint64_t> room = std::vector<uint64_t>(4096);
    Arena arena = MakeArena(reinterpret_cast<uint8_t*>(room.data()), 4096 * 8);
    Bundle colours, patterns, runs;
    BlockDataList runData;
    Bundles() {
        CreateBundle(&colours, &arena, 8, {8, 64, false});
        CreateBundle(&patterns, &arena, 8, {8, 8, false});
        CreateBundle(&runs, &arena, 8, {4, 48, false});
        StartBlockDataList(&runData, &arena);
    }
};

std::vector<uint32_t> Elements(Bundle* bundle) {
    FinishBundle(bundle);
    BitReader reader;
    StartReader(&reader, ChunkWords(bundle->firstChunk), bundle->chunkCapacity);
    std::vector<uint32_t> values(bundle->firstChunk->elements);
    for (uint32_t& value : values) value = ReadBits(&reader, bundle->elementBits);
    return values;
}

// 63 equal samples and another: flat runs of 16, 16, 16, 15 stop at 63, and the last sample belongs to none.
TEST(RunBlocks, LastSampleMayStandAlone) {
    uint8_t block[64];
    std::memset(block, 0x21, 64);
    block[SCAN_ORDER[5][63]] = 0x9c;
    Bundles bundles;
    uint8_t shown[64];
    EXPECT_EQ(WriteRunBlock(shown, 8, &bundles.colours, &bundles.runs, &bundles.runData, block, 5 * 256), 4u * 256 + 5);
    EXPECT_EQ(bundles.runData.first->bits, 8u);
    EXPECT_TRUE(std::equal(shown, shown + 64, block));
    EXPECT_EQ(bundles.runs.symbolCounts[15], 3u);
    EXPECT_EQ(bundles.runs.symbolCounts[14], 1u);
    EXPECT_EQ(bundles.colours.symbolCounts[0 * 16 + 2], 1u); // the first follows 0
    EXPECT_EQ(bundles.colours.symbolCounts[2 * 16 + 2], 3u);
    EXPECT_EQ(bundles.colours.symbolCounts[2 * 16 + 9], 1u);
    EXPECT_EQ(bundles.colours.symbolCounts[COLOUR_LOW + 1], 4u);
    EXPECT_EQ(Elements(&bundles.colours), (std::vector<uint32_t>{0x21, 0x21, 0x21, 0x21, 0x9c}));
}

// Rows of `lows` samples near 10, the rest at 30; a 20 stands just between and goes to the high colour.
TEST(PatternBlocks, StoreTheCommonColourFirst) {
    struct Case {
        int lows; // of 8 in each row
        uint32_t mask, first, second;
    };
    for (const Case& c : {Case{5, 0xe0, 10, 30}, Case{4, 0xf0, 10, 30}, Case{3, 0x07, 30, 10}, Case{0, 0x00, 30, 10}}) {
        uint8_t source[8 * PITCH] = {};
        for (int row = 0; row < 8; row++)
            for (int i = 0; i < 8; i++)
                source[row * PITCH + i] = static_cast<uint8_t>(i < c.lows ? 10 + row : i == c.lows ? 20 : 30 + row);
        Bundles bundles;
        uint8_t shown[8 * PITCH] = {};
        WritePatternBlock(shown, PITCH, &bundles.colours, &bundles.patterns, source, 30 * 256 + 10);
        for (int row = 0; row < 8; row++)
            for (int i = 0; i < 8; i++) ASSERT_EQ(shown[row * PITCH + i], i < c.lows ? 10 : 30);
        EXPECT_EQ(bundles.patterns.symbolCounts[c.mask & 15] + bundles.patterns.symbolCounts[c.mask >> 4],
                  c.mask % 17 == 0 ? 32u : 16u);
        EXPECT_EQ(Elements(&bundles.patterns), std::vector<uint32_t>(8, c.mask));
        EXPECT_EQ(Elements(&bundles.colours), (std::vector<uint32_t>{c.first, c.second}));
    }
    // Twice the same colour: no sample is nearer to the low one, and all are the high one.
    uint8_t source[64] = {};
    uint8_t shown[64];
    Bundles bundles;
    WritePatternBlock(shown, 8, &bundles.colours, &bundles.patterns, source, 7 * 256 + 7);
    EXPECT_EQ(Elements(&bundles.patterns), std::vector<uint32_t>(8, 0));
}

} // namespace
} // namespace vorn
