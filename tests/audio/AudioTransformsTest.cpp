// AudioTransformsTest.cpp - both transforms and their inverses against the plain sums in double precision.
#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "audio/AudioTransforms.h"
#include "tests/audio/CodedBlockReader.h"

namespace {

using namespace vorn;

// cos(2 pi t / period) and its quarter-shifted twin for whole t, without n^2 calls.
struct Circle {
    explicit Circle(uint32_t period) : cosine(period) {
        for (uint32_t t = 0; t < period; t++) cosine[t] = std::cos(2 * M_PI * t / period);
    }
    double Cos(uint64_t t) const { return cosine[t % cosine.size()]; }
    double Sin(uint64_t t) const { return cosine[(t + cosine.size() * 3 / 4) % cosine.size()]; }
    std::vector<double> cosine;
};

// The cosine of line k / 2 for even k, its sine for odd k; the place of line 0's sine has the top line's cosine.
double PlainDft(const std::vector<float>& a, uint64_t k, const Circle& circle) {
    const uint64_t line = k == 1 ? a.size() / 2 : k / 2;
    double sum = 0;
    for (uint64_t j = 0; j < a.size(); j++)
        sum += a[j] * (k % 2 && k > 1 ? circle.Sin(j * line) : circle.Cos(j * line));
    return sum;
}

double PlainDftInverse(const std::vector<float>& a, uint64_t k, const Circle& circle) {
    double sum = (double(a[0]) + (k % 2 ? -double(a[1]) : double(a[1]))) / 2;
    for (uint64_t j = 1; j < a.size() / 2; j++) sum += a[2 * j] * circle.Cos(j * k) + a[2 * j + 1] * circle.Sin(j * k);
    return sum;
}

double PlainDct(const std::vector<float>& a, uint64_t k, const Circle& circle) {
    double sum = 0;
    for (uint64_t j = 0; j < a.size(); j++) sum += a[j] * circle.Cos((2 * j + 1) * k);
    return sum;
}

double PlainDctInverse(const std::vector<float>& a, uint64_t k, const Circle& circle) {
    double sum = 0;
    for (uint64_t j = 0; j < a.size(); j++) sum += a[j] * circle.Cos(j * (2 * k + 1));
    return sum;
}

const struct {
    void (*transform)(float*, const TransformTables*);
    double (*plain)(const std::vector<float>&, uint64_t, const Circle&);
    uint32_t period; // in n
} TRANSFORMS[] = {
    {RealDftForward, PlainDft, 1},
    {RealDftInverse, PlainDftInverse, 1},
    {DctForward, PlainDct, 4},
    {DctInverse, PlainDctInverse, 4},
};

// The error of any result, against what noise gives on average. Measured: at most 7.3e-7, at 4096 points; 1.2e-7 on
// average.
constexpr double BOUND = 1e-6;

TEST(AudioTransforms, EqualThePlainSums) {
    for (uint32_t n = 4; n <= 4096; n *= 2) {
        std::unique_ptr<TransformTables, testaudio::FreeBlock> tables(
            static_cast<TransformTables*>(mokmalloc(TransformTableBytes(n))));
        MakeTransformTables(tables.get(), n);
        std::mt19937 engine(n);
        std::vector<float> noise(n), whole(n);
        float sum = 0, alternating = 0;
        for (uint32_t i = 0; i < n; i++) {
            noise[i] = float(int32_t(engine() % 65536) - 32768);
            whole[i] = std::floor(noise[i] / 16);
            sum += whole[i];
            alternating += i % 2 ? -whole[i] : whole[i];
        }
        for (const auto& row : TRANSFORMS) {
            const Circle circle(row.period * n);
            std::vector<double> expected(n);
            double energy = 0;
            for (uint32_t k = 0; k < n; k++) {
                expected[k] = row.plain(noise, k, circle);
                energy += expected[k] * expected[k];
            }
            std::vector<float> a = noise;
            row.transform(a.data(), tables.get());
            for (uint32_t k = 0; k < n; k++)
                ASSERT_NEAR(a[k], expected[k], BOUND * std::sqrt(energy / n))
                    << "entry " << k << " of " << n << ", transform " << &row - TRANSFORMS;
        }
        // Sums that floats hold exactly come out exactly.
        std::vector<float> a = whole;
        RealDftForward(a.data(), tables.get());
        EXPECT_EQ(a[0], sum);
        EXPECT_EQ(a[1], alternating);
        DctForward(whole.data(), tables.get());
        EXPECT_EQ(whole[0], sum);
    }
}

} // namespace
