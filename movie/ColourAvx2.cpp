// ColourAvx2.cpp - thirty-two columns of two rows at a time, as ColourSse2.cpp does sixteen.
// Pixels stay where they were loaded, four in either half of a vector, until the bytes are put in order at the end.
#include <immintrin.h>

#include "movie/ColourKernels.h"

namespace vorn {
namespace {

constexpr uint32_t STEP = 32; // columns

// Weights of a pair, the lower number first.
static inline __m256i Weights(int low, int high) {
    return _mm256_set1_epi32((int)((uint32_t)high << 16 | ((uint32_t)low & 0xffff)));
}

static inline __m256i Weigh(__m256i blueRed, __m256i greenAlpha, int blue, int red, int green) {
    return _mm256_add_epi32(_mm256_madd_epi16(blueRed, Weights(blue, red)),
                            _mm256_madd_epi16(greenAlpha, Weights(green, 0)));
}

// Sums of neighbours: in either half two pixels of `a`, then two of `b`.
static inline __m256i AddNeighbours(__m256i a, __m256i b) {
    const __m256 first = _mm256_castsi256_ps(a), second = _mm256_castsi256_ps(b);
    const __m256i even = _mm256_castps_si256(_mm256_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256i odd = _mm256_castps_si256(_mm256_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1)));
    return _mm256_add_epi16(even, odd);
}

// Divides by 4096, towards zero.
static inline __m256i DivideChroma(__m256i sums) {
    const __m256i correction = _mm256_srli_epi32(_mm256_srai_epi32(sums, 31), 20);
    return _mm256_srai_epi32(_mm256_add_epi32(sums, correction), 12);
}

// Thirty-two numbers of 0 to 255 as bytes. The halves of each vector follow each other.
static inline __m256i PackBytes(const __m256i* numbers) {
    const __m256i mixed =
        _mm256_packus_epi16(_mm256_packs_epi32(numbers[0], numbers[1]), _mm256_packs_epi32(numbers[2], numbers[3]));
    return _mm256_permutevar8x32_epi32(mixed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// Numbers of -128 to 127 as bytes, 128 added. The two halves of `first` and `second` hold two numbers of each of two vectors.
static inline void StoreChroma(uint8_t* to, __m256i first, __m256i second) {
    const __m256i words = _mm256_packs_epi32(DivideChroma(first), DivideChroma(second));
    const __m256i bytes = _mm256_packus_epi16(_mm256_add_epi16(words, _mm256_set1_epi16(128)), words);
    const __m128i low = _mm256_castsi256_si128(bytes), high = _mm256_extracti128_si256(bytes, 1);
    _mm_storeu_si128((__m128i*)to, _mm_unpacklo_epi16(low, high));
}

// Thirty-two pixels of one row; adds them to the sums of the pair.
static inline void ConvertRow(const uint8_t* pixels, uint8_t* y, uint8_t* alpha, __m256i* blueRed,
                              __m256i* greenAlpha) {
    __m256i lumas[4], alphas[4];
    for (int i = 0; i < 4; i++) {
        const __m256i eight = _mm256_loadu_si256((const __m256i*)(pixels + 32 * i));
        const __m256i br = _mm256_and_si256(eight, _mm256_set1_epi16(0xff));
        const __m256i ga = _mm256_srli_epi16(eight, 8);
        lumas[i] = _mm256_srli_epi32(Weigh(br, ga, 100, 263, 516), 10);
        alphas[i] = _mm256_srli_epi32(eight, 24);
        blueRed[i] = _mm256_add_epi16(blueRed[i], br);
        greenAlpha[i] = _mm256_add_epi16(greenAlpha[i], ga);
    }
    _mm256_storeu_si256((__m256i*)y, _mm256_add_epi8(PackBytes(lumas), _mm256_set1_epi8(16)));
    _mm256_storeu_si256((__m256i*)alpha, PackBytes(alphas));
}

} // namespace

uint32_t ConvertColumnsAvx2(const RowPair* rows, uint32_t width) {
    const RowPair at = *rows;
    const uintptr_t ahead = 4 * (uintptr_t)(at.pixels[1] - at.pixels[0]); // as in ConvertColumnsSse2
    uint32_t x = 0;
    for (; x + STEP <= width; x += STEP) {
        for (int row = 0; row < 2; row++) {
            _mm_prefetch((const char*)((uintptr_t)at.pixels[row] + 4 * x + ahead), _MM_HINT_T0);
            _mm_prefetch((const char*)((uintptr_t)at.pixels[row] + 4 * x + 64 + ahead), _MM_HINT_T0);
        }
        __m256i br[4], ga[4];
        for (int i = 0; i < 4; i++) br[i] = ga[i] = _mm256_setzero_si256();
        ConvertRow(at.pixels[0] + 4 * x, at.y[0] + x, at.alpha[0] + x, br, ga);
        ConvertRow(at.pixels[1] + 4 * x, at.y[1] + x, at.alpha[1] + x, br, ga);
        const __m256i firstBr = AddNeighbours(br[0], br[1]), secondBr = AddNeighbours(br[2], br[3]);
        const __m256i firstGa = AddNeighbours(ga[0], ga[1]), secondGa = AddNeighbours(ga[2], ga[3]);
        StoreChroma(at.cr + x / 2, Weigh(firstBr, firstGa, -73, 450, -377), Weigh(secondBr, secondGa, -73, 450, -377));
        StoreChroma(at.cb + x / 2, Weigh(firstBr, firstGa, 450, -152, -298),
                    Weigh(secondBr, secondGa, 450, -152, -298));
    }
    return x;
}

} // namespace vorn
