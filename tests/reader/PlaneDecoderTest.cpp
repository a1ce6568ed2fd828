// PlaneDecoderTest.cpp - plane streams written by hand: what each mode shows, and which faults are told from habits.
#include <gtest/gtest.h>

#include "format/BlockFormat.h"
#include "tests/reader/Examples.h"

namespace vorn::reader {
namespace {

void ExpectClean(const Decoded& decoded) {
    EXPECT_TRUE(decoded.whole);
    EXPECT_EQ(AllLines(decoded.violations), "");
}

TEST(PlaneDecoder, SkippedPlaneIsTheReference) {
    PlaneStream stream(8);
    stream.Count(BLOCK_TYPES, 1).Put(1, 1).Put(0, 4);
    stream.End();
    const size_t bits = stream.used;
    stream.PadToWord().Put(0xffff, 16); // what follows the plane isn't its business
    std::vector<uint8_t> reference(64);
    for (size_t i = 0; i < 64; i++) reference[i] = uint8_t(i * 7);
    const Decoded decoded = Decode(stream.bytes, 8, 8, reference);
    ExpectClean(decoded);
    EXPECT_EQ(decoded.plane.samples, reference);
    EXPECT_EQ(bits, 92u + 10 + 5 + 9 + 7 * 10); // a plane of width 8 has no 16x16 blocks: 9 bits there
    EXPECT_EQ(decoded.plane.consumed, (bits + 31) / 32 * 4);
    EXPECT_EQ(decoded.plane.statistics.bundleBits[BLOCK_TYPES], 15u);
    EXPECT_EQ(Decode(stream.bytes, 8, 8).plane.samples, std::vector<uint8_t>(64, 0));
    EXPECT_TRUE(
        Tells(Decode(stream.bytes, 8, 8, reference, true).violations, SEVERITY_ERROR, "frame 7, plane Y, block 0,0"));
}

// Tree 1 gives its first symbol a code of one bit, 0, and its second one of four, 0001.
TEST(PlaneDecoder, TablesReorderTheirSymbols) {
    struct Case {
        BitSink table;
        uint32_t word, length; // code of symbol 6
    };
    BitSink listed, merged, deep;
    listed.Put(1, 4).Put(1, 1).Put(1, 3).Put(9, 4).Put(6, 4); // 9, 6, 0, 1, ...
    merged.Put(1, 4).Put(0, 1).Put(0, 2).Put(8, 8);           // pair 3 swapped: 0 1 2 3 4 5 7 6
    deep.Put(1, 4).Put(0, 1).Put(3, 2);
    deep.Put(0, 8);                               // pass 0: as they stand
    deep.Put(0, 2).Put(3, 2).Put(0, 4);           // pass 1: 0 1 2 3 | 6 7 4 5 | ...
    deep.Put(1, 1).Put(1, 1).Put(0, 4).Put(0, 4); // pass 2: 6 7 0 1 2 3 4 5
    deep.Put(0, 8);                               // pass 3
    for (const Case& example : {Case{listed, 0x1, 4}, Case{merged, 0x0d, 5}, Case{deep, 0, 1}}) {
        PlaneStream stream(8);
        static_cast<BitSink&>(stream) = example.table;
        for (int i = 1; i < TABLES; i++) stream.Put(0, 4);
        stream.Count(BLOCK_TYPES, 1).Put(0, 1).Put(example.word, example.length);
        stream.Colours({0x5a}).End();
        const Decoded decoded = Decode(stream.PadToWord().bytes, 8, 8);
        ExpectClean(decoded);
        EXPECT_EQ(decoded.plane.samples, std::vector<uint8_t>(64, 0x5a));
    }
    BitSink twice;
    twice.Put(1, 4).Put(1, 1).Put(1, 3).Put(9, 4).Put(9, 4).Put(0, 31).Put(0, 31);
    EXPECT_TRUE(Tells(Decode(twice.bytes, 8, 8).violations, SEVERITY_ERROR, "symbol 9 twice"));
}

// Six blocks of the implied 0 and a fill: symbol 12, two zeros, 6. All else is told.
TEST(PlaneDecoder, RepeatsInBlockTypes) {
    struct Case {
        std::vector<uint32_t> symbols;
        Severity severity;
        std::string words; // empty: clean
    };
    const Case cases[] = {
        {{12, 0, 0, 6}, SEVERITY_HABIT, ""},
        {{0, 0, 0, 0, 0, 0, 6}, SEVERITY_HABIT, "aren't sent as the encoder does"},
        {{0, 0, 12, 6}, SEVERITY_HABIT, "aren't sent as the encoder does"},
        {{12, 0, 0, 0}, SEVERITY_HABIT, "zeros is sent without its flag"},
        {{12, 12}, SEVERITY_ERROR, "beyond the chunk's end"},
        {{12, 10}, SEVERITY_ERROR, "block row 0, bit 111: A block mode is 10"},
    };
    for (const Case& example : cases) {
        PlaneStream stream(56);
        stream.Codes(BLOCK_TYPES, example.symbols, 7);
        if (example.symbols.back() == 6) stream.Colours({200});
        stream.End();
        const Decoded decoded = Decode(stream.PadToWord().bytes, 56, 8);
        EXPECT_EQ(decoded.whole, example.severity == SEVERITY_HABIT);
        if (!example.words.empty()) {
            EXPECT_TRUE(Tells(decoded.violations, example.severity, example.words)) << AllLines(decoded.violations);
            continue;
        }
        ExpectClean(decoded);
        EXPECT_EQ(decoded.plane.samples[47], 0);
        EXPECT_EQ(decoded.plane.samples[48], 200);
        EXPECT_EQ(decoded.plane.statistics.modes[MODE_SKIP], 6u);
    }
}

TEST(PlaneDecoder, MotionStaysInsideThePlane) {
    for (const int offsetX : {-8, 0, 1}) {
        PlaneStream stream(16);
        stream.Codes(BLOCK_TYPES, {0, 2}).Offset(X_OFFSETS, offsetX).Offset(Y_OFFSETS, 5).End();
        stream.next = 0;
        stream.Count(BLOCK_TYPES, 2).Put(1, 1).Put(0, 4);
        for (const int id : {X_OFFSETS, Y_OFFSETS}) stream.Put(0, stream.CountBits(id));
        const Decoded decoded = Decode(stream.PadToWord().bytes, 16, 16);
        EXPECT_EQ(decoded.whole, offsetX <= 0);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_ERROR, "block 1,0"), offsetX > 0) << AllLines(decoded.violations);
        // A chunk of two block types is followed by another: the encoder would have made one of them.
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_HABIT, "block row 1"), offsetX <= 0);
        EXPECT_EQ(decoded.plane.blocks[1].offsetX, offsetX);
        EXPECT_EQ(decoded.plane.blocks[1].offsetY, 5);
    }
}

