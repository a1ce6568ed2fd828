// PixelOps.cpp - copies of blocks, and the plain versions of the pixel operations, which are the definition.
#include "blocks/PixelOps.h"

#include <algorithm>
#include <cstring>

namespace vorn {

namespace {

constexpr int SHORT_SORT = 16; // up to here moving bytes beats counting them

inline uint32_t Distance(int a, int b) {
    return static_cast<uint32_t>(a < b ? b - a : a - b);
}

void SortShort(uint8_t* bytes, int count) {
    for (int i = 1; i < count; i++) {
        const uint8_t value = bytes[i];
        int at = i;
        for (; at > 0 && bytes[at - 1] > value; at--) bytes[at] = bytes[at - 1];
        bytes[at] = value;
    }
}

// Counts every value, then writes those that occur in rising order.
void SortByCounting(uint8_t* bytes, int count) {
    uint32_t tally[256] = {};
    uint64_t present[4] = {}; // bit v of the 256 is set if value v occurs
    for (int i = 0; i < count; i++) {
        const unsigned value = bytes[i];
        tally[value]++;
        present[value >> 6] |= uint64_t(1) << (value & 63);
    }
    uint8_t* out = bytes;
    for (int word = 0; word < 4; word++) {
        for (uint64_t left = present[word]; left != 0; left &= left - 1) {
            const int value = word * 64 + __builtin_ctzll(left);
            std::memset(out, value, tally[value]);
            out += tally[value];
        }
    }
}

} // namespace

void LoadBlock(uint8_t* block, const uint8_t* plane, int pitch) {
    for (int row = 0; row < BLOCK_SIDE; row++) std::memcpy(block + row * BLOCK_SIDE, plane + row * pitch, BLOCK_SIDE);
}

void StoreBlock(uint8_t* plane, const uint8_t* block, int pitch) {
    for (int row = 0; row < BLOCK_SIDE; row++) std::memcpy(plane + row * pitch, block + row * BLOCK_SIDE, BLOCK_SIDE);
}

void DiffBlockPlain(uint8_t* out, const uint8_t* a, const uint8_t* b, int pitchIn, int pitchOut) {
    for (int row = 0; row < BLOCK_SIDE; row++) {
        const uint8_t* rowA = a + row * pitchIn;
        const uint8_t* rowB = b + row * pitchIn;
        uint8_t* rowOut = out + row * pitchOut;
        for (int column = 0; column < BLOCK_SIDE; column++)
            rowOut[column] = static_cast<uint8_t>(rowA[column] - rowB[column]);
    }
}

void AddBlockPlain(uint8_t* out, const uint8_t* a, const uint8_t* b) {
    for (int i = 0; i < BLOCK_SAMPLES; i++) out[i] = static_cast<uint8_t>(a[i] + b[i]);
}

uint32_t SadColourPlain(const uint8_t* block, int samples, int colour) {
    uint32_t sum = 0;
    for (int i = 0; i < samples; i++) sum += Distance(block[i], colour);
    return sum;
}

uint32_t SadSamplesPlain(const uint8_t* a, const uint8_t* b, uint32_t samples) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < samples; i++) sum += Distance(a[i], b[i]);
    return sum;
}

uint32_t SadDoubledPlain(const uint8_t* half, const uint8_t* high) {
    uint8_t doubled[HIGH_SAMPLES];
    DoubleBlockPlain(doubled, half, HIGH_SIDE);
    return SadSamplesPlain(doubled, high, HIGH_SAMPLES);
}

void SortBytesPlain(uint8_t* bytes, int count) {
    if (count <= SHORT_SORT)
        SortShort(bytes, count);
    else
        SortByCounting(bytes, count);
}

int HighMedianPlain(const uint8_t* high) {
    uint8_t sorted[HIGH_SAMPLES];
    std::memcpy(sorted, high, HIGH_SAMPLES);
    SortBytesPlain(sorted, HIGH_SAMPLES);
    return (sorted[HIGH_SAMPLES / 2 - 1] + sorted[HIGH_SAMPLES / 2]) >> 1;
}

void DoubleBlockPlain(uint8_t* plane, const uint8_t* block, int pitch) {
    for (int row = 0; row < HIGH_SIDE; row++) {
        const uint8_t* from = block + row / 2 * BLOCK_SIDE;
        uint8_t* to = plane + row * pitch;
        for (int column = 0; column < HIGH_SIDE; column++) to[column] = from[column / 2];
    }
}

void HalveBlockPlain(uint8_t* out, const uint8_t* plane, int width, int height, int pitch) {
    for (int row = 0; row + 1 < height; row += 2) {
        const uint8_t* above = plane + row * pitch;
        const uint8_t* below = above + pitch;
        for (int column = 0; column + 1 < width; column += 2) {
            const uint8_t a = above[column];
            const uint8_t b = above[column + 1];
            const uint8_t c = below[column];
            const uint8_t d = below[column + 1];
            // The two middle values of the four: of each diagonal's lower ends the upper one, and the reverse.
            const int low = std::max(std::min(a, d), std::min(b, c));
            const int high = std::min(std::max(a, d), std::max(b, c));
            *out++ = static_cast<uint8_t>((low + high) >> 1);
        }
    }
}

void MapToColoursPlain(uint8_t* mapped, const uint8_t* block, int low, int high) {
    for (int i = 0; i < BLOCK_SAMPLES; i++)
        mapped[i] = static_cast<uint8_t>(IsNearerLow(low, high, block[i]) ? low : high);
}

} // namespace vorn
