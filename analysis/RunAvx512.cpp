// RunAvx512.cpp - the codings of a block in flat runs, with the whole block in one register.
#include <immintrin.h>
#include <string.h>

#include "analysis/RunKernels.h"
#include "analysis/RunSegmentCost.h"
#include "blocks/BlockRecord.h"

namespace vorn {
namespace {

constexpr int LONGEST = 16; // samples of a run

// What holds for all runs of a sequence. "Step" is what ends a run: the range with the next sample in, less one, so that a
// run of any length below it goes on at threshold T if step < T. Steps of a start never fall as the run grows.
struct RunTables {
    alignas(64) uint8_t steps[BLOCK_SAMPLES][LONGEST];   // [start][length - 1]; 255 if the run can't grow at any threshold
    alignas(64) uint8_t medians[LONGEST][BLOCK_SAMPLES]; // [length - 1][start]
    alignas(64) uint8_t zeroSteps[BLOCK_SAMPLES];        // [start]: what ends the run at threshold 0
};

static inline __m512i Numbers() {
    alignas(64) static const uint8_t NUMBERS[64] = {
        0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
        22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
        44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};
    return _mm512_load_si512(NUMBERS);
}

// Each sample's successor; the last is its own.
static inline __m512i Successors(__m512i sequence) {
    const __m512i next = _mm512_add_epi8(Numbers(), _mm512_set1_epi8(1));
    return _mm512_permutexvar_epi8(_mm512_min_epu8(next, _mm512_set1_epi8(63)), sequence);
}

// Roughness of one scan order as eight parts of 64 bits.
static inline __m512i RoughnessParts(__m512i block, int order) {
    const __m512i sequence = _mm512_permutexvar_epi8(_mm512_loadu_si512(SCAN_ORDER[order]), block);
    const __m512i next = Successors(sequence);
    const __m512i step = _mm512_sub_epi8(_mm512_max_epu8(sequence, next), _mm512_min_epu8(sequence, next));
    const __m512i zero = _mm512_setzero_si512();
    return _mm512_add_epi64(_mm512_sad_epu8(step, zero),
                            _mm512_sad_epu8(_mm512_min_epu8(step, _mm512_set1_epi8(1)), zero));
}

// Roughness of four orders: 16 bits each, in rising order. A whole sum is at most 63 * 256.
static inline __m128i FourRoughnesses(__m512i block, int order) {
    const __m512i a = RoughnessParts(block, order);
    const __m512i b = _mm512_slli_epi64(RoughnessParts(block, order + 1), 16);
    const __m512i c = _mm512_slli_epi64(RoughnessParts(block, order + 2), 32);
    const __m512i d = _mm512_slli_epi64(RoughnessParts(block, order + 3), 48);
    const __m512i all = _mm512_or_si512(_mm512_or_si512(a, b), _mm512_or_si512(c, d));
    const __m256i half = _mm256_add_epi16(_mm512_castsi512_si256(all), _mm512_extracti64x4_epi64(all, 1));
    return _mm_add_epi16(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
}

// Adds the two halves of a and of b.
static inline __m128i AddHalves(__m128i a, __m128i b) {
    return _mm_add_epi16(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b));
}

static inline int SmoothestOrder(__m512i block) {
    const __m128i low = _mm_minpos_epu16(AddHalves(FourRoughnesses(block, 0), FourRoughnesses(block, 4)));
    const __m128i high = _mm_minpos_epu16(AddHalves(FourRoughnesses(block, 8), FourRoughnesses(block, 12)));
    const uint32_t first = (uint32_t)_mm_cvtsi128_si32(low); // the sum, and above it the place of the first among equals
    const uint32_t second = (uint32_t)_mm_cvtsi128_si32(high);
    return (int)((second & 0xffff) < (first & 0xffff) ? 8 + (second >> 16) : first >> 16);
}

// Turns sixteen registers of 64 columns into rows of sixteen, within each quarter. Column 4 * i + k comes as lane 16 * k + i, so
// that rows come out in order.
static inline void StoreRows(uint8_t (*rows)[LONGEST], __m512i* r) {
    __m512i t[16];
#pragma GCC unroll 16
    for (int i = 0; i < 8; i++) {
        t[2 * i] = _mm512_unpacklo_epi8(r[i], r[i + 8]);
        t[2 * i + 1] = _mm512_unpackhi_epi8(r[i], r[i + 8]);
    }
#pragma GCC unroll 16
    for (int i = 0; i < 8; i++) {
        r[2 * i] = _mm512_unpacklo_epi8(t[i], t[i + 8]);
        r[2 * i + 1] = _mm512_unpackhi_epi8(t[i], t[i + 8]);
    }
#pragma GCC unroll 16
    for (int i = 0; i < 8; i++) {
        t[2 * i] = _mm512_unpacklo_epi8(r[i], r[i + 8]);
        t[2 * i + 1] = _mm512_unpackhi_epi8(r[i], r[i + 8]);
    }
#pragma GCC unroll 16
    for (int i = 0; i < 8; i++) {
        _mm512_store_si512(rows + 8 * i, _mm512_unpacklo_epi8(t[i], t[i + 8]));
        _mm512_store_si512(rows + 8 * i + 4, _mm512_unpackhi_epi8(t[i], t[i + 8]));
    }
}

static void MakeSteps(RunTables* tables, __m512i sequence) {
    const __m512i one = _mm512_set1_epi8(1);
    const __m512i none = _mm512_set1_epi8(-1);
    // Lane 16 * k + i stands for start 4 * i + k.
    const __m512i numbers = Numbers();
    const __m512i starts = _mm512_or_si512(
        _mm512_and_si512(_mm512_slli_epi16(numbers, 2), _mm512_set1_epi8(60)),
        _mm512_and_si512(_mm512_srli_epi16(numbers, 4), _mm512_set1_epi8(3)));
    __m512i at = starts;
    __m512i low = _mm512_permutexvar_epi8(at, sequence);
    __m512i high = low;
    __m512i zeroStep = none;
    __m512i steps[LONGEST];
#pragma GCC unroll 16
    for (int i = 0; i < LONGEST - 1; i++) {
        at = _mm512_add_epi8(at, one);
        const __m512i sample = _mm512_permutexvar_epi8(at, sequence);
        low = _mm512_min_epu8(low, sample);
        high = _mm512_max_epu8(high, sample);
        const __m512i range = _mm512_sub_epi8(high, low);
        const __mmask64 inside = _mm512_cmplt_epu8_mask(at, _mm512_set1_epi8(BLOCK_SAMPLES));
        steps[i] = _mm512_mask_subs_epu8(none, inside, range, one);
        zeroStep = _mm512_mask_min_epu8(zeroStep, inside, zeroStep, _mm512_sub_epi8(range, one)); // a range of 0 gives 255
    }
    steps[LONGEST - 1] = none;
    StoreRows(tables->steps, steps);
    // Start p stands in lane 16 * (p % 4) + p / 4.
    const __m512i lanes = _mm512_or_si512(
        _mm512_and_si512(_mm512_slli_epi16(numbers, 4), _mm512_set1_epi8(48)),
        _mm512_and_si512(_mm512_srli_epi16(numbers, 2), _mm512_set1_epi8(15)));
    _mm512_store_si512(tables->zeroSteps, _mm512_permutexvar_epi8(lanes, zeroStep));
}

// Medians of all runs: every start's samples are sorted by insertion, one more sample at a time, in one register a rank. Only
// ranks that can still come to the middle are kept: with n samples in, n - 9 .. 8. Those of runs that reach over the end mean
// nothing.
static void MakeMedians(RunTables* tables, __m512i sequence) {
    const __m512i one = _mm512_set1_epi8(1);
    __m512i at = Numbers();
    __m512i ranks[LONGEST];
    ranks[0] = sequence;
    _mm512_store_si512(tables->medians[0], sequence);
#pragma GCC unroll 16
    for (int n = 1; n < LONGEST; n++) {
        at = _mm512_add_epi8(at, one);
        const __m512i sample = _mm512_permutexvar_epi8(at, sequence);
        if (n < 9) ranks[n] = _mm512_max_epu8(ranks[n - 1], sample);
#pragma GCC unroll 16
        for (int k = 8; k > 0; k--) {
            if (k < n && k >= n - 8)
                ranks[k] = _mm512_max_epu8(ranks[k - 1], _mm512_min_epu8(ranks[k], sample));
        }
        if (n < 9) ranks[0] = _mm512_min_epu8(ranks[0], sample);
        __m512i median = ranks[n / 2];
        if (n % 2 != 0) {
            const __m512i upper = ranks[n / 2 + 1];
            const __m512i odd = _mm512_and_si512(_mm512_xor_si512(median, upper), one);
            median = _mm512_sub_epi8(_mm512_avg_epu8(median, upper), odd);
        }
        _mm512_store_si512(tables->medians[n], median);
    }
}

// The 256 samples of a half-scale block's groups, four for each sample of the sequence.
struct Groups {
    __m512i quarters[4];
};

static inline void ScanGroups(Groups* groups, const uint8_t* high, const uint8_t* order) {
    uint32_t inPlace[BLOCK_SAMPLES];
    uint32_t scanned[BLOCK_SAMPLES];
    for (int row = 0; row < 8; row++, high += 32) {
        const __m128i above = _mm_loadu_si128((const __m128i*)high);
        const __m128i below = _mm_loadu_si128((const __m128i*)(high + 16));
        _mm_storeu_si128((__m128i*)(inPlace + 8 * row), _mm_unpacklo_epi16(above, below));
        _mm_storeu_si128((__m128i*)(inPlace + 8 * row + 4), _mm_unpackhi_epi16(above, below));
    }
    for (int i = 0; i < BLOCK_SAMPLES; i++) scanned[i] = inPlace[order[i]];
    for (int i = 0; i < 4; i++) groups->quarters[i] = _mm512_loadu_si512(scanned + 16 * i);
}

static inline uint32_t SumOf(__m512i sums) {
    const __m256i half = _mm256_add_epi64(_mm512_castsi512_si256(sums), _mm512_extracti64x4_epi64(sums, 1));
    const __m128i quarter = _mm_add_epi64(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    return (uint32_t)(_mm_cvtsi128_si32(quarter) + _mm_extract_epi32(quarter, 2));
}

static inline uint32_t ErrorOf(__m512i smooth, __m512i sequence, const Groups* groups) {
    if (groups == nullptr) return SumOf(_mm512_sad_epu8(smooth, sequence));
    __m512i sums = _mm512_setzero_si512();
    // Bytes 0 0 0 0 1 1 1 1 .. of each quarter.
    __m512i places = _mm512_and_si512(_mm512_srli_epi16(Numbers(), 2), _mm512_set1_epi8(15));
    for (int i = 0; i < 4; i++) {
        const __m512i shown = _mm512_permutexvar_epi8(places, smooth);
        sums = _mm512_add_epi64(sums, _mm512_sad_epu8(shown, groups->quarters[i]));
        places = _mm512_add_epi8(places, _mm512_set1_epi8(16));
    }
    return SumOf(sums);
}

static inline uint64_t EqualNeighbours(__m512i sequence) {
    return _mm512_cmpeq_epi8_mask(sequence, Successors(sequence)) & ~((uint64_t)1 << 63);
}

// The first sample of each run at threshold 0.
static inline uint64_t StartsOfEqual(uint64_t equal) {
    for (uint64_t longer = SixteenSet(equal); longer != 0;) {
        const int start = __builtin_ctzll(longer);
        equal &= ~((uint64_t)1 << (start + LONGEST - 1));
        longer &= ~(uint64_t)0 << (start + LONGEST);
    }
    return ~(equal << 1);
}

// The least of the lanes, in the lowest byte.
static inline __m128i Least(__m512i v) {
    const __m256i half = _mm256_min_epu8(_mm512_castsi512_si256(v), _mm512_extracti64x4_epi64(v, 1));
    const __m128i quarter = _mm_min_epu8(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    return _mm_minpos_epu16(_mm_min_epu8(quarter, _mm_srli_epi16(quarter, 8)));
}

// The runs at one threshold.
struct RunState {
    __m512i smooth;  // the median of its run in the place of each sample
    __m512i steps;   // at each start what ends the run; no meaning elsewhere
    uint64_t starts; // bit p: a run starts at p
};

// Cuts anew from `start` on, where a run can grow or none has been yet, until a run ends where another one starts.
static inline uint64_t Recut(RunState* state, const RunTables* tables, int start, __m128i threshold) {
    uint64_t cut = 0;
    do {
        const uint8_t* steps = tables->steps[start];
        const uint32_t enough = _mm_cmpge_epu8_mask(_mm_load_si128((const __m128i*)steps), threshold);
        const int last = __builtin_ctz(enough);
        const uint64_t samples = (((uint64_t)2 << last) - 1) << start;
        const uint64_t first = (uint64_t)1 << start;
        state->smooth = _mm512_mask_set1_epi8(state->smooth, samples, (char)tables->medians[last][start]);
        state->steps = _mm512_mask_set1_epi8(state->steps, first, (char)steps[last]);
        state->starts = (state->starts & ~samples) | first;
        cut |= samples;
        start += last + 1;
    } while ((state->starts >> (start & 63) & 1) == 0); // sample 64 counts as sample 0, a start
    return cut;
}

} // namespace

// Idea: from one threshold to the next, few runs change. All runs that there can be are prepared at once; then each threshold
// cuts anew only from the runs that it lets grow, up to where the old cuts are met again. The next threshold is the least
// that lets one grow.
int ListRunsAvx512(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                   uint32_t runBits) {
    const __m512i samples = _mm512_loadu_si512(block);
    const int order = SmoothestOrder(samples);
    const __m512i sequence = _mm512_permutexvar_epi8(_mm512_loadu_si512(SCAN_ORDER[order]), samples);
    RunTables tables;
    MakeSteps(&tables, sequence);
    MakeMedians(&tables, sequence);
    Groups scanned;
    const Groups* groups = nullptr;
    if (high != nullptr) {
        ScanGroups(&scanned, high, SCAN_ORDER[order]);
        groups = &scanned;
    }
    RunState state = {sequence, _mm512_load_si512(tables.zeroSteps), StartsOfEqual(EqualNeighbours(sequence))};
    const __m512i none = _mm512_set1_epi8(-1);
    uint32_t threshold = 0;
    for (int count = 0;;) {
        BlockCandidate* candidate = &list[count++];
        candidate->bits = CostOfSegments(EqualNeighbours(state.smooth), colourBits, runBits);
        candidate->error = ErrorOf(state.smooth, sequence, groups);
        candidate->payload = (uint16_t)((uint32_t)order * 256 + threshold);
        candidate->mode = MODE_RUN;

        const __m128i step = Least(_mm512_mask_mov_epi8(none, state.starts, state.steps));
        threshold = ((uint32_t)_mm_cvtsi128_si32(step) & 255) + 1;
        if (threshold == 256) return count;
        uint64_t growing = _mm512_mask_cmpeq_epi8_mask(state.starts, state.steps, _mm512_broadcastb_epi8(step));
        const __m128i least = _mm_add_epi8(_mm_broadcastb_epi8(step), _mm_set1_epi8(1));
        while (growing != 0) growing &= ~Recut(&state, &tables, __builtin_ctzll(growing), least);
    }
}

} // namespace vorn