// Run blocks in scan order 7, which goes to and fro.
TEST(PlaneDecoder, RunBlocks) {
    struct Case {
        std::vector<uint32_t> colours, runs;
        std::string words; // empty: clean
    };
    const Case cases[] = {
        // three flat runs of 16, one of 15, and the last sample alone
        {{10, 20, 30, 40, 50}, {15, 15, 15, 14}, ""},
        // flat 8 and flat 8 of one colour: the encoder makes 16 of them
        {{9, 9, 7, 9, 7}, {7, 7, 15, 15, 15}, "habit: frame 7, plane Y, block 0,0"},
        {{9, 7, 9, 7}, {15, 15, 14, 15}, "error: frame 7, plane Y, block 0,0"},
    };
    for (const Case& example : cases) {
        PlaneStream stream(8);
        stream.Codes(BLOCK_TYPES, {3}).Colours(example.colours).Codes(RUNS, example.runs);
        stream.Put(7, 4).Put(0x1f, uint32_t(example.runs.size())); // all flat
        const Decoded decoded = Decode(stream.PadToWord().bytes, 8, 8);
        EXPECT_EQ(AllLines(decoded.violations).substr(0, example.words.size()), example.words);
        EXPECT_EQ(decoded.violations.list.size(), example.words.empty() ? 0u : 1u);
        if (!example.words.empty()) continue;
        EXPECT_EQ(decoded.plane.samples[0], 10);
        EXPECT_EQ(decoded.plane.samples[63], 40);
        EXPECT_EQ(decoded.plane.samples[56], 50); // the fourth pair of rows ends at the left
        EXPECT_EQ(decoded.plane.statistics.payloadBits[RUN_DATA], 8u);
    }
}

