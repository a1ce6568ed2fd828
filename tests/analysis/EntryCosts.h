// EntryCosts.h - what a way of coding a block costs, anew from its mode and payload alone.
#pragma once

#include <gtest/gtest.h>

#include "bitstream/CoefficientCoder.h"
#include "bitstream/Transforms.h"
#include "blocks/BlockRecord.h"
#include "blocks/Runs.h"
#include "public/vornmake.h"

namespace vorn {

inline CostModel MakeCosts() {
    CostModel costs = {};
    costs.typeBits = 700;
    costs.subTypeBits = 450;
    costs.colourBits = 1500;
    costs.patternBits = 9000;
    costs.motionBits = 2100;
    costs.intraDcBits = 1900;
    costs.interDcBits = 1300;
    costs.runBits = 800;
    return costs;
}

inline uint32_t DctBits(const int16_t* quantised) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof(room));
    WriteCoefficients(&writer, quantised);
    return (BitsWritten(&writer) + 4) * 256;
}

inline uint32_t RunBits(const uint8_t* src, int payload, const CostModel& costs) {
    uint8_t sequence[64];
    ScanBlock(sequence, src, payload >> 8);
    SmoothRuns(sequence, sequence, payload & 255, nullptr, nullptr, nullptr);
    uint32_t bits = 1024;
    int at = 0;
    while (at < 63) {
        const RunSegment segment = NextRunSegment(sequence, at);
        const int colours = segment.flat ? 1 : segment.length;
        bits += costs.runBits + 256 + static_cast<uint32_t>(colours) * costs.colourBits;
        at += segment.length;
    }
    return at == 63 ? bits + costs.colourBits : bits;
}

inline uint32_t ResidueBits(const int8_t* residual, int payload) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    int8_t values[64];
    BitWriter writer;
    BitReader reader;
    StartWriter(&writer, room, sizeof(room));
    WriteResidue(&writer, residual);
    PadToWord(&writer);
    StartReader(&reader, room, static_cast<uint32_t>(writer.position - room));
    ReadResidue(values, &reader, static_cast<uint32_t>(payload));
    return (reader.consumed + 7) * 256;
}

// An entry's bits without the block's overhead. `src` is the block, or the half-scale block; `moved` may be null for modes
// that don't look at it.
inline uint32_t CostOf(int mode, int payload, const uint8_t* src, const uint8_t* moved, const CostModel& costs) {
    int16_t quantised[64];
    int32_t coefficients[64];
    int8_t residual[64] = {};
    for (int i = 0; i < 64 && moved != nullptr; i++) residual[i] = static_cast<int8_t>(src[i] - moved[i]);
    switch (mode) {
    case MODE_SKIP:
        return 0;
    case MODE_MOTION:
        return costs.motionBits;
    case MODE_RUN:
        return RunBits(src, payload, costs);
    case MODE_RESIDUE:
        return ResidueBits(residual, payload) + costs.motionBits;
    case MODE_INTRA:
        ForwardTransform(coefficients, src);
        QuantiseIntra(quantised, coefficients, payload);
        return DctBits(quantised) + costs.intraDcBits;
    case MODE_FILL:
        return costs.colourBits;
    case MODE_INTER:
        ForwardTransformSigned(coefficients, residual);
        QuantiseInter(quantised, coefficients, payload);
        return DctBits(quantised) + costs.interDcBits + costs.motionBits;
    case MODE_PATTERN:
        return costs.patternBits + 2 * costs.colourBits;
    case MODE_RAW:
        return 64 * costs.colourBits;
    default:
        ADD_FAILURE() << "mode " << mode;
        return 0;
    }
}

} // namespace vorn
