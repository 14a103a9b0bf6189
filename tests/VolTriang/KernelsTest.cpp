// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Kernels.h>

#include <support/PiecewisePolynomials.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace VolTr;
using namespace TestPolynomials;
using TKernel = CProductPiecewisePolynom;

namespace
{

/// The quadratic B-spline as the threefold convolution of the unit box, by truncated powers.
double bSpline(double t)
{
    double const weights[4] = {1.0, -3.0, 3.0, -1.0};
    double sum = 0.0;
    for (int i = 0; i < 4; ++i) {
        double const u = std::max(0.0, t + 1.5 - i);
        sum += 0.5 * weights[i] * u * u;
    }
    return sum;
}

CCSFunc3Tmpl<TKernel> place(TKernel const & kernel, double x, double y, double z, double scale, double norm)
{
    double centre[3] = {x, y, z};
    int lattice[3] = {0, 0, 0};
    return CCSFunc3Tmpl<TKernel>(&kernel, centre, lattice, scale, norm, 3);
}

TEST(Kernels, ApproxGaussianIsAProductOfBSplines)
{
    TKernel const kernel = makeApproxGaussian<TKernel>();
    std::mt19937 random(5);
    for (int i = 0; i < 500; ++i) {
        double const p[3] = {uniform(random, -2, 2), uniform(random, -2, 2), uniform(random, -2, 2)};
        EXPECT_NEAR(kernel.eval(p), bSpline(p[0]) * bSpline(p[1]) * bSpline(p[2]), 1e-14);
    }
    double const origin[3] = {0.0, 0.0, 0.0};
    double const edge[3] = {1.5, 0.0, 0.0};
    double const low[3] = {-1.5, 0.0, 0.0};
    EXPECT_EQ(kernel.eval(origin), 0.421875);
    EXPECT_EQ(kernel.eval(edge), 0.0);
    EXPECT_EQ(kernel.eval(low), 0.0);
    EXPECT_NEAR(kernel.integrateOnSupport(), 1.0, 1e-14);
    EXPECT_TRUE(kernel.checkClassInvariants());
    EXPECT_EQ(kernel.getCommonSupportRef().getMin()[1], -1.5);
    EXPECT_EQ(kernel.getCommonSupportRef().getMax()[2], 1.5);
    for (int axis = 0; axis < 3; ++axis) {
        CSingleVarLimitedPolynom const & spline = kernel.getSummand(0).getMultiplier(axis);
        double const left[3] = {1.125, 1.5, 0.5}, middle[3] = {0.75, 0.0, -1.0},
                     right[3] = {1.125, -1.5, 0.5};
        EXPECT_EQ(spline.getPiece(0), CSingleVarPolynom(3, left));
        EXPECT_EQ(spline.getPiece(1), CSingleVarPolynom(3, middle));
        EXPECT_EQ(spline.getPiece(2), CSingleVarPolynom(3, right));
        EXPECT_EQ(spline.getArgShift(), 0.0);
    }
}

TEST(Kernels, DerivativesAgreeWithDifferencesAndIntegrateToZero)
{
    TKernel const kernel = makeApproxGaussian<TKernel>();
    TKernel const laplacian = makeApproxGaussianLaplacian<TKernel>();
    EXPECT_EQ(laplacian.summandsNumber(), 3);
    EXPECT_NEAR(laplacian.integrateOnSupport(), 0.0, 1e-14);
    std::mt19937 random(6);
    double const h = 1e-4;
    for (int i = 0; i < 200; ++i) {
        double p[3] = {uniform(random, -2, 2), uniform(random, -2, 2), uniform(random, -2, 2)};
        bool nearKnot = false;
        double secondDifferences = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            TKernel const derivative = DgaussianDx<TKernel>(axis);
            EXPECT_NEAR(derivative.integrateOnSupport(), 0.0, 1e-14);
            double const middle = p[axis];
            nearKnot = nearKnot || std::fabs(std::remainder(middle - 0.5, 1.0)) < 2.0 * h;
            double const value = kernel.eval(p);
            p[axis] = middle + h;
            double const after = kernel.eval(p);
            p[axis] = middle - h;
            double const before = kernel.eval(p);
            p[axis] = middle;
            EXPECT_NEAR(derivative.eval(p), (after - before) / (2.0 * h), 1e-3);
            secondDifferences += (after - 2.0 * value + before) / (h * h);
        }
        if (!nearKnot) {
            EXPECT_NEAR(laplacian.eval(p), secondDifferences, 1e-5);
        }
    }
}

