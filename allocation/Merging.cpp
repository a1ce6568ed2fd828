// Merging.cpp - is a 16x16 area better off as one block at half scale, or as its four 8x8 blocks?
#include <cassert>

#include "allocation/Allocation.h"
#include "blocks/CandidateLists.h"

namespace vorn {

namespace {

constexpr int COMPETING = 3; // alpha stays out of the contest: its 8x8 decisions stand

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
    if (plane.columns % 2 != 0) {
        const BlockRecord* record = plane.low + plane.columns - 1;
        for (uint32_t row = 0; row < plane.rows / 2 * 2; row++, record += plane.columns) bits += record->chosenBits;
    }
    if (plane.rows % 2 != 0) {
        const BlockRecord* lastRow = plane.low + static_cast<uint64_t>(plane.rows - 1) * plane.columns;
        for (uint32_t column = 0; column < plane.columns; column++) bits += lastRow[column].chosenBits;
    }
    return bits;
}

} // namespace

void ListRecords(const VornMakeState* state, BlockRecord* blockRecords, BlockRecord* highRecords,
                 PlaneRecords planes[PLANES]) {
    const PlaneRecords luma = {nullptr, nullptr, state->lumaWidth / BLOCK_SIDE, state->lumaHeight / BLOCK_SIDE};
    const PlaneRecords chroma = {nullptr, nullptr, state->chromaWidth / BLOCK_SIDE, state->chromaHeight / BLOCK_SIDE};
    planes[0] = luma;
    planes[1] = planes[2] = (state->flags & FLAG_GREY) == 0 ? chroma : PlaneRecords{};
    planes[3] = (state->flags & FLAG_ALPHA) != 0 ? luma : PlaneRecords{};
    for (int i = 0; i < PLANES; i++) {
        planes[i].low = blockRecords;
        planes[i].high = highRecords;
        blockRecords += CountLow(planes[i]);
        highRecords += CountHigh(planes[i]);
    }
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

void MergePlanes(const VornMakeState* state, BlockRecord* blockRecords, BlockRecord* highRecords, uint32_t budget,
                 QueuedUpgrade* queue) {
    PlaneRecords planes[PLANES];
    ListRecords(state, blockRecords, highRecords, planes);
    uint32_t leftoverBits = 0;
    for (const PlaneRecords& plane : planes) {
        ForEachHighBlock(plane, AddSplitCandidate);
        leftoverBits += LeftoverBits(plane);
    }

    // The same budget once more: what the four blocks below cost comes back in through the split candidates.
    const uint32_t leftoverBytes = leftoverBits / COST_UNITS_PER_BYTE;
    uint32_t records = 0;
    for (int i = 0; i < COMPETING; i++) records += CountHigh(planes[i]);
    AllocateBits(highRecords, records, leftoverBytes < budget ? budget - leftoverBytes : 0, queue);

    for (int i = 0; i < COMPETING; i++) {
        ForEachHighBlock(planes[i], [](const BlockRecord* high, BlockRecord* r00, BlockRecord* r01, BlockRecord* r10,
                                       BlockRecord* r11) {
            if (high->chosenMode != MODE_SPLIT) MarkScaled(*high, r00, r01, r10, r11);
        });
    }
}

} // namespace vorn
