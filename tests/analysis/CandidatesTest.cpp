// CandidatesTest.cpp - what each evaluator offers: which quantisers, the best pair of colours, the staircase of runs, every
// rung of a residue; at edges with values by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "analysis/Evaluators.h"
#include "blocks/CandidateLists.h"
#include "tests/analysis/ShownBlocks.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

const CostModel COSTS = MakeCosts();

void ExpectShown(const BlockCandidate& candidate, int mode, int payload, const Shown& shown, const uint8_t* src) {
    ASSERT_EQ(candidate.mode, mode);
    ASSERT_EQ(candidate.payload, payload);
    ASSERT_EQ(candidate.bits, shown.bits) << payload;
    ASSERT_EQ(candidate.error, ErrorOf(shown, src)) << payload;
}

// The quantisers up to the first that leaves no AC. Steps of the finest are at most 83 / 16, so that samples of the middle
// range are off by about one on average.
TEST(IntraCandidates, AreThoseThatLeaveAc) {
    Noise noise = {9};
    int shortLists = 0;
    for (int round = 0; round < 120; round++) {
        uint8_t src[64];
        uint8_t high[256];
        FillSamples(src, 8, 8, static_cast<Content>(round % CONTENTS), &noise);
        FillSamples(high, 16, 16, CONTENT_NOISE, &noise);
        for (uint8_t& sample : src) sample = static_cast<uint8_t>(64 + sample / 2);
        BlockCandidate list[32];
        BlockCandidate highList[32];
        const int count = IntraCandidates(list, src, &COSTS);
        ASSERT_EQ(count, HighIntraCandidates(highList, high, src, &COSTS));
        int k = 0;
        for (; k < 16; k++) {
            const Shown shown = Show(MODE_INTRA, k, src, nullptr, nullptr, COSTS);
            if (shown.bits == 8 * 256 + COSTS.intraDcBits) break; // 4 bits of no AC and 4 of the quantiser
            ASSERT_LT(k, count) << round;
            ExpectShown(list[k], MODE_INTRA, k, shown, src);
            ASSERT_EQ(highList[k].error, HighErrorOf(shown, high, 16));
            ASSERT_EQ(highList[k].bits, list[k].bits);
        }
        ASSERT_EQ(count, k) << round;
        shortLists += count < 16;
        EXPECT_TRUE(count == 0 || list[0].error < 64 * 2) << round;
    }
    EXPECT_GT(shortLists, 30);
}

// The list ends with the first quantiser that leaves no AC, that one included.
TEST(InterCandidates, LastOneMayHaveNoAc) {
    Noise noise = {10};
    int shortLists = 0;
    for (int round = 0; round < 100; round++) {
        uint8_t src[64];
        uint8_t moved[64];
        int8_t residual[64];
        FillSamples(moved, 8, 8, CONTENT_SOFT, &noise);
        for (int i = 0; i < 64; i++) {
            residual[i] = static_cast<int8_t>(NextNoise(&noise) % static_cast<uint32_t>(2 + round));
            src[i] = static_cast<uint8_t>(moved[i] + residual[i]);
        }
        BlockCandidate list[32];
        const int count = InterCandidates(list, src, residual, moved, &COSTS);
        ASSERT_GE(count, 1);
        for (int k = 0; k < count; k++) {
            const Shown shown = Show(MODE_INTER, k, src, nullptr, moved, COSTS);
            ExpectShown(list[k], MODE_INTER, k, shown, src);
            const bool hasAc = shown.bits > 8 * 256 + COSTS.interDcBits + COSTS.motionBits;
            EXPECT_TRUE(k == 15 || hasAc == (k < count - 1)) << round << " " << k;
        }
        shortLists += count < 16;
    }
    EXPECT_GT(shortLists, 10);
}

// Nothing left by motion; and 250 + 10, which shows 4: an even residual is exact at the finest quantiser, however sums wrap.
TEST(InterCandidates, FlatResidualHasOneWithoutError) {
    for (const int value : {0, 10}) {
        BlockCandidate list[32];
        uint8_t src[64];
        uint8_t moved[64];
        int8_t residual[64];
        std::memset(src, 4, 64);
        std::memset(moved, 4 - value, 64);
        std::memset(residual, value, 64);
        ASSERT_EQ(InterCandidates(list, src, residual, moved, &COSTS), 1);
        EXPECT_TRUE(value != 0 || list[0].bits == 8u * 256 + COSTS.interDcBits + COSTS.motionBits);
        EXPECT_EQ(list[0].error, 0u);
    }
}

