// PixelOps.h - operations on packed blocks (64 samples, 8 rows of 8, no gaps) and on planes (rows `pitch` bytes apart).
// Any alignment; output overlaps input only where it says so.
#pragma once

#include <cstdint>

#include "blocks/BlockRecord.h"

namespace vorn {

void LoadBlock(uint8_t* block, const uint8_t* plane, int pitch);
void StoreBlock(uint8_t* plane, const uint8_t* block, int pitch);
// out = (a - b) modulo 256, 8 rows of 8; the result reads as a signed residual.
void DiffBlock(uint8_t* out, const uint8_t* a, const uint8_t* b, int pitchIn, int pitchOut);
// out = (a + b) modulo 256, packed blocks; out may be a or b.
void AddBlock(uint8_t* out, const uint8_t* a, const uint8_t* b);
uint32_t SadBlock(const uint8_t* a, const uint8_t* b);
// SAD of `samples` samples, from 1, against one colour.
uint32_t SadColour(const uint8_t* block, int samples, int colour);
// SAD of any two runs of samples; exact in 32 bits for up to 2^24 of them.
uint32_t SadSamples(const uint8_t* a, const uint8_t* b, uint32_t samples);
// SAD of a packed block, doubled, against the 256 samples of a 16x16 block.
uint32_t SadDoubled(const uint8_t* half, const uint8_t* high);
// Sorts ascending, in place.
void SortBytes(uint8_t* bytes, int count);
// The mean, rounded down, of the two middle ones of a 16x16 block's 256 samples.
int HighMedian(const uint8_t* high);
// Each sample of a packed block fills a 2x2 group of a 16x16 area.
void DoubleBlock(uint8_t* plane, const uint8_t* block, int pitch);
// Halves an area of width x height samples in each direction: each 2x2 group becomes the mean, rounded down, of its two
// middle values. Output without gaps.
void HalveBlock(uint8_t* out, const uint8_t* plane, int width, int height, int pitch);
// Each sample of a packed block becomes the nearer of two colours, as IsNearerLow says.
void MapToColours(uint8_t* mapped, const uint8_t* block, int low, int high);

// The two-colour rule: the sample becomes `low` if it is strictly nearer to it, else `high`.
inline bool IsNearerLow(int low, int high, int sample) {
    const int toLow = low < sample ? sample - low : low - sample;
    const int toHigh = high < sample ? sample - high : high - sample;
    return toLow < toHigh;
}

// The plain versions, which define those above; the same results by one sample at a time.
void DiffBlockPlain(uint8_t* out, const uint8_t* a, const uint8_t* b, int pitchIn, int pitchOut);
void AddBlockPlain(uint8_t* out, const uint8_t* a, const uint8_t* b);
uint32_t SadColourPlain(const uint8_t* block, int samples, int colour);
uint32_t SadSamplesPlain(const uint8_t* a, const uint8_t* b, uint32_t samples);
uint32_t SadDoubledPlain(const uint8_t* half, const uint8_t* high);
void SortBytesPlain(uint8_t* bytes, int count);
int HighMedianPlain(const uint8_t* high);
void DoubleBlockPlain(uint8_t* plane, const uint8_t* block, int pitch);
void HalveBlockPlain(uint8_t* out, const uint8_t* plane, int width, int height, int pitch);
void MapToColoursPlain(uint8_t* mapped, const uint8_t* block, int low, int high);

} // namespace vorn
