// ChunkWritersTest.cpp - bundles from the first element to the last chunk, read back; exact bits of small chunks.
#include <gtest/gtest.h>

#include <functional>

#include "StreamReading.h"
#include "bitstream/BlockData.h"
#include "bitstream/Bundle.h"

namespace vorn {
namespace {

constexpr BundleShape NIBBLES = {4, 1, false};

struct TestBundle {
    std::vector<uint64_t> room;
    Arena arena;
    Bundle bundle;
    TestBundle(uint32_t width, const BundleShape& shape, size_t bytes = 1 << 20)
        : room(bytes / 8), arena(MakeArena(reinterpret_cast<uint8_t*>(room.data()), bytes)) {
        CreateBundle(&bundle, &arena, width, shape);
    }
};

using Values = std::vector<int>;

// The elements of one chunk behind its count. `state` is what a reader carries from chunk to chunk.
using ChunkReader = std::function<Values(TestStream*, const std::vector<TestCode>&, uint32_t count, uint32_t* state)>;

Values ReadTypes(TestStream* stream, const std::vector<TestCode>& codes, uint32_t count, uint32_t*) {
    if (stream->Take(1)) return Values(count, static_cast<int>(stream->Take(4)));
    Values values;
    while (values.size() < count) {
        const auto symbol = static_cast<int>(ReadSymbol(stream, codes[0]));
        const size_t repeats[] = {4, 8, 12, 32};
        const int last = values.empty() ? 0 : values.back();
        if (symbol < 12)
            values.push_back(symbol);
        else
            values.insert(values.end(), repeats[symbol - 12], last);
    }
    return values;
}

Values ReadColours(TestStream* stream, const std::vector<TestCode>& codes, uint32_t count, uint32_t* context) {
    const bool same = stream->Take(1) != 0;
    Values values;
    while (values.size() < (same ? 1 : count)) {
        *context = ReadSymbol(stream, codes[*context]);
        values.push_back(static_cast<int>(*context * 16 + ReadSymbol(stream, codes[16])));
    }
    return Values(same ? Values(count, values[0]) : values);
}

Values ReadPatterns(TestStream* stream, const std::vector<TestCode>& codes, uint32_t count, uint32_t*) {
    Values values;
    while (values.size() < count) {
        const uint32_t low = ReadSymbol(stream, codes[0]);
        values.push_back(static_cast<int>(low + 16 * ReadSymbol(stream, codes[0])));
    }
    return values;
}

Values ReadMagnitudes(TestStream* stream, const std::vector<TestCode>& codes, uint32_t count, bool withSign) {
    if (stream->Take(1)) return Values(count, static_cast<int>(stream->Take(4)));
    Values values;
    while (values.size() < count) {
        const auto value = static_cast<int>(ReadSymbol(stream, codes[0]));
        values.push_back(withSign && value != 0 && stream->Take(1) ? -value : value);
    }
    return values;
}

Values ReadOffsets(TestStream* stream, const std::vector<TestCode>& codes, uint32_t count, uint32_t*) {
    return ReadMagnitudes(stream, codes, count, true);
}

Values ReadRuns(TestStream* stream, const std::vector<TestCode>& codes, uint32_t count, uint32_t*) {
    return ReadMagnitudes(stream, codes, count, false);
}

Values ReadDc(TestStream* stream, uint32_t count, bool isSigned) {
    Values values = {isSigned ? stream->TakeSigned(10) : static_cast<int>(stream->Take(11))};
    while (values.size() < count) {
        const uint32_t width = stream->Take(4);
        for (int i = 0; i < 8 && values.size() < count; i++)
            values.push_back(values.back() + stream->TakeSigned(width));
    }
    return values;
}

Values ReadIntraDc(TestStream* stream, const std::vector<TestCode>&, uint32_t count, uint32_t*) {
    return ReadDc(stream, count, false);
}

Values ReadInterDc(TestStream* stream, const std::vector<TestCode>&, uint32_t count, uint32_t*) {
    return ReadDc(stream, count, true);
}

// One kind of bundle: its shape, how a value is added, what values there are, and how its chunks go out and come back.
struct Kind {
    const char* name;
    BundleShape shape;
    void (*append)(Bundle*, int);
    int low, high;
    size_t alphabets;
    void (*write)(BitWriter*, Bundle*);
    ChunkReader read;
};

const Kind KINDS[] = {
    {"types", NIBBLES, [](Bundle* b, int v) { AppendType(b, static_cast<uint32_t>(v)); }, 0, 9, 1, WriteTypeChunk,
     ReadTypes},
    {"colours",
     {8, 64, false},
     [](Bundle* b, int v) { AppendColour(b, static_cast<uint32_t>(v)); },
     0,
     255,
     17,
     WriteColourChunk,
     ReadColours},
    {"patterns",
     {8, 8, false},
     [](Bundle* b, int v) { AppendPattern(b, static_cast<uint32_t>(v)); },
     0,
     255,
     1,
     WritePatternChunk,
     ReadPatterns},
    {"offsets", {5, 1, true}, [](Bundle* b, int v) { AppendOffset(b, v); }, -15, 15, 1, WriteOffsetChunk, ReadOffsets},
    {"runs",
     {4, 48, false},
     [](Bundle* b, int v) { AppendRunLength(b, static_cast<uint32_t>(v)); },
     0,
     15,
     1,
     WriteRunChunk,
     ReadRuns},
    {"intra DC", {11, 1, false}, AppendElement, 0, 2047, 0, WriteDcChunk, ReadIntraDc},
    {"inter DC", {11, 1, true}, AppendElement, -1023, 1016, 0, WriteDcChunk, ReadInterDc},
};

// Values with long repeats, stretches of one value and of noise; all equal in some rounds.
Values MakeValues(const Kind& kind, int count, int style, std::mt19937* random) {
    Values values;
    int value = style == 0 ? 0 : RandomInt(random, kind.low, kind.high);
    int repeats = 0;
    while (static_cast<int>(values.size()) < count) {
        if (style >= 2 && repeats-- <= 0) {
            value = RandomInt(random, style == 2 ? kind.low : std::max(kind.low, -2), style == 2 ? kind.high : 2);
            repeats = RandomInt(random, 0, 3) == 0 ? RandomInt(random, 0, 80) : RandomInt(random, 0, 2);
        }
        values.push_back(value);
    }
    return values;
}

// Rows of elements go in; rows of chunks come out until the bundle ends.
void RoundTrip(const Kind& kind, const std::vector<Values>& rows, uint32_t width) {
    TestBundle test(width, kind.shape);
    Bundle* bundle = &test.bundle;
    Values all;
    for (const Values& row : rows) {
        for (const int value : row) kind.append(bundle, value);
        all.insert(all.end(), row.begin(), row.end());
        CountRepeats(bundle);
        CloseChunk(bundle);
    }
    FinishBundle(bundle);
    TestStream stream;
    if (kind.alphabets == 17)
        ChooseColourCodes(&stream.writer, bundle);
    else if (kind.alphabets == 1)
        ChooseBundleCode(&stream.writer, bundle);
    bundle->previousValue = 0;
    const uint32_t tableBits = BitsWritten(&stream.writer);
    uint32_t chunks = 0;
    for (; bundle->currentChunk != nullptr && bundle->currentChunk->elements != 0; chunks++) {
        kind.write(&stream.writer, bundle);
        bundle->remaining = 0;
    }
    EXPECT_EQ(bundle->totalElements, all.size());
    EXPECT_EQ(bundle->totalBits, BitsWritten(&stream.writer) - tableBits);
    kind.write(&stream.writer, bundle);
    const uint32_t bits = BitsWritten(&stream.writer);
    kind.write(&stream.writer, bundle); // ended
    EXPECT_EQ(BitsWritten(&stream.writer), bits);
    PadToWord(&stream.writer);

    std::vector<TestCode> codes;
    for (size_t i = 0; i < kind.alphabets; i++) codes.push_back(ReadTable(&stream));
    Values read;
    uint32_t state = 0;
    uint32_t chunksRead = 0;
    while (const uint32_t count = stream.Take(bundle->countBits)) {
        const Values chunk = kind.read(&stream, codes, count, &state);
        read.insert(read.end(), chunk.begin(), chunk.end());
        chunksRead++;
    }
    EXPECT_EQ(stream.at, bits);
    EXPECT_EQ(chunksRead, chunks);
    EXPECT_EQ(read, all);
}

TEST(Bundles, ReadBackInAllKinds) {
    std::mt19937 random(7);
    for (const Kind& kind : KINDS) {
        for (int round = 0; round < 40; round++) {
            SCOPED_TRACE(std::string(kind.name) + " round " + std::to_string(round));
            const uint32_t width = static_cast<uint32_t>(RandomInt(&random, 1, 80)) * 8;
            const int most = static_cast<int>(width / 8 * kind.shape.multiplicity);
            std::vector<Values> rows(static_cast<size_t>(RandomInt(&random, 1, 20)));
            for (Values& row : rows)
                row = MakeValues(kind, round % 5 == 4 ? most : RandomInt(&random, 0, most), round % 4, &random);
            RoundTrip(kind, rows, width);
            if (HasFailure()) return;
        }
    }
}

// A chunk closes at a row's end only, once it holds 512, and then holds the whole row.
TEST(Bundles, CloseChunksAtRowEnds) {
    TestBundle test(640, {8, 64, false});
    EXPECT_EQ(test.bundle.countBits, 13u);
    EXPECT_EQ(test.bundle.chunkCapacity, 5120u + 512);
    for (int i = 0; i < 511; i++) AppendColour(&test.bundle, 1);
    CloseChunk(&test.bundle);
    EXPECT_EQ(test.bundle.currentChunk, test.bundle.firstChunk);
    for (int i = 0; i < 5120; i++) AppendColour(&test.bundle, 2);
    CloseChunk(&test.bundle);
    EXPECT_NE(test.bundle.currentChunk, test.bundle.firstChunk);
    EXPECT_EQ(test.bundle.firstChunk->elements, 5631u);
    EXPECT_EQ(test.bundle.firstChunk->packedBits, 5631u * 8);
    EXPECT_FALSE(test.bundle.packer.overflow);
    EXPECT_EQ(TestBundle(640, NIBBLES).bundle.countBits, 10u);
    EXPECT_EQ(TestBundle(4032, {8, 64, false}).bundle.countBits, 15u);
}

TEST(Bundles, CountRepeatsAsTheyAreSent) {
    TestBundle test(8, NIBBLES);
    for (int i = 0; i < 32; i++) AppendType(&test.bundle, 0); // 12 + 12 + 4 + four times the type itself
    AppendType(&test.bundle, 5);
    for (int i = 0; i < 33; i++) AppendType(&test.bundle, 5); // 32 + 1
    CountRepeats(&test.bundle);
    const uint32_t* counts = test.bundle.symbolCounts;
    EXPECT_EQ(counts[0], 4u);
    EXPECT_EQ(counts[5], 2u);
    EXPECT_EQ(counts[12], 1u);
    EXPECT_EQ(counts[13], 0u);
    EXPECT_EQ(counts[14], 2u);
    EXPECT_EQ(counts[15], 1u);
}

// Chunks written with the flat code, against bits worked out by hand.
TEST(Chunks, HaveTheBitsWorkedOutByHand) {
    auto written = [](const Kind& kind, const Values& values, const std::vector<uint32_t>& fields) {
        TestBundle test(8, kind.shape);
        for (const int value : values) kind.append(&test.bundle, value);
        FinishBundle(&test.bundle);
        for (uint32_t i = 0; i < COLOUR_LOW + SYMBOLS; i++) {
            test.bundle.codeLengths[i] = 4;
            test.bundle.codeWords[i] = i % 16;
        }
        TestStream stream;
        test.bundle.previousValue = 0;
        kind.write(&stream.writer, &test.bundle);
        const uint32_t bits = BitsWritten(&stream.writer);
        PadToWord(&stream.writer);
        ASSERT_EQ(stream.Take(test.bundle.countBits), values.size());
        for (size_t i = 0; i < fields.size(); i += 2) EXPECT_EQ(stream.Take(fields[i]), fields[i + 1]) << i;
        EXPECT_EQ(stream.at, bits);
    };
    written(KINDS[0], {0, 0, 0}, {1, 1, 4, 0});
    written(KINDS[0], {0, 0, 0, 0, 0, 0, 1}, {1, 0, 4, 12, 4, 0, 4, 0, 4, 1});
    written(KINDS[1], Values(70, 37), {1, 1, 4, 2, 4, 5});
    written(KINDS[1], {37, 38}, {1, 0, 4, 2, 4, 5, 4, 2, 4, 6});
    written(KINDS[2], {0x4b}, {4, 11, 4, 4});
    written(KINDS[3], {0, 0}, {1, 1, 4, 0});
    written(KINDS[3], {0, -3, 0}, {1, 0, 4, 0, 4, 3, 1, 1, 4, 0});
    written(KINDS[4], {0, 0}, {1, 1, 4, 0});
    written(KINDS[5], {1024}, {11, 1024});
    // First value, then 8 differences 3 bits wide: -5, then seven zeros.
    written(KINDS[5], {9, 4, 4, 4, 4, 4, 4, 4, 4}, {11, 9, 4, 3, 3, 5, 1, 1, 21, 0});
    written(KINDS[6], {-1023, -1023}, {10, 1023, 1, 1, 4, 0});
}

// An arena that is too small is noted; nothing is written outside it and nothing crashes.
TEST(Bundles, SurviveAnExhaustedArena) {
    TestBundle none(64, {8, 64, false}, 64);
    EXPECT_TRUE(none.arena.exhausted);
    TestBundle one(64, {8, 64, false}, 1100); // room for one chunk of 1040 bytes
    EXPECT_FALSE(one.arena.exhausted);
    for (TestBundle* test : {&none, &one}) {
        for (int i = 0; i < 1000; i++) {
            AppendColour(&test->bundle, 3);
            if (i % 500 == 0) CloseChunk(&test->bundle);
        }
        CloseChunk(&test->bundle);
        for (int i = 0; i < 600; i++) AppendColour(&test->bundle, 3);
        FinishBundle(&test->bundle);
        EXPECT_TRUE(test->arena.exhausted);
    }
    BlockDataList list;
    StartBlockDataList(&list, &none.arena);
    uint8_t word[4] = {};
    for (int i = 0; i < 10; i++) AppendBitString(&list, word, 3);
    TestStream stream(4);
    RewindBlockData(&list);
    for (int i = 0; i < 12; i++) CopyNextBitString(&stream.writer, &list);
    EXPECT_LE(BitsWritten(&stream.writer), 30u);
}

// Strings of any length come out whole, in order and without gaps, wherever the stream stands.
TEST(BlockData, CopiesExactBits) {
    std::mt19937 random(11);
    std::vector<uint64_t> room(1 << 13);
    Arena arena = MakeArena(reinterpret_cast<uint8_t*>(room.data()), room.size() * 8);
    BlockDataList list;
    StartBlockDataList(&list, &arena);
    std::vector<bool> expected;
    for (uint32_t bits = 0; bits < 140; bits++) {
        TestStream string(32);
        for (uint32_t i = 0; i < bits; i++) {
            expected.push_back(random() & 1);
            WriteBits(&string.writer, expected.back(), 1);
        }
        PadToWord(&string.writer);
        AppendBitString(&list, string.room.data(), bits);
    }
    TestStream stream;
    RewindBlockData(&list);
    for (uint32_t bits = 0; bits < 140; bits++) CopyNextBitString(&stream.writer, &list);
    ASSERT_EQ(BitsWritten(&stream.writer), expected.size());
    PadToWord(&stream.writer);
    for (size_t i = 0; i < expected.size(); i++) ASSERT_EQ(stream.Take(1), uint32_t{expected[i]}) << i;
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
