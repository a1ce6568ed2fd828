// CodeTablesTest.cpp - what the tables of the format promise, and entries known otherwise.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "format/BlockFormat.h"
#include "format/CodeTrees.h"
#include "format/QuantiserTables.h"

namespace vorn {
namespace {

TEST(CodeTrees, AreCompletePrefixCodesShortestFirst) {
    for (int tree = 0; tree < CODE_TREES; tree++) {
        SCOPED_TRACE(tree);
        uint32_t leaves = 0; // of 2^7
        for (int i = 0; i < 16; i++) {
            const uint32_t length = TREE_LENGTHS[tree][i];
            const uint32_t word = TREE_WORDS[tree][i];
            leaves += 128u >> length;
            EXPECT_EQ(word >> length, 0u);
            for (int j = i + 1; j < 16; j++) {
                EXPECT_LE(length, TREE_LENGTHS[tree][j]);
                EXPECT_NE(TREE_WORDS[tree][j] & ((1u << length) - 1), word) << "entry " << i << " starts " << j;
            }
        }
        EXPECT_EQ(leaves, 128u);
    }
}

// Permutations; of those that are easily described, columns in a snake, rows in a snake, and the squares of the walk.
TEST(ScanOrders, FollowTheirPatterns) {
    auto isPermutation = [](const uint8_t* order) {
        uint64_t seen = 0;
        for (int i = 0; i < BLOCK_SAMPLES; i++) seen |= order[i] < 64 ? uint64_t{1} << order[i] : 0;
        return seen == ~uint64_t{0};
    };
    for (int scan = 0; scan < SCAN_ORDERS; scan++) EXPECT_TRUE(isPermutation(SCAN_ORDER[scan])) << scan;
    EXPECT_TRUE(isPermutation(WALK_ORDER));
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const int line = i / 8;
        const int along = line % 2 ? 7 - i % 8 : i % 8;
        EXPECT_EQ(SCAN_ORDER[0][i], along * 8 + line);
        EXPECT_EQ(SCAN_ORDER[7][i], line * 8 + along);
        EXPECT_EQ(WALK_ORDER[i], WALK_ORDER[i / 4 * 4] + i % 2 + i / 2 % 2 * 8);
    }
}

void ExpectRange(const uint32_t (&table)[QUANTISERS][BLOCK_SAMPLES], uint32_t least, uint32_t greatest) {
    const auto [low, high] = std::minmax_element(table[0], table[0] + QUANTISERS * BLOCK_SAMPLES);
    EXPECT_EQ(*low, least);
    EXPECT_EQ(*high, greatest);
}

// Entries and ranges that decoders hold.
TEST(Quantisers, HoldTheKnownEntries) {
    const uint32_t intra[8] = {65536, 90901, 85627, 91511, 65536, 61146, 48768, 24862};
    const uint32_t inter[8] = {65536, 96582, 90979, 86695, 73728, 57928, 42118, 21472};
    EXPECT_TRUE(std::equal(intra, intra + 8, INTRA_QUANTISERS.dequantise[0]));
    EXPECT_TRUE(std::equal(inter, inter + 8, INTER_QUANTISERS.dequantise[0]));
    ExpectRange(INTRA_QUANTISERS.dequantise, 24862, 8818519);
    ExpectRange(INTRA_QUANTISERS.quantise, 3896, 1382027);
    ExpectRange(INTER_QUANTISERS.dequantise, 10289, 6858849);
    ExpectRange(INTER_QUANTISERS.quantise, 5010, 3339447);
}

// The rounding through single precision lifts a known number of entries by one above the plain rounding, and lowers none.
// Weights are read back from the tables themselves: at quantiser 0 a dequantiser is 4096 * weight * scales.
TEST(Quantisers, StandAtMostOneAboveThePlainRounding) {
    const double steps[QUANTISERS] = {1, 4 / 3., 5 / 3., 2, 8 / 3., 3.5, 4, 5, 6, 8, 12, 17, 22, 28, 34, 44};
    int allAbove[2] = {0, 0}; // of dequantisers, of quantisers
    for (const QuantiserTables* tables : {&INTRA_QUANTISERS, &INTER_QUANTISERS}) {
        for (int i = 0; i < BLOCK_SAMPLES; i++) {
            double scales = 1;
            for (const int frequency : {i / 8, i % 8})
                if (frequency > 0) scales *= std::sqrt(2.0) * std::cos(frequency * std::acos(-1.0) / 16);
            const double weight = std::round(tables->dequantise[0][i] / (4096 * scales));
            for (int q = 0; q < QUANTISERS; q++) {
                const double exact = 4096 * weight * scales * steps[q];
                const int above[2] = {static_cast<int>(tables->dequantise[q][i]) - static_cast<int>(exact + 0.5),
                                      static_cast<int>(tables->quantise[q][i]) -
                                          static_cast<int>(34359738368.0 / exact + 0.5)};
                for (int way = 0; way < 2; way++) {
                    ASSERT_TRUE(above[way] == 0 || above[way] == 1) << q << ' ' << i;
                    allAbove[way] += above[way];
                }
            }
        }
    }
    EXPECT_EQ(allAbove[0], 84);
    EXPECT_EQ(allAbove[1], 9);
}

} // namespace
} // namespace vorn
