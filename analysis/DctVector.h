// DctVector.h - the trials of all quantisers, eight coefficients at a time: the plain transforms, lane by lane; for files built
// for AVX2 or more.
//
// A pass works on eight vectors at once, so the forward transform runs its row pass on columns, turns the block, and runs
// its column pass on rows; the inverse one runs its column pass on rows, turns, and leaves columns. What is shown is thus
// never turned back: the samples that it is compared with are brought into the order of its columns once.
// All sums and low products wrap as in the plain form.
#pragma once

#include <immintrin.h>

#include "analysis/DctTrials.h"
#include "bitstream/TransformVector.h"

namespace vorn {
namespace {

// Turn where the last four columns are 0: of the result only the first four vectors are written.
static inline void TurnFirstColumns(Eight* x) {
    __m256i a[4], b[4];
    for (int i = 0; i < 4; i++) a[i] = _mm256_permute2x128_si256(x->v[i], x->v[i + 4], 0x20);
    for (int i = 0; i < 2; i++) {
        b[2 * i] = _mm256_unpacklo_epi32(a[2 * i], a[2 * i + 1]);
        b[2 * i + 1] = _mm256_unpackhi_epi32(a[2 * i], a[2 * i + 1]);
    }
    for (int i = 0; i < 2; i++) {
        x->v[2 * i] = _mm256_unpacklo_epi64(b[i], b[i + 2]);
        x->v[2 * i + 1] = _mm256_unpackhi_epi64(b[i], b[i + 2]);
    }
}

// 64 samples in the order in which PackColumns leaves them.
struct PackedColumns {
    __m256i first;
    __m256i second;
};

// Columns of numbers from 0 to 255 as bytes.
static inline PackedColumns PackColumns(const Eight* x) {
    const __m256i a = _mm256_packus_epi32(x->v[0], x->v[1]), b = _mm256_packus_epi32(x->v[2], x->v[3]);
    const __m256i c = _mm256_packus_epi32(x->v[4], x->v[5]), d = _mm256_packus_epi32(x->v[6], x->v[7]);
    return {_mm256_packus_epi16(a, b), _mm256_packus_epi16(c, d)};
}

// A packed block as columns.
static inline PackedColumns ColumnsOf(const uint8_t* block) {
    Eight x;
    for (int i = 0; i < 8; i++) x.v[i] = _mm256_cvtepu8_epi32(_mm_loadl_epi64((const __m128i*)(block + 8 * i)));
    Turn(&x);
    return PackColumns(&x);
}

// One of the four samples that a half-scale sample stands for, by its row and column in the 2x2 group.
static inline PackedColumns ColumnsOfHigh(const uint8_t* high, int row, int column) {
    const __m128i even = _mm_set1_epi16(0xff);
    Eight x;
    for (int i = 0; i < 8; i++) {
        __m128i samples = _mm_loadu_si128((const __m128i*)(high + 16 * (2 * i + row)));
        samples = column == 0 ? _mm_and_si128(samples, even) : _mm_srli_epi16(samples, 8);
        x.v[i] = _mm256_cvtepu16_epi32(samples);
    }
    Turn(&x);
    return PackColumns(&x);
}

// Coefficients for QuantiseRow, and the odd ones of each row in even places, for products of 64 bits.
struct Coefficients {
    Eight rows;
    Eight odd;
};

static inline void TakeOdd(Coefficients* c) {
    for (int i = 0; i < 8; i++) c->odd.v[i] = _mm256_srli_epi64(c->rows.v[i], 32);
}

// Eight coefficients: (Q * f + 0x1fffffff) >> 30 in 64 bits. The plain form keeps 16 bits; all results are far below
// 2^15, also where the transform has wrapped.
// Factors are followed by others, so a row of them can be read from its second one on.
static inline __m256i QuantiseRow(const Coefficients* c, int row, const uint32_t* factors) {
    const __m256i evenFactors = _mm256_loadu_si256((const __m256i*)(factors + 8 * row));
    const __m256i oddFactors = _mm256_loadu_si256((const __m256i*)(factors + 8 * row + 1));
    const __m256i half = _mm256_set1_epi64x(0x1fffffff);
    const __m256i even = _mm256_add_epi64(_mm256_mul_epi32(c->rows.v[row], evenFactors), half);
    const __m256i odd = _mm256_add_epi64(_mm256_mul_epi32(c->odd.v[row], oddFactors), half);
    return _mm256_blend_epi32(_mm256_srli_epi64(even, 30), _mm256_slli_epi64(odd, 2), 0xaa);
}

// Bit lengths of eight numbers below 2^24, by the exponents of their floats.
static inline __m256i BitLengths(__m256i values) {
#if defined(__AVX512CD__) && defined(__AVX512VL__)
    return _mm256_sub_epi32(_mm256_set1_epi32(32), _mm256_lzcnt_epi32(values));
#endif
    const __m256i exponents = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(values)), 23);
    return _mm256_max_epi32(_mm256_sub_epi32(exponents, _mm256_set1_epi32(126)), _mm256_setzero_si256());
}