TEST(Kernels, PlacedFunctionsAgreeInEveryForm)
{
    TKernel const kernels[3] = {makeApproxGaussian<TKernel>(), DgaussianDx<TKernel>(1),
                                makeApproxGaussianLaplacian<TKernel>()};
    std::mt19937 random(7);
    for (int trial = 0; trial < 60; ++trial) {
        auto const f = place(kernels[trial % 3], uniform(random, -1, 1), uniform(random, -1, 1),
                             uniform(random, -1, 1), uniform(random, 0.5, 4.0), uniform(random, 0.5, 4.0));
        auto const g = place(kernels[trial % 2], uniform(random, -1, 1), uniform(random, -1, 1),
                             uniform(random, -1, 1), uniform(random, 0.5, 4.0), uniform(random, 0.5, 4.0));
        TKernel const polynomial = polynomByShiftedKernel(f);
        TKernel const product = makeProduct(f, g);
        CParallelepiped const box = getScaledFunctionCommonSupport(f);
        for (int i = 0; i < 40; ++i) {
            double p[3];
            bool inside = true;
            for (int axis = 0; axis < 3; ++axis) {
                p[axis] = f.getArgumentShift()[axis] + uniform(random, -2, 2) / f.getArgumentScale();
                inside = inside && box.getMin()[axis] <= p[axis] && p[axis] <= box.getMax()[axis];
            }
            double const value = f.eval(p);
            EXPECT_NEAR(polynomial.eval(p), value, 1e-9);
            EXPECT_NEAR(product.eval(p), value * g.eval(p), 1e-7);
            if (!inside) {
                EXPECT_EQ(value, 0.0);
            }
            double sum = 0.0;
            for (int summand = 0; summand < f.getkernelRef().summandsNumber(); ++summand)
                sum += summandByShiftedKernel(f, summand, 0).eval(p[0]) *
                       summandByShiftedKernel(f, summand, 1).eval(p[1]) *
                       summandByShiftedKernel(f, summand, 2).eval(p[2]);
            EXPECT_NEAR(sum, value, 1e-9);
        }
        EXPECT_NEAR(integrateOnSupport(polynomial),
                    integrateOnSupport(f.getkernelRef()) * f.getNormalizationScale() /
                        std::pow(f.getArgumentScale(), 3.0),
                    1e-9);
    }
    auto const small = place(kernels[0], 1.0, 0.0, 0.0, 4.0, 1.0);
    CParallelepiped const box = getScaledFunctionCommonSupport(small);
    EXPECT_EQ(box.getMin()[0], 0.625);
    EXPECT_EQ(box.getMax()[0], 1.375);
    EXPECT_EQ(box.getMin()[2], -0.375);
    EXPECT_THROW(summandByShiftedKernel(small, 1, 0), std::out_of_range);
    EXPECT_THROW(DgaussianDx<TKernel>(3), std::out_of_range);
}

TEST(Kernels, TrilinearWeightsOfACellSumToOne)
{
    CParallelepiped const cell(1.0, 1.5, -2.0, 0.0, 3.0, 3.0);
    std::mt19937 random(8);
    for (int i = 0; i < 50; ++i) {
        double const p[3] = {uniform(random, 1.0, 1.5), uniform(random, -2.0, 0.0), 3.0};
        float const pFloat[3] = {float(p[0]), float(p[1]), float(p[2])};
        double sum = 0.0;
        for (int corner = 0; corner < 4; ++corner) {
            double const node[3] = {corner & 1 ? 1.5 : 1.0, corner & 2 ? 0.0 : -2.0, 3.0};
            double const expected =
                (corner & 1 ? p[0] - 1.0 : 1.5 - p[0]) / 0.5 * (corner & 2 ? p[1] + 2.0 : 0.0 - p[1]) / 2.0;
            EXPECT_NEAR(calcTrilinearWeight(p, node, cell), expected, 1e-14);
            EXPECT_NEAR(calcTrilinearWeight(pFloat, node, cell), expected, 1e-6);
            sum += calcTrilinearWeight(p, node, cell);
        }
        EXPECT_NEAR(sum, 1.0, 1e-14);
    }
    double const far[3] = {2.25, -1.0, 3.0}, node[3] = {1.0, -1.0, 3.0};
    EXPECT_EQ(calcTrilinearWeight(far, node, cell), -1.5);
}

} // namespace
