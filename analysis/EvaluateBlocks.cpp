// EvaluateBlocks.cpp - which ways are there to code an 8x8 block? Skip, fill, motion and raw are made here, the other
// modes by their evaluators; the list is then thinned and stored.
#include <cstring>

#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "blocks/CandidateLists.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

// Where a block's samples stand. The reference pointers are null on a key frame, which never looks at them.
struct BlockPlace {
    const uint8_t* source;
    const uint8_t* same;  // the reference at the same place
    const uint8_t* moved; // the reference displaced by the record's offsets
    int pitch;
};

BlockPlace PlaceOfBlock(const WorkQueue* queue, uint32_t index) {
    const uint32_t columns = queue->width / BLOCK_SIDE;
    const ptrdiff_t pitch = static_cast<ptrdiff_t>(queue->width);
    const ptrdiff_t at = static_cast<ptrdiff_t>(index / columns * BLOCK_SIDE) * pitch +
                         static_cast<ptrdiff_t>(index % columns * BLOCK_SIDE);
    BlockPlace place = {queue->sourcePlane + at, nullptr, nullptr, static_cast<int>(queue->width)};
    if (queue->keyFrame) return place;
    const BlockRecord* record = &queue->records[index];
    place.same = queue->referencePlane + at;
    place.moved = place.same + record->offsetY * pitch + record->offsetX;
    return place;
}

// The modes that look at the displaced reference: residue, inter, motion, in this order.
int MovedCandidates(BlockCandidate* list, const uint8_t* src, const BlockPlace* place, const CostModel* costModel) {
    uint8_t moved[BLOCK_SAMPLES];
    int8_t residual[BLOCK_SAMPLES];
    LoadBlock(moved, place->moved, place->pitch);
    DiffBlock(reinterpret_cast<uint8_t*>(residual), src, moved, BLOCK_SIDE, BLOCK_SIDE);
    int count = ResidueCandidates(list, src, residual, moved, costModel->motionBits);
    count += InterCandidates(list + count, src, residual, moved, costModel);
    list[count++] = {costModel->motionBits, SadBlock(src, moved), 0, MODE_MOTION};
    return count;
}

// Builds a block's list, bits without the block's overhead. Returns its length, at least 1. A block that equals its
// reference or is flat is done early, with a list that already rises in bits.
int EvaluateBlock(BlockCandidate* list, const BlockPlace* place, bool keyFrame, const CostModel* costModel) {
    uint8_t src[BLOCK_SAMPLES];
    LoadBlock(src, place->source, place->pitch);
    int count = 0;
    if (!keyFrame) {
        uint8_t same[BLOCK_SAMPLES];
        LoadBlock(same, place->same, place->pitch);
        const uint32_t error = SadBlock(src, same);
        list[count++] = {0, error, 0, MODE_SKIP};
        if (error == 0) return count;
    }

    uint8_t sorted[BLOCK_SAMPLES];
    std::memcpy(sorted, src, BLOCK_SAMPLES);
    SortBytes(sorted, BLOCK_SAMPLES);
    const int colour = (sorted[31] + sorted[32]) >> 1;
    const uint32_t error = SadColour(src, BLOCK_SAMPLES, colour);
    list[count++] = {costModel->colourBits, error, static_cast<uint16_t>(colour), MODE_FILL};
    if (error == 0) return count;

    count += PatternCandidates(list + count, sorted, src, costModel->colourBits, costModel->patternBits);
    const int firstRun = count;
    count += RunCandidates(list + count, src, costModel->colourBits, costModel->runBits);
    const int lastRun = count;
    count += IntraCandidates(list + count, src, costModel);
    if (!keyFrame) count += MovedCandidates(list + count, src, place, costModel);
    list[count++] = {BLOCK_SAMPLES * costModel->colourBits, 0, 0, MODE_RAW};
    return PruneHullOverRuns(list, count, firstRun, lastRun, Kernels().findHull);
}

} // namespace

void EvaluateBlocks(WorkQueue* queue) {
    BlockCandidate list[SCRATCH_CANDIDATES];
    for (;;) {
        const uint32_t index = queue->nextIndex.fetch_add(1);
        if (index >= queue->blockCount) return;
        const BlockPlace place = PlaceOfBlock(queue, index);
        int count = EvaluateBlock(list, &place, queue->keyFrame, queue->costModel);
        count = LimitList(list, count, MAX_CANDIDATES);
        StoreList(&queue->records[index], list, count, queue->costModel->typeBits);
    }
}

} // namespace vorn
