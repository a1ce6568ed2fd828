// QuantiserTables.cpp - the rule behind the quantiser tables, followed while compiling.
//
// A coefficient f of the orthonormal DCT is coded as the integer nearest to 16 * f / (step * weight). The scale factors that
// the transforms leave out are folded in: dequantiser = 65536 * step * weight / 16 * scale of the row * scale of the column,
// quantiser = 2^35 / that. Each value is taken to single precision first, then to the nearest integer, halves up: a decoder
// holds the very same numbers, and some 4 in 100 dequantisers thus stand one above the plainly rounded value.
#include "format/QuantiserTables.h"

namespace vorn {

namespace {

// Quantiser 0 to 15.
constexpr double STEPS[QUANTISERS] = {1, 4.0 / 3, 5.0 / 3, 2, 8.0 / 3, 3.5, 4, 5, 6, 8, 12, 17, 22, 28, 34, 44};

// By frequency k: 1 for 0, else sqrt(2) * cos(k * pi / 16).
constexpr double SCALES[BLOCK_SIDE] = {1.0, 1.38703984532214746182, 1.30656296487637652786, 1.17587560241935871697,
                                       1.0, 0.78569495838710218128, 0.54119610014619698440, 0.27589937928294301234};

// By block position; 16 is the finest.
// clang-format off
constexpr uint8_t INTRA_WEIGHTS[BLOCK_SAMPLES] = {
    16, 16, 16, 19, 16, 19, 22, 22,
    22, 22, 26, 24, 26, 22, 22, 27,
    27, 27, 26, 26, 26, 29, 29, 29,
    27, 27, 27, 26, 34, 34, 34, 29,
    29, 29, 27, 27, 37, 34, 34, 32,
    32, 29, 29, 38, 37, 35, 35, 34,
    35, 40, 40, 40, 38, 38, 48, 48,
    46, 46, 58, 56, 56, 69, 69, 83,
};
constexpr uint8_t INTER_WEIGHTS[BLOCK_SAMPLES] = {
    16, 17, 17, 18, 18, 18, 19, 19,
    19, 19, 20, 20, 20, 20, 20, 21,
    21, 21, 21, 21, 21, 22, 22, 22,
    22, 22, 22, 22, 23, 23, 23, 23,
    23, 23, 23, 23, 24, 24, 24, 25,
    24, 24, 24, 25, 26, 26, 26, 26,
    25, 27, 27, 27, 27, 27, 28, 28,
    28, 28, 30, 30, 30, 31, 31, 33,
};
// clang-format on

constexpr uint32_t RoundEntry(double value) {
    const float single = static_cast<float>(value);
    return static_cast<uint32_t>(static_cast<double>(single) + 0.5);
}

constexpr QuantiserTables MakeTables(const uint8_t* weights) {
    QuantiserTables tables{};
    for (int q = 0; q < QUANTISERS; q++) {
        for (int i = 0; i < BLOCK_SAMPLES; i++) {
            const double scale = SCALES[i / BLOCK_SIDE] * SCALES[i % BLOCK_SIDE];
            const double step = 65536.0 * STEPS[q] * (weights[i] / 16.0) * scale;
            tables.dequantise[q][i] = RoundEntry(step);
            tables.quantise[q][i] = RoundEntry(34359738368.0 / step);
        }
    }
    return tables;
}

} // namespace

constinit const QuantiserTables INTRA_QUANTISERS = MakeTables(INTRA_WEIGHTS);
constinit const QuantiserTables INTER_QUANTISERS = MakeTables(INTER_WEIGHTS);

} // namespace vorn
