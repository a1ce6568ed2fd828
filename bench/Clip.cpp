// Clip.cpp - the frames that are measured on.
#include "bench/Clip.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "movie/Movie.h"

namespace vorn::bench {

namespace {

constexpr uint32_t MADE_FRAMES = 24;

// Soft shapes that drift, with an edge here and there, and grain that is new in every frame.
Clip MakeClip() {
    Clip clip;
    clip.width = 320;
    clip.height = 240;
    clip.frames = MADE_FRAMES;
    clip.pixels.resize(size_t(clip.width) * clip.height * 4 * clip.frames);
    uint32_t noise = 1;
    uint8_t* out = clip.pixels.data();
    for (uint32_t frame = 0; frame < clip.frames; frame++) {
        for (uint32_t y = 0; y < clip.height; y++) {
            for (uint32_t x = 0; x < clip.width; x++, out += 4) {
                noise = noise * 1664525u + 1013904223u;
                const uint32_t grain = noise >> 29;
                const uint32_t moved = x + 2 * frame;
                const uint32_t shape = (moved * moved / 97 + y * y / 61) % 256;
                const uint32_t edge = (moved / 40 + y / 30) % 3 == 0 ? 60 : 0;
                const uint32_t level = std::min(255u, 40 + shape / 2 + edge + grain);
                out[0] = static_cast<uint8_t>(level * 3 / 4);
                out[1] = static_cast<uint8_t>(level);
                out[2] = static_cast<uint8_t>(std::min(255u, level + x / 16));
                out[3] = 255;
            }
        }
    }
    return clip;
}

Clip LoadClip(const char* text) {
    const char* colon = std::strrchr(text, ':');
    Clip clip;
    if (colon == nullptr || std::sscanf(colon + 1, "%ux%u", &clip.width, &clip.height) != 2) {
        std::fprintf(stderr, "VORN_BENCH_CLIP is %s, but must be FILE:WIDTHxHEIGHT\n", text);
        std::exit(2);
    }
    const std::string name(text, colon);
    FILE* file = std::fopen(name.c_str(), "rb");
    if (file == nullptr) {
        std::perror(name.c_str());
        std::exit(1);
    }
    const size_t frameBytes = size_t(clip.width) * clip.height * 4;
    std::vector<uint8_t> frame(frameBytes);
    while (std::fread(frame.data(), 1, frameBytes, file) == frameBytes) {
        clip.pixels.insert(clip.pixels.end(), frame.begin(), frame.end());
        clip.frames++;
    }
    std::fclose(file);
    if (clip.frames < 2) {
        std::fprintf(stderr, "%s holds %u frames, but 2 are needed\n", name.c_str(), clip.frames);
        std::exit(1);
    }
    return clip;
}

PlanePair MakePlanes() {
    const Clip& clip = TheClip();
    PlanePair pair;
    pair.width = (clip.width + 7) / 8 * 8;
    pair.height = (clip.height + 7) / 8 * 8;
    const size_t samples = size_t(pair.width) * pair.height;
    pair.source.resize(samples);
    pair.reference.resize(samples);
    std::vector<uint8_t> cr(samples), cb(samples), alpha(samples);
    const auto convert = [&](uint8_t* plane, uint32_t frame) {
        ConvertFrame(plane, cr.data(), cb.data(), alpha.data(), clip.Frame(frame), clip.width * 4, clip.width,
                     clip.height);
    };
    convert(pair.reference.data(), clip.frames / 2 - 1);
    convert(pair.source.data(), clip.frames / 2);
    return pair;
}

} // namespace

const Clip& TheClip() {
    static const char* const named = std::getenv("VORN_BENCH_CLIP");
    static const Clip clip = named != nullptr ? LoadClip(named) : MakeClip();
    return clip;
}

const PlanePair& ThePlanes() {
    static const PlanePair planes = MakePlanes();
    return planes;
}

std::vector<CpuLevel> Levels() {
    const char* named = std::getenv("VORNMAKE_KERNELS");
    std::vector<CpuLevel> levels;
    for (int i = 0; i <= static_cast<int>(BestCpuLevel()); i++) {
        const CpuLevel level = static_cast<CpuLevel>(i);
        if (named == nullptr || std::strcmp(named, NameOfCpuLevel(level)) == 0) levels.push_back(level);
    }
    if (levels.empty()) {
        std::fprintf(stderr, "VORNMAKE_KERNELS is %s, but must be plain, sse2, avx2 or avx512, as the machine has it\n",
                     named);
        std::exit(2);
    }
    return levels;
}

} // namespace vorn::bench
