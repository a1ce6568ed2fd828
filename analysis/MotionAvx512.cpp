// MotionAvx512.cpp - the full search with a whole row of positions at a time.
#include <immintrin.h>

#include "analysis/MotionMeasureAll.h"
#include "analysis/MotionVector.h"

namespace vorn {
namespace {

struct ThirtyTwoLanes {
    using Vector = __m512i;
    static constexpr int COUNT = 32;
    static Vector Load(const void* at) { return _mm512_loadu_si512(at); }
    static void Store(void* at, Vector v) { _mm512_storeu_si512(at, v); }
    static Vector Set(int16_t value) { return _mm512_set1_epi16(value); }
    static Vector Add(Vector a, Vector b) { return _mm512_add_epi16(a, b); }
    static Vector Or(Vector a, Vector b) { return _mm512_or_si512(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm512_min_epi16(a, b); }
    static Vector Distance(Vector a, Vector b) { return _mm512_abs_epi16(_mm512_sub_epi16(a, b)); }
    // NO_POSITION in the lanes from `inside` up, else 0.
    static Vector Outside(int inside) {
        const __mmask32 lanes = inside >= COUNT ? 0 : ~(__mmask32)0 << inside;
        return _mm512_maskz_set1_epi16(lanes, (int16_t)NO_POSITION);
    }
    static int Least(Vector v) {
        const __m256i half = _mm256_min_epi16(_mm512_castsi512_si256(v), _mm512_extracti64x4_epi64(v, 1));
        const __m128i quarter = _mm_min_epi16(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
        return _mm_extract_epi16(_mm_minpos_epu16(quarter), 0);
    }
    static uint32_t MaskUpTo(const int16_t* at, int16_t bar) { return _mm512_cmple_epi16_mask(Load(at), Set(bar)); }
};

} // namespace

Displacement SearchMotionAvx512(const MotionTask* task) {
    return SearchByBounds<ThirtyTwoLanes>(task, MeasureAll);
}

} // namespace vorn
