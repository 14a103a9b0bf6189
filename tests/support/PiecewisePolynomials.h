// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Parallelepiped.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <cmath>
#include <random>
#include <vector>

/// Random piecewise polynomials, and an integration that knows nothing of coefficients.
namespace TestPolynomials
{

inline double uniform(std::mt19937 & random, double low, double high)
{
    return std::uniform_real_distribution<double>(low, high)(random);
}

inline VolTr::CSingleVarPolynom randomPolynom(std::mt19937 & random, int maxPower)
{
    std::vector<double> coefficients;
    int const power = std::uniform_int_distribution<int>(-1, maxPower)(random);
    for (int i = 0; i <= power; ++i)
        coefficients.push_back(uniform(random, -2.0, 2.0));
    return VolTr::CSingleVarPolynom(power + 1, coefficients.data());
}

/// One to four pieces about a random shift; neighbouring pieces do not fit together.
inline VolTr::CSingleVarLimitedPolynom randomLimitedPolynom(std::mt19937 & random, int maxPower = 3)
{
    int const pieceCount = std::uniform_int_distribution<int>(1, 4)(random);
    std::vector<VolTr::CSingleVarPolynom> pieces;
    std::vector<double> knots(1, uniform(random, -2.0, 0.0));
    for (int i = 0; i < pieceCount; ++i) {
        pieces.push_back(randomPolynom(random, maxPower));
        knots.push_back(knots.back() + uniform(random, 0.1, 1.0));
    }
    return VolTr::CSingleVarLimitedPolynom(uniform(random, -1.0, 1.0), pieceCount, pieces.data(),
                                           pieceCount + 1, knots.data());
}

inline VolTr::CProductPolynom randomSummand(std::mt19937 & random)
{
    return VolTr::CProductPolynom(randomLimitedPolynom(random), randomLimitedPolynom(random),
                                  randomLimitedPolynom(random));
}

/// Integral of `function` over [a, b] by the Gauss rule with five points, exact up to degree 9.
template <class TFunction>
double gaussLegendre(TFunction const & function, double a, double b)
{
    double const inner = std::sqrt(5.0 - 2.0 * std::sqrt(10.0 / 7.0)) / 3.0;
    double const outer = std::sqrt(5.0 + 2.0 * std::sqrt(10.0 / 7.0)) / 3.0;
    double const innerWeight = (322.0 + 13.0 * std::sqrt(70.0)) / 900.0;
    double const outerWeight = (322.0 - 13.0 * std::sqrt(70.0)) / 900.0;
    double const middle = 0.5 * (a + b);
    double const half = 0.5 * (b - a);
    return half * (function(middle) * 128.0 / 225.0 +
                   innerWeight * (function(middle - half * inner) + function(middle + half * inner)) +
                   outerWeight * (function(middle - half * outer) + function(middle + half * outer)));
}

/// Integral over a box of a function of three coordinates, exact up to degree 9 on each axis.
template <class TFunction>
double gaussLegendreOnBox(TFunction const & function, VolTr::CParallelepiped const & box)
{
    double p[3];
    auto const onAxis = [&box](int axis, auto const & inner) {
        return gaussLegendre(inner, box.getMin()[axis], box.getMax()[axis]);
    };
    return onAxis(0, [&](double x) {
        p[0] = x;
        return onAxis(1, [&](double y) {
            p[1] = y;
            return onAxis(2, [&](double z) {
                p[2] = z;
                return function(p);
            });
        });
    });
}

} // namespace TestPolynomials
