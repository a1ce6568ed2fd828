// TestBlocks.h - samples for tests: kinds of content that drive the encoder into different corners, from a fixed seed.
#pragma once

#include <cstdint>

namespace vorn {

// A small generator, so that a seed gives the same content everywhere.
struct Noise {
    uint32_t state;
};
inline uint32_t NextNoise(Noise* noise) {
    noise->state = noise->state * 1664525u + 1013904223u;
    return noise->state >> 8;
}

enum Content { CONTENT_NOISE, CONTENT_FLAT, CONTENT_EXTREMES, CONTENT_SLOPE, CONTENT_SOFT, CONTENT_LEVELS };
constexpr int CONTENTS = 6;

// Fills rows of `width` samples: noise over all values; one value; 0 and 255 only; an even slope; a slope with a little
// noise; three values in patches of four samples.
inline void FillSamples(uint8_t* samples, int width, int height, Content content, Noise* noise) {
    const uint32_t base = NextNoise(noise) % 200;
    const uint32_t across = NextNoise(noise) % 4;
    const uint32_t down = NextNoise(noise) % 4;
    uint32_t patch = base;
    for (int row = 0; row < height; row++) {
        for (int column = 0; column < width; column++) {
            const uint32_t random = NextNoise(noise);
            const uint32_t slope = base + across * static_cast<uint32_t>(column) + down * static_cast<uint32_t>(row);
            if (column % 4 == 0) patch = base + random % 3 * 20;
            uint32_t value = random;
            if (content == CONTENT_FLAT) value = base;
            if (content == CONTENT_EXTREMES) value = random % 2 * 255;
            if (content == CONTENT_SLOPE) value = slope;
            if (content == CONTENT_SOFT) value = slope + random % 5;
            if (content == CONTENT_LEVELS) value = patch;
            samples[row * width + column] = static_cast<uint8_t>(value);
        }
    }
}

} // namespace vorn
