// Clip.h - frames to measure on: a raw clip that the environment names, or a made-up one that is like film.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/CpuLevel.h"

namespace vorn::bench {

struct Clip {
    uint32_t width = 0; // pixels
    uint32_t height = 0;
    uint32_t frames = 0;
    std::vector<uint8_t> pixels; // bytes B, G, R, A, frame after frame
    const uint8_t* Frame(uint32_t number) const { return pixels.data() + std::size_t(number) * width * height * 4; }
};

// VORN_BENCH_CLIP=FILE:WIDTHxHEIGHT names raw pictures, bytes B, G, R, A; else a moving, grainy scene of 320x240.
const Clip& TheClip();

// One luma plane of padded size: a source and a reference, two frames that follow each other.
struct PlanePair {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> source;
    std::vector<uint8_t> reference;
};
const PlanePair& ThePlanes();

// The levels to measure: those of the machine, up to the one that VORNMAKE_KERNELS (plain, sse2, avx2, avx512) names.
std::vector<CpuLevel> Levels();

} // namespace vorn::bench
