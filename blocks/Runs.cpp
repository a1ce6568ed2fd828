// Runs.cpp - scanning a block, flattening its sequence into runs, and cutting that into segments.
#include "blocks/Runs.h"

#include <algorithm>
#include <cstring>

#include "blocks/PixelOps.h"

namespace vorn {

namespace {

// A run as found: `length` samples from its start, the smallest and the largest of them.
struct FoundRun {
    int length;
    int low;
    int high;
};

// The longest run at `start` within `threshold`. A range that ended it lowers `nextThreshold` if it is smaller.
FoundRun FindRun(const uint8_t* in, int start, int threshold, int* nextThreshold) {
    FoundRun run = {1, in[start], in[start]};
    const int longest = std::min(MAX_RUN, BLOCK_SAMPLES - start);
    while (run.length < longest) {
        const int sample = in[start + run.length];
        const int low = std::min(run.low, sample);
        const int high = std::max(run.high, sample);
        if (high - low > threshold) {
            *nextThreshold = std::min(*nextThreshold, high - low);
            return run;
        }
        run = {run.length + 1, low, high};
    }
    return run;
}

// The middle one of the samples, or the mean of the two middle ones, rounded down.
uint8_t Median(const uint8_t* samples, int count) {
    uint8_t sorted[MAX_RUN];
    std::memcpy(sorted, samples, static_cast<size_t>(count));
    SortBytes(sorted, count);
    const int upper = sorted[count / 2];
    return static_cast<uint8_t>(count % 2 != 0 ? upper : (sorted[count / 2 - 1] + upper) >> 1);
}

} // namespace

void ScanBlock(uint8_t* sequence, const uint8_t* block, int scanOrder) {
    const uint8_t* order = SCAN_ORDER[scanOrder];
    for (int i = 0; i < BLOCK_SAMPLES; i++) sequence[i] = block[order[i]];
}

void UnscanBlock(uint8_t* block, const uint8_t* sequence, int scanOrder) {
    const uint8_t* order = SCAN_ORDER[scanOrder];
    for (int i = 0; i < BLOCK_SAMPLES; i++) block[order[i]] = sequence[i];
}

// A value in the memo belongs to the run of that start and length; the samples behind it are the same in every call for
// a block, so it holds at any threshold. Runs of up to two samples, and flat ones, need no sorting and no memo.
void SmoothRuns(uint8_t* out, const uint8_t* in, int threshold, int* nextThreshold, uint8_t* memoLengths,
                uint8_t* memoValues) {
    int next = NO_THRESHOLD;
    int start = 0;
    while (start < BLOCK_SAMPLES) {
        const FoundRun run = FindRun(in, start, threshold, &next);
        uint8_t value = 0;
        if (run.length <= 2 || run.low == run.high) {
            value = static_cast<uint8_t>((run.low + run.high) >> 1);
        } else if (memoLengths != nullptr && memoLengths[start] == run.length) {
            value = memoValues[start];
        } else {
            value = Median(in + start, run.length);
            if (memoLengths != nullptr) {
                memoLengths[start] = static_cast<uint8_t>(run.length);
                memoValues[start] = value;
            }
        }
        std::memset(out + start, value, static_cast<size_t>(run.length));
        start += run.length;
    }
    if (nextThreshold != nullptr) *nextThreshold = next;
}

RunSegment NextRunSegment(const uint8_t* sequence, int start) {
    const int last = BLOCK_SAMPLES - 1;
    const int limit = start + MAX_RUN;
    int end = start + 1;
    if (sequence[start] == sequence[end]) {
        while (end < BLOCK_SAMPLES && end < limit && sequence[end] == sequence[start]) end++;
        return {end - start, true};
    }
    // A literal segment stops before two equal samples. One that gets to the last sample with room left takes it in.
    while (end < last && end < limit && sequence[end] != sequence[end + 1]) end++;
    if (end == last && end != limit) end = BLOCK_SAMPLES;
    return {end - start, false};
}

} // namespace vorn
