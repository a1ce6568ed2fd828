// PlaneCollect.cpp - what does each decided block show, and what does it add to the bundles and lists?
#include "bitstream/PlaneInternal.h"

#include <cstring>

#include "bitstream/CoefficientCoder.h"
#include "bitstream/RunPatternBlocks.h"
#include "bitstream/TransformKernels.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

// A block being collected, at its top left sample.
struct BlockPlace {
    BlockRecord* record;
    const uint8_t* source;
    uint8_t* shown;  // in the reconstruction
    uint64_t offset; // of its first sample in a plane
};

BlockPlace PlaceOf(const PlaneJob& job, uint32_t row, uint32_t column) {
    const uint64_t offset = uint64_t{row} * BLOCK_SIDE * job.width + uint64_t{column} * BLOCK_SIDE;
    return {RecordAt(job, row, column), job.sourcePlane + offset, job.reconstruction + offset, offset};
}

int PitchOf(const PlaneCoder* coder) {
    return static_cast<int>(coder->job->width);
}

const uint8_t* MovedReference(const PlaneCoder* coder, const BlockPlace& place) {
    const BlockRecord* record = place.record;
    return coder->job->referencePlane +
           (static_cast<int64_t>(place.offset) + int64_t{record->offsetY} * PitchOf(coder) + record->offsetX);
}

void CopyBlock(uint8_t* to, const uint8_t* from, int pitch) {
    for (int row = 0; row < BLOCK_SIDE; row++)
        std::memcpy(to + int64_t{row} * pitch, from + int64_t{row} * pitch, BLOCK_SIDE);
}

void AppendOffsets(PlaneCoder* coder, const BlockRecord* record) {
    AppendOffset(&coder->xOffsets, record->offsetX);
    AppendOffset(&coder->yOffsets, record->offsetY);
}

void CollectFill(PlaneCoder* coder, const BlockPlace& place, int side) {
    const auto colour = static_cast<uint8_t>(place.record->chosenPayload);
    for (int row = 0; row < side; row++) {
        uint8_t* shown = place.shown + int64_t{row} * PitchOf(coder);
        for (int i = 0; i < side; i += BLOCK_SIDE) std::memset(shown + i, colour, BLOCK_SIDE); // one store, not a call
    }
    AppendColour(&coder->colours, colour);
}

void CollectIntra(PlaneCoder* coder, int q, const uint8_t* block, uint8_t* shown) {
    int16_t quantised[BLOCK_SAMPLES];
    Transforms().codeIntra(quantised, shown, block, q);
    AppendElement(&coder->intraDc, quantised[0]);
    WriteDctPayload(&coder->intraData, q, quantised);
}

// The modes that code samples alone, full size and half scale alike: `block` and `shown` are packed.
void CollectSamples(PlaneCoder* coder, BlockRecord* record, uint32_t mode, const uint8_t* block, uint8_t* shown) {
    const uint32_t payload = record->chosenPayload;
    switch (mode) {
    case MODE_RUN:
        record->upgradeBits =
            WriteRunBlock(shown, BLOCK_SIDE, &coder->colours, &coder->runs, &coder->runData, block, payload & 0xfff);
        break;
    case MODE_INTRA:
        CollectIntra(coder, static_cast<int>(payload), block, shown);
        break;
    case MODE_PATTERN:
        WritePatternBlock(shown, BLOCK_SIDE, &coder->colours, &coder->patterns, block, payload);
        break;
    default: // MODE_RAW
        for (int i = 0; i < BLOCK_SAMPLES; i++) AppendColour(&coder->colours, block[i]);
        std::memcpy(shown, block, BLOCK_SAMPLES);
        break;
    }
}

// The displaced reference and what it leaves of the source.
struct MovedBlock {
    uint8_t moved[BLOCK_SAMPLES];
    int8_t residual[BLOCK_SAMPLES];
};

void FetchMoved(const PlaneCoder* coder, const BlockPlace& place, MovedBlock* block) {
    const uint8_t* reference = MovedReference(coder, place);
    LoadBlock(block->moved, reference, PitchOf(coder));
    DiffBlock(reinterpret_cast<uint8_t*>(block->residual), place.source, reference, PitchOf(coder), BLOCK_SIDE);
}

