// DctSse2.cpp - the trials of all quantisers, four coefficients at a time, and eight where 16 bits hold them.
//
// The passes are those of DctVector.h, on the left and the right half of a block. Coefficients are below 2^23, so that four times
// their sizes fit 32 bits; what quantisers leave of them is far below 2^15. It is kept in 16 bits, the signs
// apart.
#include <emmintrin.h>

#include "analysis/DctTrials.h"
#include "bitstream/TransformPasses.h"

namespace vorn {
namespace {

struct FourLanes {
    using Vector = __m128i;
    static Vector Zero() { return _mm_setzero_si128(); }
    static Vector Add(Vector a, Vector b) { return _mm_add_epi32(a, b); }
    static Vector Sub(Vector a, Vector b) { return _mm_sub_epi32(a, b); }
    // Low 32 bits of products. `words` has a 16-bit number in both words of each lane.
    static Vector MulWords(Vector a, Vector words) {
        return Add(_mm_mullo_epi16(a, words), _mm_slli_epi32(_mm_mulhi_epu16(a, words), 16));
    }
    static Vector Scale(Vector value, int factor) {
        const Vector product = factor < 0 ? MulWords(Sub(Zero(), value), _mm_set1_epi16((int16_t)-factor))
                                          : MulWords(value, _mm_set1_epi16((int16_t)factor));
        return _mm_srai_epi32(product, 11);
    }
};

// Rows of a block in halves.
struct Halves {
    __m128i left[8];
    __m128i right[8];
};

// Rows of four become columns; `out` and `in` may be the same.
static inline void TurnSquare(__m128i* out, const __m128i* in) {
    const __m128i a = _mm_unpacklo_epi32(in[0], in[1]), b = _mm_unpacklo_epi32(in[2], in[3]);
    const __m128i c = _mm_unpackhi_epi32(in[0], in[1]), d = _mm_unpackhi_epi32(in[2], in[3]);
    out[0] = _mm_unpacklo_epi64(a, b);
    out[1] = _mm_unpackhi_epi64(a, b);
    out[2] = _mm_unpacklo_epi64(c, d);
    out[3] = _mm_unpackhi_epi64(c, d);
}

// HALF: the right half is 0, and only the first four columns are written.
template <bool HALF> static inline void Turn(Halves* x) {
    __m128i lower[4];
    TurnSquare(lower, x->left + 4);
    TurnSquare(x->left, x->left);
    if (!HALF) {
        TurnSquare(x->left + 4, x->right);
        TurnSquare(x->right + 4, x->right + 4);
    }
    for (int i = 0; i < 4; i++) x->right[i] = lower[i];
}

// The row pass leaves 8 fractional bits.
static inline void Forward(Halves* x) {
    Turn<false>(x);
    for (int i = 0; i < 8; i++) {
        x->left[i] = _mm_slli_epi32(x->left[i], 8);
        x->right[i] = _mm_slli_epi32(x->right[i], 8);
    }
    ForwardPass<FourLanes>(x->left);
    ForwardPass<FourLanes>(x->right);
    Turn<false>(x);
    ForwardPass<FourLanes>(x->left);
    ForwardPass<FourLanes>(x->right);
}

// Four times the sizes of four coefficients, and what is added to their products for rounding. The odd ones stand in even
// places, for products of 64 bits.
struct FourSizes {
    __m128i even;
    __m128i odd;
    __m128i roundEven;
    __m128i roundOdd;
};
struct Coefficients {
    FourSizes left[8];
    FourSizes right[8];
    Halves signs; // all bits of a lane, or none
};

// Halves are rounded down, so those of negative numbers up in size.
static inline void TakeSizes(FourSizes* out, __m128i* sign, __m128i coefficients) {
    *sign = _mm_srai_epi32(coefficients, 31);
    out->even = _mm_slli_epi32(_mm_sub_epi32(_mm_xor_si128(coefficients, *sign), *sign), 2);
    out->odd = _mm_srli_epi64(out->even, 32);
    const __m128i round = _mm_sub_epi32(_mm_set1_epi32(4 * 0x1fffffff), _mm_slli_epi32(*sign, 2));
    out->roundEven = _mm_and_si128(round, _mm_set_epi32(0, -1, 0, -1));
    out->roundOdd = _mm_srli_epi64(round, 32);
}

static inline void TakeCoefficients(Coefficients* out, Halves* rows) {
    Forward(rows);
    for (int i = 0; i < 8; i++) {
        TakeSizes(&out->left[i], &out->signs.left[i], rows->left[i]);
        TakeSizes(&out->right[i], &out->signs.right[i], rows->right[i]);
    }
}

// The upper halves of four lanes of 64 bits.
static inline __m128i UpperHalves(__m128i a, __m128i b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(3, 1, 3, 1)));
}

