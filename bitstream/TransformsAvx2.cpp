// TransformsAvx2.cpp - a DCT block there and back, eight coefficients at a time: the plain transforms, lane by lane.
//
// A pass works on eight vectors at once. The forward transform runs its row pass on columns, turns the block, and runs its
// column pass on rows; the inverse one runs its column pass on rows, turns, and has its row pass leave columns, which are turned
// back. All sums and low products wrap as in the plain form.
#include <immintrin.h>

#include "bitstream/TransformKernels.h"
#include "format/QuantiserTables.h"

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

static inline void InversePass(Eight* x) {
    const __m256i p = Add(x->v[0], x->v[4]), m = Sub(x->v[0], x->v[4]);
    const __m256i s = Add(x->v[2], x->v[6]);
    const __m256i d = Sub(Scale(Sub(x->v[2], x->v[6]), 2896), s);
    const __m256i a = Add(x->v[1], x->v[7]), b = Sub(x->v[1], x->v[7]);
    const __m256i c = Add(x->v[3], x->v[5]), e = Sub(x->v[5], x->v[3]);
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

// Eight coefficients: (Q * f + 0x1fffffff) >> 30 in 64 bits, the low 16 bits kept, as signed numbers.
static inline __m256i QuantiseRow(__m256i f, const uint32_t* factors) {
    const __m256i q = _mm256_loadu_si256((const __m256i*)factors);
    const __m256i half = _mm256_set1_epi64x(0x1fffffff);
    const __m256i even = _mm256_add_epi64(_mm256_mul_epi32(f, q), half);
    const __m256i odd = _mm256_add_epi64(_mm256_mul_epi32(_mm256_srli_epi64(f, 32), _mm256_srli_epi64(q, 32)), half);
    const __m256i both = _mm256_blend_epi32(_mm256_srli_epi64(even, 30), _mm256_slli_epi64(odd, 2), 0xaa);
    return _mm256_srai_epi32(_mm256_slli_epi32(both, 16), 16);
}

// The row pass leaves 8 fractional bits. `x` holds the block's rows; so it does afterwards.
static inline void Forward(Eight* x) {
    Turn(x);
    for (int i = 0; i < 8; i++) x->v[i] = _mm256_slli_epi32(x->v[i], 8);
    ForwardPass(x);
    Turn(x);
    ForwardPass(x);
}

static inline void Quantise(Eight* rows, const Eight* coefficients, const uint32_t* factors) {
    for (int i = 0; i < 8; i++) rows->v[i] = QuantiseRow(coefficients->v[i], factors + 8 * i);
}

// Rows 16 bits a number.
static inline void StoreQuantised(int16_t* quantised, const Eight* rows) {
    for (int i = 0; i < 8; i += 2) {
        const __m256i mixed = _mm256_packs_epi32(rows->v[i], rows->v[i + 1]);
        _mm256_storeu_si256((__m256i*)(quantised + 8 * i), _mm256_permute4x64_epi64(mixed, 0xd8));
    }
}

// What a decoder shows, modulo 256.
static inline void Show(uint8_t* shown, const Eight* quantised, const uint32_t* factors) {
    Eight x;
    for (int i = 0; i < 8; i++) {
        const __m256i factor = _mm256_loadu_si256((const __m256i*)(factors + 8 * i));
        x.v[i] = _mm256_srai_epi32(_mm256_mullo_epi32(quantised->v[i], factor), 11);
    }
    InversePass(&x);
    Turn(&x);
    InversePass(&x);
    Turn(&x);
    const __m256i round = _mm256_set1_epi32(127), byte = _mm256_set1_epi32(0xff);
    for (int i = 0; i < 8; i++) x.v[i] = _mm256_and_si256(_mm256_srli_epi32(Add(x.v[i], round), 8), byte);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    for (int i = 0; i < 8; i += 4) {
        const __m256i upper = _mm256_packus_epi32(x.v[i], x.v[i + 1]),
                      lower = _mm256_packus_epi32(x.v[i + 2], x.v[i + 3]);
        const __m256i mixed = _mm256_packus_epi16(upper, lower);
        _mm256_storeu_si256((__m256i*)(shown + 8 * i), _mm256_permutevar8x32_epi32(mixed, order));
    }
}

} // namespace

void CodeIntraAvx2(int16_t* quantised, uint8_t* shown, const uint8_t* block, int q) {
    Eight coefficients, rows;
    for (int i = 0; i < 8; i++) {
        coefficients.v[i] = _mm256_cvtepu8_epi32(_mm_loadl_epi64((const __m128i*)(block + 8 * i)));
    }
    Forward(&coefficients);
    Quantise(&rows, &coefficients, INTRA_QUANTISERS.quantise[q]);
    StoreQuantised(quantised, &rows);
    Show(shown, &rows, INTRA_QUANTISERS.dequantise[q]);
}

void CodeInterAvx2(int16_t* quantised, uint8_t* change, const int8_t* residual, int q) {
    Eight coefficients, rows;
    for (int i = 0; i < 8; i++) {
        coefficients.v[i] = _mm256_cvtepi8_epi32(_mm_loadl_epi64((const __m128i*)(residual + 8 * i)));
    }
    Forward(&coefficients);
    Quantise(&rows, &coefficients, INTER_QUANTISERS.quantise[q]);
    // The stream has no room for a DC of -1024.
    if (_mm_cvtsi128_si32(_mm256_castsi256_si128(rows.v[0])) == -1024) {
        rows.v[0] = _mm256_add_epi32(rows.v[0], _mm256_setr_epi32(1, 0, 0, 0, 0, 0, 0, 0));
    }
    StoreQuantised(quantised, &rows);
    Show(change, &rows, INTER_QUANTISERS.dequantise[q]);
}

} // namespace vorn
