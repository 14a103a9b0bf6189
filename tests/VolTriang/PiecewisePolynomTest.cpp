// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/PiecewisePolynom.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>

#include <support/PiecewisePolynomials.h>

#include <gtest/gtest.h>

using namespace VolTr;
using namespace TestPolynomials;

namespace
{

CParallelepiped cube(double low, double high) { return CParallelepiped(low, high, low, high, low, high); }

CLimitedPolynom randomPiece(std::mt19937 & random, double const * shift)
{
    std::uniform_int_distribution<int> exponent(0, 2);
    CPolynom polynom;
    for (int i = 0; i < 5; ++i)
        polynom.insertWeightedMonom(CWeightedMonom(
            uniform(random, -2, 2), CMonom(exponent(random), exponent(random), exponent(random))));
    double low[3], high[3];
    for (int axis = 0; axis < 3; ++axis) {
        low[axis] = uniform(random, -2, 1);
        high[axis] = low[axis] + uniform(random, 0.3, 2);
    }
    return CLimitedPolynom(polynom, CParallelepiped(low, high), shift);
}

// Pieces about different shifts, or summands that need not be continuous.
void makeRandom(CPiecewisePolynom & function, std::mt19937 & random, int count)
{
    for (int i = 0; i < count; ++i) {
        double const shift[3] = {uniform(random, -1, 1), i % 2 * 0.5, uniform(random, -1, 1)};
        function.addTerm(randomPiece(random, i % 3 == 2 ? nullptr : shift));
    }
}
void makeRandom(CProductPiecewisePolynom & function, std::mt19937 & random, int count)
{
    for (int i = 0; i < count; ++i)
        function.addSummand(randomSummand(random));
}

template <class TFunction>
class PiecewiseFunction : public testing::Test
{};
using Functions = testing::Types<CPiecewisePolynom, CProductPiecewisePolynom>;
TYPED_TEST_SUITE(PiecewiseFunction, Functions, );

} // namespace

TYPED_TEST(PiecewiseFunction, OperationsAgreeWithPointwiseValues)
{
    constexpr bool isGeneral = std::is_same_v<TypeParam, CPiecewisePolynom>;
    double const tolerance = isGeneral ? 1e-9 : 1e-7, productTolerance = isGeneral ? 1e-7 : 1e-4;
    std::mt19937 random(11);
    for (int trial = 0; trial < 80; ++trial) {
        TypeParam f, g;
        makeRandom(f, random, trial % 5);
        makeRandom(g, random, 1 + trial % 3);
        double const shift[3] = {uniform(random, -1, 1), uniform(random, -1, 1), 0.0};
        double const scale[3] = {uniform(random, 0.4, 2), uniform(random, 0.4, 2), uniform(random, 0.4, 2)};
        TypeParam translated = f, scaled = f, rewritten = f, larger = f, sum = f, aligned = g;
        translated.substituteArgPlusConst(shift);
        scaled.scaleArgument(scale);
        rewritten.changeShift(shift);
        larger *= -5.0;
        sum += g;
        if constexpr (isGeneral) {
            translated.substituteArgPlusConst(nullptr);
            if (f.termsNumber() > 0)
                aligned.changeShift(f.getTerm(0).getArgShift3());
            EXPECT_TRUE((f + g).checkClassInvariants() && (f * g).checkClassInvariants() &&
                        rewritten.checkClassInvariants() && scaled.checkClassInvariants());
        } else {
            aligned.substituteArgPlusConst(shift);
        }
        TypeParam const product = f * g, alignedProduct = f * aligned;
        for (int i = 0; i < 40; ++i) {
            double const p[3] = {uniform(random, -2.5, 3), uniform(random, -2.5, 3),
                                 uniform(random, -2.5, 3)};
            double const moved[3] = {p[0] + shift[0], p[1] + shift[1], p[2] + shift[2]};
            double const stretched[3] = {p[0] * scale[0], p[1] * scale[1], p[2] * scale[2]};
            double const value = f.eval(p), other = g.eval(p);
            EXPECT_NEAR(translated.eval(p), f.eval(moved), tolerance);
            EXPECT_NEAR(scaled.eval(p), f.eval(stretched), tolerance);
            EXPECT_NEAR(rewritten.eval(p), value, tolerance);
            EXPECT_NEAR(larger.eval(p), -5.0 * value, tolerance);
            EXPECT_NEAR(sum.eval(p), value + other, tolerance);
            EXPECT_NEAR(product.eval(p), value * other, productTolerance);
            EXPECT_NEAR(alignedProduct.eval(p), value * aligned.eval(p), productTolerance);
        }
        double const integral = f.integrateOnSupport();
        if constexpr (isGeneral) {
            double byTerms = 0.0;
            for (int i = 0; i < f.termsNumber(); ++i)
                byTerms += gaussLegendreOnBox([&](double const * p) { return f.getTerm(i).eval(p); },
                                              f.getTerm(i).getSupportRef());
            EXPECT_NEAR(integral, byTerms, 1e-9 * (1.0 + std::fabs(byTerms)));
        }
        EXPECT_NEAR(scaled.integrateOnSupport(), integral / (scale[0] * scale[1] * scale[2]), 1e-8);
    }
}

