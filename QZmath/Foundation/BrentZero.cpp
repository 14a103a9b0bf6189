// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/BrentZero.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace
{

constexpr int defaultDigits = 9;
constexpr double relativeTolerance = 2.2215304e-16;

double intervalTolerance(int digits)
{
    double tolerance = 1;
    for (int digit = 0; digit < digits && tolerance > 0; ++digit)
        tolerance /= 10;
    return tolerance;
}

// A point and the function there.
struct Sample
{
    double x = 0;
    double f = 0;
};

// Step from b as a fraction p / q with p >= 0: the secant through b and a, when a and c are the same point,
// and else the zero of the quadratic x(f) through the three points.
struct Interpolation
{
    Interpolation(Sample const & a, Sample const & b, Sample const & c, double halfInterval)
    {
        double const s = b.f / a.f;
        if (a.x == c.x) {
            p = 2 * halfInterval * s;
            q = 1 - s;
        } else {
            double const t = a.f / c.f;
            double const r = b.f / c.f;
            p = s * (2 * halfInterval * t * (t - r) - (b.x - a.x) * (r - 1));
            q = (t - 1) * (r - 1) * (s - 1);
        }
        if (p > 0)
            q = -q;
        p = std::abs(p);
    }

    double p;
    double q;
};

} // namespace

void BrentZeroFun(double (*function)(double, void *), double a, double b, double valueTolerance, int digits,
                  int & iterations, double & root, int & status, void * context)
{
    int const limit = iterations;
    double const leastTolerance = intervalTolerance(digits == 0 ? defaultDigits : digits);
    // `best` is the point of the smallest value, `opposite` lies on the other side of the zero, `previous` is
    // the best point before.
    Sample previous{a, function(a, context)};
    Sample best{b, function(b, context)};
    status = 0;

    double const signs = 0 - previous.f * best.f;
    if (signs == 0) {
        iterations = 0;
        root = previous.f == 0 ? a : b;
        return;
    }
    if (!(signs > 0)) {
        status = -1;
        iterations = 1;
        root = b;
        return;
    }

    Sample opposite = best;
    double step = 0, stepBefore = 0;
    std::int64_t count = 0;
    for (;;) {
        if (best.f * opposite.f > 0) {
            opposite = previous;
            step = stepBefore = best.x - previous.x;
        }
        if (std::abs(opposite.f) < std::abs(best.f)) {
            previous = best;
            best = opposite;
            opposite = previous;
        }
        double const tolerance = std::max(leastTolerance, std::abs(best.x) * relativeTolerance);
        double const halfInterval = (opposite.x - best.x) * 0.5;
        if (std::abs(best.f) <= valueTolerance || std::abs(halfInterval) < tolerance)
            break;

        bool isBisecting = true;
        if (std::abs(stepBefore) >= tolerance && std::abs(best.f) < std::abs(previous.f)) {
            Interpolation const tried(previous, best, opposite, halfInterval);
            // One of the two is enough, see the header.
            if (2 * tried.p < 3 * halfInterval * tried.q - std::abs(tolerance * tried.q) ||
                tried.p < std::abs(0.5 * stepBefore * tried.q)) {
                stepBefore = step;
                step = tried.p / tried.q;
                isBisecting = false;
            }
        }
        if (isBisecting)
            step = stepBefore = halfInterval;

        if (++count > limit) {
            status = 1;
            break;
        }
        double const leastStep = halfInterval > 0 ? tolerance : -tolerance;
        previous = best;
        best.x += std::abs(step) <= tolerance ? leastStep : step;
        best.f = function(best.x, context);
    }
    constexpr std::int64_t mostIterations = std::numeric_limits<int>::max();
    iterations = static_cast<int>(std::min(count, mostIterations));
    root = best.x;
}
