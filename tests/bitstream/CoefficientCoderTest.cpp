// CoefficientCoderTest.cpp - strings of DCT and residue blocks: read back by a plain decoder, counted right, cut off anywhere.
#include <gtest/gtest.h>

#include <list>

#include "StreamReading.h"
#include "bitstream/CoefficientCoder.h"

namespace vorn {
namespace {

using Block = std::vector<int>; // 64 values in block order

// The tree of nodes as a linked list, walked as a decoder does. Show(n) reads coefficient n.
struct TreeWalk {
    struct Entry {
        int first;
        int count; // coefficients below this node: 20, 16, 4 or 1
    };
    std::list<Entry> nodes;
    std::list<Entry> joined; // for the next pass, the last to join first

    template <class Show> bool Pass(TestStream* stream, Show show) {
        for (auto at = nodes.begin(); at != nodes.end();) {
            if (!stream->Take(1)) {
                ++at;
                continue;
            }
            const Entry node = *at;
            if (node.count == 16) {
                for (int i = 4; i < 16; i += 4) nodes.push_back({node.first + i, 4});
                *at = {node.first, 4};
                continue;
            }
            if (node.count == 20)
                *at = {node.first + 4, 16};
            else
                at = nodes.erase(at);
            if (node.count == 1 && !show(node.first)) return false;
            for (int n = node.first; node.count > 1 && n < node.first + 4; n++) {
                if (stream->Take(1))
                    joined.push_front({n, 1});
                else if (!show(n))
                    return false;
            }
        }
        nodes.splice(nodes.begin(), joined);
        return true;
    }
};

Block DecodeCoefficients(TestStream* stream) {
    Block block(64, 0);
    TreeWalk walk = {{{4, 20}, {24, 20}, {44, 20}, {1, 1}, {2, 1}, {3, 1}}, {}};
    for (uint32_t plane = stream->Take(4); plane > 0; plane--) {
        walk.Pass(stream, [&](int n) {
            const auto magnitude = static_cast<int>(stream->Take(plane - 1) + (1u << (plane - 1)));
            block[WALK_ORDER[n]] = stream->Take(1) ? -magnitude : magnitude;
            return true;
        });
    }
    return block;
}

// Reads up to event limit + 1; `events` receives how many there were.
Block DecodeResidue(TestStream* stream, uint32_t limit, uint32_t* events) {
    Block block(64, 0);
    TreeWalk walk = {{{4, 20}, {24, 20}, {44, 20}, {0, 4}}, {}};
    std::vector<int> significant;
    const uint32_t top = stream->Take(3);
    auto wrap = [](int value) { return ((value + 128) & 255) - 128; };
    int mask = wrap(1 << top);
    *events = 0;
    for (uint32_t plane = 0; plane <= top; plane++) {
        const size_t stood = significant.size();
        for (size_t i = 0; i < stood; i++) {
            if (!stream->Take(1)) continue;
            int& value = block[static_cast<size_t>(significant[i])];
            value = wrap(value >= 0 ? value + mask : value - mask);
            if ((*events)++ == limit) return block;
        }
        const bool through = walk.Pass(stream, [&](int n) {
            significant.push_back(WALK_ORDER[n]);
            block[WALK_ORDER[n]] = wrap(stream->Take(1) ? -mask : mask);
            return (*events)++ != limit;
        });
        if (!through) return block;
        mask = mask < 0 ? (mask - 1) / 2 : mask / 2;
    }
    return block;
}

// Blocks of all sizes and densities, and extreme ones: everything at the same magnitude, or a single value.
Block MakeBlock(int round, int greatest, std::mt19937* random) {
    Block block(64, 0);
    if (round < 64) {
        block[static_cast<size_t>(round)] = round % 2 ? -1 : greatest;
        return block;
    }
    const int bits = RandomInt(random, 1, 15);
    const int density = RandomInt(random, 1, 8);
    for (int& value : block) {
        const int size = round % 4 == 0
                             ? greatest
                             : std::min(greatest, RandomInt(random, 0, (1 << bits) - 1) >> RandomInt(random, 0, bits));
        if (RandomInt(random, 1, 8) <= density) value = RandomInt(random, 0, 1) ? -size : size;
    }
    return block;
}

uint32_t WriteAndCount(TestStream* stream, const Block& block) {
    int16_t coefficients[64];
    for (size_t i = 0; i < 64; i++) coefficients[i] = static_cast<int16_t>(block[i]);
    WriteCoefficients(&stream->writer, coefficients);
    const uint32_t bits = BitsWritten(&stream->writer);
    PadToWord(&stream->writer);
    EXPECT_EQ(CountCoefficientBits(coefficients), bits);
    return bits;
}

TEST(Coefficients, ReadBackAndAreCounted) {
    std::mt19937 random(3);
    for (int round = 0; round < 3000; round++) {
        SCOPED_TRACE(round);
        Block block = MakeBlock(round, round % 3 ? 1024 : 32767, &random);
        TestStream stream(PAYLOAD_ROOM_BYTES);
        const uint32_t bits = WriteAndCount(&stream, block);
        block[0] = 0; // travels elsewhere
        ASSERT_EQ(DecodeCoefficients(&stream), block);
        ASSERT_EQ(stream.at, bits);
        ASSERT_FALSE(stream.writer.overflow);
    }
}

TEST(Coefficients, HaveTheBitsWorkedOutByHand) {
    Block block(64, 0);
    block[0] = 99;
    TestStream none(64);
    EXPECT_EQ(WriteAndCount(&none, block), 4u);
    block[1] = -1;
    TestStream one(64);
    EXPECT_EQ(WriteAndCount(&one, block), 11u);
    EXPECT_EQ(one.Take(4), 1u);
    EXPECT_EQ(one.Take(3), 0u); // the wide nodes
    EXPECT_EQ(one.Take(2), 3u); // shows, negative
    EXPECT_EQ(one.Take(2), 0u);
    // Dearest for 13 planes: 4 bits of head, 63 values of 14 bits, 18 flags of nodes.
    TestStream full(256);
    EXPECT_EQ(WriteAndCount(&full, Block(64, -8191)), 4u + 63 * 14 + 18);
}

TEST(Coefficients, PayloadEndsWithTheQuantiser) {
    alignas(8) uint8_t room[256];
    Arena arena = MakeArena(room, sizeof room);
    BlockDataList list;
    StartBlockDataList(&list, &arena);
    const int16_t flat[64] = {77};
    WriteDctPayload(&list, 13, flat);
    ASSERT_NE(list.first, nullptr);
    EXPECT_EQ(list.first->bits, 8u);
    TestStream stream(16);
    RewindBlockData(&list);
    CopyNextBitString(&stream.writer, &list);
    PadToWord(&stream.writer);
    EXPECT_EQ(stream.Take(8), 13u << 4);
}

// A decoder's view at every truncation point, for the payload writer and for the reader on its own.
void CheckTruncations(const Block& block, std::mt19937* random) {
    int8_t residual[64];
    for (size_t i = 0; i < 64; i++) residual[i] = static_cast<int8_t>(block[i]);
    TestStream full(PAYLOAD_ROOM_BYTES);
    ASSERT_TRUE(WriteResidue(&full.writer, residual));
    ASSERT_LE(BitsWritten(&full.writer), 3u + 64 * 9 + 19);
    const uint32_t fullBits = BitsWritten(&full.writer);
    PadToWord(&full.writer);
    uint32_t events = 0;
    const Block whole = DecodeResidue(&full, UINT32_MAX, &events);
    ASSERT_EQ(full.at, fullBits);
    bool extreme = false;
    for (const int value : block) extreme = extreme || value == -128;
    if (!extreme) {
        ASSERT_EQ(whole, block);
    }
    for (int i = 0; i < 12; i++) {
        const uint32_t limit =
            i < 2 ? static_cast<uint32_t>(i) : static_cast<uint32_t>((*random)() % (events + 3)) & 127;
        full.at = 0;
        uint32_t read;
        const Block expected = DecodeResidue(&full, limit, &read);
        alignas(8) uint8_t room[256];
        Arena arena = MakeArena(room, sizeof room);
        BlockDataList list;
        StartBlockDataList(&list, &arena);
        int8_t shown[64];
        WriteResiduePayload(&list, residual, limit, shown);
        ASSERT_EQ(Block(shown, shown + 64), expected) << "limit " << limit;
        ASSERT_EQ(list.first->bits, 7 + full.at);
        TestStream string(PAYLOAD_ROOM_BYTES);
        RewindBlockData(&list);
        CopyNextBitString(&string.writer, &list);
        PadToWord(&string.writer);
        ASSERT_EQ(string.Take(7), limit);
        ASSERT_EQ(DecodeResidue(&string, limit, &read), expected);
        ASSERT_EQ(string.at, list.first->bits);
    }
}

TEST(Residues, ReadBackAtEveryTruncation) {
    std::mt19937 random(5);
    for (int round = 0; round < 800; round++) {
        SCOPED_TRACE(round);
        Block block = MakeBlock(round, round % 7 == 3 ? 128 : 127, &random);
        for (int& value : block)
            if (value == 128) value = round % 14 == 3 ? -128 : 127;
        bool zero = true;
        for (const int value : block) zero = zero && value == 0;
        if (zero) block[9] = 1;
        CheckTruncations(block, &random);
        if (HasFatalFailure()) return;
    }
}

// The steps that a reader sees: 5, 2 and -1 at their planes, then nothing.
TEST(Residues, ChangeOneValueAnEvent) {
    int8_t residual[64] = {};
    residual[0] = 5;
    residual[20] = 2;
    residual[63] = -1;
    TestStream stream(64);
    ASSERT_TRUE(WriteResidue(&stream.writer, residual));
    PadToWord(&stream.writer);
    BitReader bits;
    StartReader(&bits, stream.room.data(), 64);
    ResidueReader reader;
    StartResidueReader(&reader, bits);
    const int steps[][3] = {{0, 0, 4}, {20, 0, 2}, {0, 4, 5}, {63, 0, -1}};
    for (const auto& step : steps) {
        ASSERT_TRUE(NextResidueEvent(&reader));
        EXPECT_EQ(reader.position, step[0]);
        EXPECT_EQ(reader.before, step[1]);
        EXPECT_EQ(reader.values[step[0]], step[2]);
    }
    EXPECT_FALSE(NextResidueEvent(&reader));
    EXPECT_FALSE(NextResidueEvent(&reader));
}

// With a -128 the weights are negative from the second plane on: 75 = 64 + 8 + 2 + 1 goes the other way.
TEST(Residues, MinimumTurnsTheSignsBelow) {
    int8_t residual[64] = {};
    residual[0] = -128;
    residual[1] = 75;
    TestStream stream(64);
    ASSERT_TRUE(WriteResidue(&stream.writer, residual));
    PadToWord(&stream.writer);
    const int expected[] = {0, -64, -56, -54, -53};
    for (uint32_t limit = 0; limit < 5; limit++) {
        BitReader bits;
        StartReader(&bits, stream.room.data(), 64);
        int8_t out[64];
        ReadResidue(out, &bits, limit);
        EXPECT_EQ(out[0], -128);
        EXPECT_EQ(out[1], expected[limit]) << limit;
    }
}

TEST(Residues, AllZeroTakesFourteenBits) {
    alignas(8) uint8_t room[64];
    Arena arena = MakeArena(room, sizeof room);
    BlockDataList list;
    StartBlockDataList(&list, &arena);
    const int8_t residual[64] = {};
    int8_t shown[64];
    WriteResiduePayload(&list, residual, 5, shown);
    EXPECT_EQ(list.first->bits, 14u);
    for (const int8_t value : shown) EXPECT_EQ(value, 0);
}

} // namespace
} // namespace vorn
