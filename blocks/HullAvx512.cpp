// HullAvx512.cpp - the hull of a list, sixteen entries at a time.
#include <immintrin.h>

#include "blocks/HullVector.h"

namespace vorn {
namespace {

struct SixteenLanes {
    using Vector = __m512;
    static constexpr int COUNT = 16;
    static Vector Load(const float* at) { return _mm512_loadu_ps(at); }
    static void Store(float* at, Vector v) { _mm512_storeu_ps(at, v); }
    static Vector Set(float value) { return _mm512_set1_ps(value); }
    static Vector Sub(Vector a, Vector b) { return _mm512_sub_ps(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm512_min_ps(a, b); }
    static Vector Max(Vector a, Vector b) { return _mm512_max_ps(a, b); }
    // gain / cost, roughly; 0 where the cost isn't above 0.
    static Vector Slope(Vector gain, Vector cost) {
        const __mmask16 counts = _mm512_cmp_ps_mask(cost, _mm512_setzero_ps(), _CMP_GT_OQ);
        return _mm512_maskz_mul_ps(counts, gain, _mm512_rcp14_ps(cost));
    }
    static uint32_t Equal(Vector a, Vector b) { return _mm512_cmp_ps_mask(a, b, _CMP_EQ_OQ); }
    static uint32_t NotLess(Vector a, Vector b) { return _mm512_cmp_ps_mask(a, b, _CMP_GE_OQ); }
    static float Least(Vector v) { return _mm512_reduce_min_ps(v); }
    static float Greatest(Vector v) { return _mm512_reduce_max_ps(v); }
    // Sixteen entries, three words each, as numbers. Not 0 if one of theirs is out of bounds. The words that belong together
    // stand in different places of the three vectors, so that blends collect them.
    static uint32_t Take(Vector* bits, Vector* errors, const BlockCandidate* list) {
        const int32_t* words = (const int32_t*)list;
        const __m512i x = _mm512_loadu_si512(words);
        const __m512i y = _mm512_loadu_si512(words + 16);
        const __m512i z = _mm512_loadu_si512(words + 32);
        const __m512i mixedBits = _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(x, 0x4924, y), 0x2492, z);
        const __m512i mixedErrors = _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(x, 0x9249, y), 0x4924, z);
        const __m512i bitPlaces = _mm512_setr_epi32(0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14, 1, 4, 7, 10, 13);
        const __m512i errorPlaces = _mm512_setr_epi32(1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14);
        const __m512i b = _mm512_permutexvar_epi32(bitPlaces, mixedBits);
        const __m512i e = _mm512_permutexvar_epi32(errorPlaces, mixedErrors);
        *bits = _mm512_cvtepi32_ps(b);
        *errors = _mm512_cvtepi32_ps(e);
        return _mm512_test_epi32_mask(_mm512_or_si512(b, e), _mm512_set1_epi32(~0 << HULL_WIDTH));
    }
};

} // namespace

int FindHullAvx512(uint16_t* kept, bool* twins, const BlockCandidate* list, int count) {
    return FindHullIn<SixteenLanes>(kept, twins, list, count);
}

} // namespace vorn
