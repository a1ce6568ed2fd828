// AudioFormat.h - numbers of the coded sound: transform sizes, band edges, the run table of coefficient groups.
#pragma once

#include <cstdint>

namespace vorn {

constexpr uint32_t MAX_TRANSFORM = 4096;
constexpr uint32_t MAX_BANDS = 25;
constexpr uint32_t GROUP_COEFFICIENTS = 8;
constexpr uint32_t OVERLAP_PARTS = 16;        // neighbouring blocks share 1/16
constexpr uint32_t PACKED_FLOAT_BITS = 29;    // exponent 5, mantissa 23, sign 1
constexpr uint32_t STEP_INDEX_BITS = 8;
constexpr uint32_t RUN_CODES = 16;
constexpr double STEP_EXPONENT = 0.0664;      // step index i stands for a step of 10^(0.0664 * i)

extern const uint32_t BAND_FREQUENCIES[MAX_BANDS]; // hertz, lower edges of the critical bands
extern const uint8_t GROUP_RUNS[RUN_CODES];        // groups of 8 that a run code covers

// Samples of one channel in a block.
uint32_t BaseTransformSize(uint32_t sampleRate);

// What a track's rate, channels and variant fix.
struct AudioShape {
    uint32_t transformSize;   // N: the base size; times the channels in the DFT variant
    uint32_t transformCount;  // transforms a block: the channels in the DCT variant, else 1
    uint32_t blockBytes;      // PCM bytes of a block, all channels
    uint32_t overlapBytes;
    uint32_t half;            // hertz that coefficient N would stand at
    uint32_t bandCount;
    uint32_t bandEdges[MAX_BANDS + 1]; // lines (pairs of coefficients); the first bandCount + 1 are set
};
AudioShape ShapeOfAudio(uint32_t sampleRate, uint32_t channels, bool perChannelDct);

} // namespace vorn
