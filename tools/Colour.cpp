// Colour.cpp - which pixel do the samples of the planes make, and which samples does the encoder make of a pixel?
#include "tools/Colour.h"

#include <algorithm>
#include <cstddef>

namespace vorn {

namespace {

// The two samples between which a pixel lies, and how much of the second is in it, in quarters.
struct Between {
    uint32_t first;
    uint32_t second;
    int quarters;
};

Between FindBetween(Siting siting, uint32_t pixel, uint32_t samples) {
    const int64_t half = pixel / 2;
    const bool odd = pixel % 2 != 0;
    int64_t first = pixel;
    int quarters = 0;
    switch (siting) {
    case Siting::FULL:
        break;
    case Siting::MIDDLE:
        first = odd ? half : half - 1;
        quarters = odd ? 1 : 3;
        break;
    case Siting::FIRST:
        first = half;
        quarters = odd ? 2 : 0;
        break;
    case Siting::SECOND:
        first = odd ? half : half - 1;
        quarters = odd ? 0 : 2;
        break;
    }
    const int64_t last = int64_t(samples) - 1;
    return {static_cast<uint32_t>(std::clamp<int64_t>(first, 0, last)),
            static_cast<uint32_t>(std::clamp<int64_t>(first + 1, 0, last)), quarters};
}

uint32_t SamplesAlong(Siting siting, uint32_t pixels) {
    return siting == Siting::FULL ? pixels : (pixels + 1) / 2;
}

// One row of a chroma plane at full width, less 128, in sixteenths.
void ChromaRow(const uint8_t* plane, uint32_t pitch, Between rows, const std::vector<Between>& columns, int* row) {
    const uint8_t* upper = plane + size_t(rows.first) * pitch;
    const uint8_t* lower = plane + size_t(rows.second) * pitch;
    for (size_t x = 0; x < columns.size(); x++) {
        const Between& c = columns[x];
        const int left = upper[c.first] * (4 - rows.quarters) + lower[c.first] * rows.quarters;
        const int right = upper[c.second] * (4 - rows.quarters) + lower[c.second] * rows.quarters;
        row[x] = left * (4 - c.quarters) + right * c.quarters - 128 * 16;
    }
}

// Weights of BT.601 in 1/65536: luma is stretched by 255 / 219, chroma by 255 / 224.
constexpr int Y_WEIGHT = 76309;
constexpr int RED_CR = 104597;
constexpr int GREEN_CB = 25675;
constexpr int GREEN_CR = 53279;
constexpr int BLUE_CB = 132201;

uint8_t ToByte(int64_t sum) {
    // The sum is in 1/2^20: weights in 1/65536 times chroma in sixteenths.
    return static_cast<uint8_t>(std::clamp<int64_t>((sum + (1 << 19)) >> 20, 0, 255));
}

// Sums of blue, green and red over the 2x2 pixels of a chroma sample; the last column and row stand in beyond the edge.
void SumGroup(const uint8_t* bgra, uint32_t width, uint32_t height, uint32_t cx, uint32_t cy, int sum[3]) {
    sum[0] = sum[1] = sum[2] = 0;
    for (uint32_t i = 0; i < 4; i++) {
        const uint32_t x = std::min(cx * 2 + i % 2, width - 1);
        const uint32_t y = std::min(cy * 2 + i / 2, height - 1);
        const uint8_t* pixel = bgra + (size_t(y) * width + x) * 4;
        for (int c = 0; c < 3; c++) sum[c] += pixel[c];
    }
}

} // namespace

void PlanesToBgra(const PlanarPicture& picture, uint8_t* bgra) {
    const uint32_t width = picture.width;
    const bool colour = picture.cb != nullptr && picture.cr != nullptr;
    std::vector<Between> columns(width);
    for (uint32_t x = 0; x < width; x++)
        columns[x] = FindBetween(picture.layout.across, x, SamplesAlong(picture.layout.across, width));
    std::vector<int> cbRow(width, 0);
    std::vector<int> crRow(width, 0);
    for (uint32_t y = 0; y < picture.height; y++) {
        if (colour) {
            const auto rowsOf = [&](Siting down) { return FindBetween(down, y, SamplesAlong(down, picture.height)); };
            ChromaRow(picture.cb, picture.chromaPitch, rowsOf(picture.layout.downCb), columns, cbRow.data());
            ChromaRow(picture.cr, picture.chromaPitch, rowsOf(picture.layout.downCr), columns, crRow.data());
        }
        const uint8_t* luma = picture.y + size_t(y) * picture.pitch;
        uint8_t* out = bgra + size_t(y) * width * 4;
        for (uint32_t x = 0; x < width; x++, out += 4) {
            const int64_t base = int64_t(luma[x] - 16) * 16 * Y_WEIGHT;
            out[0] = ToByte(base + int64_t(cbRow[x]) * BLUE_CB);
            out[1] = ToByte(base - int64_t(cbRow[x]) * GREEN_CB - int64_t(crRow[x]) * GREEN_CR);
            out[2] = ToByte(base + int64_t(crRow[x]) * RED_CR);
            out[3] = picture.alpha != nullptr ? picture.alpha[size_t(y) * picture.pitch + x] : 255;
        }
    }
}

void BgraToMoviePlanes(const uint8_t* bgra, uint32_t width, uint32_t height, MoviePlanes* planes) {
    const size_t pixels = size_t(width) * height;
    const uint32_t chromaWidth = (width + 1) / 2;
    const uint32_t chromaHeight = (height + 1) / 2;
    planes->y.resize(pixels);
    planes->alpha.resize(pixels);
    planes->cr.resize(size_t(chromaWidth) * chromaHeight);
    planes->cb.resize(planes->cr.size());
    for (size_t i = 0; i < pixels; i++) {
        const uint8_t* pixel = bgra + i * 4;
        planes->y[i] = static_cast<uint8_t>((263 * pixel[2] + 516 * pixel[1] + 100 * pixel[0]) / 1024 + 16);
        planes->alpha[i] = pixel[3];
    }
    for (uint32_t cy = 0; cy < chromaHeight; cy++) {
        for (uint32_t cx = 0; cx < chromaWidth; cx++) {
            int sum[3];
            SumGroup(bgra, width, height, cx, cy, sum);
            const size_t at = size_t(cy) * chromaWidth + cx;
            planes->cr[at] = static_cast<uint8_t>((450 * sum[2] - 377 * sum[1] - 73 * sum[0]) / 4096 + 128);
            planes->cb[at] = static_cast<uint8_t>((450 * sum[0] - 298 * sum[1] - 152 * sum[2]) / 4096 + 128);
        }
    }
}

} // namespace vorn
