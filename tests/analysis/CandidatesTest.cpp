// CandidatesTest.cpp - what evaluators offer: the best pair of colours, every rung of a residue; at edges with values by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "analysis/Evaluators.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

constexpr uint32_t MOTION_BITS = 2100;

// A block of samples that are sorted, as runs of `count` equal ones, and its best pair.
TEST(PatternCandidates, KnownPairs) {
    struct Run {
        int count;
        uint8_t sample;
    };
    const struct {
        std::vector<Run> runs;
        int low, high;
        uint32_t error;
    } cases[] = {
        {{{64, 9}}, -1, -1, 0},
        {{{40, 10}, {24, 30}}, 10, 30, 0},
        {{{1, 10}, {63, 13}}, 11, 13, 1}, // means of two samples round down
        {{{62, 50}, {1, 100}, {1, 103}}, 50, 101, 3},
        {{{20, 0}, {24, 10}, {20, 20}}, 0, 10, 200}, // as good as 10 and 20, and earlier
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        uint8_t sorted[64];
        uint8_t* end = sorted;
        for (const Run& run : one.runs) end = std::fill_n(end, run.count, run.sample);
        int low = -1, high = -1;
        EXPECT_EQ(FindColourPairPlain(sorted, &low, &high), one.low >= 0);
        EXPECT_EQ(low, one.low);
        EXPECT_EQ(high, one.high);
        BlockCandidate found = {};
        ASSERT_EQ(PatternCandidates(&found, sorted, sorted, 1000, 5000), one.low >= 0);
        EXPECT_TRUE(one.low < 0 || found.error == one.error) << found.error;
    }
}

// Every second block has samples of few values: many splits repeat the pair before them, the best one among them now and then.
TEST(PatternCandidates, EqualThePlainSearch) {
    Noise noise = {7};
    for (int round = 0; round < 20000; round++) {
        uint8_t sorted[64];
        FillSamples(sorted, 8, 8, static_cast<Content>(round / 2 % CONTENTS), &noise);
        const uint32_t range = 1u << (NextNoise(&noise) % 9);
        const uint32_t base = NextNoise(&noise) % (257 - range);
        const uint32_t rare = 1 + NextNoise(&noise) % 8;
        for (int i = 0; i < 64 && round % 2 == 0; i++) {
            const uint32_t value = NextNoise(&noise) % rare == 0 ? NextNoise(&noise) % range : range / 2;
            sorted[i] = static_cast<uint8_t>(base + value);
        }
        std::sort(sorted, sorted + 64);
        int low = -1, high = -1, plainLow = -1, plainHigh = -1;
        ASSERT_EQ(FindColourPair(sorted, &low, &high), FindColourPairPlain(sorted, &plainLow, &plainHigh)) << round;
        ASSERT_EQ(low, plainLow) << round;
        ASSERT_EQ(high, plainHigh) << round;
    }
}

// A residual against a reference, flat if nothing else is said, listed.
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

// A residual of its own spread and thinness. References near both ends of the scale make sums that wrap; of the greatest
// spread, every second has no -128 and its negative weights.
void FillLadder(Ladder* ladder, int round, Noise* noise) {
    const uint32_t spread = 1u << round % 9;
    const uint32_t sparse = 1 + NextNoise(noise) % 12;
    Clear(ladder);
    for (int i = 0; i < 64; i++) {
        const uint32_t end = NextNoise(noise);
        ladder->moved[i] = static_cast<uint8_t>(round % 3 == 0 ? end : end % 2 == 0 ? end % 9 : 255 - end % 9);
        const uint32_t value = NextNoise(noise) % spread - spread / 2;
        if (NextNoise(noise) % sparse == 0) ladder->residual[i] = static_cast<int8_t>(value);
        if (ladder->residual[i] == -128 && round / 9 % 2 == 0) ladder->residual[i] = 127;
    }
    if (round % 13 == 0) ladder->residual[round % 64] = -128;
    ladder->residual[5] = static_cast<int8_t>(ladder->residual[5] | 1); // not all zero
}

// The walk without a stream finds what writing it and reading it back finds; all three ways to end occur.
TEST(ResidueCandidates, EqualThePlainForm) {
    Noise noise = {11};
    int full = 0, exact = 0, ended = 0;
    for (int round = 0; round < 2000; round++) {
        Ladder ladder;
        FillLadder(&ladder, round, &noise);
        List(&ladder);
        BlockCandidate plain[MAX_RESIDUE_STEPS];
        const int count = ladder.count;
        ASSERT_EQ(ResidueCandidatesPlain(plain, ladder.src, ladder.residual, ladder.moved, MOTION_BITS), count);
        for (int k = 0; k < count; k++) {
            ASSERT_EQ(ladder.list[k].mode, MODE_RESIDUE);
            ASSERT_EQ(ladder.list[k].payload, k);
            ASSERT_EQ(ladder.list[k].bits, plain[k].bits) << round << " " << k;
            ASSERT_EQ(ladder.list[k].error, plain[k].error) << round << " " << k;
        }
        const bool isExact = ladder.list[count - 1].error == 0;
        exact += isExact;
        full += !isExact && count == MAX_RESIDUE_STEPS;
        ended += !isExact && count < MAX_RESIDUE_STEPS;
    }
    EXPECT_GT(exact, 250);
    EXPECT_GT(full, 50);
    EXPECT_GT(ended, 0);
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

    // 5, 2, -1 in the first group. Plane 4: 5 shows as 4, error 1 + 2 + 1. Plane 2: refinement 0, then 2. Plane 1: the 5 is
    // refined, error 1, then -1.
    ladder.residual[0] = 5;
    ladder.residual[1] = 2;
    ladder.residual[8] = -1;
    List(&ladder);
    ASSERT_EQ(ladder.count, 4);
    const uint32_t errors[] = {4, 2, 1, 0};
    for (int k = 0; k < 4; k++) EXPECT_EQ(ladder.list[k].error, errors[k]);
}

} // namespace
} // namespace vorn
