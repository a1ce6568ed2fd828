// HighBlocks.cpp - which ways are there to code a 16x16 block at half scale?
#include <cstring>

#include "analysis/Evaluators.h"
#include "blocks/CandidateLists.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

void LoadHighBlock(uint8_t* block, const uint8_t* plane, ptrdiff_t pitch) {
    for (int row = 0; row < HIGH_SIDE; row++) std::memcpy(block + row * HIGH_SIDE, plane + row * pitch, HIGH_SIDE);
}

// One colour, sought and measured at full scale: the median of the 256 samples.
BlockCandidate HighFillCandidate(const uint8_t* high, const CostModel* costModel) {
    const int colour = HighMedian(high);
    return {costModel->colourBits, SadColour(high, HIGH_SAMPLES, colour), static_cast<uint16_t>(colour), MODE_FILL};
}

} // namespace

uint32_t SadHighBlock(const uint8_t* half, const uint8_t* high) {
    return SadDoubled(half, high);
}

// `sameHigh` is not read on a key frame. An empty list means that the reference already shows what half scale would.
int EvaluateHighBlock(BlockCandidate* list, const uint8_t* high, const uint8_t* half, const uint8_t* sameHigh,
                      bool keyFrame, const CostModel* costModel) {
    if (!keyFrame && SadHighBlock(half, sameHigh) == 0) return 0;
    int count = 0;
    list[count++] = HighFillCandidate(high, costModel);
    if (list[0].error == 0) return count;
    count += HighPatternCandidates(list + count, high, half, costModel->colourBits, costModel->patternBits);
    const int firstRun = count;
    count += HighRunCandidates(list + count, high, half, costModel->colourBits, costModel->runBits);
    const int lastRun = count;
    count += HighIntraCandidates(list + count, high, half, costModel);
    list[count++] = {BLOCK_SAMPLES * costModel->colourBits, SadHighBlock(half, high), 0, MODE_RAW};
    return PruneRunsOverRuns(list, count, firstRun, lastRun);
}

void EvaluateHighBlocks(WorkQueue* queue) {
    const uint32_t columns = queue->width / HIGH_SIDE;
    const ptrdiff_t pitch = static_cast<ptrdiff_t>(queue->width);
    // Of a block's overhead, a type of each row of 8x8 blocks and the type of the 16x16 block.
    const uint32_t overhead = 2 * queue->costModel->typeBits + queue->costModel->subTypeBits;
    BlockCandidate list[SCRATCH_CANDIDATES];
    for (;;) {
        const uint32_t index = queue->nextIndex.fetch_add(1);
        if (index >= queue->blockCount) return;
        const ptrdiff_t at = static_cast<ptrdiff_t>(index / columns * HIGH_SIDE) * pitch +
                             static_cast<ptrdiff_t>(index % columns * HIGH_SIDE);
        uint8_t high[HIGH_SAMPLES];
        uint8_t reference[HIGH_SAMPLES];
        const uint8_t* sameHigh = nullptr;
        uint8_t half[BLOCK_SAMPLES];
        LoadHighBlock(high, queue->sourcePlane + at, pitch);
        if (!queue->keyFrame) {
            LoadHighBlock(reference, queue->referencePlane + at, pitch);
            sameHigh = reference;
        }
        HalveBlock(half, high, HIGH_SIDE, HIGH_SIDE, HIGH_SIDE);
        int count = EvaluateHighBlock(list, high, half, sameHigh, queue->keyFrame, queue->costModel);
        count = LimitList(list, count, MAX_HIGH_CANDIDATES);
        StoreList(&queue->records[index], list, count, overhead);
    }
}

} // namespace vorn
