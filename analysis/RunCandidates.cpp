// RunCandidates.cpp - in which flat runs can a block be coded? One scan order, every threshold that makes a difference.
#include <cstring>

#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "blocks/CandidateLists.h"
#include "blocks/PixelOps.h"
#include "blocks/Runs.h"

namespace vorn {

namespace {

// What it takes to follow a sequence: the sum of its steps, and one for each step that isn't flat.
uint32_t Roughness(const uint8_t* sequence) {
    uint32_t sum = 0;
    for (int i = 1; i < BLOCK_SAMPLES; i++) {
        const int step = sequence[i] - sequence[i - 1];
        sum += static_cast<uint32_t>(step < 0 ? -step : step) + (step != 0 ? 1 : 0);
    }
    return sum;
}

// The smoothest scan order of a block, the first among equals; `scanned` receives the block along it.
int ChooseScanOrder(uint8_t* scanned, const uint8_t* block) {
    int best = 0;
    ScanBlock(scanned, block, 0);
    uint32_t least = Roughness(scanned);
    for (int order = 1; order < SCAN_ORDERS; order++) {
        uint8_t sequence[BLOCK_SAMPLES];
        ScanBlock(sequence, block, order);
        const uint32_t roughness = Roughness(sequence);
        if (roughness >= least) continue;
        least = roughness;
        best = order;
        std::memcpy(scanned, sequence, BLOCK_SAMPLES);
    }
    return best;
}

// Cost of a simplified sequence, 1/256 bit.
uint32_t RunCost(const uint8_t* smooth, uint32_t colourBits, uint32_t runBits) {
    uint32_t colours = 0;
    uint32_t segments = 0;
    int start = 0;
    while (start < BLOCK_SAMPLES - 1) {
        const RunSegment segment = NextRunSegment(smooth, start);
        colours += segment.flat ? 1 : static_cast<uint32_t>(segment.length);
        segments++;
        start += segment.length;
    }
    if (start == BLOCK_SAMPLES - 1) colours++; // the last sample alone: a colour and nothing else
    return RUN_ORDER_BITS + segments * (runBits + RUN_KIND_BITS) + colours * colourBits;
}

// Error of a simplified sequence: against the scanned block itself, or at half scale against `high`'s 256 samples.
uint32_t RunError(const uint8_t* smooth, const uint8_t* scanned, int order, const uint8_t* high) {
    if (high == nullptr) return SadBlock(smooth, scanned);
    uint8_t shown[BLOCK_SAMPLES];
    UnscanBlock(shown, smooth, order);
    return SadHighBlock(shown, high);
}

} // namespace

int ListRunsPlain(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                  uint32_t runBits) {
    uint8_t scanned[BLOCK_SAMPLES];
    uint8_t smooth[BLOCK_SAMPLES];
    uint8_t memoLengths[BLOCK_SAMPLES] = {};
    uint8_t memoValues[BLOCK_SAMPLES];
    const int order = ChooseScanOrder(scanned, block);
    int count = 0;
    int threshold = 0;
    while (threshold < NO_THRESHOLD) {
        int next = NO_THRESHOLD;
        SmoothRuns(smooth, scanned, threshold, &next, memoLengths, memoValues);
        list[count++] = {RunCost(smooth, colourBits, runBits), RunError(smooth, scanned, order, high),
                         static_cast<uint16_t>(order * 256 + threshold), MODE_RUN};
        threshold = next;
    }
    return count;
}

int RunCandidates(BlockCandidate* list, const uint8_t* src, uint32_t colourBits, uint32_t runBits) {
    return Kernels().listRuns(list, src, nullptr, colourBits, runBits);
}

int HighRunCandidates(BlockCandidate* list, const uint8_t* high, const uint8_t* half, uint32_t colourBits,
                      uint32_t runBits) {
    return Kernels().listRuns(list, half, high, colourBits, runBits);
}

} // namespace vorn
