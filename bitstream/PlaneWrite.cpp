// PlaneWrite.cpp - in which order do the collected bundles and strings go into the stream?
// `remaining` of each bundle falls as a decoder would take its elements; a bundle at 0 at the start of a row is due for a chunk.
#include "bitstream/PlaneInternal.h"

#include <cassert>

namespace vorn {

namespace {

void Take(Bundle* bundle, uint32_t elements) {
    assert(bundle->remaining >= elements);
    bundle->remaining -= elements;
}

void TakeOffsets(PlaneCoder* coder) {
    Take(&coder->xOffsets, 1);
    Take(&coder->yOffsets, 1);
}

// Takes what a block consumes and copies its string. `mode` is the block's own, or that of a 16x16 block.
void WriteBlock(PlaneCoder* coder, BitWriter* writer, const BlockRecord* record, uint32_t mode) {
    switch (mode) {
    case MODE_RUN:
        Take(&coder->colours, record->upgradeBits & 255);
        Take(&coder->runs, record->upgradeBits >> 8);
        CopyNextBitString(writer, &coder->runData);
        break;
    case MODE_INTRA:
        Take(&coder->intraDc, 1);
        CopyNextBitString(writer, &coder->intraData);
        break;
    case MODE_FILL:
        Take(&coder->colours, 1);
        break;
    case MODE_MOTION:
        TakeOffsets(coder);
        break;
    case MODE_RESIDUE:
        TakeOffsets(coder);
        CopyNextBitString(writer, &coder->residueData);
        break;
    case MODE_INTER:
        TakeOffsets(coder);
        Take(&coder->interDc, 1);
        CopyNextBitString(writer, &coder->interData);
        break;
    case MODE_PATTERN:
        Take(&coder->patterns, BLOCK_SIDE);
        Take(&coder->colours, 2);
        break;
    case MODE_RAW:
        Take(&coder->colours, BLOCK_SAMPLES);
        break;
    default:
        break; // MODE_SKIP
    }
}

} // namespace

void WritePlane(PlaneCoder* coder, BitWriter* writer) {
    for (const BundleKind& kind : BUNDLE_KINDS)
        if (kind.chooseCode != nullptr) kind.chooseCode(writer, &(coder->*kind.bundle));
    coder->colours.previousValue = 0;
    const PlaneJob& job = *coder->job;
    const uint32_t columns = job.width / BLOCK_SIDE;
    for (uint32_t row = 0; row < job.height / BLOCK_SIDE; row++) {
        for (const BundleKind& kind : BUNDLE_KINDS) kind.writeChunk(writer, &(coder->*kind.bundle));
        for (uint32_t column = 0; column < columns; column++) {
            const BlockRecord* record = RecordAt(job, row, column);
            Take(&coder->blockTypes, 1);
            if (record->chosenMode != MODE_SCALED) {
                WriteBlock(coder, writer, record, record->chosenMode);
                continue;
            }
            column++;
            const uint32_t mode = RecordAt(job, row, column)->chosenMode;
            if (!IsHighMode(mode)) continue;
            Take(&coder->subBlockTypes, 1);
            WriteBlock(coder, writer, record, mode);
        }
    }
}

} // namespace vorn
