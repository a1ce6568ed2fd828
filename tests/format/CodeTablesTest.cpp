// CodeTablesTest.cpp - what the tables of the format promise, and entries known otherwise.
#include <gtest/gtest.h>

#include <algorithm>

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

} // namespace
} // namespace vorn
