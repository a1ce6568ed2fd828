// RunSse2.cpp - the codings of a block in flat runs, with a quarter of a block in a register.
#include <emmintrin.h>
#include <string.h>

#include "analysis/RunVector.h"

namespace vorn {
namespace {

// Inlined, it would be unrolled for every scan order.
__attribute__((noinline)) static void ScanBytes(uint8_t* scanned, const uint8_t* block, const uint8_t* order) {
    for (int i = 0; i < BLOCK_SAMPLES; i++) scanned[i] = block[order[i]];
}

struct SixteenLanes {
    using Part = __m128i;
    static constexpr int COUNT = 16;
    static constexpr int PARTS = 4;
    struct Block {
        Part parts[PARTS];
    };

    static Part Load(const void* at) { return _mm_loadu_si128((const __m128i*)at); }
    static void Store(void* at, Part v) { _mm_storeu_si128((__m128i*)at, v); }
    static void StoreForBytes(void* at, Part v) { Store(at, v); }
    static Part Set(uint8_t value) { return _mm_set1_epi8((char)value); }
    static Part Min(Part a, Part b) { return _mm_min_epu8(a, b); }
    static Part Max(Part a, Part b) { return _mm_max_epu8(a, b); }
    static Part Sub(Part a, Part b) { return _mm_sub_epi8(a, b); }
    static Part SubDown(Part a, Part b) { return _mm_subs_epu8(a, b); } // not below 0
    static Part Average(Part a, Part b) { return _mm_avg_epu8(a, b); }
    static Part And(Part a, Part b) { return _mm_and_si128(a, b); }
    static Part Or(Part a, Part b) { return _mm_or_si128(a, b); }
    static Part Xor(Part a, Part b) { return _mm_xor_si128(a, b); }
    static Part Sad(Part a, Part b) { return _mm_sad_epu8(a, b); }
    static Part AddSums(Part a, Part b) { return _mm_add_epi64(a, b); }
    template <int BITS> static Part ShiftSums(Part v) { return _mm_slli_epi64(v, BITS); }
    static __m128i Fold(Part sums) { return sums; }

    // Flags of lanes, all bits set or none. Turned round: those whose step is below the threshold have none.
    static Part Below(Part steps, Part threshold) { return _mm_cmpeq_epi8(Max(steps, threshold), steps); }
    static Part Choose(Part flags, Part unset, Part set) { return Or(And(flags, unset), _mm_andnot_si128(flags, set)); }
    static Part Only(Part flags, uint8_t value) { return _mm_andnot_si128(flags, Set(value)); }
    static Part AddWhere(Part v, Part flags, uint8_t value) { return _mm_add_epi8(v, Only(flags, value)); }

    static Block Scan(const uint8_t* block, const uint8_t* order) {
        alignas(16) uint8_t scanned[BLOCK_SAMPLES];
        ScanBytes(scanned, block, order);
        return {{Load(scanned), Load(scanned + 16), Load(scanned + 32), Load(scanned + 48)}};
    }
    // The least of eight words, and above it the place of the first that is it.
    static uint32_t LeastOfEight(__m128i sums) {
        uint16_t words[8];
        Store(words, sums);
        uint32_t place = 0;
        for (uint32_t i = 1; i < 8; i++) place = words[i] < words[place] ? i : place;
        return place << 16 | words[place];
    }
    static Part Next(Part v, Part behind) { return Or(_mm_srli_si128(v, 1), _mm_slli_si128(behind, 15)); }
    // The last lane stays as it is.
    static Block Successors(const Block& b) {
        return {{Next(b.parts[0], b.parts[1]), Next(b.parts[1], b.parts[2]), Next(b.parts[2], b.parts[3]),
                 Next(b.parts[3], _mm_srli_si128(b.parts[3], 15))}};
    }
    static uint32_t Bits(Part low, Part high) {
        return (uint32_t)_mm_movemask_epi8(low) | (uint32_t)_mm_movemask_epi8(high) << 16;
    }
    static uint64_t Equal(const Block& a, const Block& b) {
        return Bits(_mm_cmpeq_epi8(a.parts[0], b.parts[0]), _mm_cmpeq_epi8(a.parts[1], b.parts[1])) |
               (uint64_t)Bits(_mm_cmpeq_epi8(a.parts[2], b.parts[2]), _mm_cmpeq_epi8(a.parts[3], b.parts[3])) << 32;
    }
    static uint64_t EqualTo(const Block& b, __m128i value) { return Equal(b, {{value, value, value, value}}); }
    // Lanes from `first` to `first + last`. Windows on BEHIND_END choose them: it has 16 bytes set behind the end.
    static void Put(Block* b, int first, int last, uint64_t, uint8_t value) {
        const uint8_t* const from = BEHIND_END + BLOCK_SAMPLES - first;
        const uint8_t* const behind = from - last - 1;
        const Part values = Set(value);
        for (int i = 0; i < PARTS; i++) {
            const Part lanes = _mm_andnot_si128(Load(behind + 16 * i), Load(from + 16 * i));
            b->parts[i] = Xor(b->parts[i], And(lanes, Xor(b->parts[i], values)));
        }
    }
    // The least of the chosen lanes, 255 if there is none, in all lanes.
    static __m128i Least(const Block& b, uint64_t lanes) {
        uint8_t steps[BLOCK_SAMPLES];
        uint32_t least = 255;
        for (int i = 0; i < PARTS; i++) Store(steps + 16 * i, b.parts[i]);
        for (; lanes != 0; lanes &= lanes - 1) {
            const uint32_t step = steps[__builtin_ctzll(lanes)];
            least = step < least ? step : least;
        }
        return Set((uint8_t)least);
    }
    // Samples 4 * i and on, four times each.
    static Part Quadruple(const Block& b, int i) {
        int32_t samples;
        memcpy(&samples, (const uint8_t*)b.parts + 4 * i, sizeof samples);
        const Part four = _mm_cvtsi32_si128(samples);
        const Part twice = _mm_unpacklo_epi8(four, four);
        return _mm_unpacklo_epi16(twice, twice);
    }
};

} // namespace

int ListRunsSse2(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                 uint32_t runBits) {
    return ListRuns<SixteenLanes>(list, block, high, colourBits, runBits);
}

} // namespace vorn
