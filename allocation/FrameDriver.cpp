// FrameDriver.cpp - in which order does a queued frame become coded planes?
#include "allocation/FrameDriver.h"

#include <algorithm>

#include "allocation/Allocation.h"
#include "allocation/CostModels.h"
#include "analysis/Analysis.h"
#include "bitstream/PlaneEncoder.h"
#include "blocks/PixelOps.h"
#include "files/Memory.h"

namespace vorn {

namespace {

constexpr uint64_t SMALLEST_ARENA = 131072;
constexpr uint64_t MOST_BYTES = 0xffffffff;
constexpr uint64_t SLOT_SLACK = 31 + 992; // of one planned buffer: rounding and pad at most

const char* const ANALYSIS_STAGES[PLANES] = {"Compressing Y plane", "Compressing Cr plane", "Compressing Cb plane",
                                             "Compressing alpha plane"};
// One stage text serves for both chroma planes.
const char* const HIGH_STAGES[PLANES] = {"Compressing Y high-plane", "Compressing Cr high-plane", nullptr,
                                         "Compressing alpha high-plane"};
const char* const ENCODING_STAGES[PLANES] = {"Encoding Y plane", "Encoding Cr plane", "Encoding Cb plane",
                                             "Encoding alpha plane"};

// One plane of the frame in hand; without meaning if not `present`.
struct PlaneWork {
    bool present;
    const uint8_t* source;
    const uint8_t* reference; // what a decoder shows now
    uint8_t* reconstruction;  // what it will show next
    uint8_t* packet;
    CostModel* model;
    uint32_t width, height; // samples
    PlaneRecords records;
};

// Bytes of the buffers that live for one frame.
struct ScratchSizes {
    uint64_t blockRecords;
    uint64_t highRecords; // the plane encoder's arena later on
    uint64_t queue;
};

struct FrameWork {
    VornMakeState* state;
    bool keyFrame;
    ScratchSizes sizes;
    BlockRecord* blockRecords; // all planes, one after the other
    uint32_t blockCount;
    BlockRecord* highRecords;
    QueuedUpgrade* queue;
    PlaneWork planes[PLANES];
};

// The 16x16 records' memory serves the motion search before there are any, and as the arena once merging is done.
// PlaneArenaBound suffices for any plane, so it needn't grow with the budget; chroma planes are never the larger ones.
ScratchSizes CountScratch(uint32_t lumaWidth, uint32_t lumaHeight, uint32_t chromaWidth, uint32_t chromaHeight) {
    const uint64_t lumaSamples = static_cast<uint64_t>(lumaWidth) * lumaHeight;
    const uint64_t chromaSamples = static_cast<uint64_t>(chromaWidth) * chromaHeight;
    const uint64_t luma16 = static_cast<uint64_t>(lumaWidth >> 4) * (lumaHeight >> 4);
    const uint64_t chroma16 = static_cast<uint64_t>(chromaWidth >> 4) * (chromaHeight >> 4);
    const uint64_t blocks = 2 * (lumaSamples / BLOCK_SAMPLES + chromaSamples / BLOCK_SAMPLES);
    ScratchSizes sizes;
    sizes.blockRecords = blocks * sizeof(BlockRecord);
    sizes.highRecords =
        std::max({2 * (luma16 + chroma16) * sizeof(BlockRecord), SMALLEST_ARENA,
                  MotionScratchWords(lumaWidth, lumaHeight) * 2, PlaneArenaBound(lumaWidth, lumaHeight)});
    sizes.queue = blocks * sizeof(QueuedUpgrade);
    return sizes;
}

// Takes the frame's one block; null if it can't be had.
void* TakeScratch(FrameWork* work) {
    const VornMakeState* state = work->state;
    work->sizes = CountScratch(state->lumaWidth, state->lumaHeight, state->chromaWidth, state->chromaHeight);
    PlanBuffer(&work->blockRecords, work->sizes.blockRecords);
    PlanBuffer(&work->highRecords, work->sizes.highRecords);
    PlanBuffer(&work->queue, work->sizes.queue);
    return AllocatePlan(0);
}

// Lists the four planes and gives each that is present its part of the records.
void ListPlanes(FrameWork* work, uint32_t slot) {
    VornMakeState* state = work->state;
    const uint32_t shown = state->referenceSelect;
    PlaneRecords records[PLANES];
    ListRecords(state, work->blockRecords, work->highRecords, records);
    const auto list = [&](int i, const uint8_t* source, uint8_t* const references[2], uint8_t* packet,
                          CostModel* model) {
        const uint32_t width = records[i].columns * BLOCK_SIDE, height = records[i].rows * BLOCK_SIDE;
        work->planes[i] = {width != 0, source, references[shown], references[1 - shown], packet, model,
                           width,      height, records[i]};
        work->blockCount += CountLow(records[i]);
    };
    list(0, state->queueY[slot], state->referenceY, state->packetY, &state->costY);
    list(1, state->queueCr[slot], state->referenceCr, state->packetCr, &state->costCr);
    list(2, state->queueCb[slot], state->referenceCb, state->packetCb, &state->costCb);
    list(3, state->queueAlpha[slot], state->referenceAlpha, state->packetAlpha, &state->costAlpha);
}

// Tells the caller which stage begins; without a text it is only asked whether to go on. False: give up the frame.
bool ReportStage(VornMakeState* state, const char* text) {
    if (text != nullptr && state->progressCallback != nullptr) {
        state->progressFrame = -1;
        if (state->progressCallback(VORN_PROGRESS, state, text) != 0) state->cancel = 1;
    }
    return state->cancel != 2;
}

void PreparePlanes(FrameWork* work) {
    for (PlaneWork& plane : work->planes) {
        if (!plane.present) continue;
        PrepareCostModel(plane.model, plane.source, work->keyFrame ? nullptr : plane.reference, plane.width,
                         plane.height);
    }
}

bool AnalysePlanes(FrameWork* work) {
    for (int i = 0; i < PLANES; i++) {
        const PlaneWork& plane = work->planes[i];
        if (!plane.present) continue;
        if (!ReportStage(work->state, ANALYSIS_STAGES[i])) return false;
        // The 16x16 records' memory is still free.
        AnalysePlane(plane.records.low, plane.source, plane.reference, plane.width, plane.height, work->keyFrame,
                     plane.model, reinterpret_cast<uint16_t*>(work->highRecords));
    }
    for (int i = 0; i < PLANES; i++) {
        const PlaneWork& plane = work->planes[i];
        if (!plane.present) continue;
        if (!ReportStage(work->state, HIGH_STAGES[i])) return false;
        AnalyseHighPlane(plane.records.high, plane.source, plane.reference, plane.width, plane.height, work->keyFrame,
                         plane.model);
    }
    return true;
}

bool DecideBlocks(FrameWork* work, uint32_t budget) {
    if (!ReportStage(work->state, "Allocating bandwidth")) return false;
    AllocateBits(work->blockRecords, work->blockCount, budget, work->queue);
    if (!ReportStage(work->state, "Merging multi-resolution planes")) return false;
    MergePlanes(work->state, work->blockRecords, work->highRecords, budget, work->queue);
    return true;
}

// Each plane starts the arena afresh.
bool EncodePlanes(FrameWork* work, FrameResult* result) {
    for (int i = 0; i < PLANES; i++) {
        const PlaneWork& plane = work->planes[i];
        result->sizes[i] = 0;
        if (!plane.present) continue;
        if (!ReportStage(work->state, ENCODING_STAGES[i])) return false;
        PlaneJob job;
        job.reconstruction = plane.reconstruction;
        job.output = plane.packet;
        job.outputBytes = static_cast<uint32_t>(std::min(PacketBytes(plane.width, plane.height), MOST_BYTES));
        job.arenaRoom = reinterpret_cast<uint8_t*>(work->highRecords);
        job.arenaBytes = work->sizes.highRecords;
        job.records = plane.records.low;
        job.sourcePlane = plane.source;
        job.referencePlane = plane.reference;
        job.width = plane.width;
        job.height = plane.height;
        job.costModel = plane.model;
        result->sizes[i] = EncodePlane(job);
        if (result->sizes[i] == 0) return false;
    }
    return true;
}

void MeasureAndLearn(FrameWork* work, FrameResult* result) {
    for (int i = 0; i < PLANES; i++) {
        const PlaneWork& plane = work->planes[i];
        result->errors[i] = 0;
        if (!plane.present) continue;
        result->errors[i] = SadSamples(plane.source, plane.reconstruction, plane.width * plane.height);
        ApplyColourFeedback(plane.model);
    }
}

} // namespace

bool CompressFrame(VornMakeState* state, uint32_t slot, uint32_t budget, FrameResult* result) {
    FrameWork work = {};
    work.state = state;
    work.keyFrame = state->queueKey[slot] != 0;
    void* scratch = TakeScratch(&work);
    if (scratch == nullptr) return false;
    ListPlanes(&work, slot);
    PreparePlanes(&work);
    const bool done = AnalysePlanes(&work) && DecideBlocks(&work, budget) && EncodePlanes(&work, result);
    if (done) {
        state->referenceSelect = 1 - state->referenceSelect;
        MeasureAndLearn(&work, result);
    }
    mokfree(scratch);
    return done;
}

uint64_t PacketBytes(uint32_t paddedWidth, uint32_t paddedHeight) {
    const uint64_t samples = static_cast<uint64_t>(paddedWidth) * paddedHeight;
    return std::max(samples * 11 / 10, PlaneStreamBound(paddedWidth, paddedHeight));
}

uint64_t FrameScratchBytes(uint32_t lumaWidth, uint32_t lumaHeight, uint32_t chromaWidth, uint32_t chromaHeight) {
    const ScratchSizes sizes = CountScratch(lumaWidth, lumaHeight, chromaWidth, chromaHeight);
    return sizes.blockRecords + sizes.highRecords + sizes.queue + 3 * SLOT_SLACK;
}

} // namespace vorn
