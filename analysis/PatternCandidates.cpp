// PatternCandidates.cpp - which two colours show a block best?
#include <cstring>

#include "analysis/Evaluators.h"
#include "blocks/PixelOps.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

#if defined(__SSE2__)

constexpr int LANES = 8;             // splits at once
constexpr int16_t NO_SPLIT = 0x7fff; // above every error

inline __m128i Load(const void* at) {
    return _mm_loadu_si128(static_cast<const __m128i*>(at));
}
inline void Store(void* at, __m128i v) {
    _mm_storeu_si128(static_cast<__m128i*>(at), v);
}
inline __m128i LoadSamples(const uint8_t* samples) {
    return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(samples)), _mm_setzero_si128());
}

// sums[i] = the sum of the first i samples, for i from 0 to 64.
void SumUp(uint16_t* sums, const uint8_t* sorted) {
    sums[0] = 0;
    __m128i before = _mm_setzero_si128();
    for (int i = 0; i < BLOCK_SAMPLES; i += LANES) {
        __m128i v = LoadSamples(sorted + i);
        v = _mm_add_epi16(v, _mm_slli_si128(v, 2));
        v = _mm_add_epi16(v, _mm_slli_si128(v, 4));
        v = _mm_add_epi16(v, _mm_slli_si128(v, 8));
        v = _mm_add_epi16(v, before);
        Store(sums + 1 + i, v);
        before = _mm_shuffle_epi32(_mm_shufflehi_epi16(v, 0xff), 0xff);
    }
}

// Errors of the 16 splits from position `first` on. With S for sums, s for samples and the split at 2m or 2m + 1, the sums of
// |colour - s| on both sides of both colours come to
//   S[64] + 2 (S[2m] - S[m] - S[m+32])                                        at 2m,
//   S[64] + 2 (S[2m+1] - S[m+1] - S[m+33]) + (s[m] + s[m+1]) / 2 + s[m+32]    at 2m + 1.
// Errors fit 16 bits, so what wraps on the way doesn't matter.
inline void MeasureSplits(int16_t* errors, const uint16_t* sums, const uint8_t* sorted, int first) {
    const int m = first / 2;
    const __m128i x = Load(sums + first);
    const __m128i y = Load(sums + first + LANES);
    const __m128i low16 = _mm_set1_epi32(0xffff);
    const __m128i atEven = _mm_packs_epi32(_mm_and_si128(x, low16), _mm_and_si128(y, low16));
    const __m128i atOdd = _mm_packs_epi32(_mm_srli_epi32(x, 16), _mm_srli_epi32(y, 16));
    const __m128i all = _mm_set1_epi16(static_cast<short>(sums[BLOCK_SAMPLES]));
    const __m128i halfEven = _mm_sub_epi16(atEven, _mm_add_epi16(Load(sums + m), Load(sums + m + 32)));
    const __m128i halfOdd = _mm_sub_epi16(atOdd, _mm_add_epi16(Load(sums + m + 1), Load(sums + m + 33)));
    const __m128i low = _mm_srli_epi16(_mm_add_epi16(LoadSamples(sorted + m), LoadSamples(sorted + m + 1)), 1);
    const __m128i high = LoadSamples(sorted + m + 32);
    const __m128i even = _mm_add_epi16(all, _mm_slli_epi16(halfEven, 1));
    const __m128i odd = _mm_add_epi16(_mm_add_epi16(all, _mm_slli_epi16(halfOdd, 1)), _mm_add_epi16(low, high));
    Store(errors + first, _mm_unpacklo_epi16(even, odd));
    Store(errors + first + LANES, _mm_unpackhi_epi16(even, odd));
}

