// RunAvx512.cpp - the codings of a block in flat runs, with the whole block in one register.
#include <immintrin.h>

#include "analysis/RunVector.h"

namespace vorn {
namespace {

// Lane i holds i.
static inline __m512i Numbers() {
    alignas(64) static const uint8_t NUMBERS[64] = {
        // clang-format off
        0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
        16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31,
        32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47,
        48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63,
        // clang-format on
    };
    return _mm512_load_si512(NUMBERS);
}

struct SixtyFourLanes {
    using Part = __m512i;
    static constexpr int COUNT = 64;
    static constexpr int PARTS = 1;
    struct Block {
        Part parts[PARTS];
    };

    static Part Load(const uint8_t* at) { return _mm512_loadu_si512(at); }
    static void Store(uint8_t* at, Part v) { _mm512_storeu_si512(at, v); }
    // In halves, whose bytes can be read again sooner.
    static void StoreForBytes(void* at, Part v) {
        _mm256_store_si256((__m256i*)at, _mm512_castsi512_si256(v));
        _mm256_store_si256((__m256i*)at + 1, _mm512_extracti64x4_epi64(v, 1));
    }
    static Part Set(uint8_t value) { return _mm512_set1_epi8((char)value); }
    static Part Min(Part a, Part b) { return _mm512_min_epu8(a, b); }
    static Part Max(Part a, Part b) { return _mm512_max_epu8(a, b); }
    static Part Sub(Part a, Part b) { return _mm512_sub_epi8(a, b); }
    static Part SubDown(Part a, Part b) { return _mm512_subs_epu8(a, b); } // not below 0
    static Part Average(Part a, Part b) { return _mm512_avg_epu8(a, b); }
    static Part And(Part a, Part b) { return _mm512_and_si512(a, b); }
    static Part Or(Part a, Part b) { return _mm512_or_si512(a, b); }
    static Part Xor(Part a, Part b) { return _mm512_xor_si512(a, b); }
    static Part Sad(Part a, Part b) { return _mm512_sad_epu8(a, b); }
    static Part AddSums(Part a, Part b) { return _mm512_add_epi64(a, b); }
    template <int BITS> static Part ShiftSums(Part v) { return _mm512_slli_epi64(v, BITS); }
    static __m128i Fold(Part sums) {
        const __m256i half = _mm256_add_epi64(_mm512_castsi512_si256(sums), _mm512_extracti64x4_epi64(sums, 1));
        return _mm_add_epi64(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    }

    static __mmask64 Below(Part steps, Part threshold) { return _mm512_cmplt_epu8_mask(steps, threshold); }
    static Part Choose(__mmask64 flags, Part unset, Part set) { return _mm512_mask_mov_epi8(unset, flags, set); }
    static Part Only(__mmask64 flags, uint8_t value) { return _mm512_maskz_set1_epi8(flags, (char)value); }
    static Part AddWhere(Part v, __mmask64 flags, uint8_t value) {
        return _mm512_mask_add_epi8(v, flags, v, Set(value));
    }

    static Block Scan(const uint8_t* block, const uint8_t* order) {
        return {{_mm512_permutexvar_epi8(Load(order), Load(block))}};
    }
    // The last lane stays as it is.
    static Block Successors(Block b) {
        const __m512i next = _mm512_min_epu8(_mm512_add_epi8(Numbers(), Set(1)), Set(63));
        return {{_mm512_permutexvar_epi8(next, b.parts[0])}};
    }
    // The least of eight words, and above it the place of the first that is it.
    static uint32_t LeastOfEight(__m128i sums) { return (uint32_t)_mm_cvtsi128_si32(_mm_minpos_epu16(sums)); }
    static uint64_t Equal(Block a, Block b) { return _mm512_cmpeq_epi8_mask(a.parts[0], b.parts[0]); }
    static uint64_t EqualTo(Block b, __m128i value) {
        return _mm512_cmpeq_epi8_mask(b.parts[0], _mm512_broadcastb_epi8(value));
    }
    // Lanes from `first` to `first + last`, by their bits.
    static void Put(Block* b, int, int, uint64_t lanes, uint8_t value) {
        b->parts[0] = _mm512_mask_set1_epi8(b->parts[0], lanes, (char)value);
    }
    // The least of the chosen lanes, 255 if there is none, in all lanes.
    static __m128i Least(Block b, uint64_t lanes) {
        const __m512i chosen = _mm512_mask_mov_epi8(Set(255), lanes, b.parts[0]);
        const __m256i half = _mm256_min_epu8(_mm512_castsi512_si256(chosen), _mm512_extracti64x4_epi64(chosen, 1));
        const __m128i quarter = _mm_min_epu8(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
        return _mm_broadcastb_epi8(_mm_minpos_epu16(_mm_min_epu8(quarter, _mm_srli_epi16(quarter, 8))));
    }
    // Samples 16 * i and on, four times each.
    static Part Quadruple(Block b, int i) {
        const __m512i places = _mm512_and_si512(_mm512_srli_epi16(Numbers(), 2), _mm512_set1_epi8(15));
        return _mm512_permutexvar_epi8(_mm512_add_epi8(places, _mm512_set1_epi8((char)(16 * i))), b.parts[0]);
    }
};

} // namespace

int ListRunsAvx512(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                   uint32_t runBits) {
    return ListRuns<SixtyFourLanes>(list, block, high, colourBits, runBits);
}

} // namespace vorn
