// InverseDctTest.cpp - the integer transform against the cosine sums in double precision.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "reader/InverseDct.h"

namespace vorn::reader {
namespace {

// At quantiser 3 both families have step 2; a coefficient stands for 2 * weight / 16 of the orthonormal transform.
TEST(InverseDct, FollowsTheCosineSums) {
    const int intraRow[8] = {16, 16, 16, 19, 16, 19, 22, 22}, interRow[8] = {16, 17, 17, 18, 18, 18, 19, 19};
    const double pi = std::acos(-1.0);
    std::mt19937 noise(5);
    for (int round = 0; round < 200; round++) {
        int16_t coefficients[BLOCK_SAMPLES] = {512}; // 128, far from both ends
        for (int k = 1; k < 8; k++) coefficients[k] = int16_t(int(noise() % 21) - 10);
        for (const bool inter : {false, true}) {
            uint8_t samples[BLOCK_SAMPLES];
            (inter ? RestoreInter : RestoreIntra)(coefficients, 3, samples);
            for (int x = 0; x < 8; x++) {
                double value = 0;
                for (int k = 0; k < 8; k++) {
                    const double f = coefficients[k] * 2.0 * (inter ? interRow : intraRow)[k] / 16;
                    value += f * (k == 0 ? 1 / std::sqrt(2.0) : 1) * std::cos((2 * x + 1) * k * pi / 16);
                }
                for (int y = 0; y < 8; y++) EXPECT_NEAR(samples[8 * y + x], value / 4 / std::sqrt(2.0), 1.0);
            }
        }
    }
}

// Extremes wrap without a fault, and row and column are told apart.
TEST(InverseDct, ExtremesAndDirection) {
    int16_t coefficients[BLOCK_SAMPLES];
    uint8_t samples[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) coefficients[i] = i % 2 != 0 ? 32767 : -32768;
    RestoreIntra(coefficients, 15, samples);
    int16_t rowWave[BLOCK_SAMPLES] = {512};
    rowWave[8] = 20; // vertical frequency 1: rows differ, columns don't
    RestoreIntra(rowWave, 0, samples);
    EXPECT_GT(samples[0], samples[56]);
    EXPECT_EQ(samples[0], samples[7]);
}

} // namespace
} // namespace vorn::reader
