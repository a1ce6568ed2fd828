// Transforms.cpp - 8x8 cosine transforms of the scaled, factorised kind (Arai, Agui and Nakajima): five multiplications for
// eight values; the scale of each coefficient is left to the quantiser tables.
// All arithmetic is modulo 2^32, held in unsigned numbers; only shifts look at the sign. A product that outgrows 32 bits, on
// extreme blocks, gives a wrong coefficient that a decoder shares. Constants have 11 fractional bits.
//
// A pass works on four columns at once, in vectors that compilers make of what the machine has. Rows are passed over by
// turning the block first.
#include "bitstream/Transforms.h"

#include <cstring>

#include "format/QuantiserTables.h"

namespace vorn {

namespace {

constexpr int LANES = 4;
typedef uint32_t Four __attribute__((vector_size(16)));
typedef int32_t SignedFour __attribute__((vector_size(16)));

// Four columns of a block, from the top.
struct Columns {
    Four row[BLOCK_SIDE];
};
struct Block {
    Columns left, right;
};

// Multiplies by factor / 2048 and rounds down.
inline Four Scale(Four value, int32_t factor) {
    return (Four)((SignedFour)(value * static_cast<uint32_t>(factor)) >> 11);
}

// One pass down four columns. The inputs count `gain` times.
template <uint32_t gain> void ForwardPass(Columns* columns) {
    Four* x = columns->row;
    const Four t0 = (x[0] + x[7]) * gain;
    const Four t7 = (x[0] - x[7]) * gain;
    const Four t1 = (x[1] + x[6]) * gain;
    const Four t6 = (x[1] - x[6]) * gain;
    const Four t2 = (x[2] + x[5]) * gain;
    const Four t5 = (x[2] - x[5]) * gain;
    const Four t3 = (x[3] + x[4]) * gain;
    const Four t4 = (x[3] - x[4]) * gain;

    const Four e0 = t0 + t3;
    const Four e3 = t0 - t3;
    const Four e1 = t1 + t2;
    const Four e2 = t1 - t2;
    const Four z1 = Scale(e2 + e3, 1448);
    x[0] = e0 + e1;
    x[4] = e0 - e1;
    x[2] = e3 + z1;
    x[6] = e3 - z1;

    const Four o0 = t4 + t5;
    const Four o1 = t5 + t6;
    const Four o2 = t6 + t7;
    const Four z5 = Scale(o0 - o2, 784);
    const Four z2 = Scale(o0, 1108) + z5;
    const Four z4 = Scale(o2, 2676) + z5;
    const Four z3 = Scale(o1, 1448);
    const Four u = t7 + z3;
    const Four v = t7 - z3;
    x[5] = v + z2;
    x[3] = v - z2;
    x[1] = u + z4;
    x[7] = u - z4;
}

void InversePass(Columns* columns) {
    Four* x = columns->row;
    const Four p = x[0] + x[4];
    const Four m = x[0] - x[4];
    const Four s = x[2] + x[6];
    const Four d = Scale(x[2] - x[6], 2896) - s;

    const Four a = x[1] + x[7];
    const Four b = x[1] - x[7];
    const Four c = x[3] + x[5];
    const Four e = x[5] - x[3];
    const Four g = a + c;
    const Four h = Scale(b + e, 3784);
    const Four k = Scale(e, -5352) - g + h;
    const Four l = Scale(a - c, 2896) - k;
    const Four n = Scale(b, 2217) - h + l;

    x[0] = p + s + g;
    x[7] = p + s - g;
    x[1] = m + d + k;
    x[6] = m + d - k;
    x[2] = m - d + l;
    x[5] = m - d - l;
    x[3] = p - s - n;
    x[4] = p - s + n;
}

// Turns four rows of four; `out` and `in` may be the same.
inline void TurnSquare(Four* out, const Four* in) {
    const Four a = __builtin_shufflevector(in[0], in[1], 0, 4, 1, 5);
    const Four b = __builtin_shufflevector(in[2], in[3], 0, 4, 1, 5);
    const Four c = __builtin_shufflevector(in[0], in[1], 2, 6, 3, 7);
    const Four d = __builtin_shufflevector(in[2], in[3], 2, 6, 3, 7);
    out[0] = __builtin_shufflevector(a, b, 0, 1, 4, 5);
    out[1] = __builtin_shufflevector(a, b, 2, 3, 6, 7);
    out[2] = __builtin_shufflevector(c, d, 0, 1, 4, 5);
    out[3] = __builtin_shufflevector(c, d, 2, 3, 6, 7);
}

// Rows become columns.
void Turn(Block* block) {
    TurnSquare(block->left.row, block->left.row);
    TurnSquare(block->right.row + LANES, block->right.row + LANES);
    Four lower[LANES];
    TurnSquare(lower, block->right.row);
    TurnSquare(block->right.row, block->left.row + LANES);
    std::memcpy(block->left.row + LANES, lower, sizeof lower);
}

void LoadRows(Block* block, const uint32_t* values) {
    for (int row = 0; row < BLOCK_SIDE; row++, values += BLOCK_SIDE) {
        std::memcpy(&block->left.row[row], values, sizeof(Four));
        std::memcpy(&block->right.row[row], values + LANES, sizeof(Four));
    }
}

void StoreRows(void* values, const Block& block) {
    uint8_t* out = static_cast<uint8_t*>(values);
    for (int row = 0; row < BLOCK_SIDE; row++, out += 2 * sizeof(Four)) {
        std::memcpy(out, &block.left.row[row], sizeof(Four));
        std::memcpy(out + sizeof(Four), &block.right.row[row], sizeof(Four));
    }
}

// The row pass leaves 8 fractional bits.
template <class Sample> void Forward(int32_t* coefficients, const Sample* samples) {
    uint32_t values[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) values[i] = static_cast<uint32_t>(static_cast<int32_t>(samples[i]));
    Block block;
    LoadRows(&block, values);
    Turn(&block);
    ForwardPass<256>(&block.left);
    ForwardPass<256>(&block.right);
    Turn(&block);
    ForwardPass<1>(&block.left);
    ForwardPass<1>(&block.right);
    StoreRows(coefficients, block);
}

// To the nearest integer, halves down; the low 16 bits are kept.
void Quantise(int16_t* quantised, const int32_t* coefficients, const uint32_t* factors) {
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const int64_t product = static_cast<int64_t>(factors[i]) * coefficients[i];
        quantised[i] = static_cast<int16_t>(static_cast<uint16_t>((product + 0x1fffffff) >> 30));
    }
}

void Dequantise(Block* block, const int16_t* quantised, const uint32_t* factors) {
    uint32_t values[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++)
        values[i] = static_cast<uint32_t>(static_cast<int32_t>(quantised[i])) * factors[i];
    for (int i = 0; i < BLOCK_SAMPLES; i++) values[i] = static_cast<uint32_t>(static_cast<int32_t>(values[i]) >> 11);
    LoadRows(block, values);
}

// Nothing is clamped: a sample keeps its low 8 bits.
void Inverse(uint8_t* destination, int pitch, const int16_t* quantised, const uint32_t* factors) {
    Block block;
    Dequantise(&block, quantised, factors);
    InversePass(&block.left);
    InversePass(&block.right);
    Turn(&block);
    InversePass(&block.left);
    InversePass(&block.right);
    Turn(&block);
    uint32_t values[BLOCK_SAMPLES];
    StoreRows(values, block);
    uint8_t samples[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) samples[i] = static_cast<uint8_t>((values[i] + 127) >> 8);
    for (int row = 0; row < BLOCK_SIDE; row++)
        std::memcpy(destination + row * pitch, samples + row * BLOCK_SIDE, BLOCK_SIDE);
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
