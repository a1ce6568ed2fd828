// ColourConversionTest.cpp - a slow formula over random pictures of all sizes at every level.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "movie/Movie.h"
#include "platform/CpuLevel.h"

using namespace vorn;

namespace {

uint32_t Rounded(uint32_t samples) {
    return (samples + 7) / 8 * 8;
}

struct Picture {
    uint32_t width, height, pitch;
    std::vector<uint8_t> pixels;

    Picture(uint32_t w, uint32_t h, uint32_t extra)
        : width(w), height(h), pitch(w * 4 + extra), pixels(size_t{pitch} * h) {}
    // A position beyond the picture proper takes the nearest sample inside it.
    int At(uint32_t x, uint32_t y, uint32_t byte) const {
        return pixels[size_t{std::min(y, height - 1)} * pitch + std::min(x, width - 1) * 4 + byte];
    }
};

struct Planes {
    std::vector<uint8_t> y, cr, cb, alpha;
    bool operator==(const Planes&) const = default;
};

// Planes end in a guard that conversion must leave alone.
const std::vector<uint8_t> GUARD(16, 0xee);

Planes Convert(const Picture& picture) {
    const size_t luma = size_t{Rounded(picture.width)} * Rounded(picture.height) + GUARD.size();
    const size_t chroma = size_t{Rounded((picture.width + 1) / 2)} * Rounded((picture.height + 1) / 2) + GUARD.size();
    const auto plane = [](size_t bytes) { return std::vector<uint8_t>(bytes, GUARD[0]); };
    Planes planes = {plane(luma), plane(chroma), plane(chroma), plane(luma)};
    ConvertFrame(planes.y.data(), planes.cr.data(), planes.cb.data(), planes.alpha.data(), picture.pixels.data(),
                 picture.pitch, picture.width, picture.height);
    return planes;
}

// Sample by sample.
Planes SlowConvert(const Picture& picture) {
    Planes planes;
    for (uint32_t y = 0; y < Rounded(picture.height); y++) {
        for (uint32_t x = 0; x < Rounded(picture.width); x++) {
            const int sum = 263 * picture.At(x, y, 2) + 516 * picture.At(x, y, 1) + 100 * picture.At(x, y, 0);
            planes.y.push_back(static_cast<uint8_t>(sum / 1024 + 16));
            planes.alpha.push_back(static_cast<uint8_t>(picture.At(x, y, 3)));
        }
    }
    const uint32_t chromaWidth = (picture.width + 1) / 2, chromaHeight = (picture.height + 1) / 2;
    for (uint32_t row = 0; row < Rounded(chromaHeight); row++) {
        for (uint32_t column = 0; column < Rounded(chromaWidth); column++) {
            const uint32_t x = 2 * std::min(column, chromaWidth - 1), y = 2 * std::min(row, chromaHeight - 1);
            int sum[3] = {};
            for (uint32_t i = 0; i < 12; i++) sum[i % 3] += picture.At(x + i / 3 % 2, y + i / 6, i % 3);
            planes.cr.push_back(static_cast<uint8_t>((450 * sum[2] - 377 * sum[1] - 73 * sum[0]) / 4096 + 128));
            planes.cb.push_back(static_cast<uint8_t>((450 * sum[0] - 298 * sum[1] - 152 * sum[2]) / 4096 + 128));
        }
    }
    for (auto* plane : {&planes.y, &planes.cr, &planes.cb, &planes.alpha}) {
        plane->insert(plane->end(), GUARD.begin(), GUARD.end());
    }
    return planes;
}

} // namespace

TEST(ColourConversion, EqualsSlowFormula) {
    std::mt19937 random(11);
    for (const uint32_t width : {1u, 2u, 5u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 63u, 64u, 65u, 100u}) {
        for (const uint32_t height : {1u, 2u, 5u, 7u, 8u, 9u, 16u}) {
            Picture picture(width, height, width % 3 * 5);
            const bool extremes = random() % 2 != 0;
            for (uint8_t& byte : picture.pixels) {
                byte = static_cast<uint8_t>(extremes ? (random() % 2) * 255 : random());
            }
            const Planes slow = SlowConvert(picture);
            for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
                UseLevel(static_cast<CpuLevel>(level));
                EXPECT_TRUE(Convert(picture) == slow) << width << "x" << height << " level " << level;
            }
        }
    }
    UseLevel(BestCpuLevel());
}
