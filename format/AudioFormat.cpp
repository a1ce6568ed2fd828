// AudioFormat.cpp - the tables of the coded sound, and what a track's rate, channels and variant fix.
#include "format/AudioFormat.h"

namespace vorn {

// clang-format off
const uint32_t BAND_FREQUENCIES[MAX_BANDS] = {
       0,  100,  200,  300,  400,  510,  630,  770,  920,  1080,  1270,  1480, 1720,
    2000, 2320, 2700, 3150, 3700, 4400, 5300, 6400, 7700, 9500, 12000, 15500,
};

const uint8_t GROUP_RUNS[RUN_CODES] = {
    2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 32, 64, // there is no row for 7
};
// clang-format on

uint32_t BaseTransformSize(uint32_t sampleRate) {
    if (sampleRate >= 44100) return 2048;
    if (sampleRate >= 22050) return 1024;
    return 512;
}

AudioShape ShapeOfAudio(uint32_t sampleRate, uint32_t channels, bool perChannelDct) {
    AudioShape shape = {};
    const uint32_t base = BaseTransformSize(sampleRate);
    shape.blockBytes = base * channels * 2;
    shape.overlapBytes = shape.blockBytes / OVERLAP_PARTS;
    shape.transformSize = perChannelDct ? base : base * channels;
    shape.transformCount = perChannelDct ? channels : 1;

    const uint32_t rate = perChannelDct ? sampleRate : sampleRate * channels;
    const uint32_t lines = shape.transformSize / 2;
    shape.half = (rate + 1) / 2;
    while (shape.bandCount < MAX_BANDS && BAND_FREQUENCIES[shape.bandCount] < shape.half) {
        shape.bandEdges[shape.bandCount] = BAND_FREQUENCIES[shape.bandCount] * lines / shape.half;
        shape.bandCount++;
    }
    shape.bandEdges[shape.bandCount] = lines;
    return shape;
}

} // namespace vorn