TEST(PlaneDecoder, PatternBitsPickTheSecondColour) {
    for (const bool orderly : {true, false}) {
        PlaneStream stream(8);
        stream.Codes(BLOCK_TYPES, {8}).Colours({200, 30}).Count(PATTERNS, 8);
        for (uint32_t y = 0; y < 8; y++) stream.Put(orderly ? 1u << y : 0xffu >> (y == 3), 8);
        stream.End();
        const Decoded decoded = Decode(stream.PadToWord().bytes, 8, 8);
        EXPECT_TRUE(decoded.whole);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_HABIT, "colours of a pattern block"), !orderly);
        EXPECT_EQ(decoded.plane.samples[8 * 3 + 3], 30);
        EXPECT_EQ(decoded.plane.samples[8 * 3 + 7], 200);
    }
}

// Coefficient 1 alone takes 11 bits and the quantiser; then a node that opens in a plane which none of its four has.
TEST(PlaneDecoder, IntraBlocks) {
    for (const bool orderly : {true, false}) {
        PlaneStream stream(8);
        stream.Codes(BLOCK_TYPES, {5}).Count(INTRA_DC, 1).Put(23, 11);
        stream.End();
        stream.Put(1, 4).Put(!orderly, 1);
        if (!orderly) stream.Put(0xf, 4).Put(0, 1); // its group is empty, and so is the rest
        stream.Put(0, 2).Put(1, 1).Put(orderly, 1).Put(0, 2).Put(15, 4);
        const Decoded decoded = Decode(stream.PadToWord().bytes, 8, 8);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_HABIT, "opens in a plane"), !orderly);
        if (!orderly) continue;
        ExpectClean(decoded);
        EXPECT_EQ(decoded.plane.statistics.payloadBits[INTRA_DATA], 15u);
        EXPECT_EQ(decoded.plane.blocks[0].detail, 15);
        EXPECT_LT(decoded.plane.samples[0], decoded.plane.samples[7]); // minus half a wave across, none down
        EXPECT_EQ(decoded.plane.samples[0], decoded.plane.samples[56]);
    }
}

// 5, 2 and -1 at coefficients 0, 1 and 2, cut behind each of the four events; a fifth never comes.
TEST(PlaneDecoder, ResidueLadder) {
    BitSink planes;
    planes.Put(2, 3);
    planes.Put(0, 3).Put(1, 1).Put(0, 1).Put(0, 1).Put(7, 3);           // plane 3: 4 at coefficient 0
    planes.Put(0, 1).Put(0, 2).Put(1, 1).Put(0, 1).Put(0, 3);           // plane 2: 2 at coefficient 1
    planes.Put(1, 1).Put(0, 1).Put(0, 1).Put(1, 1).Put(1, 1).Put(0, 3); // plane 1: 5, and -1 at coefficient 2
    const size_t bits[] = {9, 17, 21, 25, planes.used};
    const int values[][3] = {{4, 0, 0}, {4, 2, 0}, {5, 2, 0}, {5, 2, -1}, {5, 2, -1}};
    for (uint32_t limit = 0; limit < 5; limit++) {
        PlaneStream stream(8);
        stream.Codes(BLOCK_TYPES, {4}).Offset(X_OFFSETS, 0).Offset(Y_OFFSETS, 0).End();
        stream.Put(limit, 7);
        for (size_t i = 0; i < bits[limit]; i++) stream.Put(planes.bytes[i / 8] >> i % 8 & 1u, 1);
        const Decoded decoded = Decode(stream.PadToWord().bytes, 8, 8, std::vector<uint8_t>(64, 255));
        EXPECT_TRUE(decoded.whole);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_HABIT, "ahead of its truncation"), limit == 4);
        EXPECT_EQ(decoded.violations.list.size(), limit == 4 ? 1u : 0u);
        EXPECT_EQ(decoded.plane.statistics.payloadBits[RESIDUE_DATA], 7 + bits[limit]);
        const size_t at[] = {0, 1, 8};
        for (size_t i = 0; i < 3; i++)
            EXPECT_EQ(decoded.plane.samples[at[i]], uint8_t(255 + values[limit][i])) << limit;
    }
}

