// InverseDctTest.cpp - the integer transform against the cosine sums in double precision.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "reader/InverseDct.h"

namespace vorn::reader {
namespace {

// At quantiser 3 both families have step 2; a coefficient stands for 2 * weight / 16 of the orthonormal transform. Waves run
// across.
TEST(InverseDct, FollowsTheCosineSums) {
    const int weights[2][8] = {{16, 16, 16, 19, 16, 19, 22, 22}, {16, 17, 17, 18, 18, 18, 19, 19}};
    std::mt19937 noise(5);
    for (int round = 0; round < 400; round++) {
        const bool inter = round % 2 != 0;
        int16_t coefficients[BLOCK_SAMPLES] = {512}; // 128, far from both ends
        for (int k = 1; k < 8; k++) coefficients[k] = int16_t(int(noise() % 21) - 10);
        uint8_t samples[BLOCK_SAMPLES];
        (inter ? RestoreInter : RestoreIntra)(coefficients, 3, samples);
        for (int i = 0; i < BLOCK_SAMPLES; i++) {
            double value = coefficients[0] * std::sqrt(2.0);
            for (int k = 1; k < 8; k++)
                value +=
                    coefficients[k] * weights[inter][k] / 8.0 * std::cos((2 * (i % 8) + 1) * k * std::acos(-1.0) / 16);
            EXPECT_NEAR(samples[i], value / 4 / std::sqrt(2.0), 1.0);
        }
    }
}

} // namespace
} // namespace vorn::reader