// Returns high * 256 + low, or -1 without two values.
int SlowPair(const uint8_t* s) {
    int best = 0x7ffffff;
    int pair = -1;
    int previous = -1;
    for (int i = 1; i <= 63; i++) {
        if (s[i] == s[i - 1]) continue;
        const int m = i / 2;
        const int h = i + (63 - i) / 2;
        const int low = i % 2 == 1 ? (s[m] + s[m + 1]) / 2 : s[m];
        const int high = i % 2 == 1 ? s[h] : (s[h] + s[h + 1]) / 2;
        if (high * 256 + low == previous) continue;
        previous = high * 256 + low;
        int error = 0;
        for (int j = 0; j < 64; j++) error += std::abs((j < i ? low : high) - s[j]);
        if (error < best) {
            best = error;
            pair = previous;
            if (error == 0) break;
        }
    }
    return pair;
}

// Every second block has samples of few values: many splits repeat the pair before them, the best one among them now and then.
TEST(PatternCandidates, EqualTheSlowSearch) {
    Noise noise = {7};
    int offered = 0;
    for (int round = 0; round < 20000; round++) {
        uint8_t src[64];
        FillSamples(src, 8, 8, static_cast<Content>(round / 2 % CONTENTS), &noise);
        const uint32_t range = 1u << (NextNoise(&noise) % 9);
        const uint32_t base = NextNoise(&noise) % (257 - range);
        const uint32_t rare = 1 + NextNoise(&noise) % 8;
        for (int i = 0; i < 64 && round % 2 == 0; i++) {
            const uint32_t value = NextNoise(&noise) % rare == 0 ? NextNoise(&noise) % range : range / 2;
            src[i] = static_cast<uint8_t>(base + value);
        }
        uint8_t sorted[64];
        std::memcpy(sorted, src, 64);
        std::sort(sorted, sorted + 64);
        const int pair = SlowPair(sorted);
        int low = -1;
        int high = -1;
        ASSERT_EQ(FindColourPairPlain(sorted, &low, &high), pair >= 0) << round;
        ASSERT_EQ(pair, pair < 0 ? -1 : high * 256 + low) << round;
        BlockCandidate found = {};
        ASSERT_EQ(PatternCandidates(&found, sorted, src, 1000, 5000), pair < 0 ? 0 : 1) << round;
        if (pair < 0) continue;
        offered++;
        uint32_t error = 0;
        for (const int sample : src)
            error += static_cast<uint32_t>(std::min(std::abs(low - sample), std::abs(high - sample)));
        ASSERT_EQ(found.payload, pair) << round;
        ASSERT_EQ(found.error, error) << round;
        ASSERT_EQ(found.bits, 7000u);
        ASSERT_EQ(found.mode, MODE_PATTERN);
    }
    EXPECT_GT(offered, 15000);
}

int SmoothestOrder(const uint8_t* block) {
    int best = -1;
    int least = 0;
    for (int order = 0; order < 16; order++) {
        int sum = 1;
        for (int i = 1; i < 64; i++) {
            const int step = std::abs(block[SCAN_ORDER[order][i]] - block[SCAN_ORDER[order][i - 1]]);
            sum += step > 0 ? step + 1 : 0;
        }
        if (best < 0 || sum < least) {
            best = order;
            least = sum;
        }
    }
    return best;
}

void CheckAllThresholds(const uint8_t* src, const uint8_t* high) {
    const int order = SmoothestOrder(src);
    std::map<uint32_t, uint32_t> leastError; // by bits
    uint32_t bitsAt[256];
    uint32_t errorAt[256];
    for (int threshold = 0; threshold < 256; threshold++) {
        const Shown shown = Show(MODE_RUN, order << 8 | threshold, src, nullptr, nullptr, COSTS);
        bitsAt[threshold] = shown.bits;
        errorAt[threshold] = high == nullptr ? ErrorOf(shown, src) : HighErrorOf(shown, high, 16);
        const auto found = leastError.try_emplace(bitsAt[threshold], errorAt[threshold]).first;
        found->second = std::min(found->second, errorAt[threshold]);
    }
    BlockCandidate list[SCRATCH_CANDIDATES];
    const int all = high == nullptr ? RunCandidates(list, src, COSTS.colourBits, COSTS.runBits)
                                    : HighRunCandidates(list, high, src, COSTS.colourBits, COSTS.runBits);
    const int count = PruneRuns(list, all);
    int expected = 0;
    uint32_t lowest = UINT32_MAX;
    for (const auto& [bits, error] : leastError) {
        if (error >= lowest) continue;
        lowest = error;
        ASSERT_LT(expected, count);
        const BlockCandidate* candidate = &list[expected++];
        EXPECT_EQ(candidate->bits, bits);
        EXPECT_EQ(candidate->error, error);
        EXPECT_EQ(candidate->mode, MODE_RUN);
        EXPECT_EQ(candidate->payload >> 8, order);
        EXPECT_EQ(bitsAt[candidate->payload & 255], bits);
        EXPECT_EQ(errorAt[candidate->payload & 255], error);
    }
    EXPECT_EQ(count, expected);
}

