// PixelOpsFast.cpp - the pixel operations in use: 16 samples at a time where the processor has SSE2 by definition, else the
// plain versions. The results are the same.
#include "blocks/PixelOps.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vorn {

uint32_t SadBlock(const uint8_t* a, const uint8_t* b) {
    return SadSamples(a, b, BLOCK_SAMPLES);
}

#if defined(__SSE2__)

namespace {

constexpr int LANES = 16; // samples of a vector

inline __m128i Load16(const uint8_t* at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}
inline __m128i Load8(const uint8_t* at) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at));
}
inline void Store16(uint8_t* at, __m128i samples) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at), samples);
}
inline void Store8(uint8_t* at, __m128i samples) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(at), samples);
}
inline __m128i AllOf(int value) {
    return _mm_set1_epi8(static_cast<char>(value));
}
// |a - b| of unsigned samples: one of the two saturated differences is 0.
inline __m128i Distances(__m128i a, __m128i b) {
    return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
}
// Sums of absolute differences come as two 64-bit halves.
inline uint32_t BothHalves(__m128i sums) {
    return static_cast<uint32_t>(_mm_cvtsi128_si32(sums)) +
           static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
}

// 0xff where a sample is at most `limit`.
inline __m128i UpTo(const uint8_t* samples, __m128i limits) {
    const __m128i sixteen = Load16(samples);
    return _mm_cmpeq_epi8(_mm_min_epu8(sixteen, limits), sixteen);
}
// How many of 256 samples are at most `limit`.
inline uint32_t CountUpTo(const uint8_t* high, uint32_t limit) {
    const __m128i limits = AllOf(static_cast<int>(limit));
    __m128i counts = _mm_setzero_si128();
    for (int i = 0; i < HIGH_SAMPLES; i += LANES) counts = _mm_sub_epi8(counts, UpTo(high + i, limits));
    return BothHalves(_mm_sad_epu8(counts, _mm_setzero_si128()));
}
// The least of 256 samples above `limit`, 255 if there is none.
inline uint32_t LeastAbove(const uint8_t* high, uint32_t limit) {
    const __m128i limits = AllOf(static_cast<int>(limit));
    __m128i least = AllOf(255);
    for (int i = 0; i < HIGH_SAMPLES; i += LANES)
        least = _mm_min_epu8(least, _mm_or_si128(Load16(high + i), UpTo(high + i, limits)));
    least = _mm_min_epu8(least, _mm_srli_si128(least, 8));
    least = _mm_min_epu8(least, _mm_srli_si128(least, 4));
    least = _mm_min_epu8(least, _mm_srli_si128(least, 2));
    least = _mm_min_epu8(least, _mm_srli_si128(least, 1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(least)) & 0xff;
}

// 64 samples on their way to being sorted, four vectors of 16. Every sample has an index of 6 bits; bits 5 and 4 of its
// place say in which vector it lies, bits 3 to 0 in which lane.
struct SortState {
    __m128i a;
    __m128i b;
    __m128i c;
    __m128i d;
};
inline void Order(__m128i* low, __m128i* high) {
    const __m128i least = _mm_min_epu8(*low, *high);
    *high = _mm_max_epu8(*low, *high);
    *low = least;
}
// Orders the pairs that differ in bit 5 of their place, or in bit 4.
inline void OrderBit5(SortState* s) {
    Order(&s->a, &s->c);
    Order(&s->b, &s->d);
}
inline void OrderBit4(SortState* s) {
    Order(&s->a, &s->b);
    Order(&s->c, &s->d);
}
// The perfect shuffle: the six bits of every place rotate up by one, bit 5 becomes bit 0.
inline void Rotate(SortState* s) {
    const SortState from = *s;
    s->a = _mm_unpacklo_epi8(from.a, from.c);
    s->b = _mm_unpackhi_epi8(from.a, from.c);
    s->c = _mm_unpacklo_epi8(from.b, from.d);
    s->d = _mm_unpackhi_epi8(from.b, from.d);
}
template <int TIMES> inline void RotateBy(SortState* s) {
    for (int i = 0; i < TIMES; i++) Rotate(s);
}
inline void Complement(SortState* s, __m128i inA, __m128i inB, __m128i inC, __m128i inD) {
    s->a = _mm_xor_si128(s->a, inA);
    s->b = _mm_xor_si128(s->b, inB);
    s->c = _mm_xor_si128(s->c, inC);
    s->d = _mm_xor_si128(s->d, inD);
}

// A bitonic sort. Stage k makes sorted groups of 2^k, those with bit k of the index set falling, the others rising, by
// ordering pairs that differ in index bit k - 1, then k - 2, down to 0. A falling group is sorted rising with all its samples
// complemented. Only place bits 5 and 4 can be ordered, so places rotate until the index bits in question lie there:
//   stage           1-2    3             4             5                    6
//   index bits      1,0    2,1   1,0     3,2   1,0     4,3   2,1   1,0      5,4   3,2   1,0
//   rotations       -      5     1       4     2       3     2     1        2     2     2     then 2 to end in order
// Where a stage k > 2 starts, index bit k lies in place bit 0 and bit k - 1, the one of the complements that end, in 5.
// Stages 1 and 2 are a sort of each lane's four samples, whatever their index bits.
void SortSixtyFour(uint8_t* bytes) {
    SortState s = {Load16(bytes), Load16(bytes + 16), Load16(bytes + 32), Load16(bytes + 48)};
    const __m128i odd = _mm_set1_epi16(static_cast<short>(0xff00)); // place bit 0 is set
    const __m128i even = _mm_set1_epi16(0x00ff);
    const __m128i none = _mm_setzero_si128();
    const __m128i all = AllOf(255);
    Complement(&s, odd, odd, odd, odd);
    OrderBit4(&s);
    OrderBit5(&s);
    Order(&s.b, &s.c);
    RotateBy<5>(&s); // stage 3
    Complement(&s, odd, odd, even, even);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<1>(&s);
    OrderBit4(&s);
    RotateBy<4>(&s); // stage 4
    Complement(&s, odd, odd, even, even);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<2>(&s);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<3>(&s); // stage 5
    Complement(&s, odd, odd, even, even);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<2>(&s);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<1>(&s);
    OrderBit4(&s);
    RotateBy<2>(&s); // stage 6
    Complement(&s, none, none, all, all);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<2>(&s);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<2>(&s);
    OrderBit5(&s);
    OrderBit4(&s);
    RotateBy<2>(&s);
    Store16(bytes, s.a);
    Store16(bytes + 16, s.b);
    Store16(bytes + 32, s.c);
    Store16(bytes + 48, s.d);
}

} // namespace

