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

TEST(ProductPiecewisePolynom, OperationsAgreeWithPointwiseValues)
{
    std::mt19937 random(3);
    for (int trial = 0; trial < 100; ++trial) {
        CProductPiecewisePolynom f, g;
        for (int i = 0; i <= trial % 3; ++i)
            f.addSummand(randomSummand(random));
        for (int i = 0; i <= trial % 2; ++i)
            g.addSummand(randomSummand(random));
        double const shift[3] = {uniform(random, -1, 1), uniform(random, -1, 1), uniform(random, -1, 1)};
        double const scale[3] = {uniform(random, 0.4, 2), uniform(random, 0.4, 2), uniform(random, 0.4, 2)};
        CProductPiecewisePolynom translated = f, scaled = f, rewritten = f, sum = f, twice = f, larger = f;
        translated.substituteArgPlusConst(shift);
        scaled.scaleArgument(scale);
        rewritten.changeShift(shift);
        sum += g;
        twice += twice;
        larger *= -5.0;
        CProductPiecewisePolynom gMoved = g;
        gMoved.substituteArgPlusConst(shift);
        CProductPiecewisePolynom const product = f * g;
        CProductPiecewisePolynom const productOfMoved = f * gMoved;
        CProductPiecewisePolynom const productOfMovedSwapped = gMoved * f;
        for (int i = 0; i < 30; ++i) {
            double const p[3] = {uniform(random, -2.5, 2.5), uniform(random, -2.5, 2.5),
                                 uniform(random, -2.5, 2.5)};
            double const pShifted[3] = {p[0] + shift[0], p[1] + shift[1], p[2] + shift[2]};
            double const pScaled[3] = {p[0] * scale[0], p[1] * scale[1], p[2] * scale[2]};
            double const value = f.eval(p);
            EXPECT_NEAR(translated.eval(p), f.eval(pShifted), 1e-7);
            EXPECT_NEAR(scaled.eval(p), f.eval(pScaled), 1e-7);
            EXPECT_NEAR(rewritten.eval(p), value, 1e-7);
            EXPECT_NEAR(sum.eval(p), value + g.eval(p), 1e-7);
            EXPECT_NEAR(twice.eval(p), 2.0 * value, 1e-7);
            EXPECT_NEAR(larger.eval(p), -5.0 * value, 1e-7);
            EXPECT_NEAR(product.eval(p), value * g.eval(p), 1e-4);
            EXPECT_NEAR(productOfMoved.eval(p), value * gMoved.eval(p), 1e-4);
            EXPECT_NEAR(productOfMovedSwapped.eval(p), value * gMoved.eval(p), 1e-4);
        }
        double integral = 0.0;
        for (int i = 0; i < f.summandsNumber(); ++i) {
            double factor = 1.0;
            for (int axis = 0; axis < 3; ++axis) {
                CSingleVarLimitedPolynom const & m = f.getSummand(i).getMultiplier(axis);
                factor *= integrateBetweenKnots([&m](double x) { return m.eval(x); }, absoluteKnots(m));
            }
            integral += factor;
        }
        EXPECT_NEAR(f.integrateOnSupport(), integral, 1e-8);
    }
}

TEST(ProductPiecewisePolynom, DerivativesAgreeWithDifferences)
{
    std::mt19937 random(4);
    CSingleVarPolynom const piece = CSingleVarPolynom(4, std::vector<double>{0.3, -1.0, 2.0, 0.7}.data());
    double const knots[2] = {-1.0, 1.0};
    CSingleVarLimitedPolynom const m(0.0, 1, &piece, 2, knots);
    CProductPolynom const summands[2] = {CProductPolynom(m, m, m), CProductPolynom(m, 2.0 * m, m)};
    CProductPiecewisePolynom const f(2, summands);
    CProductPiecewisePolynom laplacian;
    f.makeLaplacian(&laplacian);
    EXPECT_EQ(laplacian.summandsNumber(), 6);
    for (int i = 0; i < 50; ++i) {
        double p[3] = {uniform(random, -0.9, 0.9), uniform(random, -0.9, 0.9), uniform(random, -0.9, 0.9)};
        double const h = 1e-4;
        double secondDifferences = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            CProductPiecewisePolynom derivative;
            f.makePartialDerivative(&derivative, axis);
            double const middle = p[axis];
            double const value = f.eval(p);
            p[axis] = middle + h;
            double const after = f.eval(p);
            p[axis] = middle - h;
            double const before = f.eval(p);
            p[axis] = middle;
            EXPECT_NEAR(derivative.eval(p), (after - before) / (2.0 * h), 1e-5);
            secondDifferences += (after - 2.0 * value + before) / (h * h);
        }
        EXPECT_NEAR(laplacian.eval(p), secondDifferences, 1e-3);
    }
    CProductPiecewisePolynom inPlace = f, apart;
    inPlace.makePartialDerivative(&inPlace, 1);
    f.makePartialDerivative(&apart, 1);
    double const p[3] = {0.1, 0.2, 0.3};
    EXPECT_EQ(inPlace.eval(p), apart.eval(p));
    EXPECT_THROW(f.makePartialDerivative(&apart, 3), std::out_of_range);
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
    EXPECT_THROW(rebased.getSummand(1), std::out_of_range);
    EXPECT_THROW(rebased.getSummand(-1), std::out_of_range);
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
}

TEST(ProductPiecewisePolynom, TouchingSupportsGiveNoProduct)
{
    CProductPolynom const summands[2] = {boxFunction(0.0, 1.0), boxFunction(1.0, 2.0)};
    CProductPiecewisePolynom const left(1, summands);
    CProductPiecewisePolynom const right(1, summands + 1);
    EXPECT_EQ((left * right).summandsNumber(), 0);
    CProductPolynom product = summands[0];
    summands[0].multiply(&product, summands[1]);
    EXPECT_TRUE(product.empty());
}

} // namespace
