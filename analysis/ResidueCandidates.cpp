// ResidueCandidates.cpp - at which points can the bit-plane stream of a block's residual be cut off?
#include "analysis/Evaluators.h"
#include "bitstream/CoefficientCoder.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

// Distance of a source sample from what a decoder shows for it. The sum of reference and residual wraps.
uint32_t ShownError(uint8_t source, uint8_t moved, int8_t value) {
    const int shown = static_cast<uint8_t>(moved + value);
    return static_cast<uint32_t>(source < shown ? shown - source : source - shown);
}

} // namespace

// The stream is written once, in full, and read back as a decoder would. Each event changes one sample, so the error is
// kept up by that sample's change. Candidate k is the stream cut off behind event k + 1.
int ResidueCandidates(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                      uint32_t motionBits) {
    uint8_t stream[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, stream, PAYLOAD_ROOM_BYTES);
    if (!WriteResidue(&writer, residual)) return 0;
    PadToWord(&writer);

    BitReader bits;
    StartReader(&bits, stream, static_cast<uint32_t>(writer.position - stream));
    ResidueReader reader;
    StartResidueReader(&reader, bits);
    const uint32_t fixedBits = RESIDUE_HEAD_BITS * 256 + motionBits;
    uint32_t error = SadBlock(src, moved);
    int count = 0;
    while (count < MAX_RESIDUE_STEPS && NextResidueEvent(&reader)) {
        const int at = reader.position;
        error -= ShownError(src[at], moved[at], reader.before);
        error += ShownError(src[at], moved[at], reader.values[at]);
        list[count] = {reader.bits.consumed * 256 + fixedBits, error, static_cast<uint16_t>(count), MODE_RESIDUE};
        count++;
        if (error == 0) break;
    }
    return count;
}

} // namespace vorn