// Where a sample equals the one before it there is no split; nor is there at position 0.
inline void StrikeOutRepeats(int16_t* errors, const uint8_t* sorted) {
    __m128i before = _mm_slli_si128(Load(sorted), 1);
    for (int i = 0; i < BLOCK_SAMPLES; i += 2 * LANES) {
        if (i > 0) before = Load(sorted + i - 1);
        const __m128i repeats = _mm_cmpeq_epi8(before, Load(sorted + i));
        const __m128i low = _mm_srli_epi16(_mm_unpacklo_epi8(repeats, repeats), 1);
        const __m128i high = _mm_srli_epi16(_mm_unpackhi_epi8(repeats, repeats), 1);
        Store(errors + i, _mm_or_si128(Load(errors + i), low));
        Store(errors + i + LANES, _mm_or_si128(Load(errors + i + LANES), high));
    }
    errors[0] = NO_SPLIT;
}

// The lowest position of the least error.
inline int LeastError(const int16_t* errors) {
    __m128i least = Load(errors);
    for (int i = LANES; i < BLOCK_SAMPLES; i += LANES) least = _mm_min_epi16(least, Load(errors + i));
    least = _mm_min_epi16(least, _mm_srli_si128(least, 8));
    least = _mm_min_epi16(least, _mm_srli_si128(least, 4));
    least = _mm_min_epi16(least, _mm_srli_si128(least, 2));
    const __m128i wanted = _mm_set1_epi16(static_cast<short>(_mm_extract_epi16(least, 0)));
    uint64_t found = 0;
    for (int i = 0; i < BLOCK_SAMPLES; i += 2 * LANES) {
        const __m128i low = _mm_cmpeq_epi16(Load(errors + i), wanted);
        const __m128i high = _mm_cmpeq_epi16(Load(errors + i + LANES), wanted);
        found |= uint64_t(static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(low, high)))) << i;
    }
    return __builtin_ctzll(found);
}

// The pair of the split at `at` is that of the split before it.
inline bool RepeatsPair(const uint8_t* sorted, const Split& split) {
    int at = split.at - 1;
    while (at > 0 && sorted[at] == sorted[at - 1]) at--;
    if (at == 0) return false;
    const Split before = MakeSplit(sorted, at);
    return before.low == split.low && before.high == split.high;
}

#endif

// The candidate of an 8x8 block, or of a half-scale block if `high16` is given. Its error is that of the block as shown:
// each sample goes to the nearer colour, whatever side of the split it was on.
int ListPattern(BlockCandidate* list, const uint8_t* sorted, const uint8_t* block, const uint8_t* high16,
                uint32_t colourBits, uint32_t patternBits) {
    int low = 0;
    int high = 0;
    if (!FindColourPair(sorted, &low, &high)) return 0;
    uint8_t mapped[BLOCK_SAMPLES];
    MapToColours(mapped, block, low, high);
    const uint32_t error = high16 == nullptr ? SadBlock(block, mapped) : SadHighBlock(mapped, high16);
    list[0] = {patternBits + 2 * colourBits, error, static_cast<uint16_t>(high * 256 + low), MODE_PATTERN};
    return 1;
}

} // namespace

// Running sums give each split's error in a few steps. A split that repeats the pair before it is passed over, though
// its own error may differ; among equal errors the lowest split stands.
bool FindColourPairPlain(const uint8_t* sorted, int* low, int* high) {
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

#if defined(__SSE2__)

// All splits are measured at once. Those that repeat the pair before them are struck out when they come out best; the first
// split doesn't, so one is left.
bool FindColourPair(const uint8_t* sorted, int* low, int* high) {
    if (sorted[0] == sorted[BLOCK_SAMPLES - 1]) return false;
    uint16_t sums[BLOCK_SAMPLES + 1];
    int16_t errors[BLOCK_SAMPLES];
    SumUp(sums, sorted);
    for (int first = 0; first < BLOCK_SAMPLES; first += 2 * LANES) MeasureSplits(errors, sums, sorted, first);
    StrikeOutRepeats(errors, sorted);
    for (;;) {
        const Split split = MakeSplit(sorted, LeastError(errors));
        if (RepeatsPair(sorted, split)) {
            errors[split.at] = NO_SPLIT;
            continue;
        }
        *low = split.low;
        *high = split.high;
        return true;
    }
}

#else

bool FindColourPair(const uint8_t* sorted, int* low, int* high) {
    return FindColourPairPlain(sorted, low, high);
}

#endif

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
