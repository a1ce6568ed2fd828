// PatternCandidatesTest.cpp - the colour pair against a search that sums every group anew; two-valued blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "analysis/Evaluators.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

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

struct Found {
    int count;
    BlockCandidate candidate;
};
Found FindPattern(const uint8_t* src) {
    uint8_t sorted[64];
    std::memcpy(sorted, src, 64);
    std::sort(sorted, sorted + 64);
    Found found = {};
    found.count = PatternCandidates(&found.candidate, sorted, src, 1000, 5000);
    return found;
}

TEST(PatternCandidates, EqualTheSlowSearch) {
    Noise noise = {7};
    int offered = 0;
    for (int round = 0; round < 1200; round++) {
        uint8_t src[64];
        FillSamples(src, 8, 8, static_cast<Content>(round % CONTENTS), &noise);
        for (int i = 0; i < 64 && round % 5 == 0; i++) src[i] = static_cast<uint8_t>(src[i] % 6 * 3);
        uint8_t sorted[64];
        std::memcpy(sorted, src, 64);
        std::sort(sorted, sorted + 64);
        const int pair = SlowPair(sorted);
        const Found found = FindPattern(src);
        ASSERT_EQ(found.count, pair < 0 ? 0 : 1);
        if (pair < 0) continue;
        offered++;
        uint32_t error = 0;
        for (int i = 0; i < 64; i++) {
            const int toLow = std::abs((pair & 255) - src[i]);
            const int toHigh = std::abs((pair >> 8) - src[i]);
            error += static_cast<uint32_t>(std::min(toLow, toHigh));
        }
        ASSERT_EQ(found.candidate.payload, pair) << round;
        ASSERT_EQ(found.candidate.error, error) << round;
        ASSERT_EQ(found.candidate.bits, 7000u);
        ASSERT_EQ(found.candidate.mode, MODE_PATTERN);
    }
    EXPECT_GT(offered, 900);
}

// Samples of few values a block: many splits repeat the pair before them, the best one among them now and then.
TEST(PatternCandidates, PairsOfAllSplitsAtOnceEqualThePlainSearch) {
    Noise noise = {8};
    int found = 0;
    for (int round = 0; round < 20000; round++) {
        uint8_t sorted[64];
        const uint32_t range = 1u << (NextNoise(&noise) % 9);
        const uint32_t base = NextNoise(&noise) % (257 - range);
        const uint32_t rare = 1 + NextNoise(&noise) % 8;
        for (uint8_t& sample : sorted)
            sample =
                static_cast<uint8_t>(base + (NextNoise(&noise) % rare == 0 ? NextNoise(&noise) % range : range / 2));
        std::sort(sorted, sorted + 64);
        int low = -1;
        int high = -1;
        const int pair = SlowPair(sorted);
        ASSERT_EQ(FindColourPair(sorted, &low, &high), pair >= 0) << round;
        ASSERT_EQ(pair, pair < 0 ? -1 : high * 256 + low) << round;
        ASSERT_EQ(FindColourPairPlain(sorted, &low, &high), pair >= 0) << round;
        ASSERT_EQ(pair, pair < 0 ? -1 : high * 256 + low) << round;
        found += pair < 0 ? 0 : 1;
    }
    EXPECT_GT(found, 15000);
}

// Two values 40 and 90: exact if at least two samples are low. A single low one pulls the low colour up to the mean.
TEST(PatternCandidates, TwoValuedBlocks) {
    for (int lows : {1, 2, 3, 32, 62, 63}) {
        uint8_t src[64];
        for (int i = 0; i < 64; i++) src[i] = i * 37 % 64 < lows ? 40 : 90;
        const Found found = FindPattern(src);
        ASSERT_EQ(found.count, 1);
        EXPECT_EQ(found.candidate.payload, 90 * 256 + (lows == 1 ? 65 : 40)) << lows;
        EXPECT_EQ(found.candidate.error, lows == 1 ? 25u : 0u) << lows;
    }
}

} // namespace
} // namespace vorn
