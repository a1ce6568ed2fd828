// ColourConversion.cpp - which samples do the caller's pixels give?
// One pass over the source, two rows at a time. Weights of a colour sum, out of 1024 for luma and, for the sum of four
// pixels, out of 4096 for chroma; luma comes out at 16..234, chroma at 16..240, so nothing is clamped.
#include <cstring>

#include "movie/ColourKernels.h"
#include "platform/CpuLevel.h"
#include "movie/Movie.h"

namespace vorn {

namespace {

constexpr uint32_t PIXEL_BYTES = 4; // B, G, R, A

struct ColourSum {
    int red, green, blue;
};

inline void ConvertPixel(const uint8_t* pixel, uint8_t* y, uint8_t* alpha, ColourSum* sum) {
    const int blue = pixel[0], green = pixel[1], red = pixel[2];
    *y = static_cast<uint8_t>((263 * red + 516 * green + 100 * blue) / 1024 + 16);
    *alpha = pixel[3];
    sum->red += red;
    sum->green += green;
    sum->blue += blue;
}

inline void ConvertChroma(const ColourSum& sum, uint8_t* cr, uint8_t* cb) {
    *cr = static_cast<uint8_t>((450 * sum.red - 377 * sum.green - 73 * sum.blue) / 4096 + 128);
    *cb = static_cast<uint8_t>((450 * sum.blue - 298 * sum.green - 152 * sum.red) / 4096 + 128);
}

// From column `first`, an even one, to the last.
void ConvertRest(const RowPair& rows, uint32_t first, uint32_t width) {
    for (uint32_t x = first; x + 1 < width; x += 2) {
        ColourSum sum = {0, 0, 0};
        for (int row = 0; row < 2; row++) {
            const uint8_t* pixel = rows.pixels[row] + x * PIXEL_BYTES;
            ConvertPixel(pixel, rows.y[row] + x, rows.alpha[row] + x, &sum);
            ConvertPixel(pixel + PIXEL_BYTES, rows.y[row] + x + 1, rows.alpha[row] + x + 1, &sum);
        }
        ConvertChroma(sum, rows.cr + x / 2, rows.cb + x / 2);
    }
    if (width % 2 == 0) return;
    // The last column of an odd width counts twice.
    const uint32_t x = width - 1;
    ColourSum sum = {0, 0, 0};
    for (int row = 0; row < 2; row++) {
        ConvertPixel(rows.pixels[row] + x * PIXEL_BYTES, rows.y[row] + x, rows.alpha[row] + x, &sum);
    }
    ConvertChroma({2 * sum.red, 2 * sum.green, 2 * sum.blue}, rows.cr + x / 2, rows.cb + x / 2);
}

// With the twin of the level, as far as it goes.
void ConvertRows(const RowPair& rows, uint32_t width, CpuLevel level) {
    uint32_t done = 0;
#if defined(__x86_64__) || defined(__i386__)
    if (level >= CpuLevel::AVX2)
        done = ConvertColumnsAvx2(&rows, width);
    else if (level == CpuLevel::SSE2)
        done = ConvertColumnsSse2(&rows, width);
#else
    static_cast<void>(level);
#endif
    ConvertRest(rows, done, width);
}

// Repeats the last sample of a row up to the padded width.
void PadRow(uint8_t* row, uint32_t width, uint32_t paddedWidth) {
    std::memset(row + width, row[width - 1], paddedWidth - width);
}

// Repeats the last row of a plane, padding included, down to the padded height.
void PadRows(uint8_t* plane, uint32_t height, uint32_t paddedHeight, size_t paddedWidth) {
    const uint8_t* last = plane + (height - 1) * paddedWidth;
    for (uint32_t y = height; y < paddedHeight; y++) std::memcpy(plane + y * paddedWidth, last, paddedWidth);
}

} // namespace

void ConvertFrame(uint8_t* yPlane, uint8_t* crPlane, uint8_t* cbPlane, uint8_t* alphaPlane, const uint8_t* pixels,
                  uint32_t sourcePitch, uint32_t width, uint32_t height) {
    const uint32_t chromaWidth = (width + 1) / 2, chromaHeight = (height + 1) / 2;
    const uint32_t lumaPitch = RoundToBlocks(width), chromaPitch = RoundToBlocks(chromaWidth);
    const CpuLevel level = LevelInForce();
    for (uint32_t y = 0; y < height; y += 2) {
        const size_t second = y + 1 < height ? y + 1 : y;
        RowPair rows;
        rows.pixels[0] = pixels + size_t{y} * sourcePitch;
        rows.pixels[1] = pixels + second * sourcePitch;
        rows.y[0] = yPlane + size_t{y} * lumaPitch;
        rows.y[1] = yPlane + second * lumaPitch;
        rows.alpha[0] = alphaPlane + size_t{y} * lumaPitch;
        rows.alpha[1] = alphaPlane + second * lumaPitch;
        rows.cr = crPlane + size_t{y / 2} * chromaPitch;
        rows.cb = cbPlane + size_t{y / 2} * chromaPitch;
        ConvertRows(rows, width, level);
        for (int row = 0; row < 2; row++) {
            PadRow(rows.y[row], width, lumaPitch);
            PadRow(rows.alpha[row], width, lumaPitch);
        }
        PadRow(rows.cr, chromaWidth, chromaPitch);
        PadRow(rows.cb, chromaWidth, chromaPitch);
    }
    PadRows(yPlane, height, RoundToBlocks(height), lumaPitch);
    PadRows(alphaPlane, height, RoundToBlocks(height), lumaPitch);
    PadRows(crPlane, chromaHeight, RoundToBlocks(chromaHeight), chromaPitch);
    PadRows(cbPlane, chromaHeight, RoundToBlocks(chromaHeight), chromaPitch);
}

} // namespace vorn
