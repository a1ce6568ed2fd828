// ResidueCandidatesTest.cpp - every rung of the ladder is what a reader with that limit shows after that many bits.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "analysis/Evaluators.h"
#include "bitstream/CoefficientCoder.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

constexpr uint32_t MOTION_BITS = 1234;

// A residual against a flat reference of 100, listed.
struct Ladder {
    uint8_t moved[64];
    uint8_t src[64];
    int8_t residual[64];
    BlockCandidate list[MAX_RESIDUE_STEPS + 1];
    int count;
};
void List(Ladder* ladder) {
    for (int i = 0; i < 64; i++) ladder->src[i] = static_cast<uint8_t>(ladder->moved[i] + ladder->residual[i]);
    std::memset(&ladder->list[MAX_RESIDUE_STEPS], 0xee, sizeof(BlockCandidate));
    ladder->count = ResidueCandidates(ladder->list, ladder->src, ladder->residual, ladder->moved, MOTION_BITS);
    EXPECT_EQ(ladder->list[MAX_RESIDUE_STEPS].mode, 0xee);
}
void Clear(Ladder* ladder) {
    std::memset(ladder, 0, sizeof(*ladder));
    std::memset(ladder->moved, 100, 64);
}

// Bits, as read, and error of a block whose stream is read up to `limit`.
struct Shown {
    uint32_t bits;
    uint32_t error;
};
Shown ReadUpTo(const Ladder& ladder, uint32_t limit) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof(room));
    EXPECT_TRUE(WriteResidue(&writer, ladder.residual));
    PadToWord(&writer);
    BitReader reader;
    StartReader(&reader, room, static_cast<uint32_t>(writer.position - room));
    int8_t values[64];
    ReadResidue(values, &reader, limit);
    int error = 0;
    for (int i = 0; i < 64; i++) error += std::abs(static_cast<uint8_t>(ladder.moved[i] + values[i]) - ladder.src[i]);
    return {reader.consumed, static_cast<uint32_t>(error)};
}

TEST(ResidueCandidates, EqualTheReaderAtEveryLimit) {
    Noise noise = {11};
    int full = 0;
    int exact = 0;
    int ended = 0;
    for (int round = 0; round < 400; round++) {
        Ladder ladder;
        Clear(&ladder);
        const int spread = 1 << round % 9;
        const uint32_t sparse = 1 + NextNoise(&noise) % 12;
        for (int i = 0; i < 64; i++) {
            ladder.moved[i] = static_cast<uint8_t>(NextNoise(&noise));
            const int value = static_cast<int>(NextNoise(&noise)) % spread - spread / 2;
            if (NextNoise(&noise) % sparse == 0) ladder.residual[i] = static_cast<int8_t>(value);
        }
        if (round % 13 == 0) ladder.residual[round % 64] = -128;
        ladder.residual[5] = static_cast<int8_t>(ladder.residual[5] | 1); // not all zero
        List(&ladder);
        ASSERT_GT(ladder.count, 0);
        ASSERT_LE(ladder.count, MAX_RESIDUE_STEPS);
        for (int k = 0; k < ladder.count; k++) {
            const Shown shown = ReadUpTo(ladder, static_cast<uint32_t>(k));
            ASSERT_EQ(ladder.list[k].bits, 256 * shown.bits + 1792 + MOTION_BITS) << round << " " << k;
            ASSERT_EQ(ladder.list[k].error, shown.error) << round << " " << k;
            ASSERT_EQ(ladder.list[k].payload, k);
            ASSERT_EQ(ladder.list[k].mode, MODE_RESIDUE);
            ASSERT_EQ(k < ladder.count - 1 && shown.error == 0, false);
        }
        if (ladder.list[ladder.count - 1].error == 0) {
            exact++;
        } else if (ladder.count == MAX_RESIDUE_STEPS) {
            full++;
        } else {
            // No further event: reading on changes nothing.
            const Shown last = ReadUpTo(ladder, 1000);
            ASSERT_EQ(last.error, ladder.list[ladder.count - 1].error);
            ended++;
        }
    }
    EXPECT_GT(exact, 50); // all three ways to end occur
    EXPECT_GT(full, 10);
    EXPECT_GT(ended, 0);
}

