// PortableMathTest.cpp - the functions agree with the C library to a few units of the last place, give exact results
// where they promise to, and the same bits in every build.
#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "numeric/PortableMath.h"

namespace {

using namespace vorn;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr uint32_t SEED = 20240611;

// How far apart, in units of the last place of `expected`.
double UnitsApart(double value, double expected) {
    if (value == expected) return 0;
    const double size = std::fabs(expected);
    return std::fabs(value - expected) / (std::nextafter(size, INF) - size);
}

struct Noise {
    std::mt19937_64 engine{SEED};
    double operator()(double low, double high) { return low + (high - low) * (double(engine() >> 11) * 0x1p-53); }
};

// The C library's own error is below one unit, so 3 here are at most 4 of ours.
constexpr double FEW = 3;

TEST(PortableMath, AgreesWithTheLibrary) {
    Noise noise;
    for (int i = 0; i < 100000; i++) {
        const double x = i % 2 ? noise(0.3, 3.0) : std::exp(noise(-700, 700));
        ASSERT_LE(UnitsApart(Log2(x), std::log2(x)), FEW) << x;
        ASSERT_LE(UnitsApart(Ln(x), std::log(x)), FEW) << x;
        ASSERT_LE(UnitsApart(Log10(x), std::log10(x)), FEW) << x;
        const double power = i % 2 ? noise(-1, 1) : noise(-700, 700);
        ASSERT_LE(UnitsApart(Exp(power), std::exp(power)), FEW) << power;
        ASSERT_LE(UnitsApart(Pow10(power * 0.4), std::pow(10.0, power * 0.4)), FEW) << power;
        const double base = std::exp(noise(-20, 20)), exponent = noise(-30, 30);
        ASSERT_LE(UnitsApart(Power(base, exponent), std::pow(base, exponent)), FEW) << base << " " << exponent;
        const double right = noise(-10, 10), up = noise(-10, 10) * (i % 2 ? 1.0 : std::exp(noise(-40, 40)));
        ASSERT_LE(UnitsApart(Atan2(up, right), std::atan2(up, right)), FEW) << up << " " << right;
        const double small = noise(-0.5, 0.5); // pi * small is exact to a unit of the last place here
        ASSERT_LE(UnitsApart(SinPi(small), std::sin(M_PI * small)), FEW + 1) << small;
        ASSERT_NEAR(CosPi(small), std::cos(M_PI * small), 3e-16);
        ASSERT_NEAR(SinPi(small + 7.0), -SinPi(small), 5e-15);
        ASSERT_NEAR(CosPi(small - 1001.0), -CosPi(small), 5e-13);
    }
}

TEST(PortableMath, ExactWherePromised) {
    for (int e = -1074; e <= 1023; e++) ASSERT_EQ(Log2(std::ldexp(1.0, e)), e);
    double ten = 1;
    for (int e = 0; e <= 22; e++, ten *= 10) ASSERT_EQ(Pow10(e), ten);
    EXPECT_EQ(Exp(0), 1);
    EXPECT_EQ(Power(2, 10), 1024);
    EXPECT_EQ(Power(7, 0), 1);
    for (int turn = -8; turn <= 8; turn++) {
        EXPECT_EQ(SinPi(turn), 0);
        EXPECT_EQ(CosPi(turn), turn % 2 ? -1 : 1);
        EXPECT_EQ(SinPi(turn + 0.5), turn % 2 ? -1 : 1);
        EXPECT_EQ(CosPi(turn + 0.5), 0);
    }
}

TEST(PortableMath, EndsOfTheRange) {
    EXPECT_EQ(Exp(-1000), 0);
    EXPECT_EQ(Exp(1000), INF);
    EXPECT_EQ(Exp(-744), std::exp(-744.0)); // among the smallest doubles
    EXPECT_EQ(Pow10(INF), INF);
    EXPECT_EQ(Pow10(-INF), 0);
    EXPECT_EQ(Power(0, -0.8), INF);
    EXPECT_EQ(Power(0, 2), 0);
    EXPECT_EQ(Log10(0), -INF);
    EXPECT_LE(UnitsApart(Ln(5e-324), std::log(5e-324)), FEW);
    EXPECT_LE(UnitsApart(Log2(std::numeric_limits<double>::max()), 1024), FEW);
}

// All pairs of special and ordinary values: the result and the sign of a zero are those of the C function.
TEST(PortableMath, Atan2KeepsTheSignsOfZeros) {
    const double values[] = {0.0, -0.0, 1.0, -1.0, 5e-324, -5e-324, 1e300, -1e300};
    for (double y : values)
        for (double x : values) {
            const double expected = std::atan2(y, x);
            EXPECT_LE(UnitsApart(Atan2(y, x), expected), FEW) << y << " " << x;
            EXPECT_EQ(std::signbit(Atan2(y, x)), std::signbit(expected)) << y << " " << x;
        }
}

// One number over many results. Every compiler, optimisation and instruction set has to arrive at it.
TEST(PortableMath, SameBitsInEveryBuild) {
    Noise noise;
    uint64_t hash = 14695981039346656037u;
    for (int i = 0; i < 20000; i++) {
        const double x = noise(-300, 300);
        const double size = Exp(x);
        for (const double value : {size, Pow10(x), Log2(size), Ln(size), Log10(size), Power(size, x * 0.003),
                                   Atan2(x, size), SinPi(x), CosPi(x)})
            hash = (hash ^ std::bit_cast<uint64_t>(value)) * 1099511628211u;
    }
    EXPECT_EQ(hash, 1119455062970246686u);
}

} // namespace