TEST(PlaneDecoder, HighBlocksOutOfPlace) {
    struct Case {
        uint32_t width, height;
        std::vector<uint32_t> types;
        uint32_t subType;
        std::string words;
    };
    const Case cases[] = {
        {24, 16, {6, 1, 6, 6}, 6, "block 1,0, bit"},      // odd column
        {24, 16, {6, 6, 1, 6}, 6, "block 2,0, bit"},      // beyond the right edge
        {16, 8, {1, 6}, 6, "beyond the plane"},           // beyond the lower edge
        {16, 16, {1, 6, 6}, 6, "isn't gone on with"},     // not continued
        {16, 16, {6, 6, 1}, 6, "the row above has none"}, // continued from nothing
        {16, 16, {1, 1}, 2, "A 16x16 block has mode 2"},
    };
    for (const Case& example : cases) {
        PlaneStream stream(example.width);
        stream.Codes(BLOCK_TYPES, example.types).Codes(SUB_BLOCK_TYPES, {example.subType});
        stream.Colours({50, 50, 50, 50}).End();
        const Decoded decoded = Decode(stream.PadToWord().bytes, example.width, example.height);
        EXPECT_FALSE(decoded.whole);
        EXPECT_TRUE(Tells(decoded.violations, SEVERITY_ERROR, example.words)) << AllLines(decoded.violations);
    }
}

TEST(PlaneDecoder, BundlesDryAndLeftOver) {
    for (const uint32_t count : {1u, 2u, 3u}) {
        PlaneStream stream(16);
        stream.Codes(BLOCK_TYPES, {6, 6}).Colours(std::vector<uint32_t>(count, 9)).End();
        const Decoded decoded = Decode(stream.PadToWord().bytes, 16, 8);
        EXPECT_EQ(decoded.whole, count >= 2);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_ERROR, "block 1,0, bit 200: colours ran dry"), count == 1)
            << AllLines(decoded.violations);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_ERROR, "1 elements of colours were never used"), count == 3);
    }
}

TEST(PlaneDecoder, CutAndPaddedStreams) {
    std::vector<uint8_t> stream = FilledPlane(77);
    for (size_t size = 0; size < stream.size(); size++) {
        const Decoded decoded = Decode({stream.begin(), stream.begin() + std::ptrdiff_t(size)}, 8, 8);
        EXPECT_FALSE(decoded.whole);
        EXPECT_EQ(decoded.violations.errors, 1u);
    }
    stream.back() |= 0x80;
    EXPECT_TRUE(Tells(Decode(stream, 8, 8).violations, SEVERITY_ERROR, "padding"));
}

// A few bytes can't claim a great plane.
TEST(PlaneDecoder, ShortStreamsGetNoMemory) {
    const std::vector<uint8_t> stream(32, 0);
    for (const uint32_t height : {16384u, 0x10000u, 7u}) {
        const Decoded decoded = Decode(stream, 4032, height);
        EXPECT_FALSE(decoded.whole);
        EXPECT_TRUE(decoded.plane.samples.empty());
    }
    EXPECT_TRUE(Decode(stream, 4032, 16384).violations.errors > 0);
}

} // namespace
} // namespace vorn::reader
