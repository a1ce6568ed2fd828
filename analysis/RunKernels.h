// RunKernels.h - all codings of one block in flat runs, plain and fast. This file is included by files that are built for one
// instruction set, so it holds no inline function.
#pragma once

#include <stdint.h>

namespace vorn {

struct BlockCandidate;

constexpr uint32_t RUN_ORDER_BITS = 4 * 256; // 1/256 bit: the number of the scan order
constexpr uint32_t RUN_KIND_BITS = 256;      // 1/256 bit: the kind of a segment

// Chooses the smoothest scan order of `block`, the first among equals, and fills one candidate a threshold, from 0 up,
// every threshold at which the runs change. Returns how many: at least 1, at most 256; `list` has room for all 256.
//   high                 if not null, the 256 samples that the error of a half-scale block is measured on
//   colourBits, runBits  1/256 bit: a colour, the length of a segment
using ListRunsKernel = int (*)(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                               uint32_t runBits);
int ListRunsPlain(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                  uint32_t runBits);
int ListRunsSse2(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                 uint32_t runBits);
int ListRunsAvx2(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                 uint32_t runBits);
int ListRunsAvx512(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                   uint32_t runBits);

} // namespace vorn
