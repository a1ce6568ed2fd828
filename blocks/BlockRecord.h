// BlockRecord.h - the ways in which a block can be coded, and the one that was chosen.
// A block's road: motion search, evaluation (a list of candidates), allocation (one choice), plane encoder.
// Units: cost 1/256 bit, so that a budget of n bytes is n * 2048; error the sum of absolute differences (SAD) of 8-bit
// samples, in every plane and mode: at most 16320 for an 8x8 block, 65280 for a 16x16 block.
#pragma once

#include <cstdint>

#include "format/BlockFormat.h"

namespace vorn {

constexpr int MAX_CANDIDATES = 32;        // of an 8x8 record
constexpr int MAX_HIGH_CANDIDATES = 31;   // of a 16x16 record, before MODE_SPLIT joins
constexpr int SCRATCH_CANDIDATES = 1024;  // room for a list while it is built
constexpr uint32_t COST_UNITS_PER_BYTE = 2048;

// One way of coding a block while its list is built.
struct BlockCandidate {
    uint32_t bits;     // cost; without the block's own overhead until the list is stored
    uint32_t error;
    uint16_t payload;  // as the mode says; 0 where it says nothing
    uint8_t mode;      // BlockMode
};

// One block of a plane, 8x8 or 16x16. The list rises in bits and falls in errors; entry 0 is the cheapest.
struct BlockRecord {
    uint32_t upgradeBits;     // allocator: cost of the step to the next candidate. Plane encoder: elements of a run block
    int8_t choice;            // allocator: index of the current candidate
    int8_t count;             // candidates, 0 to 32; never 0 in an 8x8 record
    int8_t offsetX;           // pixels to the right in the reference, -15..15; 8x8 records of non-key frames only
    int8_t offsetY;           // pixels down
    uint8_t modes[MAX_CANDIDATES];
    uint16_t payloads[MAX_CANDIDATES];
    uint32_t bits[MAX_CANDIDATES];    // block overhead included
    uint32_t errors[MAX_CANDIDATES];
    uint32_t chosenPayload;   // the candidate chosen, written by the allocator and by merging
    uint32_t chosenBits;
    uint32_t chosenError;
    uint32_t chosenMode;      // merged blocks: MODE_SCALED, the sub-block type in the upper right one
};

} // namespace vorn
