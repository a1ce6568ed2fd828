// PlaneDecoderTest.cpp - plane streams written by hand: what faults are, and what habits.
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

TEST(PlaneDecoder, TablesListASymbolOnce) {
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

TEST(PlaneDecoder, SegmentsOfRunBlocks) {
    struct Case {
        std::vector<uint32_t> colours, runs;
        std::string words;
    };
    const Case cases[] = {
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
        EXPECT_EQ(decoded.violations.list.size(), 1u);
    }
}

// In the order of the rarer colour; with a node that opens in a plane which none of its four has; with bits behind the last
// of the residue's four events.
TEST(PlaneDecoder, HabitsOfPayloads) {
    PlaneStream pattern(8), intra(8), residue(8);
    pattern.Codes(BLOCK_TYPES, {8}).Colours({200, 30}).Count(PATTERNS, 8).Put(0xff7fffff, 32).Put(0xffffffff, 32);
    pattern.End();
    intra.Codes(BLOCK_TYPES, {5}).Count(INTRA_DC, 1).Put(23, 11);
    intra.End();
    intra.Put(1, 4).Put(1, 1).Put(0xf, 4).Put(0, 1).Put(0, 2).Put(1, 1).Put(0, 1).Put(0, 2).Put(15, 4);
    residue.Codes(BLOCK_TYPES, {4}).Offset(X_OFFSETS, 0).Offset(Y_OFFSETS, 0).End();
    residue.Put(4, 7).Put(2, 3);
    residue.Put(0, 3).Put(1, 1).Put(0, 1).Put(0, 1).Put(7, 3);           // plane 3: 4 at coefficient 0
    residue.Put(0, 1).Put(0, 2).Put(1, 1).Put(0, 1).Put(0, 3);           // plane 2: 2 at coefficient 1
    residue.Put(1, 1).Put(0, 1).Put(0, 1).Put(1, 1).Put(1, 1).Put(0, 3); // plane 1: 5, and -1 at coefficient 2
    const struct {
        BitSink* stream;
        const char* words;
    } cases[] = {
        {&pattern, "colours of a pattern block"}, {&intra, "opens in a plane"}, {&residue, "ahead of its truncation"}};
    for (const auto& example : cases) {
        const Decoded decoded = Decode(example.stream->PadToWord().bytes, 8, 8, std::vector<uint8_t>(64, 255));
        EXPECT_TRUE(decoded.whole);
        EXPECT_TRUE(Tells(decoded.violations, SEVERITY_HABIT, example.words)) << AllLines(decoded.violations);
        EXPECT_EQ(decoded.violations.list.size(), 1u);
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

// A few bytes can't claim a great plane, but they get what 16x16 blocks of one colour, chunk upon chunk, can make of them.
TEST(PlaneDecoder, ShortStreamsGetNoMemory) {
    const std::vector<uint8_t> zeros(32, 0);
    for (const uint32_t height : {16384u, 0x20000u, 7u}) {
        const Decoded decoded = Decode(zeros, 4032, height);
        EXPECT_FALSE(decoded.whole);
        EXPECT_TRUE(decoded.plane.samples.empty());
        EXPECT_EQ(decoded.violations.errors, 1u);
    }
    // 400 rows take 200 types each; the even ones take as many subtypes and colours, so that these end behind an even row.
    PlaneStream stream(3200);
    const auto fill = [&stream](int id, uint32_t count, uint32_t value) {
        stream.Put(count, stream.CountBits(id));
        if (count != 0) stream.Put(1, 1).Put(value, id == COLOURS ? 8 : 4);
    };
    for (uint32_t row = 0; row < 400; row++) {
        if (row % 5 == 0) fill(BLOCK_TYPES, 1000, MODE_SCALED);
        if (row == 0 || row % 10 == 9) fill(SUB_BLOCK_TYPES, row < 399 ? 1000 : 0, MODE_FILL);
        if (row == 0 || row % 200 == 199) fill(COLOURS, row < 399 ? 20000 : 0, 0x55);
        for (int id = PATTERNS; row == 0 && id < BUNDLES; id++) fill(id, 0, 0);
    }
    const Decoded decoded = Decode(stream.PadToWord().bytes, 3200, 3200);
    EXPECT_TRUE(decoded.whole) << AllLines(decoded.violations);
    EXPECT_TRUE(decoded.plane.samples == std::vector<uint8_t>(size_t(3200) * 3200, 0x55));
    EXPECT_EQ(decoded.plane.consumed, 256u);
}

} // namespace
} // namespace vorn::reader
