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

constexpr int PLANES = 4; // Y, Cr, Cb, alpha
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
    BlockRecord* blockRecords;
    BlockRecord* highRecords;
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
// PlaneArenaBound suffices for any plane, so it needn't grow with the budget.
ScratchSizes CountScratch(uint32_t lumaWidth, uint32_t lumaHeight, uint32_t chromaWidth, uint32_t chromaHeight) {
    const uint64_t lumaSamples = static_cast<uint64_t>(lumaWidth) * lumaHeight;
    const uint64_t chromaSamples = static_cast<uint64_t>(chromaWidth) * chromaHeight;
    const uint64_t luma16 = static_cast<uint64_t>(lumaWidth >> 4) * (lumaHeight >> 4);
    const uint64_t chroma16 = static_cast<uint64_t>(chromaWidth >> 4) * (chromaHeight >> 4);
    const uint64_t blocks = 2 * (lumaSamples / BLOCK_SAMPLES + chromaSamples / BLOCK_SAMPLES);
    ScratchSizes sizes;
    sizes.blockRecords = blocks * sizeof(BlockRecord);
    sizes.highRecords =
        std::max({2 * (luma16 + chroma16) * sizeof(BlockRecord), lumaSamples * 2, SMALLEST_ARENA,
                  MotionScratchWords(lumaWidth, lumaHeight) * 2, MotionScratchWords(chromaWidth, chromaHeight) * 2,
                  PlaneArenaBound(lumaWidth, lumaHeight), PlaneArenaBound(chromaWidth, chromaHeight)});
    sizes.queue = blocks * sizeof(QueuedUpgrade);
    return sizes;
}

// Takes the frame's one block; null if it can't be had.
void* TakeScratch(FrameWork* work) {
    const VornMakeState* state = work->state;
    work->sizes = CountScratch(state->lumaWidth, state->lumaHeight, state->chromaWidth, state->chromaHeight);
    if (std::max({work->sizes.blockRecords, work->sizes.highRecords, work->sizes.queue}) > MOST_BYTES) return nullptr;
    PlanBuffer(&work->blockRecords, static_cast<uint32_t>(work->sizes.blockRecords));
    PlanBuffer(&work->highRecords, static_cast<uint32_t>(work->sizes.highRecords));
    PlanBuffer(&work->queue, static_cast<uint32_t>(work->sizes.queue));
    return AllocatePlan(0);
}

// Lists the four planes and gives each that is present its part of the records.
void ListPlanes(FrameWork* work, uint32_t slot) {
    VornMakeState* state = work->state;
    const FrameBlocks blocks = CountBlocks(state);
    const uint32_t shown = state->referenceSelect;
    const uint32_t spare = 1 - shown;
    const uint32_t lumaWidth = state->lumaWidth, lumaHeight = state->lumaHeight;
    const uint32_t chromaWidth = state->chromaWidth, chromaHeight = state->chromaHeight;
    // clang-format off
    work->planes[0] = {true, state->queueY[slot], state->referenceY[shown], state->referenceY[spare], state->packetY,
                       &state->costY, lumaWidth, lumaHeight, nullptr, nullptr};
    work->planes[1] = {blocks.hasChroma, state->queueCr[slot], state->referenceCr[shown], state->referenceCr[spare],
                       state->packetCr, &state->costCr, chromaWidth, chromaHeight, nullptr, nullptr};
    work->planes[2] = {blocks.hasChroma, state->queueCb[slot], state->referenceCb[shown], state->referenceCb[spare],
                       state->packetCb, &state->costCb, chromaWidth, chromaHeight, nullptr, nullptr};
    work->planes[3] = {blocks.hasAlpha, state->queueAlpha[slot], state->referenceAlpha[shown],
                       state->referenceAlpha[spare], state->packetAlpha, &state->costAlpha, lumaWidth, lumaHeight,
                       nullptr, nullptr};
    // clang-format on
    uint32_t low = 0;
    uint32_t high = 0;
    for (PlaneWork& plane : work->planes) {
        if (!plane.present) continue;
        plane.blockRecords = work->blockRecords + low;
        plane.highRecords = work->highRecords + high;
        low += (plane.width >> 3) * (plane.height >> 3);
        high += (plane.width >> 4) * (plane.height >> 4);
    }
    work->blockCount = low;
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
        AnalysePlane(plane.blockRecords, plane.source, plane.reference, plane.width, plane.height, work->keyFrame,
                     plane.model, reinterpret_cast<uint16_t*>(work->highRecords));
    }
    for (int i = 0; i < PLANES; i++) {
        const PlaneWork& plane = work->planes[i];
        if (!plane.present) continue;
        if (!ReportStage(work->state, HIGH_STAGES[i])) return false;
        AnalyseHighPlane(plane.highRecords, plane.source, plane.reference, plane.width, plane.height, work->keyFrame,
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
        job.records = plane.blockRecords;
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
