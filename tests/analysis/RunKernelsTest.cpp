// RunKernelsTest.cpp - every level lists the same run codings as the plain form, candidate for candidate.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "analysis/Kernels.h"
#include "blocks/BlockRecord.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

constexpr uint32_t COLOUR_BITS = 1701;
constexpr uint32_t RUN_BITS = 907;
constexpr int MOST_CANDIDATES = 256;

struct Listed {
    int count;
    BlockCandidate list[MOST_CANDIDATES + 1];
};

Listed List(ListRunsKernel listRuns, const uint8_t* block, const uint8_t* high) {
    Listed listed = {};
    std::memset(listed.list, 0xa5, sizeof listed.list);
    listed.count = listRuns(listed.list, block, high, COLOUR_BITS, RUN_BITS);
    return listed;
}

// Blocks stand in vectors of their own, so that a sanitizer sees a read outside. Entries behind the list stay as they were.
void CheckLevels(const std::vector<uint8_t>& block, const uint8_t* high) {
    const Listed plain = List(ListRunsPlain, block.data(), high);
    for (int number = 0; number <= static_cast<int>(BestCpuLevel()); number++) {
        const CpuLevel level = static_cast<CpuLevel>(number);
        const Listed fast = List(AnalysisKernelsOf(level).listRuns, block.data(), high);
        ASSERT_EQ(fast.count, plain.count) << NameOfCpuLevel(level);
        for (int i = 0; i < plain.count; i++) {
            ASSERT_EQ(fast.list[i].payload, plain.list[i].payload) << NameOfCpuLevel(level) << " " << i;
            ASSERT_EQ(fast.list[i].bits, plain.list[i].bits) << NameOfCpuLevel(level) << " " << i;
            ASSERT_EQ(fast.list[i].error, plain.list[i].error) << NameOfCpuLevel(level) << " " << i;
            ASSERT_EQ(fast.list[i].mode, MODE_RUN) << NameOfCpuLevel(level) << " " << i;
        }
        ASSERT_EQ(0, std::memcmp(&fast.list[plain.count], &plain.list[plain.count], sizeof fast.list[0]));
    }
}

void CheckAtBothScales(const std::vector<uint8_t>& block, Noise* noise) {
    CheckLevels(block, nullptr);
    std::vector<uint8_t> high(256);
    for (uint8_t& sample : high) sample = static_cast<uint8_t>(NextNoise(noise));
    CheckLevels(block, high.data());
    for (size_t i = 0; i < 256; i++) // near the half-scale block, as on film
        high[i] = static_cast<uint8_t>(std::min(255u, block[i / 32 * 8 + i % 16 / 2] + NextNoise(noise) % 4));
    CheckLevels(block, high.data());
}

TEST(RunKernels, EqualThePlainFormOnAllContents) {
    Noise noise = {31};
    for (int round = 0; round < 480 && !HasFatalFailure(); round++) {
        std::vector<uint8_t> block(64);
        FillSamples(block.data(), 8, 8, static_cast<Content>(round % CONTENTS), &noise);
        const uint32_t from = NextNoise(&noise) % 128; // the rest of the block is flat in half of the rounds
        for (uint32_t i = from; i < 64; i++) block[i] = 140;
        CheckAtBothScales(block, &noise);
    }
}

// Stretches of equal samples and of lone ones, of lengths around those that a segment can have, along one scan order. Few
// values let the medians of neighbouring runs meet at high thresholds.
TEST(RunKernels, EqualThePlainFormOnStretches) {
    Noise noise = {32};
    for (int round = 0; round < 960 && !HasFatalFailure(); round++) {
        static const uint32_t LENGTHS[] = {1, 2, 3, 14, 15, 16, 17, 18, 31, 32, 33, 47, 48, 49};
        const uint8_t* order = SCAN_ORDER[round % SCAN_ORDERS];
        const uint32_t values = round % 3 == 0 ? 256 : 4;
        std::vector<uint8_t> block(64);
        uint32_t at = 0;
        while (at < 64) {
            const uint32_t end = std::min(64u, at + LENGTHS[NextNoise(&noise) % 14]);
            const bool flat = NextNoise(&noise) % 2 == 0;
            uint32_t value = NextNoise(&noise);
            for (; at < end; at++) {
                if (!flat) value += 1 + NextNoise(&noise) % 3; // with four values, never the same again
                block[order[at]] = static_cast<uint8_t>(value % values);
            }
        }
        CheckAtBothScales(block, &noise);
    }
}

TEST(RunKernels, EqualThePlainFormOnTheWidestRanges) {
    Noise noise = {33};
    for (int spread = 250; spread < 256 && !HasFatalFailure(); spread++) {
        std::vector<uint8_t> block(64);
        for (int i = 0; i < 64; i++)
            block[static_cast<size_t>(i)] = static_cast<uint8_t>(i % 2 ? spread - i / 3 : i / 2);
        CheckAtBothScales(block, &noise);
        for (int i = 0; i < 64; i++) block[static_cast<size_t>(i)] = static_cast<uint8_t>(i % 2 * spread);
        CheckAtBothScales(block, &noise);
    }
}

// A checkerboard of black and white: whatever the scan order, nothing happens between thresholds 0 and 255.
TEST(RunKernels, ReachTheLastThreshold) {
    std::vector<uint8_t> block(64);
    for (size_t i = 0; i < 64; i++) block[i] = (i / 8 + i % 8) % 2 == 0 ? 0 : 255;
    for (int number = 0; number <= static_cast<int>(BestCpuLevel()); number++) {
        const CpuLevel level = static_cast<CpuLevel>(number);
        const Listed listed = List(AnalysisKernelsOf(level).listRuns, block.data(), nullptr);
        ASSERT_EQ(listed.count, 2) << NameOfCpuLevel(level);
        EXPECT_EQ(listed.list[0].payload & 255, 0) << NameOfCpuLevel(level);
        EXPECT_EQ(listed.list[0].error, 0u) << NameOfCpuLevel(level);
        EXPECT_EQ(listed.list[1].payload & 255, 255) << NameOfCpuLevel(level);
    }
}

} // namespace
} // namespace vorn
