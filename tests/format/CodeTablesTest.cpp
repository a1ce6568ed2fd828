// CodeTablesTest.cpp - what the tables of the format promise, and entries known otherwise.
#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
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

std::bitset<64> Positions(const uint8_t* row) {
    std::bitset<64> seen;
    for (int i = 0; i < BLOCK_SAMPLES; i++)
        if (row[i] < 64) seen.set(row[i]);
    return seen;
}

TEST(ScanOrders, ArePermutations) {
    for (int scan = 0; scan < SCAN_ORDERS; scan++) EXPECT_TRUE(Positions(SCAN_ORDER[scan]).all()) << scan;
    EXPECT_TRUE(Positions(WALK_ORDER).all());
}

// Orders that are easily described: columns in a snake, rows in a snake, and the squares of the walk.
TEST(ScanOrders, FollowTheirPatterns) {
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const int line = i / 8;
        const int along = line % 2 ? 7 - i % 8 : i % 8;
        EXPECT_EQ(SCAN_ORDER[0][i], along * 8 + line);
        EXPECT_EQ(SCAN_ORDER[7][i], line * 8 + along);
        EXPECT_EQ(WALK_ORDER[i], WALK_ORDER[i / 4 * 4] + i % 2 + i / 2 % 2 * 8);
    }
}

void ExpectRow(const uint32_t* row, const uint32_t (&expected)[8]) {
    for (int i = 0; i < 8; i++) EXPECT_EQ(row[i], expected[i]) << i;
}

// Entries that decoders hold.
TEST(Quantisers, HoldTheKnownEntries) {
    ExpectRow(INTRA_QUANTISERS.dequantise[0], {65536, 90901, 85627, 91511, 65536, 61146, 48768, 24862});
    ExpectRow(INTRA_QUANTISERS.dequantise[15],
              {2883584, 3999646, 3767584, 4026499, 2883584, 2690421, 2145804, 1093921});
    ExpectRow(INTRA_QUANTISERS.quantise[0], {524288, 377991, 401273, 375470, 524288, 561930, 704551, 1382027});
    ExpectRow(INTRA_QUANTISERS.quantise[15], {11916, 8591, 9120, 8533, 11916, 12771, 16013, 31410});
    ExpectRow(INTER_QUANTISERS.dequantise[0], {65536, 96582, 90979, 86695, 73728, 57928, 42118, 21472});
    ExpectRow(INTER_QUANTISERS.dequantise[15], {2883584, 4249624, 4003058, 3814578, 3244032, 2548820, 1853194, 944750});
    ExpectRow(INTER_QUANTISERS.quantise[0], {524288, 355756, 377668, 396329, 466034, 593149, 815796, 1600242});
    ExpectRow(INTER_QUANTISERS.quantise[15], {11916, 8085, 8583, 9007, 10592, 13481, 18541, 36369});
}

void ExpectRange(const uint32_t (&table)[QUANTISERS][BLOCK_SAMPLES], uint32_t least, uint32_t greatest) {
    const uint32_t* first = table[0];
    const auto [low, high] = std::minmax_element(first, first + QUANTISERS * BLOCK_SAMPLES);
    EXPECT_EQ(*low, least);
    EXPECT_EQ(*high, greatest);
}

TEST(Quantisers, LieInTheKnownRanges) {
    ExpectRange(INTRA_QUANTISERS.dequantise, 24862, 8818519);
    ExpectRange(INTRA_QUANTISERS.quantise, 3896, 1382027);
    ExpectRange(INTER_QUANTISERS.dequantise, 10289, 6858849);
    ExpectRange(INTER_QUANTISERS.quantise, 5010, 3339447);
}

// The rounding through single precision lifts a known number of entries by one above the plain rounding, and lowers none.
// Weights are read back from the tables themselves: at quantiser 0 a dequantiser is 4096 * weight * scales.
TEST(Quantisers, StandAtMostOneAboveThePlainRounding) {
    const double steps[QUANTISERS] = {1, 4 / 3., 5 / 3., 2, 8 / 3., 3.5, 4, 5, 6, 8, 12, 17, 22, 28, 34, 44};
    const double pi = std::acos(-1.0);
    int dequantisersAbove = 0;
    int quantisersAbove = 0;
    for (const QuantiserTables* tables : {&INTRA_QUANTISERS, &INTER_QUANTISERS}) {
        for (int i = 0; i < BLOCK_SAMPLES; i++) {
            double scales = 1;
            for (const int frequency : {i / 8, i % 8})
                if (frequency > 0) scales *= std::sqrt(2.0) * std::cos(frequency * pi / 16);
            const double weight = std::round(tables->dequantise[0][i] / (4096 * scales));
            for (int q = 0; q < QUANTISERS; q++) {
                const double exact = 4096 * weight * scales * steps[q];
                const int above = static_cast<int>(tables->dequantise[q][i]) - static_cast<int>(exact + 0.5);
                const int quantiserAbove =
                    static_cast<int>(tables->quantise[q][i]) - static_cast<int>(34359738368.0 / exact + 0.5);
                ASSERT_TRUE(above == 0 || above == 1) << q << ' ' << i;
                ASSERT_TRUE(quantiserAbove == 0 || quantiserAbove == 1) << q << ' ' << i;
                dequantisersAbove += above;
                quantisersAbove += quantiserAbove;
            }
        }
    }
    EXPECT_EQ(dequantisersAbove, 84);
    EXPECT_EQ(quantisersAbove, 9);
}

} // namespace
} // namespace vorn
