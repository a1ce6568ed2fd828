// Transforms.cpp - 8x8 cosine transforms of the scaled, factorised kind (Arai, Agui and Nakajima): five multiplications for
// eight values; the scale of each coefficient is left to the quantiser tables.
// All arithmetic is modulo 2^32, held in unsigned numbers; only shifts look at the sign. A product that outgrows 32 bits, on
// extreme blocks, gives a wrong coefficient that a decoder shares. Constants have 11 fractional bits.
#include "bitstream/Transforms.h"

#include "format/QuantiserTables.h"

namespace vorn {

namespace {

// Multiplies by factor / 2048 and rounds down.
uint32_t Scale(uint32_t value, int32_t factor) {
    return static_cast<uint32_t>(static_cast<int32_t>(value * static_cast<uint32_t>(factor)) >> 11);
}

// One pass over eight values `stride` apart, in place. The inputs count `gain` times.
template <uint32_t gain> void ForwardPass(uint32_t* x, int stride) {
    const auto at = [=](int i) -> uint32_t& { return x[i * stride]; };
    const uint32_t t0 = (at(0) + at(7)) * gain;
    const uint32_t t7 = (at(0) - at(7)) * gain;
    const uint32_t t1 = (at(1) + at(6)) * gain;
    const uint32_t t6 = (at(1) - at(6)) * gain;
    const uint32_t t2 = (at(2) + at(5)) * gain;
    const uint32_t t5 = (at(2) - at(5)) * gain;
    const uint32_t t3 = (at(3) + at(4)) * gain;
    const uint32_t t4 = (at(3) - at(4)) * gain;

    const uint32_t e0 = t0 + t3;
    const uint32_t e3 = t0 - t3;
    const uint32_t e1 = t1 + t2;
    const uint32_t e2 = t1 - t2;
    const uint32_t z1 = Scale(e2 + e3, 1448);
    at(0) = e0 + e1;
    at(4) = e0 - e1;
    at(2) = e3 + z1;
    at(6) = e3 - z1;

    const uint32_t o0 = t4 + t5;
    const uint32_t o1 = t5 + t6;
    const uint32_t o2 = t6 + t7;
    const uint32_t z5 = Scale(o0 - o2, 784);
    const uint32_t z2 = Scale(o0, 1108) + z5;
    const uint32_t z4 = Scale(o2, 2676) + z5;
    const uint32_t z3 = Scale(o1, 1448);
    const uint32_t u = t7 + z3;
    const uint32_t v = t7 - z3;
    at(5) = v + z2;
    at(3) = v - z2;
    at(1) = u + z4;
    at(7) = u - z4;
}

void InversePass(uint32_t* x, int stride) {
    const auto at = [=](int i) -> uint32_t& { return x[i * stride]; };
    const uint32_t p = at(0) + at(4);
    const uint32_t m = at(0) - at(4);
    const uint32_t s = at(2) + at(6);
    const uint32_t d = Scale(at(2) - at(6), 2896) - s;

    const uint32_t a = at(1) + at(7);
    const uint32_t b = at(1) - at(7);
    const uint32_t c = at(3) + at(5);
    const uint32_t e = at(5) - at(3);
    const uint32_t g = a + c;
    const uint32_t h = Scale(b + e, 3784);
    const uint32_t k = Scale(e, -5352) - g + h;
    const uint32_t l = Scale(a - c, 2896) - k;
    const uint32_t n = Scale(b, 2217) - h + l;

    at(0) = p + s + g;
    at(7) = p + s - g;
    at(1) = m + d + k;
    at(6) = m + d - k;
    at(2) = m - d + l;
    at(5) = m - d - l;
    at(3) = p - s - n;
    at(4) = p - s + n;
}

// The row pass leaves 8 fractional bits.
template <class Sample> void Forward(int32_t* coefficients, const Sample* block) {
    uint32_t work[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) work[i] = static_cast<uint32_t>(static_cast<int32_t>(block[i]));
    for (int row = 0; row < BLOCK_SIDE; row++) ForwardPass<256>(work + row * BLOCK_SIDE, 1);
    for (int column = 0; column < BLOCK_SIDE; column++) ForwardPass<1>(work + column, BLOCK_SIDE);
    for (int i = 0; i < BLOCK_SAMPLES; i++) coefficients[i] = static_cast<int32_t>(work[i]);
}

// To the nearest integer, halves down; the low 16 bits are kept.
void Quantise(int16_t* quantised, const int32_t* coefficients, const uint32_t* factors) {
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const int64_t product = static_cast<int64_t>(factors[i]) * coefficients[i];
        quantised[i] = static_cast<int16_t>(static_cast<uint16_t>((product + 0x1fffffff) >> 30));
    }
}

// Dequantises one column; true if it holds nothing but its first value.
bool DequantiseColumn(uint32_t* work, const int16_t* quantised, const uint32_t* factors, int column) {
    int16_t others = 0;
    for (int i = column; i < BLOCK_SAMPLES; i += BLOCK_SIDE) {
        if (i >= BLOCK_SIDE) others = static_cast<int16_t>(others | quantised[i]);
        work[i] = static_cast<uint32_t>(
            static_cast<int32_t>(static_cast<uint32_t>(static_cast<int32_t>(quantised[i])) * factors[i]) >> 11);
    }
    return others == 0;
}

// Nothing is clamped: a sample keeps its low 8 bits.
void Inverse(uint8_t* destination, int pitch, const int16_t* quantised, const uint32_t* factors) {
    uint32_t work[BLOCK_SAMPLES];
    for (int column = 0; column < BLOCK_SIDE; column++) {
        if (DequantiseColumn(work, quantised, factors, column)) {
            // All outputs of a pass over nothing but a first value equal it.
            for (int i = column + BLOCK_SIDE; i < BLOCK_SAMPLES; i += BLOCK_SIDE) work[i] = work[column];
        } else {
            InversePass(work + column, BLOCK_SIDE);
        }
    }
    for (int row = 0; row < BLOCK_SIDE; row++, destination += pitch) {
        uint32_t* values = work + row * BLOCK_SIDE;
        InversePass(values, 1);
        for (int i = 0; i < BLOCK_SIDE; i++) destination[i] = static_cast<uint8_t>((values[i] + 127) >> 8);
    }
}

} // namespace

void ForwardTransform(int32_t* coefficients, const uint8_t* block) {
    Forward(coefficients, block);
}

void ForwardTransformSigned(int32_t* coefficients, const int8_t* block) {
    Forward(coefficients, block);
}

void QuantiseIntra(int16_t* quantised, const int32_t* coefficients, int q) {
    Quantise(quantised, coefficients, INTRA_QUANTISERS.quantise[q]);
}

void QuantiseInter(int16_t* quantised, const int32_t* coefficients, int q) {
    Quantise(quantised, coefficients, INTER_QUANTISERS.quantise[q]);
    if (quantised[0] == -1024) quantised[0] = -1023;
}

void InverseIntra(uint8_t* destination, int pitch, const int16_t* quantised, int q) {
    Inverse(destination, pitch, quantised, INTRA_QUANTISERS.dequantise[q]);
}

void InverseInter(uint8_t* destination, int pitch, const int16_t* quantised, int q) {
    Inverse(destination, pitch, quantised, INTER_QUANTISERS.dequantise[q]);
}

} // namespace vorn
