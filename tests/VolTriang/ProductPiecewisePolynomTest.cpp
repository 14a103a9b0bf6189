// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

#include <support/PiecewisePolynomials.h>

#include <gtest/gtest.h>

using namespace VolTr;
using namespace TestPolynomials;

namespace
{

CProductPolynom boxFunction(double left, double right, double value = 1.0)
{
    CSingleVarPolynom const piece(1, &value);
    double const knots[2] = {left, right};
    CSingleVarLimitedPolynom const factor(0.0, 1, &piece, 2, knots);
    return CProductPolynom(factor, factor, factor);
}

TEST(ProductPiecewisePolynom, SumsAreWrittenAboutTheOrigin)
{
    CProductPolynom const away = boxFunction(1.0, 2.0);
    CProductPiecewisePolynom sum(1, &away);
    EXPECT_EQ(sum.getCommonSupportRef().getMin()[0], 0.0);
    EXPECT_EQ(sum.getCommonSupportRef().getMax()[2], 2.0);
    EXPECT_FALSE(sum.checkClassInvariants());
    CProductPolynom const centred = boxFunction(-1.0, 1.0);
    CProductPiecewisePolynom const tight(1, &centred);
    EXPECT_TRUE(tight.checkClassInvariants());
    CProductPolynom moved = centred;
    double const shift[3] = {-0.25, 0.0, 0.0};
    moved.substituteArgPlusConst(shift);
    EXPECT_EQ(moved.getMultiplier(0).getArgShift(), 0.25);
    CProductPiecewisePolynom const rebased(1, &moved);
    EXPECT_EQ(rebased.getSummand(0).getMultiplier(0).getArgShift(), 0.0);
    EXPECT_EQ(rebased.getCommonSupportRef().getMax()[0], 1.25);
    for (int outside : {1, -1})
        EXPECT_THROW(rebased.getSummand(outside), std::out_of_range);
}

TEST(ProductPiecewisePolynom, FactorsAreSpreadOverTheAxes)
{
    CProductPolynom summand = boxFunction(0.0, 1.0);
    summand *= 8.0;
    for (int axis = 0; axis < 3; ++axis)
        EXPECT_EQ(summand.getMultiplier(axis).eval(0.5), 2.0);
    CProductPiecewisePolynom sum(1, &summand);
    sum *= 27.0;
    EXPECT_DOUBLE_EQ(sum.getSummand(0).getMultiplier(1).eval(0.5), 6.0);
    sum *= 0.0;
    EXPECT_EQ(sum.summandsNumber(), 0);
    EXPECT_EQ(sum.getCommonSupportRef().getMax()[0], 0.0);
    summand *= 0.0;
    EXPECT_FALSE(summand.empty());
    double const p[3] = {0.5, 0.5, 0.5};
    EXPECT_EQ(summand.eval(p), 0.0);

    // Supports that only touch give no product.
    CProductPolynom const low = boxFunction(0.0, 1.0), high = boxFunction(1.0, 2.0);
    EXPECT_EQ((CProductPiecewisePolynom(1, &low) * CProductPiecewisePolynom(1, &high)).summandsNumber(), 0);
}

} // namespace
