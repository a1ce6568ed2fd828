// PortableMath.cpp - logarithms by the series of the inverse hyperbolic tangent, exponentials and circular functions by
// Taylor series after an argument reduction. Only +, -, *, /, floor and integer work on the bits of a double are used,
// and each of these has one correct result; products are never fused with sums (-ffp-contract=off).
#include "numeric/PortableMath.h"

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

#ifdef __FAST_MATH__
#error "Movies are the same on every machine only without -ffast-math."
#endif
static_assert(FLT_EVAL_METHOD == 0, "Sums must not keep more digits than their type: use -msse2 -mfpmath=sse.");

namespace vorn {
namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

// Constants whose product with a small whole number must be exact come in two parts: the first has 32 bits.
constexpr double LN2_HIGH = 0.6931471803691238;
constexpr double LN2_LOW = 1.9082149292705877e-10;
constexpr double LOG10_2_HIGH = 0.3010299955494702;
constexpr double LOG10_2_LOW = 1.1451100898021838e-10;
constexpr double LOG2_E = 1.4426950408889634;
constexpr double LOG2_10 = 3.321928094887362;
constexpr double LOG10_E = 0.4342944819032518;
constexpr double LN10 = 2.302585092994046;
// The nearest double and what it lacks.
constexpr double PI = 3.141592653589793;
constexpr double PI_REST = 1.2246467991473532e-16;
constexpr double SQRT2 = 1.4142135623730951;

// x = mantissa * 2^exponent with the mantissa from sqrt(1/2) to sqrt(2).
struct Scaled {
    double mantissa;
    int exponent;
};

Scaled Split(double x) {
    int exponent = 0;
    if (x < std::numeric_limits<double>::min()) {
        x *= 0x1p54;
        exponent = -54;
    }
    const uint64_t bits = std::bit_cast<uint64_t>(x);
    exponent += int(bits >> 52) - 1023;
    double mantissa = std::bit_cast<double>((bits & 0x000FFFFFFFFFFFFFu) | 0x3FF0000000000000u);
    if (mantissa > SQRT2) {
        mantissa *= 0.5;
        exponent++;
    }
    return {mantissa, exponent};
}

bool HasNoLogarithm(double x) {
    return !(x > 0) || x == INFINITE;
}
double LogarithmOfOddCase(double x) {
    return x == INFINITE ? x : x == 0 ? -INFINITE : std::numeric_limits<double>::quiet_NaN();
}

// 2^exponent, from -1022 to 1023.
double PowerOfTwo(int exponent) {
    return std::bit_cast<double>(uint64_t(exponent + 1023) << 52);
}

// x * 2^exponent, from -2044 to 2046; in two steps, so that results below the normal range come out too.
double ScaleBy(double x, int exponent) {
    if (exponent > 1023) return x * 0x1p1023 * PowerOfTwo(exponent - 1023);
    if (exponent < -1022) return x * 0x1p-1022 * PowerOfTwo(exponent + 1022);
    return x * PowerOfTwo(exponent);
}

// A sum of two doubles, the second far below the first.
struct Pair {
    double high;
    double low;
};

Pair ExactSum(double a, double b) {
    const double sum = a + b;
    const double part = sum - a;
    return {sum, (a - (sum - part)) + (b - part)};
}

// Exact unless a factor's size is above 2^990.
Pair ExactProduct(double a, double b) {
    const double splitA = a * 0x8000001p0;
    const double splitB = b * 0x8000001p0;
    const double highA = splitA - (splitA - a);
    const double highB = splitB - (splitB - b);
    const double lowA = a - highA;
    const double lowB = b - highB;
    const double product = a * b;
    return {product, ((highA * highB - product) + highA * lowB + lowA * highB) + lowA * lowB};
}

// ln(i / 16), the nearest double and what it lacks.
constexpr int FIRST_SIXTEENTH = 11;
constexpr Pair LN_OF_SIXTEENTHS[13] = {
    {-0.3746934494414107, 3.9243112288632396e-18},  // 11
    {-0.2876820724517809, -2.607160616442564e-17},  // 12
    {-0.2076393647782445, -1.2053243216686129e-17}, // 13
    {-0.13353139262452263, 3.664457663660085e-18},  // 14
    {-0.06453852113757118, 6.470486661692933e-18},  // 15
    {0.0, 0.0},                                     // 16
    {0.06062462181643484, 2.6424025938726934e-18},  // 17
    {0.11778303565638346, -1.1971685747593677e-18}, // 18
    {0.17185025692665923, -6.0224538210113705e-18}, // 19
    {0.22314355131420976, -9.091270597324799e-18},  // 20
    {0.27193371548364176, 7.83319637697442e-19},    // 21
    {0.3184537311185346, 2.7114779367326236e-17},   // 22
    {0.3629054936893685, -2.1492361455310972e-17},  // 23
};

// ln of a mantissa of Split to about 68 bits: with c the nearest sixteenth, ln c + 2 atanh(s) for s = (m - c) / (m +
// c), which is at most 0.023 in size. The quotient is carried with its remainder; the rest of the series is 5000 times
// less.
Pair LnOfMantissa(double mantissa) {
    const int i = int(mantissa * 16.0 + 0.5);
    const Pair lnC = LN_OF_SIXTEENTHS[i - FIRST_SIXTEENTH];
    const double c = i * 0.0625;
    const double numerator = mantissa - c;
    const Pair divisor = ExactSum(mantissa, c);
    const double s = numerator / divisor.high;
    const Pair back = ExactProduct(s, divisor.high);
    const double rest = (((numerator - back.high) - back.low) - s * divisor.low) / divisor.high;
    const double z = s * s;
    double series = 0;
    for (int k = 11; k >= 3; k -= 2) series = z * (1.0 / k + series);
    const Pair sum = ExactSum(lnC.high, 2.0 * s);
    return ExactSum(sum.high, sum.low + (lnC.low + 2.0 * (rest + s * series)));
}

Pair LnPair(double x) {
    const Scaled scaled = Split(x);
    const Pair part = LnOfMantissa(scaled.mantissa);
    const Pair sum = ExactSum(scaled.exponent * LN2_HIGH, part.high);
    return ExactSum(sum.high, sum.low + (scaled.exponent * LN2_LOW + part.low));
}

// e^r for |r| at most 0.36.
double ExpOfSmall(double r) {
    double sum = 1.0 / 14;
    for (int k = 13; k >= 2; k--) sum = (1.0 + r * sum) / k;
    return 1.0 + (r + r * r * sum);
}

// e^(high + low), |high| below 1e4.
double ExpOfPair(double high, double low) {
    const double k = std::floor(high * LOG2_E + 0.5);
    const double r = ((high - k * LN2_HIGH) - k * LN2_LOW) + low;
    return ScaleBy(ExpOfSmall(r), int(k));
}

// sin(t) for |t| at most 0.8.
double SinOfSmall(double t) {
    const double z = t * t;
    double sum = 0;
    for (int k = 18; k >= 2; k -= 2) sum = z / (k * (k + 1)) * (1.0 - sum);
    return t - t * sum;
}

// cos(t) for |t| at most 0.8.
double CosOfSmall(double t) {
    const double z = t * t;
    double sum = 0;
    for (int k = 17; k >= 1; k -= 2) sum = z / (k * (k + 1)) * (1.0 - sum);
    return 1.0 - sum;
}

// x half turns as quarter turns (0 to 3) plus `rest` half turns, |rest| at most 1/4. Exact.
struct Turn {
    int quarter;
    double rest;
};

Turn ReduceTurn(double x) {
    const double quarters = std::floor(2.0 * x + 0.5);
    return {int(quarters - 4.0 * std::floor(quarters * 0.25)), x - 0.5 * quarters};
}

double CircularFunction(double x, int quarterShift) {
    const Turn turn = ReduceTurn(x);
    const int quarter = (turn.quarter + quarterShift) & 3;
    const double t = PI * turn.rest;
    const double value = quarter & 1 ? CosOfSmall(t) : SinOfSmall(t);
    return quarter & 2 ? -value : value;
}

// atan(i / 16)
constexpr double ATAN_OF_SIXTEENTHS[17] = {
    0.0,
    0.06241880999595735,
    0.12435499454676144,
    0.18534794999569476,
    0.24497866312686414,
    0.3028848683749714,
    0.35877067027057225,
    0.4124104415973873,
    0.4636476090008061,
    0.5123894603107377,
    0.5585993153435624,
    0.6022873461349642,
    0.6435011087932844,
    0.6823165548747481,
    0.7188299996216245,
    0.7531512809621944,
    0.7853981633974483,
};

// atan(y / x) for 0 <= y <= x, x above 0: the nearest sixteenth c, and the angle that is left over,
// whose tangent (y - cx) / (x + cy) is at most 1/32.
double AtanOfRatio(double y, double x) {
    const int i = int(y / x * 16.0 + 0.5);
    const double c = i * 0.0625;
    const double t = (y - c * x) / (x + c * y);
    const double z = t * t;
    double sum = 0;
    for (int k = 13; k >= 3; k -= 2) sum = z * (1.0 / k - sum);
    return ATAN_OF_SIXTEENTHS[i] + (t - t * sum);
}

// 10^0 to 10^22, the powers of ten that a double holds exactly.
constexpr int EXACT_TENS = 22;
constexpr double TENS[EXACT_TENS + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

} // namespace

double Log2(double x) {
    if (HasNoLogarithm(x)) return LogarithmOfOddCase(x);
    const Scaled scaled = Split(x);
    return scaled.exponent + LnOfMantissa(scaled.mantissa).high * LOG2_E;
}

double Ln(double x) {
    if (HasNoLogarithm(x)) return LogarithmOfOddCase(x);
    return LnPair(x).high;
}

double Log10(double x) {
    if (HasNoLogarithm(x)) return LogarithmOfOddCase(x);
    const Scaled scaled = Split(x);
    return scaled.exponent * LOG10_2_HIGH +
           (LnOfMantissa(scaled.mantissa).high * LOG10_E + scaled.exponent * LOG10_2_LOW);
}

double Exp(double x) {
    if (x > 710) return INFINITE;
    if (x < -746) return 0;
    if (x != x) return x;
    return ExpOfPair(x, 0);
}

double Pow10(double x) {
    if (x > 310) return INFINITE;
    if (x < -330) return 0;
    if (x != x) return x;
    const double whole = std::floor(x + 0.5);
    if (x == whole && std::fabs(whole) <= EXACT_TENS) return whole >= 0 ? TENS[int(whole)] : 1.0 / TENS[-int(whole)];
    const double k = std::floor(x * LOG2_10 + 0.5);
    const double r = ((x - k * LOG10_2_HIGH) - k * LOG10_2_LOW) * LN10;
    return ScaleBy(ExpOfSmall(r), int(k));
}

double Power(double x, double y) {
    if (y == 0 || x == 1) return 1;
    if (HasNoLogarithm(x)) {
        if (x == 0) return y < 0 ? INFINITE : 0;
        if (x == INFINITE) return y < 0 ? 0 : INFINITE;
        return std::numeric_limits<double>::quiet_NaN();
    }
    const Pair ln = LnPair(x);
    const double size = ln.high * y;
    if (size > 710) return INFINITE;
    if (size < -746) return 0;
    if (size != size) return size;
    const Pair product = ExactProduct(ln.high, y);
    return ExpOfPair(product.high, product.low + ln.low * y);
}

double Atan2(double y, double x) {
    const double sizeX = std::fabs(x), sizeY = std::fabs(y);
    double angle = 0;
    if (sizeY > sizeX)
        angle = PI / 2 - (AtanOfRatio(sizeX, sizeY) - PI_REST / 2);
    else if (sizeX > 0)
        angle = AtanOfRatio(sizeY, sizeX);
    if (std::signbit(x)) angle = PI - (angle - PI_REST);
    return std::signbit(y) ? -angle : angle;
}

double SinPi(double x) {
    return CircularFunction(x, 0);
}

double CosPi(double x) {
    return CircularFunction(x, 1);
}

} // namespace vorn
