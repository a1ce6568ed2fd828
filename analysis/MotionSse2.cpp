// MotionSse2.cpp - the full search with eight positions at a time.
#include "analysis/MotionVector.h"

namespace vorn {
namespace {

struct EightLanes {
    using Vector = __m128i;
    static constexpr int COUNT = 8;
    static Vector Load(const void* at) { return _mm_loadu_si128((const __m128i*)at); }
    static void Store(void* at, Vector v) { _mm_storeu_si128((__m128i*)at, v); }
    static Vector Set(int16_t value) { return _mm_set1_epi16(value); }
    static Vector Add(Vector a, Vector b) { return _mm_add_epi16(a, b); }
    static Vector Or(Vector a, Vector b) { return _mm_or_si128(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm_min_epi16(a, b); }
    static Vector Distance(Vector a, Vector b) { return _mm_max_epi16(_mm_sub_epi16(a, b), _mm_sub_epi16(b, a)); }
    // NO_POSITION in the lanes from `inside` up, else 0.
    static Vector Outside(int inside) {
        const Vector numbers = _mm_set_epi16(7, 6, 5, 4, 3, 2, 1, 0);
        return _mm_and_si128(_mm_cmpgt_epi16(numbers, Set((int16_t)(inside - 1))), Set((int16_t)NO_POSITION));
    }
    static int Least(Vector v) {
        v = _mm_min_epi16(v, _mm_srli_si128(v, 8));
        v = _mm_min_epi16(v, _mm_srli_si128(v, 4));
        v = _mm_min_epi16(v, _mm_srli_si128(v, 2));
        return _mm_extract_epi16(v, 0);
    }
    static uint32_t MaskUpTo(const int16_t* at, int16_t bar) {
        const Vector above = _mm_cmpgt_epi16(Load(at), Set(bar));
        return ~(uint32_t)_mm_movemask_epi8(_mm_packs_epi16(above, above)) & 0xff;
    }
};

} // namespace

Displacement SearchMotionSse2(const MotionTask* task) {
    return SearchByBounds<EightLanes>(task, nullptr);
}

} // namespace vorn