void DiffBlock(uint8_t* out, const uint8_t* a, const uint8_t* b, int pitchIn, int pitchOut) {
    for (int row = 0; row < BLOCK_SIDE; row++)
        Store8(out + row * pitchOut, _mm_sub_epi8(Load8(a + row * pitchIn), Load8(b + row * pitchIn)));
}

void AddBlock(uint8_t* out, const uint8_t* a, const uint8_t* b) {
    for (int i = 0; i < BLOCK_SAMPLES; i += LANES) Store16(out + i, _mm_add_epi8(Load16(a + i), Load16(b + i)));
}

uint32_t SadColour(const uint8_t* block, int samples, int colour) {
    const __m128i colours = AllOf(colour);
    __m128i sums = _mm_setzero_si128();
    int i = 0;
    for (; i + LANES <= samples; i += LANES) sums = _mm_add_epi64(sums, _mm_sad_epu8(Load16(block + i), colours));
    return BothHalves(sums) + SadColourPlain(block + i, samples - i, colour);
}

uint32_t SadSamples(const uint8_t* a, const uint8_t* b, uint32_t samples) {
    __m128i sums = _mm_setzero_si128();
    uint32_t i = 0;
    for (; samples - i >= LANES; i += LANES) sums = _mm_add_epi64(sums, _mm_sad_epu8(Load16(a + i), Load16(b + i)));
    return BothHalves(sums) + SadSamplesPlain(a + i, b + i, samples - i);
}

uint32_t SadDoubled(const uint8_t* half, const uint8_t* high) {
    __m128i sums = _mm_setzero_si128();
    for (int row = 0; row < BLOCK_SIDE; row++) {
        const __m128i samples = Load8(half + row * BLOCK_SIDE);
        const __m128i doubled = _mm_unpacklo_epi8(samples, samples);
        const uint8_t* above = high + 2 * row * HIGH_SIDE;
        sums = _mm_add_epi64(sums, _mm_sad_epu8(doubled, Load16(above)));
        sums = _mm_add_epi64(sums, _mm_sad_epu8(doubled, Load16(above + HIGH_SIDE)));
    }
    return BothHalves(sums);
}

void SortBytes(uint8_t* bytes, int count) {
    if (count == BLOCK_SAMPLES)
        SortSixtyFour(bytes);
    else
        SortBytesPlain(bytes, count);
}