void ShowMoved(const PlaneCoder* coder, const BlockPlace& place, const MovedBlock& block, const uint8_t* change) {
    uint8_t shown[BLOCK_SAMPLES];
    AddBlock(shown, change, block.moved);
    StoreBlock(place.shown, shown, PitchOf(coder));
}

void CollectResidue(PlaneCoder* coder, const BlockPlace& place) {
    MovedBlock block;
    FetchMoved(coder, place, &block);
    int8_t read[BLOCK_SAMPLES];
    WriteResiduePayload(&coder->residueData, block.residual, place.record->chosenPayload, read);
    ShowMoved(coder, place, block, reinterpret_cast<const uint8_t*>(read));
    AppendOffsets(coder, place.record);
}

void CollectInter(PlaneCoder* coder, const BlockPlace& place) {
    const auto q = static_cast<int>(place.record->chosenPayload);
    MovedBlock block;
    FetchMoved(coder, place, &block);
    int16_t quantised[BLOCK_SAMPLES];
    uint8_t change[BLOCK_SAMPLES];
    Transforms().codeInter(quantised, change, block.residual, q);
    AppendElement(&coder->interDc, quantised[0]);
    WriteDctPayload(&coder->interData, q, quantised);
    ShowMoved(coder, place, block, change);
    AppendOffsets(coder, place.record);
}

void CollectBlock(PlaneCoder* coder, const BlockPlace& place) {
    const int pitch = PitchOf(coder);
    switch (place.record->chosenMode) {
    case MODE_SKIP:
        CopyBlock(place.shown, coder->job->referencePlane + place.offset, pitch);
        break;
    case MODE_MOTION:
        CopyBlock(place.shown, MovedReference(coder, place), pitch);
        AppendOffsets(coder, place.record);
        break;
    case MODE_RESIDUE:
        CollectResidue(coder, place);
        break;
    case MODE_INTER:
        CollectInter(coder, place);
        break;
    case MODE_FILL:
        CollectFill(coder, place, BLOCK_SIDE);
        break;
    default: {
        uint8_t block[BLOCK_SAMPLES];
        uint8_t shown[BLOCK_SAMPLES];
        LoadBlock(block, place.source, pitch);
        CollectSamples(coder, place.record, place.record->chosenMode, block, shown);
        StoreBlock(place.shown, shown, pitch);
        break;
    }
    }
}

// A 16x16 block, coded as `mode` at half scale.
void CollectHighBlock(PlaneCoder* coder, const BlockPlace& place, uint32_t mode) {
    AppendType(&coder->subBlockTypes, mode);
    if (mode == MODE_FILL) {
        CollectFill(coder, place, HIGH_SIDE);
        return;
    }
    uint8_t half[BLOCK_SAMPLES];
    uint8_t shown[BLOCK_SAMPLES];
    HalveBlock(half, place.source, HIGH_SIDE, HIGH_SIDE, PitchOf(coder));
    CollectSamples(coder, place.record, mode, half, shown);
    DoubleBlock(place.shown, shown, PitchOf(coder));
}

void CloseRow(PlaneCoder* coder) {
    for (const BundleKind& kind : BUNDLE_KINDS) {
        CountRepeats(&(coder->*kind.bundle)); // only types have any
        CloseChunk(&(coder->*kind.bundle));
    }
}

} // namespace

void CollectPlane(PlaneCoder* coder) {
    const PlaneJob& job = *coder->job;
    const uint32_t columns = job.width / BLOCK_SIDE;
    for (uint32_t row = 0; row < job.height / BLOCK_SIDE; row++) {
        for (uint32_t column = 0; column < columns; column++) {
            const BlockPlace place = PlaceOf(job, row, column);
            AppendType(&coder->blockTypes, place.record->chosenMode);
            if (place.record->chosenMode != MODE_SCALED) {
                CollectBlock(coder, place);
                continue;
            }
            column++; // the record to the right is part of it
            const uint32_t mode = RecordAt(job, row, column)->chosenMode;
            if (IsHighMode(mode)) CollectHighBlock(coder, place, mode);
        }
        CloseRow(coder);
    }
}

} // namespace vorn
