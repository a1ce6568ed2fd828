// BlockFormat.h - numbers of the coded picture: block sizes, block modes, scan orders, the walk through coefficients.
#pragma once

#include <cstdint>

namespace vorn {

constexpr int BLOCK_SIDE = 8;
constexpr int BLOCK_SAMPLES = 64;
constexpr int HIGH_SIDE = 16;
constexpr int HIGH_SAMPLES = 256;
constexpr int MOTION_RANGE = 15;          // pixels, in each direction
constexpr int QUANTISERS = 16;
constexpr int MAX_RESIDUE_STEPS = 128;    // truncation points that a residue block's payload can name
constexpr int SCAN_ORDERS = 16;
constexpr int MAX_RUN = 16;               // samples of a run or a segment

// The numbers stand in the bitstream.
enum BlockMode : uint8_t {
    MODE_SKIP = 0,     // the reference block at the same place
    MODE_SCALED = 1,   // part of a 16x16 block coded at half scale; set by merging only
    MODE_MOTION = 2,   // the reference block displaced by the record's offsets
    MODE_RUN = 3,      // flat runs along a scan order; payload scan order * 256 + threshold
    MODE_RESIDUE = 4,  // displaced reference plus a truncated bit-plane residual; payload ordinal of the truncation, from 0
    MODE_INTRA = 5,    // DCT of the block; payload quantiser index
    MODE_FILL = 6,     // one colour; payload the colour
    MODE_INTER = 7,    // displaced reference plus DCT of the residual; payload quantiser index
    MODE_PATTERN = 8,  // two colours and a bit a sample; payload high colour * 256 + low colour
    MODE_RAW = 9,      // the 64 samples
    MODE_SPLIT = 15,   // in 16x16 lists only: the four 8x8 blocks as they were decided
};

// Scan orders of run blocks: row by row the block positions (8 * row + column), each row a permutation of 0..63.
extern const uint8_t SCAN_ORDER[SCAN_ORDERS][BLOCK_SAMPLES];

// Coefficient number k of DCT and residue blocks stands for block position WALK_ORDER[k].
extern const uint8_t WALK_ORDER[BLOCK_SAMPLES];

} // namespace vorn
