// MotionAvx2.cpp - the full search with sixteen positions at a time.
#include <immintrin.h>

#include "analysis/MotionMeasureAll.h"
#include "analysis/MotionVector.h"

namespace vorn {
namespace {

struct SixteenLanes {
    using Vector = __m256i;
    static constexpr int COUNT = 16;
    static Vector Load(const void* at) { return _mm256_loadu_si256((const __m256i*)at); }
    static void Store(void* at, Vector v) { _mm256_storeu_si256((__m256i*)at, v); }
    static Vector Set(int16_t value) { return _mm256_set1_epi16(value); }
    static Vector Add(Vector a, Vector b) { return _mm256_add_epi16(a, b); }
    static Vector Or(Vector a, Vector b) { return _mm256_or_si256(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm256_min_epi16(a, b); }
    static Vector Distance(Vector a, Vector b) { return _mm256_abs_epi16(_mm256_sub_epi16(a, b)); }
    // NO_POSITION in the lanes from `inside` up, else 0.
    static Vector Outside(int inside) {
        const Vector numbers = _mm256_set_epi16(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        return _mm256_and_si256(_mm256_cmpgt_epi16(numbers, Set((int16_t)(inside - 1))), Set((int16_t)NO_POSITION));
    }
    static int Least(Vector v) {
        const __m128i half = _mm_min_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
        return _mm_extract_epi16(_mm_minpos_epu16(half), 0);
    }
    static uint32_t MaskUpTo(const int16_t* at, int16_t bar) {
        const Vector above = _mm256_cmpgt_epi16(Load(at), Set(bar));
        const __m128i bytes = _mm_packs_epi16(_mm256_castsi256_si128(above), _mm256_extracti128_si256(above, 1));
        return ~(uint32_t)_mm_movemask_epi8(bytes) & 0xffff;
    }
};

} // namespace

Displacement SearchMotionAvx2(const MotionTask* task) {
    return SearchByBounds<SixteenLanes>(task, MeasureAll);
}

} // namespace vorn