// The walk without a stream against the stream itself. References near both ends of the scale make residuals that wrap.
TEST(ResidueCandidates, EqualTheLadderReadBack) {
    Noise noise = {12};
    int wrapped = 0;
    for (int round = 0; round < 3000; round++) {
        Ladder ladder;
        Clear(&ladder);
        const uint32_t spread = 1u << (1 + round % 8);
        const uint32_t sparse = 1 + NextNoise(&noise) % 10;
        for (int i = 0; i < 64; i++) {
            const uint32_t end = NextNoise(&noise);
            ladder.moved[i] = static_cast<uint8_t>(round % 3 == 0 ? end : end % 2 == 0 ? end % 9 : 255 - end % 9);
            if (NextNoise(&noise) % sparse != 0) continue;
            ladder.residual[i] =
                static_cast<int8_t>(static_cast<int>(NextNoise(&noise) % spread) - static_cast<int>(spread / 2));
        }
        // The greatest spread, every second time without a -128 and its negative weights.
        for (int8_t& value : ladder.residual)
            value = static_cast<int8_t>(value == -128 && round % 16 == 7 ? 127 : value);
        List(&ladder);
        BlockCandidate expected[MAX_RESIDUE_STEPS];
        const int count = ResidueCandidatesPlain(expected, ladder.src, ladder.residual, ladder.moved, MOTION_BITS);
        ASSERT_EQ(ladder.count, count) << round;
        for (int k = 0; k < count; k++) {
            ASSERT_EQ(ladder.list[k].bits, expected[k].bits) << round << " " << k;
            ASSERT_EQ(ladder.list[k].error, expected[k].error) << round << " " << k;
            ASSERT_EQ(ladder.list[k].payload, k);
        }
        for (int i = 0; i < 64; i++) wrapped += std::abs(ladder.src[i] - ladder.moved[i]) > 128 ? 1 : 0;
    }
    EXPECT_GT(wrapped, 10000);
}

TEST(ResidueCandidates, KnownLadders) {
    Ladder ladder;
    Clear(&ladder);
    List(&ladder);
    EXPECT_EQ(ladder.count, 0);

    // Head 3; three nodes of 20 not yet; the group of the first four opens; present, sign.
    ladder.residual[0] = 1;
    List(&ladder);
    ASSERT_EQ(ladder.count, 1);
    EXPECT_EQ(ladder.list[0].bits, (3u + 3 + 1 + 2) * 256 + 1792 + MOTION_BITS);
    EXPECT_EQ(ladder.list[0].error, 0u);

    // Both signs of -128 are one value.
    ladder.residual[0] = -128;
    List(&ladder);
    ASSERT_EQ(ladder.count, 1);
    EXPECT_EQ(ladder.list[0].bits, (3u + 3 + 1 + 2) * 256 + 1792 + MOTION_BITS);
    EXPECT_EQ(ladder.list[0].error, 0u);

    // 5, 2, -1 in the first group. Plane 4: 5 shows as 4, error 1 + 2 + 1. Plane 2: refinement 0, then 2. Plane 1: the 5 is
    // refined, error 1, then -1.
    Clear(&ladder);
    ladder.residual[0] = 5;
    ladder.residual[1] = 2;
    ladder.residual[8] = -1;
    List(&ladder);
    ASSERT_EQ(ladder.count, 4);
    const uint32_t errors[4] = {4, 2, 1, 0};
    for (int k = 0; k < 4; k++) EXPECT_EQ(ladder.list[k].error, errors[k]);
}

// Beside a -128 the weights are negative all the way down: 75 is read as -64, -56, -54, -53.
TEST(ResidueCandidates, NeighboursOfTheLowestValueTurnTheirSign) {
    Ladder ladder;
    Clear(&ladder);
    ladder.residual[0] = -128;
    ladder.residual[1] = 75;
    List(&ladder);
    ASSERT_EQ(ladder.count, 5);
    EXPECT_EQ(ladder.src[1], 175);
    const int shown[5] = {100, 36, 44, 46, 47};
    for (int k = 0; k < 5; k++) EXPECT_EQ(ladder.list[k].error, static_cast<uint32_t>(175 - shown[k])) << k;
}

} // namespace
} // namespace vorn
