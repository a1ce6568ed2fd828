// AnalysisPass.cpp - a pass over the blocks of a plane, and the threads that share it.
#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "platform/Platform.h"
#include "platform/Workers.h"

namespace vorn {

namespace {

// What a started thread is given: it lives on the stack of the thread that runs the pass.
struct PassWork {
    void (*worker)(WorkQueue*);
    WorkQueue* queue;
};

void RunWorker(void* argument) {
    const PassWork* work = static_cast<const PassWork*>(argument);
    work->worker(work->queue);
}

// Runs the worker on this thread and on WorkerCount() - 1 more, and returns when all have ended. A thread that can't be
// started leaves its share to the others, since every index that nobody else takes is taken here.
void RunPass(WorkQueue* queue, void (*worker)(WorkQueue*)) {
    queue->nextIndex.store(0);
    PassWork work = {worker, queue};
    ThreadHandle threads[MAX_WORKERS];
    uint32_t started = 0;
    // The count may be changed meanwhile: it is taken once, so that as many are joined as were started.
    const uint32_t helpers = WorkerCount() - 1;
    for (uint32_t i = 0; i < helpers; i++)
        if (platform->startThread(&threads[started], RunWorker, &work)) started++;
    worker(queue);
    for (uint32_t i = 0; i < started; i++) platform->joinThread(threads[i]);
}

} // namespace

uint64_t MotionScratchWords(uint32_t width, uint32_t height) {
    return static_cast<uint64_t>(width) * height + AREA_SLACK;
}

void AnalysePlane(BlockRecord* records, const uint8_t* sourcePlane, const uint8_t* referencePlane, uint32_t width,
                  uint32_t height, bool keyFrame, const CostModel* costModel, uint16_t* scratch) {
    const uint32_t blockCount = (width / BLOCK_SIDE) * (height / BLOCK_SIDE);
    const bool sums = !keyFrame && scratch != nullptr && Kernels().wantsAreaSums;
    if (sums) SumAreas(scratch, referencePlane, width, height);
    WorkQueue queue = {blockCount, 0,      sourcePlane, referencePlane, sums ? scratch : nullptr,
                       width,      height, records,     keyFrame,       costModel};
    if (!keyFrame) RunPass(&queue, SearchMotion);
    RunPass(&queue, EvaluateBlocks);
}

void AnalyseHighPlane(BlockRecord* records, const uint8_t* sourcePlane, const uint8_t* referencePlane, uint32_t width,
                      uint32_t height, bool keyFrame, const CostModel* costModel) {
    const uint32_t blockCount = (width / HIGH_SIDE) * (height / HIGH_SIDE);
    WorkQueue queue = {blockCount, 0,      sourcePlane, referencePlane, nullptr,
                       width,      height, records,     keyFrame,       costModel};
    RunPass(&queue, EvaluateHighBlocks);
}

} // namespace vorn