// (4 * size * f + round) >> 32 of coefficients 0 and 2 or 1 and 3, in the upper halves of the lanes.
static inline __m128i Products(__m128i sizes, const uint32_t* factors, __m128i round) {
    return _mm_add_epi64(_mm_mul_epu32(sizes, _mm_loadu_si128((const __m128i*)factors)), round);
}

// The sizes of eight quantised coefficients in 16 bits. Factors are followed by others, so a row of them can be read from its
// second one on.
static inline __m128i QuantiseRow(const FourSizes* left, const FourSizes* right, const uint32_t* factors) {
    const __m128i even = UpperHalves(Products(left->even, factors, left->roundEven),
                                     Products(right->even, factors + 4, right->roundEven));
    const __m128i odd = UpperHalves(Products(left->odd, factors + 1, left->roundOdd),
                                    Products(right->odd, factors + 5, right->roundOdd));
    return _mm_or_si128(even, _mm_slli_epi32(odd, 16));
}

// The bit lengths of the 16 groups of four, which are the 2x2 squares of the block, a byte each, row by row. They come from the
// exponents of floats. `pairs` holds the sizes of two rows each, joined by or.
static inline __m128i GroupLengths(const __m128i* pairs) {
    const __m128i low = _mm_set1_epi32(0xffff);
    __m128i exponents[4];
    for (int i = 0; i < 4; i++) {
        const __m128i squares = _mm_and_si128(_mm_or_si128(pairs[i], _mm_srli_epi32(pairs[i], 16)), low);
        exponents[i] = _mm_srli_epi32(_mm_castps_si128(_mm_cvtepi32_ps(squares)), 23);
    }
    const __m128i bytes =
        _mm_packus_epi16(_mm_packs_epi32(exponents[0], exponents[1]), _mm_packs_epi32(exponents[2], exponents[3]));
    return _mm_subs_epu8(bytes, _mm_set1_epi8(126));
}

// What a length costs with `times` flags for each plane: one more if it isn't 0.
static inline __m128i FlagsOf(__m128i lengths, __m128i times) {
    return _mm_sub_epi8(times, _mm_cmpgt_epi8(lengths, _mm_setzero_si128()));
}

