// Merging.cpp - is a 16x16 area better off as one block at half scale, or as its four 8x8 blocks?
#include <cassert>

#include "allocation/Allocation.h"
#include "blocks/CandidateLists.h"

namespace vorn {

namespace {

// One plane's records. 16x16 block (c, r) lies over the 8x8 blocks at columns 2c, 2c + 1 and rows 2r, 2r + 1.
struct PlaneRecords {
    BlockRecord* low;  // 8x8, raster order
    BlockRecord* high; // 16x16, raster order
    uint32_t columns;  // of 8x8 blocks
    uint32_t rows;
};

// The planes that the movie has, in the order of the records: Y, Cr, Cb, alpha. Returns how many.
int ListPlanes(const VornMakeState* state, BlockRecord* low, BlockRecord* high, PlaneRecords planes[4]) {
    const FrameBlocks blocks = CountBlocks(state);
    int count = 0;
    const auto add = [&](uint32_t width, uint32_t height, uint32_t lowCount, uint32_t highCount) {
        planes[count++] = {low, high, width / BLOCK_SIDE, height / BLOCK_SIDE};
        low += lowCount;
        high += highCount;
    };
    add(state->lumaWidth, state->lumaHeight, blocks.luma8, blocks.luma16);
    for (int i = 0; blocks.hasChroma && i < 2; i++) {
        add(state->chromaWidth, state->chromaHeight, blocks.chroma8, blocks.chroma16);
    }
    if (blocks.hasAlpha) add(state->lumaWidth, state->lumaHeight, blocks.luma8, blocks.luma16);
    return count;
}

// Calls visit(high, r00, r01, r10, r11) for each 16x16 block.
template <class Visit> void ForEachHighBlock(const PlaneRecords& plane, Visit visit) {
    BlockRecord* high = plane.high;
    for (uint32_t row = 0; row + 1 < plane.rows; row += 2) {
        BlockRecord* upper = plane.low + static_cast<uint64_t>(row) * plane.columns;
        BlockRecord* lower = upper + plane.columns;
        for (uint32_t column = 0; column + 1 < plane.columns; column += 2) {
            visit(high, upper + column, upper + column + 1, lower + column, lower + column + 1);
            high++;
        }
    }
}

// The four blocks as they were decided join the list as one more candidate, and the hull decides about it.
void AddSplitCandidate(BlockRecord* high, const BlockRecord* r00, const BlockRecord* r01, const BlockRecord* r10,
                       const BlockRecord* r11) {
    assert(high->count <= MAX_HIGH_CANDIDATES);
    BlockCandidate list[MAX_CANDIDATES];
    int count = FetchList(high, list);
    list[count].bits = r00->chosenBits + r01->chosenBits + r10->chosenBits + r11->chosenBits;
    list[count].error = r00->chosenError + r01->chosenError + r10->chosenError + r11->chosenError;
    list[count].payload = 0;
    list[count].mode = MODE_SPLIT;
    count = PruneHull(list, count + 1);
    StoreList(high, list, count, 0);
}

// Cost of the blocks that no 16x16 block covers: the last column of an odd number, over each pair of rows, and the last
// row of an odd number, corner included.
uint32_t LeftoverBits(const PlaneRecords& plane) {
    uint32_t bits = 0;
    const BlockRecord* lastRow = plane.low + static_cast<uint64_t>(plane.rows - 1) * plane.columns;
    if (plane.columns % 2 != 0) {
        const BlockRecord* record = plane.low + plane.columns - 1;
        for (uint32_t row = 0; row < plane.rows / 2 * 2; row++, record += plane.columns) bits += record->chosenBits;
    }
    if (plane.rows % 2 != 0) {
        for (uint32_t column = 0; column < plane.columns; column++) bits += lastRow[column].chosenBits;
    }
    return bits;
}

} // namespace

FrameBlocks CountBlocks(const VornMakeState* state) {
    FrameBlocks blocks;
    blocks.luma8 = (state->lumaWidth >> 3) * (state->lumaHeight >> 3);
    blocks.chroma8 = (state->chromaWidth >> 3) * (state->chromaHeight >> 3);
    blocks.luma16 = (state->lumaWidth >> 4) * (state->lumaHeight >> 4);
    blocks.chroma16 = (state->chromaWidth >> 4) * (state->chromaHeight >> 4);
    blocks.hasChroma = (state->flags & FLAG_GREY) == 0;
    blocks.hasAlpha = (state->flags & FLAG_ALPHA) != 0;
    return blocks;
}

void MarkScaled(const BlockRecord& high, BlockRecord* r00, BlockRecord* r01, BlockRecord* r10, BlockRecord* r11) {
    r00->chosenMode = MODE_SCALED;
    r00->chosenPayload = high.chosenPayload;
    r00->chosenBits = high.chosenBits;
    r00->chosenError = high.chosenError;
    r01->chosenMode = high.chosenMode; // how the plane encoder learns the sub-block type
    r10->chosenMode = MODE_SCALED;
    r10->chosenBits = 0;
    r11->chosenMode = MODE_SCALED; // in the sub-block type's place: the lower half
}

MergeFigures MergePlanes(const VornMakeState* state, BlockRecord* blockRecords, BlockRecord* highRecords,
                         uint32_t budget, QueuedUpgrade* queue) {
    PlaneRecords planes[4];
    const int planeCount = ListPlanes(state, blockRecords, highRecords, planes);
    const FrameBlocks blocks = CountBlocks(state);
    MergeFigures figures = {};
    for (int i = 0; i < planeCount; i++) {
        ForEachHighBlock(planes[i], AddSplitCandidate);
        figures.leftoverBits += LeftoverBits(planes[i]);
    }

    // The same budget once more: what the four blocks below cost comes back in through the split candidates.
    const uint32_t leftoverBytes = figures.leftoverBits / COST_UNITS_PER_BYTE;
    figures.secondBudget = leftoverBytes < budget ? budget - leftoverBytes : 0;
    // Alpha stays out of it: its 8x8 decisions stand.
    figures.secondRecords = blocks.luma16 + (blocks.hasChroma ? 2 * blocks.chroma16 : 0);
    AllocateBits(highRecords, figures.secondRecords, figures.secondBudget, queue);

    const int competing = blocks.hasChroma ? 3 : 1;
    for (int i = 0; i < competing; i++) {
        ForEachHighBlock(planes[i], [](const BlockRecord* high, BlockRecord* r00, BlockRecord* r01, BlockRecord* r10,
                                       BlockRecord* r11) {
            if (high->chosenMode != MODE_SPLIT) MarkScaled(*high, r00, r01, r10, r11);
        });
    }
    return figures;
}

} // namespace vorn
