// RunCandidatesTest.cpp - the run candidates are the best trade-offs over all 256 thresholds of the smoothest scan order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "analysis/Evaluators.h"
#include "blocks/CandidateLists.h"
#include "blocks/Runs.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

constexpr uint32_t COLOUR_BITS = 1700;
constexpr uint32_t RUN_BITS = 900;

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

// What a decoder would read for a sequence: segment kinds and lengths, then colours.
uint32_t CostOfSequence(const uint8_t* v) {
    uint32_t cost = 4 * 256;
    int p = 0;
    while (p < 63) {
        const RunSegment segment = NextRunSegment(v, p);
        cost += RUN_BITS + 256;
        const int colours = segment.flat ? 1 : segment.length;
        cost += static_cast<uint32_t>(colours) * COLOUR_BITS;
        p += segment.length;
    }
    return p == 63 ? cost + COLOUR_BITS : cost;
}

// The error of a half-scale block is measured on all 256 samples; here by each sample's own place.
uint32_t ErrorOf(const uint8_t* shown, const uint8_t* src, const uint8_t* high) {
    int error = 0;
    for (int i = 0; i < 64 && high == nullptr; i++) error += std::abs(shown[i] - src[i]);
    for (int i = 0; i < 256 && high != nullptr; i++) error += std::abs(shown[i / 32 * 8 + i % 16 / 2] - high[i]);
    return static_cast<uint32_t>(error);
}

void CheckAllThresholds(const uint8_t* src, const uint8_t* high) {
    const int order = SmoothestOrder(src);
    uint8_t scanned[64];
    ScanBlock(scanned, src, order);
    std::map<uint32_t, uint32_t> leastError; // by bits
    uint32_t bitsAt[256];
    uint32_t errorAt[256];
    for (int threshold = 0; threshold < 256; threshold++) {
        uint8_t smooth[64];
        uint8_t shown[64];
        SmoothRuns(smooth, scanned, threshold, nullptr, nullptr, nullptr);
        UnscanBlock(shown, smooth, order);
        bitsAt[threshold] = CostOfSequence(smooth);
        errorAt[threshold] = ErrorOf(shown, src, high);
        const auto found = leastError.try_emplace(bitsAt[threshold], errorAt[threshold]).first;
        found->second = std::min(found->second, errorAt[threshold]);
    }
    BlockCandidate list[SCRATCH_CANDIDATES];
    const int count = high == nullptr ? PruneRuns(list, RunCandidates(list, src, COLOUR_BITS, RUN_BITS))
                                      : HighRunCandidates(list, high, src, COLOUR_BITS, RUN_BITS);
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

TEST(RunCandidates, KnownBlocks) {
    BlockCandidate list[SCRATCH_CANDIDATES];
    uint8_t src[64];
    std::memset(src, 200, 64);
    ASSERT_EQ(PruneRuns(list, RunCandidates(list, src, COLOUR_BITS, RUN_BITS)), 1);
    EXPECT_EQ(list[0].bits, 1024 + 4 * (RUN_BITS + 256 + COLOUR_BITS));
    EXPECT_EQ(list[0].error, 0u);
    EXPECT_EQ(list[0].payload, 0); // the first scan order, threshold 0
    // Four strips of two rows each: orders 6 and 7 finish a strip before the next, the lower number wins, and each run ends
    // by its limit.
    for (int i = 0; i < 64; i++) src[i] = static_cast<uint8_t>(i / 16 * 60);
    ASSERT_EQ(PruneRuns(list, RunCandidates(list, src, COLOUR_BITS, RUN_BITS)), 1);
    EXPECT_EQ(list[0].bits, 1024 + 4 * (RUN_BITS + 256 + COLOUR_BITS));
    EXPECT_EQ(list[0].error, 0u);
    EXPECT_EQ(list[0].payload, 6 * 256);
}

} // namespace
} // namespace vorn
