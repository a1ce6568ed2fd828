// PatternCandidates.cpp - which two colours show a block best?
#include <cstring>

#include "analysis/Evaluators.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

constexpr int NO_ERROR_YET = 0x7ffffff; // above every error

// A split of the sorted samples: the lower group s[0 .. at-1] is shown as `low`, the upper s[at .. 63] as `high`.
struct Split {
    int at;
    int lowIndex;  // s[lowIndex] <= low <= s[lowIndex + 1], as far as the group goes
    int highIndex; // likewise for high
    int low;
    int high;
};

// High is the median of its group. Low is not quite: of an even group it is the upper of the two middle samples, of an
// odd one the mean of the middle sample and the one behind it, which at position 1 belongs to the upper group.
Split MakeSplit(const uint8_t* s, int at) {
    Split split = {at, at / 2, at + (BLOCK_SAMPLES - 1 - at) / 2, 0, 0};
    if (at % 2 != 0) {
        split.low = (s[split.lowIndex] + s[split.lowIndex + 1]) >> 1;
        split.high = s[split.highIndex];
    } else {
        split.low = s[split.lowIndex];
        split.high = (s[split.highIndex] + s[split.highIndex + 1]) >> 1;
    }
    return split;
}

// The sum of |colour - s[j]| for j from `begin` to `end` - 1, if s rises and crosses `colour` behind s[middle]; `sums[i]`
// is the sum of the first i samples.
int GroupError(const int* sums, int begin, int middle, int end, int colour) {
    const int below = colour * (middle + 1 - begin) - (sums[middle + 1] - sums[begin]);
    const int above = (sums[end] - sums[middle + 1]) - colour * (end - middle - 1);
    return below + above;
}

int SplitError(const int* sums, const Split& split) {
    return GroupError(sums, 0, split.lowIndex, split.at, split.low) +
           GroupError(sums, split.at, split.highIndex, BLOCK_SAMPLES, split.high);
}

void MapToPair(uint8_t* mapped, const uint8_t* block, int low, int high) {
    for (int i = 0; i < BLOCK_SAMPLES; i++)
        mapped[i] = static_cast<uint8_t>(IsNearerLow(low, high, block[i]) ? low : high);
}

// The candidate of an 8x8 block, or of a half-scale block if `high16` is given. Its error is that of the block as shown:
// each sample goes to the nearer colour, whatever side of the split it was on.
int ListPattern(BlockCandidate* list, const uint8_t* sorted, const uint8_t* block, const uint8_t* high16,
                uint32_t colourBits, uint32_t patternBits) {
    int low = 0;
    int high = 0;
    if (!FindColourPair(sorted, &low, &high)) return 0;
    uint8_t mapped[BLOCK_SAMPLES];
    MapToPair(mapped, block, low, high);
    const uint32_t error = high16 == nullptr ? SadBlock(block, mapped) : SadHighBlock(mapped, high16);
    list[0] = {patternBits + 2 * colourBits, error, static_cast<uint16_t>(high * 256 + low), MODE_PATTERN};
    return 1;
}

} // namespace

// Running sums give each split's error in a few steps. A split that repeats the pair before it is passed over, though
// its own error may differ; among equal errors the lowest split stands.
bool FindColourPair(const uint8_t* sorted, int* low, int* high) {
    if (sorted[0] == sorted[BLOCK_SAMPLES - 1]) return false;
    int sums[BLOCK_SAMPLES + 1];
    sums[0] = 0;
    for (int i = 0; i < BLOCK_SAMPLES; i++) sums[i + 1] = sums[i] + sorted[i];

    int best = NO_ERROR_YET;
    int previousLow = -1;
    int previousHigh = -1;
    for (int at = 1; at < BLOCK_SAMPLES && best != 0; at++) {
        if (sorted[at] == sorted[at - 1]) continue;
        const Split split = MakeSplit(sorted, at);
        if (split.low == previousLow && split.high == previousHigh) continue;
        previousLow = split.low;
        previousHigh = split.high;
        const int error = SplitError(sums, split);
        if (error >= best) continue;
        best = error;
        *low = split.low;
        *high = split.high;
    }
    return true;
}

int PatternCandidates(BlockCandidate* list, const uint8_t* sorted, const uint8_t* src, uint32_t colourBits,
                      uint32_t patternBits) {
    return ListPattern(list, sorted, src, nullptr, colourBits, patternBits);
}

int HighPatternCandidates(BlockCandidate* list, const uint8_t* high, const uint8_t* half, uint32_t colourBits,
                          uint32_t patternBits) {
    uint8_t sorted[BLOCK_SAMPLES];
    std::memcpy(sorted, half, BLOCK_SAMPLES);
    SortBytes(sorted, BLOCK_SAMPLES);
    return ListPattern(list, sorted, half, high, colourBits, patternBits);
}

} // namespace vorn
