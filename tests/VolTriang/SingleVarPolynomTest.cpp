// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <support/PiecewisePolynomials.h>

#include <gtest/gtest.h>

#include <limits>
#include <utility>

using namespace VolTr;
using namespace TestPolynomials;

namespace
{

CSingleVarPolynom polynom(std::vector<double> const & coefficients)
{
    return CSingleVarPolynom(static_cast<int>(coefficients.size()), coefficients.data());
}

TEST(SingleVarPolynom, ZeroesAndEmptyLists)
{
    CSingleVarPolynom p = polynom({3.0, 1.0});
    p.scaleArgument(0.0);
    EXPECT_EQ(p, polynom({3.0}));
    CSingleVarPolynom empty;
    EXPECT_EQ(empty.power(), -1);
    EXPECT_EQ(empty.eval(2.0), 0.0);
    empty.scaleArgument(0.0);
    EXPECT_EQ(empty, polynom({0.0}));
    EXPECT_FALSE(empty.checkClassInvariants());
    p *= 0.0;
    EXPECT_EQ(p.power(), -1);
    CSingleVarPolynom out = polynom({1.0, 2.0});
    polynom({1.0, 1.0}).multiply(&out, p);
    EXPECT_EQ(out.power(), -1);
}

TEST(SingleVarPolynom, ShiftOfHighPowerStaysExact)
{
    std::vector<double> coefficients(41, 0.0);
    coefficients.back() = 1.0;
    CSingleVarPolynom p = polynom(coefficients);
    p.substituteArgPlusConst(1.0);
    EXPECT_EQ(p.getCoefficient(20), 137846528820.0); // 40 over 20
    EXPECT_EQ(p.eval(1.0), std::ldexp(1.0, 40));
}

TEST(SingleVarLimitedPolynom, RefusesBadPiecesAndKnots)
{
    CSingleVarPolynom const pieces[2] = {polynom({1.0}), polynom({2.0})};
    double const good[3] = {0.0, 1.0, 2.0};
    double const repeated[3] = {0.0, 0.0, 1.0};
    double const notNumbers[3] = {0.0, std::numeric_limits<double>::quiet_NaN(), 1.0};
    CSingleVarLimitedPolynom f(0.5, 2, pieces, 3, good);
    CSingleVarLimitedPolynom const before = f;
    for (double const * knots : {repeated, notNumbers, static_cast<double const *>(nullptr)})
        EXPECT_FALSE(f.assign(0.0, 2, pieces, 3, knots));
    int const lowest = std::numeric_limits<int>::min(), highest = std::numeric_limits<int>::max();
    for (auto const & [pieceCount, knotCount] : {std::pair(2, 2), {0, 1}, {highest, lowest}})
        EXPECT_FALSE(f.assign(0.0, pieceCount, pieces, knotCount, good));
    EXPECT_FALSE(f.assign(0.0, 2, nullptr, 3, good));
    EXPECT_EQ(f, before);
    try {
        CSingleVarLimitedPolynom const refused(0.0, 2, pieces, 3, repeated);
        FAIL();
    } catch (std::exception const & error) {
        EXPECT_STREQ(error.what(), "VolTr::CSingleVarLimitedPolynom: ctor fails");
    }
}

TEST(SingleVarLimitedPolynom, PiecesAreClosedOnTheLeftOnly)
{
    CSingleVarPolynom const pieces[2] = {polynom({1.0}), polynom({2.0})};
    double const knots[3] = {0.0, 1.0, 2.0};
    CSingleVarLimitedPolynom const f(4.0, 2, pieces, 3, knots);
    EXPECT_EQ(f.eval(4.0), 1.0);
    EXPECT_EQ(f.eval(5.0), 2.0);
    EXPECT_EQ(f.eval(6.0), 0.0);
    EXPECT_EQ(f.eval(std::nextafter(4.0, 0.0)), 0.0);
    EXPECT_EQ(f.eval(std::numeric_limits<double>::quiet_NaN()), 0.0);
    EXPECT_EQ(f.getLeftBound(), 4.0);
    EXPECT_EQ(f.getRightBound(), 6.0);
    EXPECT_EQ(CSingleVarLimitedPolynom().eval(0.0), 0.0);
}

TEST(SingleVarLimitedPolynom, ShiftsOfProductsAndPiecesOfDerivatives)
{
    CSingleVarPolynom const line = polynom({1.0, 1.0});
    CSingleVarPolynom const parabola = polynom({1.0, 1.0, 1.0});
    double const knots[2] = {0.0, 4.0};
    auto const at = [&](double shift, CSingleVarPolynom const & piece) {
        return CSingleVarLimitedPolynom(shift, 1, &piece, 2, knots);
    };
    EXPECT_EQ((at(1.0, line) * at(2.0, parabola)).getArgShift(), 2.0);
    EXPECT_EQ((at(2.0, parabola) * at(1.0, line)).getArgShift(), 2.0);
    EXPECT_EQ((at(1.0, line) * at(3.0, line)).getArgShift(), 1.0);
    EXPECT_TRUE((at(1.0, line) * at(5.0, line)).empty());
    // A derivative keeps pieces that have become zero.
    CSingleVarLimitedPolynom none;
    at(0.0, polynom({1.0})).makeDerivative(&none);
    EXPECT_EQ(none.piecesNumber(), 1);
    EXPECT_EQ(none.maxPower(), -1);
}

} // namespace
