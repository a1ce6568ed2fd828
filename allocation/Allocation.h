// Allocation.h - from lists of candidates to one decision a block, under one budget for the whole frame.
// Knows records and lists, not pixels.
#pragma once

#include <cstdint>

#include "blocks/BlockRecord.h"
#include "public/vornmake.h"

namespace vorn {

// An upgrade that waits: the best value comes first, and among equal values the one that was entered first.
struct QueuedUpgrade {
    double value;      // error saved per 1/256 bit
    uint32_t sequence; // order of insertion
    uint32_t record;
};

// Starts every record at its cheapest candidate and buys upgrades, best value first, until the budget is spent; the last
// one may carry the total over it. Sets the chosen fields of every record.
//   records  each with a pruned list of at least one candidate
//   queue    room for one entry a record; scratch
void AllocateBits(BlockRecord* records, uint32_t recordCount, uint32_t budgetBytes, QueuedUpgrade* queue);

constexpr int PLANES = 4; // Y, Cr, Cb, alpha

// One plane's share of the records. 16x16 block (c, r) lies over the 8x8 blocks at columns 2c, 2c + 1 and rows 2r, 2r + 1.
// Without meaning, and 0 in size, if the movie hasn't got the plane.
struct PlaneRecords {
    BlockRecord* low;       // 8x8, raster order
    BlockRecord* high;      // 16x16, raster order
    uint32_t columns, rows; // of 8x8 blocks
};
inline uint32_t CountLow(const PlaneRecords& plane) {
    return plane.columns * plane.rows;
}
inline uint32_t CountHigh(const PlaneRecords& plane) {
    return (plane.columns / 2) * (plane.rows / 2);
}

// Shares out a frame's records, which lie plane after plane without gaps.
void ListRecords(const VornMakeState* state, BlockRecord* blockRecords, BlockRecord* highRecords,
                 PlaneRecords planes[PLANES]);

// Lets the 16x16 records compete with the 8x8 decisions below them, and writes the winners back as MODE_SCALED marks.
void MergePlanes(const VornMakeState* state, BlockRecord* blockRecords, BlockRecord* highRecords, uint32_t budget,
                 QueuedUpgrade* queue);

// The write-back for one 16x16 block whose chosen fields are set and are not MODE_SPLIT; r00 to r11 lie below it.
void MarkScaled(const BlockRecord& high, BlockRecord* r00, BlockRecord* r01, BlockRecord* r10, BlockRecord* r11);

} // namespace vorn