TEST(RunCandidates, AreTheStaircaseOverAllThresholds) {
    Noise noise = {8};
    for (int round = 0; round < 120 && !::testing::Test::HasFailure(); round++) {
        uint8_t src[64];
        uint8_t high[256];
        FillSamples(src, 8, 8, static_cast<Content>(round % CONTENTS), &noise);
        FillSamples(high, 16, 16, static_cast<Content>(round % CONTENTS), &noise);
        CheckAllThresholds(src, nullptr);
        CheckAllThresholds(src, high);
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
    ladder->count = ResidueCandidates(ladder->list, ladder->src, ladder->residual, ladder->moved, COSTS.motionBits);
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

// The walk without a stream, and the plain form, against the reader at every limit.
TEST(ResidueCandidates, EqualTheReaderAtEveryLimit) {
    Noise noise = {11};
    int full = 0;
    int exact = 0;
    int ended = 0;
    for (int round = 0; round < 2000; round++) {
        Ladder ladder;
        FillLadder(&ladder, round, &noise);
        List(&ladder);
        BlockCandidate plain[MAX_RESIDUE_STEPS];
        const int count = ladder.count;
        ASSERT_EQ(ResidueCandidatesPlain(plain, ladder.src, ladder.residual, ladder.moved, COSTS.motionBits), count);
        ASSERT_GT(count, 0);
        ASSERT_LE(count, MAX_RESIDUE_STEPS);
        for (int k = 0; k < count; k++) {
            const Shown shown = Show(MODE_RESIDUE, k, ladder.src, nullptr, ladder.moved, COSTS);
            ExpectShown(ladder.list[k], MODE_RESIDUE, k, shown, ladder.src);
            ASSERT_EQ(plain[k].bits, ladder.list[k].bits) << round << " " << k;
            ASSERT_EQ(plain[k].error, ladder.list[k].error) << round << " " << k;
            ASSERT_TRUE(k == count - 1 || plain[k].error != 0) << round << " " << k;
        }
        const uint32_t left = ladder.list[count - 1].error;
        exact += left == 0;
        full += left != 0 && count == MAX_RESIDUE_STEPS;
        if (left == 0 || count == MAX_RESIDUE_STEPS) continue;
        ended++; // no further event: reading on changes nothing
        const Shown last = Show(MODE_RESIDUE, 1000, ladder.src, nullptr, ladder.moved, COSTS);
        ASSERT_EQ(ErrorOf(last, ladder.src), left) << round;
    }
    EXPECT_GT(exact, 250); // all three ways to end occur
    EXPECT_GT(full, 50);
    EXPECT_GT(ended, 0);
}

TEST(ResidueCandidates, KnownLadders) {
    Ladder ladder;
    Clear(&ladder);
    List(&ladder);
    EXPECT_EQ(ladder.count, 0);

    // Head 3; three nodes of 20 not yet; the group of the first four opens; present, sign. Both signs of -128 are one value.
    for (const int value : {1, -128}) {
        ladder.residual[0] = static_cast<int8_t>(value);
        List(&ladder);
        ASSERT_EQ(ladder.count, 1);
        EXPECT_EQ(ladder.list[0].bits, (3u + 3 + 1 + 2) * 256 + 1792 + COSTS.motionBits);
        EXPECT_EQ(ladder.list[0].error, 0u);
    }

    // 5, 2, -1 in the first group. Plane 4: 5 shows as 4, error 1 + 2 + 1. Plane 2: refinement 0, then 2. Plane 1: the 5 is
    // refined, error 1, then -1.
    // Beside a -128 the weights are negative all the way down: 75 is read as -64, -56, -54, -53.
    const struct {
        int8_t residual[3]; // of samples 0, 1 and 8
        std::vector<uint32_t> errors;
    } cases[] = {{{5, 2, -1}, {4, 2, 1, 0}}, {{-128, 75, 0}, {75, 75 + 64, 75 + 56, 75 + 54, 75 + 53}}};
    for (const auto& one : cases) {
        ladder.residual[0] = one.residual[0];
        ladder.residual[1] = one.residual[1];
        ladder.residual[8] = one.residual[2];
        List(&ladder);
        std::vector<uint32_t> errors;
        for (int k = 0; k < ladder.count; k++) errors.push_back(ladder.list[k].error);
        EXPECT_EQ(errors, one.errors);
    }
}

} // namespace
} // namespace vorn