// The bits of a string by the sum that StringBits in DctVector.h has. The three trees are the squares of 2x2 groups but the one
// at the upper left, whose groups are: that of the DC, and the own ones of the trees.
//   groups  bit lengths, row by row       zeros  the sum of all words is the number of coefficients that are 0
static inline uint32_t StringBits(__m128i groups, __m128i zeros) {
    __m128i squares = _mm_max_epu8(groups, _mm_srli_epi16(groups, 8));
    squares = _mm_max_epu8(
        squares, _mm_srli_epi64(squares, 32)); // bytes 0, 2, 8 and 10; others are no greater than the greatest
    const __m128i trees = _mm_set_epi32(0, 0x00ff00ff, 0, 0x00ff0000);
    const __m128i fours = _mm_and_si128(groups, _mm_set_epi32(-1, -1, (int)0xffff0000, (int)0xffff0000));
    const __m128i sixteens = _mm_and_si128(squares, trees);
    const __m128i own = _mm_and_si128(_mm_unpacklo_epi8(groups, groups), trees); // from bytes 1, 4 and 5
    const __m128i twenties = _mm_max_epu8(sixteens, own);
    const __m128i threes = _mm_add_epi8(fours, sixteens);
    __m128i sum = FlagsOf(fours, _mm_add_epi8(_mm_add_epi8(threes, threes), threes));
    sum = _mm_add_epi8(FlagsOf(sixteens, sum), FlagsOf(twenties, _mm_slli_epi16(twenties, 2)));
    sum = _mm_add_epi8(sum, _mm_sub_epi16(_mm_set1_epi16(8), zeros)); // 64 less them
    const __m128i sums = _mm_sad_epu8(sum, _mm_setzero_si128());
    __m128i longest = _mm_max_epu8(squares, _mm_srli_epi32(squares, 16));
    longest = _mm_max_epu8(longest, _mm_srli_si128(longest, 8));
    const uint32_t planes = (uint32_t)_mm_cvtsi128_si32(longest) & 0xff;
    return 4 + 6 * planes + (uint32_t)(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
}

// A bit for each byte of 0.
static inline int ZeroBytes(__m128i words) {
    return _mm_movemask_epi8(_mm_cmpeq_epi16(words, _mm_setzero_si128()));
}

struct FourColumns {
    using Coefficients = vorn::Coefficients;
    struct Quantised {
        __m128i rows[8]; // sizes, 16 bits each
        uint32_t acBits;
        bool hasAc;
        bool halfRows;
        bool halfColumns;
    };
    // Squares of 4x4, row by row in each: upper left, upper right, lower left, lower right.
    struct Samples {
        __m128i squares[4];
    };

    static void Transform(Coefficients* out, const uint8_t* samples) {
        const __m128i zero = _mm_setzero_si128();
        Halves rows;
        for (int i = 0; i < 8; i++) {
            const __m128i words = _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i*)(samples + 8 * i)), zero);
            rows.left[i] = _mm_unpacklo_epi16(words, zero);
            rows.right[i] = _mm_unpackhi_epi16(words, zero);
        }
        TakeCoefficients(out, &rows);
    }
    static void Transform(Coefficients* out, const int8_t* residuals) {
        const __m128i zero = _mm_setzero_si128();
        Halves rows;
        for (int i = 0; i < 8; i++) {
            const __m128i words = _mm_unpacklo_epi8(zero, _mm_loadl_epi64((const __m128i*)(residuals + 8 * i)));
            rows.left[i] = _mm_srai_epi32(_mm_unpacklo_epi16(zero, words), 24);
            rows.right[i] = _mm_srai_epi32(_mm_unpackhi_epi16(zero, words), 24);
        }
        TakeCoefficients(out, &rows);
    }
    // From vectors of two rows.
    static Samples SquaresOf(const __m128i* rows) {
        Samples samples;
        for (int i = 0; i < 2; i++) {
            const __m128 a = _mm_castsi128_ps(rows[2 * i]), b = _mm_castsi128_ps(rows[2 * i + 1]);
            samples.squares[2 * i] = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
            samples.squares[2 * i + 1] = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
        }
        return samples;
    }
    static Samples Take(const uint8_t* block) {
        __m128i rows[4];
        for (int i = 0; i < 4; i++) rows[i] = _mm_loadu_si128((const __m128i*)(block + 16 * i));
        return SquaresOf(rows);
    }
    // One of the four samples that a half-scale sample stands for, by its row and column in the 2x2 group.
    static Samples TakeHigh(const uint8_t* high, int row, int column) {
        const __m128i even = _mm_set1_epi16(0xff);
        __m128i words[8], rows[4];
        for (int i = 0; i < 8; i++) {
            const __m128i samples = _mm_loadu_si128((const __m128i*)(high + 16 * (2 * i + row)));
            words[i] = column == 0 ? _mm_and_si128(samples, even) : _mm_srli_epi16(samples, 8);
        }
        for (int i = 0; i < 4; i++) rows[i] = _mm_packus_epi16(words[2 * i], words[2 * i + 1]);
        return SquaresOf(rows);
    }
    static Samples AddSamples(Samples a, Samples b) {
        for (int i = 0; i < 4; i++) a.squares[i] = _mm_add_epi8(a.squares[i], b.squares[i]);
        return a;
    }

    template <bool HALF>
    static void QuantiseRows(Quantised* out, const Coefficients* coefficients, const uint32_t* factors, bool inter) {
        constexpr int ROWS = HALF ? 4 : 8;
        const __m128i zero = _mm_setzero_si128();
        for (int i = 0; i < ROWS; i++)
            out->rows[i] = QuantiseRow(&coefficients->left[i], &coefficients->right[i], factors + 8 * i);
        // The stream has no room for a DC of -1024.
        if (inter && _mm_extract_epi16(out->rows[0], 0) == 1024 && _mm_cvtsi128_si32(coefficients->signs.left[0]) != 0)
            out->rows[0] = _mm_sub_epi16(out->rows[0], _mm_cvtsi32_si128(1));
        const __m128i withoutDc = _mm_and_si128(out->rows[0], _mm_set_epi16(-1, -1, -1, -1, -1, -1, -1, 0));
        __m128i pairs[4] = {_mm_or_si128(withoutDc, out->rows[1]), zero, zero, zero};
        __m128i zeros = _mm_add_epi16(_mm_cmpeq_epi16(withoutDc, zero), _mm_cmpeq_epi16(out->rows[1], zero));
        for (int i = 2; i < ROWS; i += 2) {
            pairs[i / 2] = _mm_or_si128(out->rows[i], out->rows[i + 1]);
            zeros = _mm_add_epi16(zeros, _mm_cmpeq_epi16(out->rows[i], zero));
            zeros = _mm_add_epi16(zeros, _mm_cmpeq_epi16(out->rows[i + 1], zero));
        }
        zeros = _mm_sub_epi16(_mm_set1_epi16(8 - ROWS), zeros);
        const __m128i last = _mm_or_si128(pairs[2], pairs[3]);
        const int zeroBytes = ZeroBytes(_mm_or_si128(_mm_or_si128(pairs[0], pairs[1]), last));
        out->hasAc = zeroBytes != 0xffff;
        out->acBits = StringBits(GroupLengths(pairs), zeros);
        out->halfRows = HALF || ZeroBytes(last) == 0xffff;
        out->halfColumns = (zeroBytes & 0xff00) == 0xff00;
    }

    // Four coefficients for the inverse transform, from their sizes, each in both words of its lane.
    static __m128i Dequantise(__m128i sizes, __m128i signs, const uint32_t* factors) {
        const __m128i product = FourLanes::MulWords(_mm_loadu_si128((const __m128i*)factors), sizes);
        return _mm_srai_epi32(_mm_sub_epi32(_mm_xor_si128(product, signs), signs), 11);
    }
    // From columns of four samples in 8 fractional bits.
    static __m128i PackSquare(const __m128i* x) {
        const __m128i low = _mm_set1_epi32(0xff), high = _mm_set1_epi32(0xff00);
        const __m128i a = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(x[0], 8), low), _mm_and_si128(x[1], high));
        const __m128i b = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(x[2], 8), low), _mm_and_si128(x[3], high));
        return _mm_or_si128(a, _mm_slli_epi32(b, 16));
    }
    template <bool HALF_ROWS, bool HALF_COLUMNS>
    static Samples ShowSome(const Quantised* quantised, const Coefficients* coefficients, const uint32_t* factors) {
        Halves x;
        for (int i = 0; i < (HALF_ROWS ? 4 : 8); i++) {
            const __m128i row = quantised->rows[i];
            x.left[i] = Dequantise(_mm_unpacklo_epi16(row, row), coefficients->signs.left[i], factors + 8 * i);
            if (HALF_COLUMNS) continue;
            x.right[i] = Dequantise(_mm_unpackhi_epi16(row, row), coefficients->signs.right[i], factors + 8 * i + 4);
        }
        InversePass<FourLanes, HALF_ROWS>(x.left);
        if (!HALF_COLUMNS) InversePass<FourLanes, HALF_ROWS>(x.right);
        Turn<HALF_COLUMNS>(&x);
        // All of a pass's results have its first vector in them once: what it rounds with goes to all of them.
        const __m128i round = _mm_set1_epi32(127);
        x.left[0] = _mm_add_epi32(x.left[0], round);
        x.right[0] = _mm_add_epi32(x.right[0], round);
        InversePass<FourLanes, HALF_COLUMNS>(x.left);
        InversePass<FourLanes, HALF_COLUMNS>(x.right);
        return {{PackSquare(x.left), PackSquare(x.left + 4), PackSquare(x.right), PackSquare(x.right + 4)}};
    }

    static __m128i Sad(Samples a, Samples b) {
        __m128i sums = _mm_sad_epu8(a.squares[0], b.squares[0]);
        for (int i = 1; i < 4; i++) sums = AddSums(sums, _mm_sad_epu8(a.squares[i], b.squares[i]));
        return sums;
    }
    static __m128i AddSums(__m128i a, __m128i b) { return _mm_add_epi64(a, b); }
    static uint32_t Total(__m128i sums) { return (uint32_t)(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4)); }
};

} // namespace

int TryIntraSse2(DctTrial* trials, const uint8_t* block, const uint8_t* high) {
    return TryIntra<FourColumns>(trials, block, high);
}

int TryInterSse2(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved) {
    return TryInter<FourColumns>(trials, src, residual, moved);
}

} // namespace vorn
