// PortableMath.h - the few functions whose last bit differs between C libraries, from additions, multiplications
// and divisions alone, so that one input gives one result on every machine.
// Double precision; errors stay within a few units of the last place, and exact powers give exact results.
#pragma once

namespace vorn {

double Log2(double x);             // x above 0; exact at powers of two
double Ln(double x);               // x above 0
double Log10(double x);            // x above 0
double Exp(double x);              // 0 below the range of doubles
double Pow10(double x);            // 10 to the power x, |x| at most 300; exact at whole numbers from 0 to 22
double Power(double x, double y);  // x above 0
double Atan2(double y, double x);  // radians from -pi to pi; sizes up to 2^1000; signs of zeros as in C
double SinPi(double x);            // sin(pi * x), |x| below 2^52
double CosPi(double x);            // cos(pi * x)

} // namespace vorn
