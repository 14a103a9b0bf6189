// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Rounding.h>

#include <cmath>
#include <iterator>
#include <limits>

namespace
{

// Multiplies again and again, until that changes nothing any more.
double multiplyRepeatedly(double value, double factor, int times)
{
    for (int done = 0; done < times && value != 0 && std::isfinite(value); ++done)
        value *= factor;
    return value;
}

double multiplyByPowerOfTen(double value, int power)
{
    if (power >= 0)
        return multiplyRepeatedly(value, 10, power);
    int const times = power == std::numeric_limits<int>::min() ? std::numeric_limits<int>::max() : -power;
    return multiplyRepeatedly(value, 0.1, times);
}

struct AxisEnd
{
    double limit;
    double step;
    int subdivisions;
};

constexpr AxisEnd axisEnds[] = {{1.2, 0.2, 2}, {1.4, 0.2, 1}, {1.5, 0.5, 5}, {2.5, 0.5, 5},
                                {3, 1, 2},     {4, 1, 2},     {5, 1, 2},     {6, 1, 2},
                                {7, 1, 2},     {8, 1, 2},     {10, 5, 5}};
constexpr AxisEnd const & lastAxisEnd = axisEnds[std::size(axisEnds) - 1];

AxisEnd const & axisEndFor(double mantissa)
{
    for (AxisEnd const & end : axisEnds) {
        if (mantissa <= end.limit)
            return end;
    }
    return lastAxisEnd;
}

// Rounds the mantissa to so many decimals; `scaleUp` multiplies it with that power of ten.
template <class ScaleUp>
double roundMantissa(double x, int decimals, ScaleUp scaleUp)
{
    double mantissa = std::abs(x);
    if (mantissa < 1e-30)
        return 0;
    if (!std::isfinite(x))
        return x;
    double scale = 1;
    while (mantissa > 10) {
        mantissa *= 0.1;
        scale *= 10;
    }
    while (mantissa <= 1) {
        mantissa *= 10;
        scale *= 0.1;
    }
    double const sign = x < 0 ? -1 : 1;
    return multiplyRepeatedly(sign * scale * std::trunc(scaleUp(mantissa) + 0.5), 0.1, decimals);
}

} // namespace

int rndtoni(double x)
{
    double const shifted = x + 0.5;
    if (std::isnan(shifted))
        return 0;
    if (shifted >= std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (shifted <= std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(shifted);
}

void scaleDouble(double & value, int power) { value = multiplyByPowerOfTen(value, power); }

double getScale(double value, int & exponent)
{
    exponent = 0;
    // The factor takes exact powers of ten to the decade below.
    double const logarithm = std::log10(0.99999999 * value);
    if (!std::isfinite(logarithm))
        return value;
    exponent = static_cast<int>(logarithm);
    if (logarithm < 0)
        --exponent;
    return multiplyByPowerOfTen(value, -exponent);
}

void roundBoundary(double & value, double & top, double & step, int & subdivisions, int & exponent)
{
    AxisEnd const & end = axisEndFor(getScale(value, exponent));
    top = multiplyByPowerOfTen(end.limit, exponent);
    step = multiplyByPowerOfTen(end.step, exponent);
    subdivisions = end.subdivisions;
}

double fRound2(double x) { return std::trunc(x * 100 + 0.5) * 0.01; }

double fRound4(double x)
{
    return roundMantissa(x, 4, [](double mantissa) { return mantissa * 1e4; });
}

double fRoundN(double x, int digits)
{
    return roundMantissa(x, digits,
                         [digits](double mantissa) { return multiplyRepeatedly(mantissa, 10, digits); });
}