// The lower middle sample is found bit by bit from the top, by counting those that are less; the other is the same, or else
// the least of those above it.
int HighMedian(const uint8_t* high) {
    uint32_t lower = 0;
    for (uint32_t bit = 128; bit != 0; bit >>= 1) {
        if (CountUpTo(high, lower + bit - 1) < HIGH_SAMPLES / 2) lower += bit;
    }
    if (CountUpTo(high, lower) > HIGH_SAMPLES / 2) return static_cast<int>(lower);
    const uint32_t upper = LeastAbove(high, lower);
    return static_cast<int>((lower + upper) >> 1);
}

void DoubleBlock(uint8_t* plane, const uint8_t* block, int pitch) {
    for (int row = 0; row < BLOCK_SIDE; row++) {
        const __m128i samples = Load8(block + row * BLOCK_SIDE);
        const __m128i doubled = _mm_unpacklo_epi8(samples, samples);
        Store16(plane + 2 * row * pitch, doubled);
        Store16(plane + (2 * row + 1) * pitch, doubled);
    }
}

// Groups lie in 16-bit lanes: even columns are the low bytes, odd ones the high bytes.
void HalveBlock(uint8_t* out, const uint8_t* plane, int width, int height, int pitch) {
    if (width % LANES != 0) return HalveBlockPlain(out, plane, width, height, pitch);
    const __m128i lowBytes = _mm_set1_epi16(0x00ff);
    for (int row = 0; row + 1 < height; row += 2) {
        const uint8_t* above = plane + row * pitch;
        for (int column = 0; column < width; column += LANES) {
            const __m128i upper = Load16(above + column);
            const __m128i lower = Load16(above + pitch + column);
            const __m128i a = _mm_and_si128(upper, lowBytes);
            const __m128i b = _mm_srli_epi16(upper, 8);
            const __m128i c = _mm_and_si128(lower, lowBytes);
            const __m128i d = _mm_srli_epi16(lower, 8);
            const __m128i low = _mm_max_epi16(_mm_min_epi16(a, d), _mm_min_epi16(b, c));
            const __m128i high = _mm_min_epi16(_mm_max_epi16(a, d), _mm_max_epi16(b, c));
            const __m128i means = _mm_srli_epi16(_mm_add_epi16(low, high), 1);
            Store8(out, _mm_packus_epi16(means, means));
            out += LANES / 2;
        }
    }
}

void MapToColours(uint8_t* mapped, const uint8_t* block, int low, int high) {
    const __m128i lows = AllOf(low);
    const __m128i highs = AllOf(high);
    for (int i = 0; i < BLOCK_SAMPLES; i += LANES) {
        const __m128i samples = Load16(block + i);
        // What low is nearer by, 0 if it isn't.
        const __m128i nearer = _mm_subs_epu8(Distances(samples, highs), Distances(samples, lows));
        const __m128i isHigh = _mm_cmpeq_epi8(nearer, _mm_setzero_si128());
        Store16(mapped + i, _mm_or_si128(_mm_and_si128(isHigh, highs), _mm_andnot_si128(isHigh, lows)));
    }
}

#else

void DiffBlock(uint8_t* out, const uint8_t* a, const uint8_t* b, int pitchIn, int pitchOut) {
    DiffBlockPlain(out, a, b, pitchIn, pitchOut);
}
void AddBlock(uint8_t* out, const uint8_t* a, const uint8_t* b) {
    AddBlockPlain(out, a, b);
}
uint32_t SadColour(const uint8_t* block, int samples, int colour) {
    return SadColourPlain(block, samples, colour);
}
uint32_t SadSamples(const uint8_t* a, const uint8_t* b, uint32_t samples) {
    return SadSamplesPlain(a, b, samples);
}
uint32_t SadDoubled(const uint8_t* half, const uint8_t* high) {
    return SadDoubledPlain(half, high);
}
void SortBytes(uint8_t* bytes, int count) {
    SortBytesPlain(bytes, count);
}
int HighMedian(const uint8_t* high) {
    return HighMedianPlain(high);
}
void DoubleBlock(uint8_t* plane, const uint8_t* block, int pitch) {
    DoubleBlockPlain(plane, block, pitch);
}
void HalveBlock(uint8_t* out, const uint8_t* plane, int width, int height, int pitch) {
    HalveBlockPlain(out, plane, width, height, pitch);
}
void MapToColours(uint8_t* mapped, const uint8_t* block, int low, int high) {
    MapToColoursPlain(mapped, block, low, high);
}

#endif

} // namespace vorn
