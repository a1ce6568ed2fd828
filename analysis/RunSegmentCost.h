// RunSegmentCost.h - what the segments of a simplified sequence cost, from one bit a pair of neighbours; for files that are
// built for one instruction set.
#pragma once

#include <stdint.h>

#include "analysis/RunKernels.h"

namespace vorn {
namespace {

// Bit i is set if bits i .. i + 15 of `mask` are.
static inline uint64_t SixteenSet(uint64_t mask) {
    mask &= mask >> 1;
    mask &= mask >> 2;
    mask &= mask >> 4;
    return mask & mask >> 8;
}

// Cuts stretches of equal samples after every 16, by clearing bits; bit i of `equal` says that samples i and i + 1 are equal.
static inline uint64_t CutFlat(uint64_t equal) {
    for (uint64_t longer = SixteenSet(equal); longer != 0;) {
        const int start = __builtin_ctzll(longer);
        equal &= ~((uint64_t)1 << (start + 15));
        longer &= ~(uint64_t)0 << (start + 16);
    }
    return equal;
}

// Cost of a sequence in 1/256 bit, order number included; bit 63 of `equal` is clear. These are the segments that a walk from
// sample to sample finds:
// - A stretch of equal samples is cut after every 16. What is left over is a flat segment too, unless it is one sample, which
//   counts as lone.
// - A stretch of lone samples, equal to neither neighbour, is a literal segment, cut after every 16 as well.
// - A literal segment of sample 63 alone is none: only its colour is stored.
// Stretches are counted by their first bits; loops run only where one is longer than a segment may be.
static inline uint32_t CostOfSegments(uint64_t equal, uint32_t colourBits, uint32_t runBits) {
    equal = CutFlat(equal);
    const uint64_t lone = ~(equal | equal << 1);
    uint32_t segments = 0;
    for (uint64_t longer = SixteenSet(lone) & lone >> 16; longer != 0;) {
        segments++;
        longer &= ~(uint64_t)0 << (__builtin_ctzll(longer) + 16);
    }
    const uint32_t flat = (uint32_t)__builtin_popcountll(equal & ~(equal << 1));
    segments += flat + (uint32_t)__builtin_popcountll(lone & ~(lone << 1));
    segments -= __builtin_clzll(~lone | 1) % 16 == 1; // the lone samples at the end
    const uint32_t colours = flat + (uint32_t)__builtin_popcountll(lone);
    return RUN_ORDER_BITS + segments * (runBits + RUN_KIND_BITS) + colours * colourBits;
}

} // namespace
} // namespace vorn
