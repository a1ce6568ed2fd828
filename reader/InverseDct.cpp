// InverseDct.cpp - the inverse transform in integers. All sums and products wrap at 32 bits, as the format has it.
#include "reader/InverseDct.h"

#include "format/QuantiserTables.h"

namespace vorn::reader {
namespace {

// Numbers in two's complement: unsigned, so that wrapping is well defined.
using Word = uint32_t;

// x * factor / 2048, rounded down, of the product's low 32 bits.
Word Scale(Word x, int32_t factor) {
    return Word(int32_t(x * Word(factor)) >> 11);
}

// One transform of 8 values, `step` apart, in place.
void Butterfly(Word* v, int step) {
    const Word x0 = v[0], x1 = v[step], x2 = v[2 * step], x3 = v[3 * step];
    const Word x4 = v[4 * step], x5 = v[5 * step], x6 = v[6 * step], x7 = v[7 * step];

    const Word evenSum = x0 + x4, evenDifference = x0 - x4;
    const Word s = x2 + x6;
    const Word d = Scale(x2 - x6, 2896) - s;

    const Word a = x1 + x7, b = x1 - x7, c = x3 + x5, e = x5 - x3;
    const Word g = a + c;
    const Word h = Scale(b + e, 3784);
    const Word k = Scale(e, -5352) - g + h;
    const Word l = Scale(a - c, 2896) - k;
    const Word n = Scale(b, 2217) - h + l;

    v[0] = evenSum + s + g;
    v[7 * step] = evenSum + s - g;
    v[step] = evenDifference + d + k;
    v[6 * step] = evenDifference + d - k;
    v[2 * step] = evenDifference - d + l;
    v[5 * step] = evenDifference - d - l;
    v[3 * step] = evenSum - s - n;
    v[4 * step] = evenSum - s + n;
}

void Restore(const int16_t coefficients[BLOCK_SAMPLES], const uint32_t dequantise[BLOCK_SAMPLES],
             uint8_t samples[BLOCK_SAMPLES]) {
    Word work[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        work[i] = Word(int32_t(Word(int32_t(coefficients[i])) * dequantise[i]) >> 11);
    }
    for (int column = 0; column < BLOCK_SIDE; column++) Butterfly(work + column, BLOCK_SIDE);
    for (int row = 0; row < BLOCK_SIDE; row++) Butterfly(work + row * BLOCK_SIDE, 1);
    for (int i = 0; i < BLOCK_SAMPLES; i++) samples[i] = uint8_t(int32_t(work[i] + 127) >> 8);
}

} // namespace

void RestoreIntra(const int16_t coefficients[BLOCK_SAMPLES], uint32_t quantiser, uint8_t samples[BLOCK_SAMPLES]) {
    Restore(coefficients, INTRA_QUANTISERS.dequantise[quantiser], samples);
}

void RestoreInter(const int16_t coefficients[BLOCK_SAMPLES], uint32_t quantiser, uint8_t samples[BLOCK_SAMPLES]) {
    Restore(coefficients, INTER_QUANTISERS.dequantise[quantiser], samples);
}

} // namespace vorn::reader
