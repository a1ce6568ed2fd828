// TransformsAvx2.cpp - a DCT block there and back, eight coefficients at a time: the plain transforms, lane by lane.
//
// A pass works on eight vectors at once. The forward transform runs its row pass on columns, turns the block, and runs its
// column pass on rows; the inverse one runs its column pass on rows, turns, and has its row pass leave columns, which are turned
// back. All sums and low products wrap as in the plain form.
#include <immintrin.h>

#include "bitstream/TransformKernels.h"
#include "bitstream/TransformVector.h"
#include "format/QuantiserTables.h"

namespace vorn {
namespace {

// Eight coefficients: (Q * f + 0x1fffffff) >> 30 in 64 bits, the low 16 bits kept, as signed numbers.
static inline __m256i QuantiseRow(__m256i f, const uint32_t* factors) {
    const __m256i q = _mm256_loadu_si256((const __m256i*)factors);
    const __m256i half = _mm256_set1_epi64x(0x1fffffff);
    const __m256i even = _mm256_add_epi64(_mm256_mul_epi32(f, q), half);
    const __m256i odd = _mm256_add_epi64(_mm256_mul_epi32(_mm256_srli_epi64(f, 32), _mm256_srli_epi64(q, 32)), half);
    const __m256i both = _mm256_blend_epi32(_mm256_srli_epi64(even, 30), _mm256_slli_epi64(odd, 2), 0xaa);
    return _mm256_srai_epi32(_mm256_slli_epi32(both, 16), 16);
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
    InversePass<EightLanes, false>(x.v);
    Turn(&x);
    InversePass<EightLanes, false>(x.v);
    Turn(&x);
    const __m256i round = _mm256_set1_epi32(127), byte = _mm256_set1_epi32(0xff);
    for (int i = 0; i < 8; i++) x.v[i] = _mm256_and_si256(_mm256_srli_epi32(_mm256_add_epi32(x.v[i], round), 8), byte);
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