// The bit lengths of the 16 groups of four, which are the 2x2 squares of the block, in walk order, a byte each.
// `pairs` holds the magnitudes of two rows each, joined by or.
static inline __m128i GroupLengths(const __m256i* pairs) {
    const __m256i low = _mm256_set1_epi64x(0xffffffff);
    __m256i squares[4];
    for (int i = 0; i < 4; i++) squares[i] = _mm256_or_si256(pairs[i], _mm256_srli_epi64(pairs[i], 32));
    const __m256i upper =
        BitLengths(_mm256_or_si256(_mm256_and_si256(squares[0], low), _mm256_slli_epi64(squares[1], 32)));
    const __m256i lower =
        BitLengths(_mm256_or_si256(_mm256_and_si256(squares[2], low), _mm256_slli_epi64(squares[3], 32)));
    const __m256i words = _mm256_packs_epi32(upper, lower);
    const __m128i bytes = _mm_packs_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
    // The square at a row and column lies in byte 8 * (column / 2) + 4 * (row / 2) + 2 * (column % 2) + row % 2.
    const __m128i walk = _mm_setr_epi8(0, 2, 8, 10, 9, 11, 1, 4, 6, 5, 7, 3, 12, 14, 13, 15);
    return _mm_shuffle_epi8(bytes, walk);
}

