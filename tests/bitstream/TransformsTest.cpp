// TransformsTest.cpp - the transforms against a plain double DCT, and exact numbers worked out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "bitstream/TransformKernels.h"
#include "bitstream/Transforms.h"
#include "tests/bitstream/StreamReading.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// Weights of the intra quantisers, row by row.
const int INTRA_WEIGHTS[64] = {16, 16, 16, 19, 16, 19, 22, 22, 22, 22, 26, 24, 26, 22, 22, 27, 27, 27, 26, 26, 26, 29,
                               29, 29, 27, 27, 27, 26, 34, 34, 34, 29, 29, 29, 27, 27, 37, 34, 34, 32, 32, 29, 29, 38,
                               37, 35, 35, 34, 35, 40, 40, 40, 38, 38, 48, 48, 46, 46, 58, 56, 56, 69, 69, 83};

double Basis(int frequency, int place) {
    const double scale = frequency == 0 ? std::sqrt(0.125) : 0.5;
    return scale * std::cos((2 * place + 1) * frequency * std::acos(-1.0) / 16);
}

// 16 * f / weight at the finest quantiser, to within the rounding and what the 11-bit factors lose; of noise around a
// gradient that uses the range, not so steep that products wrap.
TEST(Transforms, FollowThePlainDct) {
    std::mt19937 random(1);
    for (int round = 0; round < 200; round++) {
        const int low = round % 2 ? -128 : 0;
        const int noise = RandomInt(&random, 0, 99), across = RandomInt(&random, -6, 6),
                  down = RandomInt(&random, -6, 6);
        int samples[64];
        uint8_t block[64];
        for (int i = 0; i < 64; i++) {
            const int value =
                low + 128 + across * (i % 8 - 4) + down * (i / 8 - 4) + RandomInt(&random, 0, noise) - noise / 2;
            samples[i] = std::clamp(value, low, low + 255);
            block[i] = static_cast<uint8_t>(samples[i]);
        }
        int32_t coefficients[64];
        int16_t quantised[64];
        if (low < 0)
            ForwardTransformSigned(coefficients, reinterpret_cast<const int8_t*>(block));
        else
            ForwardTransform(coefficients, block);
        QuantiseIntra(quantised, coefficients, 0);
        for (int i = 0; i < 64; i++) {
            double plain = 0;
            for (int k = 0; k < 64; k++) plain += samples[k] * Basis(i / 8, k / 8) * Basis(i % 8, k % 8);
            ASSERT_NEAR(quantised[i], 16 * plain / INTRA_WEIGHTS[i], 1.0) << "round " << round << " coefficient " << i;
        }
    }
}

// An exact half rounds down: DC inter 524288 * f / 2^30 = n + 1/2 at f = 2048 n + 1024.
TEST(Transforms, QuantisersRoundHalvesDown) {
    for (const int n : {-3, -1, 0, 2}) {
        int32_t coefficients[64] = {2048 * n + 1024};
        int16_t quantised[64];
        QuantiseIntra(quantised, coefficients, 0);
        EXPECT_EQ(quantised[0], n);
        coefficients[0]++;
        QuantiseIntra(quantised, coefficients, 0);
        EXPECT_EQ(quantised[0], n + 1);
    }
    int32_t coefficients[64] = {};
    int16_t intra[64];
    int16_t inter[64];
    coefficients[4] = 18 * 2048; // weights 16 and 18
    QuantiseIntra(intra, coefficients, 0);
    QuantiseInter(inter, coefficients, 0);
    EXPECT_EQ(intra[4], 18);
    EXPECT_EQ(inter[4], 16);
}

// Rows 0 and 1 at 255, rows 6 and 7 at 0: the column pass takes 2676 times o2 = t6 + t7 = 1044480, which is 2795028480 and
// wraps to -1499938816. All of the block is flat along its rows, so column 0 holds everything.
TEST(Transforms, ProductsWrapInTheColumnPass) {
    uint8_t block[64] = {};
    std::memset(block, 255, 16);
    std::memset(block + 16, 100, 32);
    int32_t coefficients[64];
    ForwardTransform(coefficients, block);
    // After the row pass x0 = x1 = 522240, x2 to x5 = 204800, x6 = x7 = 0; all products of the odd part divide evenly:
    // z5 = -399840, z2 = z5, z4 = -732392 + z5, z3 = 369240, u = 891480, v = 153000.
    EXPECT_EQ(coefficients[8], 891480 - 1132232);
    EXPECT_EQ(coefficients[56], 891480 + 1132232);
    EXPECT_EQ(coefficients[40], 153000 - 399840);
    EXPECT_EQ(coefficients[24], 153000 + 399840);
    for (int i = 0; i < 64; i++) {
        if (i % 8 == 0) continue;
        EXPECT_EQ(coefficients[i], 0) << i;
    }
}

// The twins do to a block what the plain transforms do, at every alignment, and write nothing but their results. Noise and
// rows at both ends make products wrap.
TEST(Transforms, EveryLevelCodesTheSameBlock) {
    Noise noise = {31};
    for (int round = 0; round < 3000; round++) {
        const size_t shift = static_cast<size_t>(round % 16);
        uint8_t room[64 + 16];
        uint8_t* block = room + shift;
        FillSamples(block, 8, 8, static_cast<Content>(round % CONTENTS), &noise);
        if (round % 7 == 0) std::memset(block, round % 2 ? 255 : 128, 16);
        if (round % 7 == 0) std::memset(block + 48, 0, 16);
        if (round % 50 == 0) std::memset(block, 128, 64); // the DC that the stream has no room for
        const int q = round % QUANTISERS;
        auto code = [&](CpuLevel level, bool inter, int16_t* quantised, uint8_t* shown) {
            const TransformKernels& kernels = TransformKernelsOf(level);
            if (inter)
                kernels.codeInter(quantised, shown, reinterpret_cast<int8_t*>(block), q);
            else
                kernels.codeIntra(quantised, shown, block, q);
        };
        for (int run = 0; run < 2 * (static_cast<int>(BestCpuLevel()) + 1); run++) {
            const CpuLevel level = static_cast<CpuLevel>(run / 2);
            std::vector<int16_t> plain(66, 0x5555), quantised = plain;
            std::vector<uint8_t> plainShown(81, 0x55), shown = plainShown;
            code(CpuLevel::PLAIN, run % 2 != 0, &plain[1], &plainShown[shift]);
            code(level, run % 2 != 0, &quantised[1], &shown[shift]);
            ASSERT_EQ(quantised, plain) << round << " " << NameOfCpuLevel(level);
            ASSERT_EQ(shown, plainShown) << round << " " << NameOfCpuLevel(level);
        }
    }
}

} // namespace
} // namespace vorn
