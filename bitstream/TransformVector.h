// TransformVector.h - the passes of the transforms on eight vectors of eight numbers, lane by lane as the plain forms have them; for
// files built for AVX2 or more. All sums and low products wrap.
#pragma once

#include <immintrin.h>

namespace vorn {
namespace {

struct Eight {
    __m256i v[8];
};

static inline __m256i Add(__m256i a, __m256i b) {
    return _mm256_add_epi32(a, b);
}
static inline __m256i Sub(__m256i a, __m256i b) {
    return _mm256_sub_epi32(a, b);
}
// Multiplies by factor / 2048 and rounds down.
static inline __m256i Scale(__m256i value, int factor) {
    return _mm256_srai_epi32(_mm256_mullo_epi32(value, _mm256_set1_epi32(factor)), 11);
}

static inline void ForwardPass(Eight* x) {
    const __m256i t0 = Add(x->v[0], x->v[7]), t7 = Sub(x->v[0], x->v[7]);
    const __m256i t1 = Add(x->v[1], x->v[6]), t6 = Sub(x->v[1], x->v[6]);
    const __m256i t2 = Add(x->v[2], x->v[5]), t5 = Sub(x->v[2], x->v[5]);
    const __m256i t3 = Add(x->v[3], x->v[4]), t4 = Sub(x->v[3], x->v[4]);
    const __m256i e0 = Add(t0, t3), e3 = Sub(t0, t3), e1 = Add(t1, t2), e2 = Sub(t1, t2);
    const __m256i z1 = Scale(Add(e2, e3), 1448);
    x->v[0] = Add(e0, e1);
    x->v[4] = Sub(e0, e1);
    x->v[2] = Add(e3, z1);
    x->v[6] = Sub(e3, z1);
    const __m256i o0 = Add(t4, t5), o1 = Add(t5, t6), o2 = Add(t6, t7);
    const __m256i z5 = Scale(Sub(o0, o2), 784);
    const __m256i z2 = Add(Scale(o0, 1108), z5), z4 = Add(Scale(o2, 2676), z5), z3 = Scale(o1, 1448);
    const __m256i u = Add(t7, z3), v = Sub(t7, z3);
    x->v[5] = Add(v, z2);
    x->v[3] = Sub(v, z2);
    x->v[1] = Add(u, z4);
    x->v[7] = Sub(u, z4);
}

// HALF: the last four vectors are 0 and not read.
template <bool HALF> static inline void InversePass(Eight* x) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i p = HALF ? x->v[0] : Add(x->v[0], x->v[4]), m = HALF ? x->v[0] : Sub(x->v[0], x->v[4]);
    const __m256i s = HALF ? x->v[2] : Add(x->v[2], x->v[6]);
    const __m256i d = Sub(Scale(HALF ? x->v[2] : Sub(x->v[2], x->v[6]), 2896), s);
    const __m256i a = HALF ? x->v[1] : Add(x->v[1], x->v[7]), b = HALF ? x->v[1] : Sub(x->v[1], x->v[7]);
    const __m256i c = HALF ? x->v[3] : Add(x->v[3], x->v[5]), e = Sub(HALF ? zero : x->v[5], x->v[3]);
    const __m256i g = Add(a, c);
    const __m256i h = Scale(Add(b, e), 3784);
    const __m256i k = Add(Sub(Scale(e, -5352), g), h);
    const __m256i l = Sub(Scale(Sub(a, c), 2896), k);
    const __m256i n = Add(Sub(Scale(b, 2217), h), l);
    const __m256i ps = Add(p, s), pd = Sub(p, s), md = Add(m, d), me = Sub(m, d);
    x->v[0] = Add(ps, g);
    x->v[7] = Sub(ps, g);
    x->v[1] = Add(md, k);
    x->v[6] = Sub(md, k);
    x->v[2] = Add(me, l);
    x->v[5] = Sub(me, l);
    x->v[3] = Sub(pd, n);
    x->v[4] = Add(pd, n);
}

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
    ForwardPass(x);
    Turn(x);
    ForwardPass(x);
}

} // namespace
} // namespace vorn