// The bits of a string whose groups have these lengths and which has `values` coefficients that aren't 0.
// A coefficient, group or node that stands from plane p on and opens in plane b takes p - b + 1 flags, or p if it is 0. Added up
// along the tree, all but one p cancel out: with g the lengths of the twelve groups under nodes of 16, s those of these three
// nodes and t those of the three nodes of 20 above them,
//   4 + values + 6 * longest + sum of (3 g + [g > 0]) + sum of (3 s + [s > 0]) + sum of (4 t + [t > 0])
static inline uint32_t StringBits(__m128i groups, uint32_t values) {
    const __m128i zero = _mm_setzero_si128();
    // Tree i has its own group of four at 1 + 5 i and four more, under its node of 16, behind that.
    const __m128i own =
        _mm_shuffle_epi8(groups, _mm_setr_epi8(1, 6, 11, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    const __m128i fours =
        _mm_shuffle_epi8(groups, _mm_setr_epi8(2, 7, 12, -1, 3, 8, 13, -1, 4, 9, 14, -1, 5, 10, 15, -1));
    __m128i sixteens = _mm_max_epu8(fours, _mm_srli_si128(fours, 8));
    sixteens = _mm_max_epu8(sixteens, _mm_srli_si128(sixteens, 4));
    sixteens = _mm_and_si128(sixteens, _mm_setr_epi32(0xffffff, 0, 0, 0));
    const __m128i twenties = _mm_max_epu8(sixteens, own);
    const __m128i joined = _mm_or_si128(
        fours, _mm_shuffle_epi8(sixteens, _mm_setr_epi8(-1, -1, -1, 0, -1, -1, -1, 1, -1, -1, -1, 2, -1, -1, -1, -1)));
    const __m128i sums = _mm_sad_epu8(joined, zero);
    const uint32_t threes = (uint32_t)(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
    const uint32_t quadruples = (uint32_t)_mm_cvtsi128_si32(_mm_sad_epu8(twenties, zero));
    const uint32_t open = (uint32_t)_mm_movemask_epi8(_mm_cmpgt_epi8(joined, zero)) |
                          (uint32_t)_mm_movemask_epi8(_mm_cmpgt_epi8(twenties, zero)) << 16;
    __m128i longest = _mm_max_epu8(twenties, groups); // byte 0: also of the coefficients that stand alone
    longest = _mm_max_epu8(longest, _mm_max_epu8(_mm_srli_si128(twenties, 1), _mm_srli_si128(twenties, 2)));
    const uint32_t planes = (uint32_t)_mm_cvtsi128_si32(longest) & 0xff;
    return 4 + values + 6 * planes + 3 * threes + 4 * quadruples + (uint32_t)__builtin_popcount(open);
}

// Quantised rows, and what their string takes.
struct Quantised {
    Eight rows;
    uint32_t acBits;
    bool hasAc;
    bool halfRows;    // the last four rows are 0, and not kept up
    bool halfColumns; // the last four columns are
};

// How many of the 32 words in two vectors are 0: packing keeps what isn't from becoming 0.
static inline uint32_t CountZeros(__m256i a, __m256i b) {
    const __m256i equal = _mm256_cmpeq_epi8(_mm256_packs_epi16(a, b), _mm256_setzero_si256());
    return (uint32_t)__builtin_popcount((uint32_t)_mm256_movemask_epi8(equal));
}

struct EightColumns {
    using Coefficients = vorn::Coefficients;
    using Quantised = vorn::Quantised;
    using Samples = PackedColumns;

    static void Transform(Coefficients* out, const uint8_t* samples) {
        for (int i = 0; i < 8; i++) {
            out->rows.v[i] = _mm256_cvtepu8_epi32(_mm_loadl_epi64((const __m128i*)(samples + 8 * i)));
        }
        Forward(&out->rows);
        TakeOdd(out);
    }
    static void Transform(Coefficients* out, const int8_t* residuals) {
        for (int i = 0; i < 8; i++) {
            out->rows.v[i] = _mm256_cvtepi8_epi32(_mm_loadl_epi64((const __m128i*)(residuals + 8 * i)));
        }
        Forward(&out->rows);
        TakeOdd(out);
    }
    static Samples Take(const uint8_t* block) { return ColumnsOf(block); }
    static Samples TakeHigh(const uint8_t* high, int row, int column) { return ColumnsOfHigh(high, row, column); }
    static Samples AddSamples(Samples a, Samples b) {
        return {_mm256_add_epi8(a.first, b.first), _mm256_add_epi8(a.second, b.second)};
    }
    template <bool HALF>
    static void QuantiseRows(Quantised* out, const Coefficients* coefficients, const uint32_t* factors, bool inter) {
        constexpr int ROWS = HALF ? 4 : 8;
        for (int i = 0; i < ROWS; i++) out->rows.v[i] = QuantiseRow(coefficients, i, factors);
        // The stream has no room for a DC of -1024.
        if (inter && _mm_cvtsi128_si32(_mm256_castsi256_si128(out->rows.v[0])) == -1024) {
            out->rows.v[0] = _mm256_add_epi32(out->rows.v[0], _mm256_setr_epi32(1, 0, 0, 0, 0, 0, 0, 0));
        }
        const __m256i zero = _mm256_setzero_si256();
        Eight sizes;
        for (int i = 0; i < ROWS; i++) sizes.v[i] = _mm256_abs_epi32(out->rows.v[i]);
        sizes.v[0] = _mm256_blend_epi32(sizes.v[0], zero, 1); // without the DC
        __m256i pairs[4] = {zero, zero, zero, zero}, words[4];
        for (int i = 0; i < ROWS / 2; i++) {
            pairs[i] = _mm256_or_si256(sizes.v[2 * i], sizes.v[2 * i + 1]);
            words[i] = _mm256_packs_epi32(sizes.v[2 * i], sizes.v[2 * i + 1]);
        }
        const uint32_t zeros = CountZeros(words[0], words[1]) + (HALF ? 32 : CountZeros(words[2], words[3]));
        const __m256i last = _mm256_or_si256(pairs[2], pairs[3]);
        const __m256i all = _mm256_or_si256(_mm256_or_si256(pairs[0], pairs[1]), last);
        const __m128i lastColumns = _mm256_extracti128_si256(all, 1);
        out->hasAc = zeros < 64;
        out->acBits = StringBits(GroupLengths(pairs), 64 - zeros);
        out->halfRows = HALF || _mm256_testz_si256(last, last);
        out->halfColumns = _mm_testz_si128(lastColumns, lastColumns);
    }
    template <bool HALF_ROWS, bool HALF_COLUMNS>
    static Samples ShowSome(const Quantised* quantised, const Coefficients*, const uint32_t* factors) {
        Eight x;
        for (int i = 0; i < (HALF_ROWS ? 4 : 8); i++) {
            const __m256i factor = _mm256_loadu_si256((const __m256i*)(factors + 8 * i));
            x.v[i] = _mm256_srai_epi32(_mm256_mullo_epi32(quantised->rows.v[i], factor), 11);
        }
        InversePass<EightLanes, HALF_ROWS>(x.v);
        if (HALF_COLUMNS)
            TurnFirstColumns(&x);
        else
            Turn(&x);
        InversePass<EightLanes, HALF_COLUMNS>(x.v);
        const __m256i round = _mm256_set1_epi32(127), byte = _mm256_set1_epi32(0xff);
        for (int i = 0; i < 8; i++)
            x.v[i] = _mm256_and_si256(_mm256_srli_epi32(_mm256_add_epi32(x.v[i], round), 8), byte);
        return PackColumns(&x);
    }
    static __m256i Sad(Samples a, Samples b) {
        return AddSums(_mm256_sad_epu8(a.first, b.first), _mm256_sad_epu8(a.second, b.second));
    }
    static __m256i AddSums(__m256i a, __m256i b) { return _mm256_add_epi64(a, b); }
    static uint32_t Total(__m256i sums) {
        const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        return (uint32_t)(_mm_cvtsi128_si32(half) + _mm_extract_epi16(half, 4));
    }
};

} // namespace
} // namespace vorn
