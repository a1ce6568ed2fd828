// Allocation.h - from lists of candidates to one decision a block, under one budget for the whole frame.
// Knows records and lists, not pixels.
#pragma once

#include <cstdint>

#include "blocks/BlockRecord.h"
#include "public/vornmake.h"

namespace vorn {

// An upgrade that waits: the best value comes first, and among equal values the one that was entered first.
struct QueuedUpgrade {
    double value;       // error saved per 1/256 bit
    uint32_t sequence;  // order of insertion
    uint32_t record;
};

// Starts every record at its cheapest candidate and buys upgrades, best value first, until the budget is spent; the last
// one may carry the total over it. Sets the chosen fields of every record.
//   records  each with a pruned list of at least one candidate
//   queue    room for one entry a record; scratch
void AllocateBits(BlockRecord* records, uint32_t recordCount, uint32_t budgetBytes, QueuedUpgrade* queue);

// Blocks of a frame's planes, 8x8 and 16x16, and where each plane's records begin.
struct FrameBlocks {
    uint32_t luma8, chroma8;    // 8x8 blocks of a luma-sized and a chroma-sized plane
    uint32_t luma16, chroma16;
    bool hasChroma, hasAlpha;
};
FrameBlocks CountBlocks(const VornMakeState* state);

// What MergePlanes reckons with, for whoever wants to look at it.
struct MergeFigures {
    uint32_t leftoverBits;  // 1/256 bit: blocks that no 16x16 block covers
    uint32_t secondBudget;  // bytes
    uint32_t secondRecords;
};

// Lets the 16x16 records compete with the 8x8 decisions below them, and writes the winners back as MODE_SCALED marks.
MergeFigures MergePlanes(const VornMakeState* state, BlockRecord* blockRecords, BlockRecord* highRecords, uint32_t budget,
                         QueuedUpgrade* queue);

// The write-back for one 16x16 block whose chosen fields are set and are not MODE_SPLIT; r00 to r11 lie below it.
void MarkScaled(const BlockRecord& high, BlockRecord* r00, BlockRecord* r01, BlockRecord* r10, BlockRecord* r11);

} // namespace vorn
