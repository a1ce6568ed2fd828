// HullKernelsTest.cpp - every level finds the points that the plain rules find, tells of twins, and reads no entry that isn't.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "analysis/Kernels.h"
#include "blocks/CandidateLists.h"

namespace vorn {
namespace {

// How many entries are the same point, itself included.
int CountEqual(const std::vector<BlockCandidate>& list, const BlockCandidate& entry) {
    int count = 0;
    for (const BlockCandidate& other : list) count += other.bits == entry.bits && other.error == entry.error;
    return count;
}

// Few values bring twins and lines; the greatest is the greatest that a fast way may be given, or one more.
TEST(HullKernels, EveryLevelFindsThePlainPoints) {
    std::mt19937 random(5);
    const uint32_t ranges[] = {2, 6, 20, 300, 70000, 1u << 24, (1u << 24) + 1};
    for (uint32_t round = 0; round < 6000; round++) {
        const size_t count = 1 + random() % (round % 50 == 0 ? SCRATCH_CANDIDATES : 150);
        const uint32_t bitRange = ranges[random() % 7];
        const uint32_t errorRange = ranges[random() % 7];
        std::vector<BlockCandidate> list(count); // exactly, so that a sanitizer sees a read too far
        bool inside = true;
        for (BlockCandidate& entry : list) {
            entry.bits = static_cast<uint32_t>(random() % 4 == 0 ? bitRange - 1 : random() % bitRange);
            entry.error = static_cast<uint32_t>(random() % errorRange);
            inside = inside && entry.bits < 1u << 24 && entry.error < 1u << 24;
        }
        std::vector<BlockCandidate> plain = list;
        const int plainFound = PruneHullPlain(plain.data(), static_cast<int>(count));
        bool plainTwins = false;
        for (int i = 1; i < plainFound; i++) plainTwins |= CountEqual(list, plain[static_cast<size_t>(i)]) > 1;
        for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
            uint16_t kept[SCRATCH_CANDIDATES];
            bool twins = false;
            const FindHullKernel find = AnalysisKernelsOf(static_cast<CpuLevel>(level)).findHull;
            const int found = find(kept, &twins, list.data(), static_cast<int>(count));
            if (found < 0 && (level == 0 || !inside)) continue; // there may be no fast way
            ASSERT_TRUE(inside) << round;
            ASSERT_EQ(found, plainFound) << round << " " << level;
            EXPECT_EQ(twins, plainTwins) << round << " " << level;
            for (int i = 0; i < found; i++) {
                ASSERT_EQ(list[kept[i]].bits, plain[static_cast<size_t>(i)].bits) << round << " " << level;
                ASSERT_EQ(list[kept[i]].error, plain[static_cast<size_t>(i)].error) << round << " " << level;
            }
        }
    }
}

} // namespace
} // namespace vorn
