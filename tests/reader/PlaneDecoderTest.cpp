// PlaneDecoderTest.cpp - plane streams written by hand: what each mode shows, and which faults are told from habits.
#include <gtest/gtest.h>

#include "format/BlockFormat.h"
#include "tests/reader/Examples.h"

namespace vorn::reader {
namespace {

// A row start with one chunk of block types, all sent by their flat codes behind a flag of 0.
void PutTypes(RowStart* row, const std::vector<uint32_t>& symbols, uint32_t count) {
    row->Count(BLOCK_TYPES, count);
    row->sink->Put(0, 1);
    for (const uint32_t symbol : symbols) row->sink->Put(symbol, 4);
}
void PutColours(RowStart* row, const std::vector<uint32_t>& colours) {
    row->Count(COLOURS, uint32_t(colours.size()));
    const bool same = std::equal(colours.begin() + 1, colours.end(), colours.begin());
    row->sink->Put(same, 1);
    for (size_t i = 0; i < (same ? 1 : colours.size()); i++) row->sink->Put(colours[i] >> 4, 4).Put(colours[i] & 15, 4);
}
// A chunk of magnitudes with signs.
void PutOffsets(RowStart* row, int id, const std::vector<int>& values) {
    row->Count(id, uint32_t(values.size()));
    const bool zeros = std::all_of(values.begin(), values.end(), [](int value) { return value == 0; });
    row->sink->Put(zeros, 1);
    if (zeros) row->sink->Put(0, 4);
    for (size_t i = 0; i < values.size() && !zeros; i++) {
        row->sink->Put(uint32_t(std::abs(values[i])), 4);
        if (values[i] != 0) row->sink->Put(values[i] < 0, 1);
    }
}
std::vector<uint8_t> Ramp(uint32_t width, uint32_t height) {
    std::vector<uint8_t> samples(size_t(width) * height);
    for (size_t i = 0; i < samples.size(); i++) samples[i] = uint8_t(i * 7 + i / width * 13);
    return samples;
}
void ExpectClean(const Decoded& decoded) {
    EXPECT_TRUE(decoded.whole);
    EXPECT_EQ(AllLines(decoded.violations), "");
}

TEST(PlaneDecoder, SkippedPlaneIsTheReference) {
    BitSink sink = FlatTables();
    RowStart row = {8, &sink};
    row.Count(BLOCK_TYPES, 1);
    sink.Put(1, 1).Put(0, 4);
    row.End();
    const size_t bits = sink.used;
    sink.PadToWord().Put(0xffff, 16); // what follows the plane isn't its business
    const std::vector<uint8_t> reference = Ramp(8, 8);
    const Decoded decoded = Decode(sink.bytes, 8, 8, reference);
    ExpectClean(decoded);
    EXPECT_EQ(decoded.plane.samples, reference);
    EXPECT_EQ(bits, 92u + 10 + 5 + 9 + 7 * 10); // a plane of width 8 has no 16x16 blocks: 9 bits there
    EXPECT_EQ(decoded.plane.consumed, (bits + 31) / 32 * 4);
    EXPECT_EQ(decoded.plane.statistics.bundleBits[BLOCK_TYPES], 15u);
    EXPECT_EQ(Decode(sink.bytes, 8, 8).plane.samples, std::vector<uint8_t>(64, 0));
    EXPECT_TRUE(
        Tells(Decode(sink.bytes, 8, 8, reference, true).violations, SEVERITY_ERROR, "frame 7, plane Y, block 0,0"));
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
    const Case cases[] = {{listed, 0x1, 4}, {merged, 0x0d, 5}, {deep, 0, 1}};
    for (const Case& example : cases) {
        BitSink sink = example.table;
        for (int i = 1; i < TABLES; i++) sink.Put(0, 4);
        RowStart row = {8, &sink};
        row.Count(BLOCK_TYPES, 1);
        sink.Put(0, 1).Put(example.word, example.length);
        PutColours(&row, {0x5a});
        row.End();
        const Decoded decoded = Decode(sink.PadToWord().bytes, 8, 8);
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
        BitSink sink = FlatTables();
        RowStart row = {56, &sink};
        PutTypes(&row, example.symbols, 7);
        if (example.symbols.back() == 6) PutColours(&row, {200});
        row.End();
        const Decoded decoded = Decode(sink.PadToWord().bytes, 56, 8);
        EXPECT_EQ(decoded.whole, example.severity == SEVERITY_HABIT);
        if (example.words.empty()) {
            ExpectClean(decoded);
            EXPECT_EQ(decoded.plane.samples[47], 0);
            EXPECT_EQ(decoded.plane.samples[48], 200);
            EXPECT_EQ(decoded.plane.statistics.modes[MODE_SKIP], 6u);
        } else {
            EXPECT_TRUE(Tells(decoded.violations, example.severity, example.words)) << AllLines(decoded.violations);
        }
    }
}

TEST(PlaneDecoder, MotionStaysInsideThePlane) {
    const std::vector<uint8_t> reference = Ramp(16, 16);
    for (const int offsetX : {-8, -3, 0, 1}) {
        BitSink sink = FlatTables();
        RowStart row = {16, &sink};
        PutTypes(&row, {0, 2}, 2);
        PutOffsets(&row, X_OFFSETS, {offsetX});
        PutOffsets(&row, Y_OFFSETS, {5});
        row.End();
        row = {16, &sink};
        row.Count(BLOCK_TYPES, 2);
        sink.Put(1, 1).Put(0, 4);
        for (const int id : {X_OFFSETS, Y_OFFSETS}) sink.Put(0, CountBits(16)[size_t(id)]);
        const Decoded decoded = Decode(sink.PadToWord().bytes, 16, 16, reference);
        EXPECT_EQ(decoded.whole, offsetX <= 0);
        if (offsetX > 0) {
            EXPECT_TRUE(Tells(decoded.violations, SEVERITY_ERROR, "block 1,0")) << AllLines(decoded.violations);
            continue;
        }
        EXPECT_EQ(decoded.violations.errors, 0u);
        // A chunk of two block types is followed by another: the encoder would have made one of them.
        EXPECT_TRUE(Tells(decoded.violations, SEVERITY_HABIT, "block row 1"));
        EXPECT_EQ(decoded.plane.samples[3 * 16 + 8 + 2], reference[size_t(8 * 16 + 8 + offsetX + 2)]);
        EXPECT_EQ(decoded.plane.blocks[1].offsetX, offsetX);
        EXPECT_EQ(decoded.plane.blocks[1].offsetY, 5);
    }
}

// A run block in scan order 7, which goes to and fro: three flat runs of 16, one of 15, and the last sample alone.
TEST(PlaneDecoder, RunBlockWithALastSampleAlone) {
    BitSink sink = FlatTables();
    RowStart row = {8, &sink};
    PutTypes(&row, {3}, 1);
    PutColours(&row, {10, 20, 30, 40, 50});
    row.Count(RUNS, 4);
    sink.Put(0, 1).Put(15, 4).Put(15, 4).Put(15, 4).Put(14, 4);
    sink.Put(7, 4).Put(0xf, 4);
    const Decoded decoded = Decode(sink.PadToWord().bytes, 8, 8);
    ExpectClean(decoded);
    EXPECT_EQ(decoded.plane.samples[0], 10);
    EXPECT_EQ(decoded.plane.samples[63], 40);
    EXPECT_EQ(decoded.plane.samples[56], 50); // the fourth pair of rows ends at the left
    EXPECT_EQ(decoded.plane.statistics.payloadBits[RUN_DATA], 8u);
}

TEST(PlaneDecoder, OddlyCutAndOverlongRuns) {
    struct Case {
        std::vector<uint32_t> colours, runs;
        uint32_t flags;
        std::string words;
    };
    const Case cases[] = {
        // flat 8 and flat 8 of one colour: the encoder makes 16 of them
        {{9, 9, 7, 9, 7}, {7, 7, 15, 15, 15}, 0x1f, "habit: frame 7, plane Y, block 0,0"},
        {{9, 7, 9, 7}, {15, 15, 14, 15}, 0xf, "error: frame 7, plane Y, block 0,0"},
    };
    for (const Case& example : cases) {
        BitSink sink = FlatTables();
        RowStart row = {8, &sink};
        PutTypes(&row, {3}, 1);
        PutColours(&row, example.colours);
        row.Count(RUNS, uint32_t(example.runs.size()));
        sink.Put(0, 1);
        for (const uint32_t run : example.runs) sink.Put(run, 4);
        sink.Put(7, 4).Put(example.flags, uint32_t(example.runs.size()));
        const Decoded decoded = Decode(sink.PadToWord().bytes, 8, 8);
        ASSERT_EQ(decoded.violations.list.size(), 1u);
        EXPECT_EQ(DescribeViolation(decoded.violations.list[0]).substr(0, example.words.size()), example.words);
    }
}

TEST(PlaneDecoder, PatternBitsPickTheSecondColour) {
    for (const bool orderly : {true, false}) {
        BitSink sink = FlatTables();
        RowStart row = {8, &sink};
        PutTypes(&row, {8}, 1);
        PutColours(&row, {200, 30});
        row.Count(PATTERNS, 8);
        for (uint32_t y = 0; y < 8; y++) sink.Put(orderly ? 1u << y : 0xffu >> (y == 3), 8);
        row.End();
        const Decoded decoded = Decode(sink.PadToWord().bytes, 8, 8);
        EXPECT_TRUE(decoded.whole);
        EXPECT_EQ(Tells(decoded.violations, SEVERITY_HABIT, "colours of a pattern block"), !orderly);
        EXPECT_EQ(decoded.plane.samples[8 * 3 + 3], 30);
        EXPECT_EQ(decoded.plane.samples[8 * 3 + 7], 200);
    }
}

// 128 * 8 at quantiser 0 shows 128; 2047 wraps from 256 to 0; coefficient 1 alone takes 11 bits and the quantiser.
TEST(PlaneDecoder, IntraBlocks) {
    for (const uint32_t dc : {1024u, 2047u}) {
        BitSink sink = FlatTables();
        RowStart row = {8, &sink};
        PutTypes(&row, {5}, 1);
        row.Count(INTRA_DC, 1);
        sink.Put(dc, 11);
        row.End();
        sink.Put(0, 4).Put(0, 4);
        const Decoded decoded = Decode(sink.PadToWord().bytes, 8, 8);
        ExpectClean(decoded);
        EXPECT_EQ(decoded.plane.samples, std::vector<uint8_t>(64, dc == 1024 ? 128 : 0));
    }
    BitSink sink = FlatTables();
    RowStart row = {8, &sink};
    PutTypes(&row, {5}, 1);
    row.Count(INTRA_DC, 1);
    sink.Put(23, 11);
    row.End();
    sink.Put(1, 4).Put(0, 3).Put(1, 1).Put(1, 1).Put(0, 2).Put(15, 4);
    const Decoded decoded = Decode(sink.PadToWord().bytes, 8, 8);
    ExpectClean(decoded);
    EXPECT_EQ(decoded.plane.statistics.payloadBits[INTRA_DATA], 15u);
    EXPECT_EQ(decoded.plane.blocks[0].detail, 15);
    EXPECT_LT(decoded.plane.samples[0], decoded.plane.samples[7]); // minus half a wave across, none down
    EXPECT_EQ(decoded.plane.samples[0], decoded.plane.samples[56]);
}

TEST(PlaneDecoder, InterBlockWrapsAndItsDcHasASign) {
    BitSink sink = FlatTables();
    RowStart row = {16, &sink};
    PutTypes(&row, {7, 7}, 2);
    PutOffsets(&row, X_OFFSETS, {0, 0});
    PutOffsets(&row, Y_OFFSETS, {0, 0});
    row.Count(INTER_DC, 2);
    sink.Put(8, 10).Put(1, 1);           // -8: all samples one less
    sink.Put(7, 4).Put(88, 7).Put(0, 1); // +80: ten more
    row.End();
    sink.Put(0, 4).Put(0, 4).Put(0, 4).Put(0, 4);
    const Decoded decoded = Decode(sink.PadToWord().bytes, 16, 8, std::vector<uint8_t>(128, 250));
    ExpectClean(decoded);
    EXPECT_EQ(decoded.plane.samples[0], 249);
    EXPECT_EQ(decoded.plane.samples[8], 4);
}

// Coefficients that open a node in a plane which none of its four has.
TEST(PlaneDecoder, NodesThatOpenForNothing) {
    BitSink sink = FlatTables();
    RowStart row = {8, &sink};
    PutTypes(&row, {5}, 1);
    row.Count(INTRA_DC, 1);
    sink.Put(0, 11);
    row.End();
    sink.Put(1, 4);                       // one plane
    sink.Put(1, 1).Put(0xf, 4).Put(0, 1); // the node at 4 opens, its group is empty, and so is the rest
    sink.Put(0, 2).Put(1, 1).Put(0, 1).Put(0, 2).Put(0, 4);
    EXPECT_TRUE(Tells(Decode(sink.PadToWord().bytes, 8, 8).violations, SEVERITY_HABIT, "opens in a plane"));
}

std::vector<uint8_t> ResidueStream(uint32_t limit, const BitSink& planes) {
    BitSink sink = FlatTables();
    RowStart row = {8, &sink};
    PutTypes(&row, {4}, 1);
    PutOffsets(&row, X_OFFSETS, {0});
    PutOffsets(&row, Y_OFFSETS, {0});
    row.End();
    sink.Put(limit, 7);
    for (size_t i = 0; i < planes.used; i++) sink.Put(planes.bytes[i / 8] >> i % 8 & 1u, 1);
    return sink.PadToWord().bytes;
}

// 5, 2 and -1 at coefficients 0, 1 and 2, cut behind each of the four events.
TEST(PlaneDecoder, ResidueLadder) {
    struct Step {
        size_t bits;
        std::vector<int> values; // at block positions 0, 1, 8
    };
    BitSink planes;
    planes.Put(2, 3);
    planes.Put(0, 3).Put(1, 1).Put(0, 1).Put(0, 1).Put(7, 3);           // plane 3: 4 at coefficient 0
    planes.Put(0, 1).Put(0, 2).Put(1, 1).Put(0, 1).Put(0, 3);           // plane 2: 2 at coefficient 1
    planes.Put(1, 1).Put(0, 1).Put(0, 1).Put(1, 1).Put(1, 1).Put(0, 3); // plane 1: 5, and -1 at coefficient 2
    const Step steps[] = {{9, {4, 0, 0}}, {17, {4, 2, 0}}, {21, {5, 2, 0}}, {25, {5, 2, -1}}};
    for (uint32_t limit = 0; limit < 4; limit++) {
        BitSink cut = planes;
        cut.used = steps[limit].bits;
        const Decoded decoded = Decode(ResidueStream(limit, cut), 8, 8, std::vector<uint8_t>(64, 255));
        ExpectClean(decoded);
        EXPECT_EQ(decoded.plane.statistics.payloadBits[RESIDUE_DATA], 7 + steps[limit].bits);
        const int at[] = {0, 1, 8};
        for (size_t i = 0; i < 3; i++) {
            EXPECT_EQ(decoded.plane.samples[size_t(at[i])], uint8_t(255 + steps[limit].values[i])) << limit << " " << i;
        }
        EXPECT_EQ(decoded.plane.samples[9], 255);
    }
    EXPECT_TRUE(Tells(Decode(ResidueStream(4, planes), 8, 8).violations, SEVERITY_HABIT, "ahead of its truncation"));
}

// With eight planes the mask is negative: beside a -128, 75 comes out as -64, -56, -54, -53.
TEST(PlaneDecoder, ResidueOfEightPlanesTurnsTheSigns) {
    BitSink planes;
    planes.Put(7, 3);
    planes.Put(0, 3).Put(1, 1).Put(0, 1).Put(1, 1).Put(7, 3); // -128
    planes.Put(0, 1).Put(0, 2).Put(1, 1).Put(0, 1).Put(0, 3); // 64
    for (const uint32_t bit : {0u, 0u, 1u, 0u, 1u, 1u}) planes.Put(0, 1).Put(bit, 1).Put(0, 5);
    const uint8_t shown[] = {uint8_t(-64), uint8_t(-56), uint8_t(-54), uint8_t(-53)};
    for (uint32_t limit = 1; limit <= 4; limit++) {
        const Decoded decoded = Decode(ResidueStream(limit, planes), 8, 8);
        EXPECT_EQ(decoded.plane.samples[0], 128);
        EXPECT_EQ(decoded.plane.samples[1], shown[limit - 1]);
    }
}

// 16x16 blocks: a fill, and a raw block whose samples are doubled; the second row only goes on with them.
TEST(PlaneDecoder, HighBlocks) {
    std::vector<uint32_t> colours = {77};
    for (uint32_t i = 0; i < 64; i++) colours.push_back(i * 3);
    BitSink sink = FlatTables();
    RowStart row = {32, &sink};
    PutTypes(&row, {1, 1, 1, 1}, 4);
    row.Count(SUB_BLOCK_TYPES, 2);
    sink.Put(0, 1).Put(6, 4).Put(9, 4);
    PutColours(&row, colours);
    row.End();
    for (const int id : {SUB_BLOCK_TYPES, COLOURS}) sink.Put(0, CountBits(32)[size_t(id)]);
    const Decoded decoded = Decode(sink.PadToWord().bytes, 32, 16, {}, true);
    ExpectClean(decoded);
    for (size_t y = 0; y < 16; y++) {
        for (size_t x = 0; x < 16; x++) {
            EXPECT_EQ(decoded.plane.samples[y * 32 + x], 77);
            EXPECT_EQ(decoded.plane.samples[y * 32 + 16 + x], (y / 2 * 8 + x / 2) * 3);
        }
    }
    EXPECT_EQ(decoded.plane.blocks[7].highMode, MODE_RAW);
    EXPECT_EQ(decoded.plane.statistics.highModes[MODE_FILL], 1u);
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
        BitSink sink = FlatTables();
        RowStart row = {example.width, &sink};
        PutTypes(&row, example.types, uint32_t(example.types.size()));
        row.Count(SUB_BLOCK_TYPES, 1);
        sink.Put(0, 1).Put(example.subType, 4);
        PutColours(&row, {50, 50, 50, 50});
        row.End();
        const Decoded decoded = Decode(sink.PadToWord().bytes, example.width, example.height);
        EXPECT_FALSE(decoded.whole);
        EXPECT_TRUE(Tells(decoded.violations, SEVERITY_ERROR, example.words)) << AllLines(decoded.violations);
    }
}

TEST(PlaneDecoder, BundlesDryAndLeftOver) {
    for (const uint32_t count : {1u, 2u, 3u}) {
        BitSink sink = FlatTables();
        RowStart row = {16, &sink};
        row.Count(BLOCK_TYPES, 2);
        sink.Put(0, 1).Put(6, 4).Put(6, 4);
        PutColours(&row, std::vector<uint32_t>(count, 9));
        row.End();
        const Decoded decoded = Decode(sink.PadToWord().bytes, 16, 8);
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
