// TransformVector.h - a block as eight vectors of eight numbers, and its forward transform; for files built for AVX2 or more.
#pragma once

#include <immintrin.h>

#include "bitstream/TransformPasses.h"

namespace vorn {
namespace {

struct Eight {
    __m256i v[8];
};

// Eight numbers, for the passes.
struct EightLanes {
    using Vector = __m256i;
    static Vector Zero() { return _mm256_setzero_si256(); }
    static Vector Add(Vector a, Vector b) { return _mm256_add_epi32(a, b); }
    static Vector Sub(Vector a, Vector b) { return _mm256_sub_epi32(a, b); }
    static Vector Scale(Vector value, int factor) {
        return _mm256_srai_epi32(_mm256_mullo_epi32(value, _mm256_set1_epi32(factor)), 11);
    }
};

// Rows become columns.
static inline void Turn(Eight* x) {
    __m256i a[8], b[8];
    for (int i = 0; i < 4; i++) {
        a[2 * i] = _mm256_unpacklo_epi32(x->v[2 * i], x->v[2 * i + 1]);
        a[2 * i + 1] = _mm256_unpackhi_epi32(x->v[2 * i], x->v[2 * i + 1]);
    }
    for (int i = 0; i < 2; i++) {
        b[4 * i] = _mm256_unpacklo_epi64(a[4 * i], a[4 * i + 2]);
        b[4 * i + 1] = _mm256_unpackhi_epi64(a[4 * i], a[4 * i + 2]);
        b[4 * i + 2] = _mm256_unpacklo_epi64(a[4 * i + 1], a[4 * i + 3]);
        b[4 * i + 3] = _mm256_unpackhi_epi64(a[4 * i + 1], a[4 * i + 3]);
    }
    for (int i = 0; i < 4; i++) {
        x->v[i] = _mm256_permute2x128_si256(b[i], b[i + 4], 0x20);
        x->v[i + 4] = _mm256_permute2x128_si256(b[i], b[i + 4], 0x31);
    }
}

// The row pass leaves 8 fractional bits. `x` holds the block's rows; so it does afterwards.
static inline void Forward(Eight* x) {
    Turn(x);
    for (int i = 0; i < 8; i++) x->v[i] = _mm256_slli_epi32(x->v[i], 8);
    ForwardPass<EightLanes>(x->v);
    Turn(x);
    ForwardPass<EightLanes>(x->v);
}

} // namespace
} // namespace vorn