TEST(PiecewisePolynom, CommonFacesBelongToTheUpperPiece)
{
    CPiecewisePolynom steps(CLimitedPolynom(CPolynom(CMonom()), cube(-1.0, 0.0), nullptr));
    steps.addTerm(CLimitedPolynom(CPolynom(CWeightedMonom(2.0, CMonom())), cube(0.0, 1.0), nullptr));
    double const at[6] = {-1.0 - 5e-11, -1.0 - 2e-10, -2e-10, -5e-11, 0.0, 1.0 - 5e-11};
    double const expected[6] = {1.0, 0.0, 1.0, 2.0, 2.0, 0.0};
    for (int i = 0; i < 6; ++i) {
        double const p[3] = {at[i], at[i], at[i]};
        EXPECT_EQ(steps.eval(p), expected[i]) << at[i];
    }
    // Touching boxes have no product, and the base decides the shift.
    CPiecewisePolynom const lower(steps.getTerm(0)), upper(steps.getTerm(1));
    EXPECT_EQ((lower * upper).termsNumber(), 0);
    EXPECT_EQ((steps * steps).termsNumber(), 2);
}

TEST(PiecewisePolynom, ShiftIsThatOfTheFirstPieceOrOfTheHigherDegree)
{
    double const a[3] = {0.5, 0.0, 0.0}, b[3] = {0.0, 0.25, 0.0};
    CLimitedPolynom const linear(CPolynom(CMonom(1, 0, 0)), cube(-1.0, 1.0), a);
    CLimitedPolynom const cubic(CPolynom(CMonom(1, 1, 1)), cube(0.0, 2.0), b);
    CPiecewisePolynom f(linear);
    f.addTerm(cubic);
    f.addTerm(f.getTerm(0));
    EXPECT_EQ(f.getTerm(1).getArgShift3()[0], 0.5);
    EXPECT_EQ(f.getTerm(1).getArgShift3()[1], 0.0);
    EXPECT_EQ(f.maxPower(), 3);
    EXPECT_EQ(f.getCommonSupportRef().getMin()[1], -1.0);
    EXPECT_EQ(f.getCommonSupportRef().getMax()[2], 2.0);
    CPiecewisePolynom const product = CPiecewisePolynom(linear) * CPiecewisePolynom(cubic);
    EXPECT_EQ(product.getTerm(0).getArgShift3()[1], 0.25);
    EXPECT_EQ(product.getCommonSupportRef().getMin()[0], 0.0);
    EXPECT_EQ(product.getCommonSupportRef().getMax()[0], 1.0);
    EXPECT_TRUE(f.checkClassInvariants());
}
