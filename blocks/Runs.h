// Runs.h - a block as a sequence of 64 samples along a scan order, simplified into flat runs and cut into segments.
#pragma once

#include <cstdint>

#include "blocks/BlockRecord.h"

namespace vorn {

constexpr int NO_THRESHOLD = 256;        // no threshold above this one changes anything

// sequence[i] = block[SCAN_ORDER[scanOrder][i]], and back.
void ScanBlock(uint8_t* sequence, const uint8_t* block, int scanOrder);
void UnscanBlock(uint8_t* block, const uint8_t* sequence, int scanOrder);

// Cuts `in` greedily into runs of at most 16 samples whose range stays within `threshold`, and writes the median of each
// run over all of it. `out` and `in` may be the same array.
//   nextThreshold  may be null; receives the smallest range that ended a run, NO_THRESHOLD if none did
//   memoLengths, memoValues  64 bytes each, or both null: values of runs met before in this block, by start. Lengths are
//                  cleared before the first call for a block. They save work and change nothing.
void SmoothRuns(uint8_t* out, const uint8_t* in, int threshold, int* nextThreshold, uint8_t* memoLengths,
                uint8_t* memoValues);

// A segment of a simplified sequence: equal samples that share one colour, or literal samples.
struct RunSegment {
    int length;
    bool flat;
};
// The segment at `start`, which is below 63. Segments follow each other while their end is below 63; a walk that stops at
// exactly 63 leaves one last sample that belongs to none.
RunSegment NextRunSegment(const uint8_t* sequence, int start);

} // namespace vorn
