// HullAvx2.cpp - the hull of a list, eight entries at a time.
#include <immintrin.h>

#include "blocks/HullVector.h"

namespace vorn {
namespace {

struct EightLanes {
    using Vector = __m256;
    static constexpr int COUNT = 8;
    static Vector Load(const float* at) { return _mm256_loadu_ps(at); }
    static void Store(float* at, Vector v) { _mm256_storeu_ps(at, v); }
    static Vector Set(float value) { return _mm256_set1_ps(value); }
    static Vector Sub(Vector a, Vector b) { return _mm256_sub_ps(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm256_min_ps(a, b); }
    static Vector Max(Vector a, Vector b) { return _mm256_max_ps(a, b); }
    // gain / cost, roughly; 0 where the cost isn't above 0.
    static Vector Slope(Vector gain, Vector cost) {
        const Vector counts = _mm256_cmp_ps(cost, _mm256_setzero_ps(), _CMP_GT_OQ);
        return _mm256_and_ps(_mm256_mul_ps(gain, _mm256_rcp_ps(cost)), counts);
    }
    static uint32_t Equal(Vector a, Vector b) { return (uint32_t)_mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_EQ_OQ)); }
    static uint32_t NotLess(Vector a, Vector b) {
        return (uint32_t)_mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_GE_OQ));
    }
    static float Least(Vector v) {
        __m128 half = _mm_min_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
        half = _mm_min_ps(half, _mm_movehl_ps(half, half));
        return _mm_cvtss_f32(_mm_min_ss(half, _mm_shuffle_ps(half, half, 1)));
    }
    static float Greatest(Vector v) {
        __m128 half = _mm_max_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
        half = _mm_max_ps(half, _mm_movehl_ps(half, half));
        return _mm_cvtss_f32(_mm_max_ss(half, _mm_shuffle_ps(half, half, 1)));
    }
    // Eight entries, three words each, as numbers. Not 0 if one of theirs is out of bounds. The words that belong together stand
    // in different places of the three vectors, so that blends collect them.
    static uint32_t Take(Vector* bits, Vector* errors, const BlockCandidate* list) {
        const __m256i* words = (const __m256i*)list;
        const __m256i x = _mm256_loadu_si256(words);
        const __m256i y = _mm256_loadu_si256(words + 1);
        const __m256i z = _mm256_loadu_si256(words + 2);
        const __m256i mixedBits = _mm256_blend_epi32(_mm256_blend_epi32(x, y, 0x92), z, 0x24);
        const __m256i mixedErrors = _mm256_blend_epi32(_mm256_blend_epi32(x, y, 0x24), z, 0x49);
        const __m256i b = _mm256_permutevar8x32_epi32(mixedBits, _mm256_setr_epi32(0, 3, 6, 1, 4, 7, 2, 5));
        const __m256i e = _mm256_permutevar8x32_epi32(mixedErrors, _mm256_setr_epi32(1, 4, 7, 2, 5, 0, 3, 6));
        *bits = _mm256_cvtepi32_ps(b);
        *errors = _mm256_cvtepi32_ps(e);
        const __m256i above = _mm256_srli_epi32(_mm256_or_si256(b, e), HULL_WIDTH);
        return _mm256_testz_si256(above, above) == 0;
    }
};

} // namespace

int FindHullAvx2(uint16_t* kept, bool* twins, const BlockCandidate* list, int count) {
    return FindHullIn<EightLanes>(kept, twins, list, count);
}

} // namespace vorn
