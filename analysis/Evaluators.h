// Evaluators.h - what the files of this folder share: the queue of a pass, its worker functions, one evaluator a mode.
// An evaluator appends to the free end of a list and returns how many entries it added; their bits leave out the block's
// own overhead. All scratch is on the worker's stack.
#pragma once

#include <atomic>
#include <cstdint>

#include "analysis/MotionKernels.h"
#include "blocks/BlockRecord.h"
#include "public/vornmake.h"

namespace vorn {

struct WorkQueue {
    uint32_t blockCount;
    std::atomic<uint32_t> nextIndex;
    const uint8_t* sourcePlane;
    const uint8_t* referencePlane;
    const uint16_t* areaSums;     // of the reference's 4x4 areas; null if nothing needs them
    uint32_t width;               // samples
    uint32_t height;
    BlockRecord* records;
    bool keyFrame;
    const CostModel* costModel;
};

// Workers: take blocks until none are left.
void SearchMotion(WorkQueue* queue);
void EvaluateBlocks(WorkQueue* queue);
void EvaluateHighBlocks(WorkQueue* queue);

// What to search for block `index` of the queue.
MotionTask TaskOfBlock(const WorkQueue* queue, uint32_t index);

// Two colours: the best pair over all splits of the sorted samples. False if all samples are equal.
bool FindColourPair(const uint8_t* sorted, int* low, int* high);
bool FindColourPairPlain(const uint8_t* sorted, int* low, int* high); // its definition
int PatternCandidates(BlockCandidate* list, const uint8_t* sorted, const uint8_t* src, uint32_t colourBits,
                      uint32_t patternBits);
// One candidate a threshold, as at half scale. They have to go through PruneRuns.
int RunCandidates(BlockCandidate* list, const uint8_t* src, uint32_t colourBits, uint32_t runBits);
int IntraCandidates(BlockCandidate* list, const uint8_t* src, const CostModel* costModel);
int InterCandidates(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                    const CostModel* costModel);
int ResidueCandidates(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                      uint32_t motionBits);
// Its definition: the stream is written and read back.
int ResidueCandidatesPlain(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                           uint32_t motionBits);

// 16x16 blocks, the same evaluators at half scale: `high` 256 samples, 16 a row; `half` the block at half scale; errors are
// measured on all 256.
uint32_t SadHighBlock(const uint8_t* half, const uint8_t* high);
int HighPatternCandidates(BlockCandidate* list, const uint8_t* high, const uint8_t* half, uint32_t colourBits,
                          uint32_t patternBits);
int HighRunCandidates(BlockCandidate* list, const uint8_t* high, const uint8_t* half, uint32_t colourBits,
                      uint32_t runBits);
int HighIntraCandidates(BlockCandidate* list, const uint8_t* high, const uint8_t* half, const CostModel* costModel);
// `sameHigh`, the reference at the same place, may be null on a key frame. The result may be 0.
int EvaluateHighBlock(BlockCandidate* list, const uint8_t* high, const uint8_t* half, const uint8_t* sameHigh,
                      bool keyFrame, const CostModel* costModel);

} // namespace vorn
