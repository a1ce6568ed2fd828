// ChunkWritersTest.cpp - the exact bits of small chunks, rooms that end.
#include <gtest/gtest.h>

#include "StreamReading.h"
#include "bitstream/Bundle.h"

namespace vorn {
namespace {

constexpr BundleShape NIBBLES = {4, 1, false};

struct TestBundle {
    std::vector<uint64_t> room;
    Arena arena;
    Bundle bundle;
    TestBundle(uint32_t width, const BundleShape& shape)
        : room(1 << 17), arena(MakeArena(reinterpret_cast<uint8_t*>(room.data()), 1 << 20)) {
        CreateBundle(&bundle, &arena, width, shape);
    }
};

// One kind of bundle: its shape, how a value is added and how its chunks go out.
struct Kind {
    BundleShape shape;
    void (*append)(Bundle*, int);
    void (*write)(BitWriter*, Bundle*);
};
const Kind TYPES = {NIBBLES, [](Bundle* b, int v) { AppendType(b, static_cast<uint32_t>(v)); }, WriteTypeChunk};
const Kind COLOURS = {
    {8, 64, false}, [](Bundle* b, int v) { AppendColour(b, static_cast<uint32_t>(v)); }, WriteColourChunk};
const Kind PATTERNS = {
    {8, 8, false}, [](Bundle* b, int v) { AppendPattern(b, static_cast<uint32_t>(v)); }, WritePatternChunk};
const Kind OFFSETS = {{5, 1, true}, [](Bundle* b, int v) { AppendOffset(b, v); }, WriteOffsetChunk};
const Kind RUNS = {
    {4, 48, false}, [](Bundle* b, int v) { AppendRunLength(b, static_cast<uint32_t>(v)); }, WriteRunChunk};
const Kind INTRA_DC = {{11, 1, false}, AppendElement, WriteDcChunk};
const Kind INTER_DC = {{11, 1, true}, AppendElement, WriteDcChunk};

using Values = std::vector<int>;

// Writes values as one chunk with the flat code, then the count of 0 that ends the bundle once. `fields`: widths and what
// stands in them, behind the count.
void ExpectChunk(const Kind& kind, const Values& values, const std::vector<uint32_t>& fields) {
    TestBundle test(8, kind.shape);
    Bundle* bundle = &test.bundle;
    for (const int value : values) kind.append(bundle, value);
    FinishBundle(bundle);
    for (uint32_t i = 0; i < COLOUR_LOW + SYMBOLS; i++) {
        bundle->codeLengths[i] = 4;
        bundle->codeWords[i] = i % 16;
    }
    TestStream stream;
    bundle->previousValue = 0;
    kind.write(&stream.writer, bundle);
    const uint32_t bits = BitsWritten(&stream.writer);
    kind.write(&stream.writer, bundle); // the chunk still lasts
    EXPECT_EQ(BitsWritten(&stream.writer), bits);
    EXPECT_EQ(bundle->totalElements, values.size());
    EXPECT_EQ(bundle->totalBits, bits);
    bundle->remaining = 0;
    for (int i = 0; i < 2; i++) kind.write(&stream.writer, bundle);
    EXPECT_EQ(BitsWritten(&stream.writer), bits + bundle->countBits);
    PadToWord(&stream.writer);
    ASSERT_EQ(stream.Take(bundle->countBits), values.size());
    for (size_t i = 0; i < fields.size(); i += 2) EXPECT_EQ(stream.Take(fields[i]), fields[i + 1]) << i;
    EXPECT_EQ(stream.at, bits);
    EXPECT_EQ(stream.Take(bundle->countBits), 0u);
}

TEST(Chunks, HaveTheBitsWorkedOutByHand) {
    ExpectChunk(TYPES, {0, 0, 0}, {1, 1, 4, 0});
    ExpectChunk(TYPES, {0, 0, 0, 0, 0, 0, 1}, {1, 0, 4, 12, 4, 0, 4, 0, 4, 1});
    // 1, then 62 repeats: 32, 12, 12, and 6 as 4 and two alone.
    ExpectChunk(TYPES, Values(63, 1), {1, 0, 4, 1, 4, 15, 4, 14, 4, 14, 4, 12, 4, 1, 4, 1});
    ExpectChunk(TYPES, {9, 9, 9, 9, 9, 9, 9, 9, 9, 9}, {1, 0, 4, 9, 4, 13, 4, 9});
    ExpectChunk(COLOURS, Values(70, 37), {1, 1, 4, 2, 4, 5});
    ExpectChunk(COLOURS, {37, 38}, {1, 0, 4, 2, 4, 5, 4, 2, 4, 6});
    ExpectChunk(PATTERNS, {0x4b}, {4, 11, 4, 4});
    ExpectChunk(OFFSETS, {0, 0}, {1, 1, 4, 0});
    ExpectChunk(OFFSETS, {0, -3, 15, 0}, {1, 0, 4, 0, 4, 3, 1, 1, 4, 15, 1, 0, 4, 0});
    ExpectChunk(RUNS, {0, 0}, {1, 1, 4, 0});
    ExpectChunk(RUNS, {0, 15, 0}, {1, 0, 4, 0, 4, 15, 4, 0});
    ExpectChunk(INTRA_DC, {1024}, {11, 1024});
    // First value, then 8 differences 3 bits wide: -5, then seven zeros.
    ExpectChunk(INTRA_DC, {9, 4, 4, 4, 4, 4, 4, 4, 4}, {11, 9, 4, 3, 3, 5, 1, 1, 21, 0});
    // A group of 8 that don't differ, and one of a single 11-bit difference.
    ExpectChunk(INTRA_DC, {0, 0, 0, 0, 0, 0, 0, 0, 0, 2047}, {11, 0, 4, 0, 4, 11, 11, 2047, 1, 0});
    ExpectChunk(INTER_DC, {-1023, -1023}, {10, 1023, 1, 1, 4, 0});
}

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
