// ShownBlocks.h - what a way of coding a block shows and costs, anew from its mode and payload alone.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

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

// What one entry shows and costs, without the block's overhead.
struct Shown {
    uint8_t block[64];
    uint32_t bits;
};

inline uint32_t DctBits(const int16_t* quantised) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof(room));
    WriteCoefficients(&writer, quantised);
    return (BitsWritten(&writer) + 4) * 256;
}

inline void ShowRuns(Shown* shown, const uint8_t* src, int payload, const CostModel& costs) {
    uint8_t sequence[64];
    ScanBlock(sequence, src, payload >> 8);
    SmoothRuns(sequence, sequence, payload & 255, nullptr, nullptr, nullptr);
    UnscanBlock(shown->block, sequence, payload >> 8);
    shown->bits = 1024;
    int at = 0;
    while (at < 63) {
        const RunSegment segment = NextRunSegment(sequence, at);
        const int colours = segment.flat ? 1 : segment.length;
        shown->bits += costs.runBits + 256 + static_cast<uint32_t>(colours) * costs.colourBits;
        at += segment.length;
    }
    if (at == 63) shown->bits += costs.colourBits;
}

inline void ShowResidue(Shown* shown, const int8_t* residual, const uint8_t* moved, int payload,
                        const CostModel& costs) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    int8_t values[64];
    BitWriter writer;
    BitReader reader;
    StartWriter(&writer, room, sizeof(room));
    WriteResidue(&writer, residual);
    PadToWord(&writer);
    StartReader(&reader, room, static_cast<uint32_t>(writer.position - room));
    ReadResidue(values, &reader, static_cast<uint32_t>(payload));
    for (int i = 0; i < 64; i++) shown->block[i] = static_cast<uint8_t>(moved[i] + values[i]);
    shown->bits = (reader.consumed + 7) * 256 + costs.motionBits;
}

// `src` is the block, or the half-scale block; `same` and `moved` are null where the mode can't be.
inline Shown Show(int mode, int payload, const uint8_t* src, const uint8_t* same, const uint8_t* moved,
                  const CostModel& costs) {
    Shown shown = {};
    int16_t quantised[64];
    int32_t coefficients[64];
    int8_t residual[64] = {};
    for (int i = 0; i < 64 && moved != nullptr; i++) residual[i] = static_cast<int8_t>(src[i] - moved[i]);
    switch (mode) {
    case MODE_SKIP:
        std::memcpy(shown.block, same, 64);
        break;
    case MODE_MOTION:
        std::memcpy(shown.block, moved, 64);
        shown.bits = costs.motionBits;
        break;
    case MODE_RUN:
        ShowRuns(&shown, src, payload, costs);
        break;
    case MODE_RESIDUE:
        ShowResidue(&shown, residual, moved, payload, costs);
        break;
    case MODE_INTRA:
        ForwardTransform(coefficients, src);
        QuantiseIntra(quantised, coefficients, payload);
        InverseIntra(shown.block, 8, quantised, payload);
        shown.bits = DctBits(quantised) + costs.intraDcBits;
        break;
    case MODE_FILL:
        std::memset(shown.block, payload, 64);
        shown.bits = costs.colourBits;
        break;
    case MODE_INTER:
        ForwardTransformSigned(coefficients, residual);
        QuantiseInter(quantised, coefficients, payload);
        InverseInter(shown.block, 8, quantised, payload);
        for (int i = 0; i < 64; i++) shown.block[i] = static_cast<uint8_t>(shown.block[i] + moved[i]);
        shown.bits = DctBits(quantised) + costs.interDcBits + costs.motionBits;
        break;
    case MODE_PATTERN:
        for (int i = 0; i < 64; i++) {
            const int low = payload & 255;
            const int high = payload >> 8;
            const bool isLow = std::abs(low - src[i]) < std::abs(high - src[i]);
            shown.block[i] = static_cast<uint8_t>(isLow ? low : high);
        }
        shown.bits = costs.patternBits + 2 * costs.colourBits;
        break;
    case MODE_RAW:
        std::memcpy(shown.block, src, 64);
        shown.bits = 64 * costs.colourBits;
        break;
    default:
        ADD_FAILURE() << "mode " << mode;
    }
    return shown;
}

// The error of a block, and of one at half scale on all 256 samples of a plane's area; here by each sample's own place.
inline uint32_t ErrorOf(const Shown& shown, const uint8_t* src) {
    int error = 0;
    for (int i = 0; i < 64; i++) error += std::abs(shown.block[i] - src[i]);
    return static_cast<uint32_t>(error);
}
inline uint32_t HighErrorOf(const Shown& shown, const uint8_t* high, int pitch) {
    int error = 0;
    for (int i = 0; i < 256; i++)
        error += std::abs(shown.block[i / 32 * 8 + i % 16 / 2] - high[i / 16 * pitch + i % 16]);
    return static_cast<uint32_t>(error);
}

} // namespace vorn
