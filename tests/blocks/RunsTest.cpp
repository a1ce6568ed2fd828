// RunsTest.cpp - flattening into runs against a slow version without memo; thresholds; segments around the last sample.
#include "blocks/Runs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

int RangeOf(const std::vector<int>& samples) {
    return *std::max_element(samples.begin(), samples.end()) - *std::min_element(samples.begin(), samples.end());
}

// Every range and every median from scratch. Returns the next threshold.
int SlowSmooth(uint8_t* out, const uint8_t* in, int threshold) {
    int next = 256;
    for (int start = 0; start < 64;) {
        std::vector<int> run = {in[start]};
        while (run.size() < 16 && start + static_cast<int>(run.size()) < 64) {
            std::vector<int> longer = run;
            longer.push_back(in[start + static_cast<int>(run.size())]);
            if (RangeOf(longer) > threshold) {
                next = std::min(next, RangeOf(longer));
                break;
            }
            run = longer;
        }
        const size_t n = run.size();
        std::sort(run.begin(), run.end());
        const int median = n % 2 == 1 ? run[n / 2] : (run[n / 2 - 1] + run[n / 2]) / 2;
        for (size_t i = 0; i < n; i++) out[start++] = static_cast<uint8_t>(median);
    }
    return next;
}

// For all thresholds the slow version, with and without memo, in place or not. The thresholds that follow each other by
// nextThreshold give every result that there is, and those between give the one before.
TEST(SmoothRuns, EqualsTheSlowVersionAtEveryThreshold) {
    Noise noise = {4};
    for (int round = 0; round < 60; round++) {
        uint8_t in[64];
        FillSamples(in, 8, 8, static_cast<Content>(round % CONTENTS), &noise);
        uint8_t lengths[64] = {};
        uint8_t values[64];
        std::vector<uint8_t> visited;
        int next = 0;
        for (int threshold = 0; threshold < 256; threshold++) {
            uint8_t expected[64];
            const int expectedNext = SlowSmooth(expected, in, threshold);
            if (threshold == next) {
                uint8_t out[64];
                SmoothRuns(out, in, threshold, &next, lengths, values);
                ASSERT_EQ(next, expectedNext) << round << " " << threshold;
                ASSERT_EQ(0, std::memcmp(out, expected, 64)) << round << " " << threshold;
                visited.assign(out, out + 64);
            }
            ASSERT_EQ(0, std::memcmp(visited.data(), expected, 64)) << round << " " << threshold;
            uint8_t inPlace[64];
            std::memcpy(inPlace, in, 64);
            SmoothRuns(inPlace, inPlace, threshold, nullptr, nullptr, nullptr);
            ASSERT_EQ(0, std::memcmp(inPlace, expected, 64)) << round << " " << threshold;
        }
        EXPECT_EQ(next, NO_THRESHOLD);
    }
}

std::vector<int> Ones(std::vector<int> before, int ones, const std::vector<int>& behind = {}) {
    before.insert(before.end(), static_cast<size_t>(ones), 1);
    before.insert(before.end(), behind.begin(), behind.end());
    return before;
}

// Sequences are given as runs of equal samples, whose neighbours differ.
TEST(RunSegments, CasesAroundTheEnd) {
    const struct {
        std::vector<int> runs;
        std::vector<int> segments; // lengths, negative for literal ones
        int end;
    } cases[] = {
        {{64}, {16, 16, 16, 16}, 64},
        {Ones({}, 64), {-16, -16, -16, -16}, 64},
        {Ones({16, 16, 16, 2}, 14), {16, 16, 16, 2, -14}, 64}, // takes in the last sample
        {Ones({16, 16, 15}, 17), {16, 16, 15, -16}, 63},       // cut by its limit right before it
        {Ones({16, 16, 14}, 18), {16, 16, 14, -16, -2}, 64},   // cut earlier
        {{16, 16, 16, 15, 1}, {16, 16, 16, 15}, 63},           // a flat one ends there
        {{16, 16, 16, 14, 1, 1}, {16, 16, 16, 14, -2}, 64},
        {{16, 16, 16, 14, 2}, {16, 16, 16, 14, 2}, 64},
        {{17, 15, 16, 16}, {16, -1, 15, 16, 16}, 64},             // the 17th is left over, alone before a change
        {Ones({}, 3, {13, 16, 16, 16}), {-3, 13, 16, 16, 16}, 64} // stops before two equal samples
    };
    for (const auto& one : cases) {
        std::vector<uint8_t> samples;
        for (const int length : one.runs) {
            const uint8_t sample = static_cast<uint8_t>(samples.size());
            samples.insert(samples.end(), static_cast<size_t>(length), sample);
        }
        ASSERT_EQ(samples.size(), 64u);
        std::vector<int> segments;
        int end = 0;
        while (end < 63) {
            const RunSegment segment = NextRunSegment(samples.data(), end);
            segments.push_back(segment.flat ? segment.length : -segment.length);
            end += segment.length;
        }
        EXPECT_EQ(segments, one.segments);
        EXPECT_EQ(end, one.end);
    }
}

} // namespace
} // namespace vorn
