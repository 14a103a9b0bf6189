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

// The quadratic B-spline as the threefold convolution of the unit box, by truncated powers.
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
    EXPECT_EQ(kernel.eval(origin), 0.421875);
    EXPECT_EQ(kernel.eval(edge), 0.0);
    EXPECT_NEAR(kernel.integrateOnSupport(), 1.0, 1e-14);
    EXPECT_TRUE(kernel.checkClassInvariants());
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

TEST(Kernels, DerivativesAgreeWithDifferences)
{
    // Of two summands, the second one twice as wide.
    TKernel const kernel = makeApproxGaussian<TKernel>();
    TKernel function = kernel, wide = kernel, laplacian, kernelLaplacian;
    double const half[3] = {0.5, 0.5, 0.5};
    wide.scaleArgument(half);
    function += wide;
    function.makeLaplacian(&laplacian);
    kernel.makeLaplacian(&kernelLaplacian);
    std::mt19937 random(6);
    double const h = 1e-4;
    for (int i = 0; i < 200; ++i) {
        double p[3] = {uniform(random, -2, 2), uniform(random, -2, 2), uniform(random, -2, 2)};
        EXPECT_EQ(makeApproxGaussianLaplacian<TKernel>().eval(p), kernelLaplacian.eval(p));
        bool nearKnot = false;
        double secondDifferences = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            TKernel derivative = function, ofKernel;
            derivative.makePartialDerivative(&derivative, axis);
            kernel.makePartialDerivative(&ofKernel, axis);
            EXPECT_EQ(DgaussianDx<TKernel>(axis).eval(p), ofKernel.eval(p));
            double const middle = p[axis], value = function.eval(p);
            nearKnot = nearKnot || std::fabs(std::remainder(middle, 0.5)) < 2.0 * h;
            p[axis] = middle + h;
            double const after = function.eval(p);
            p[axis] = middle - h;
            double const before = function.eval(p);
            p[axis] = middle;
            EXPECT_NEAR(derivative.eval(p), (after - before) / (2.0 * h), 1e-3);
            secondDifferences += (after - 2.0 * value + before) / (h * h);
        }
        EXPECT_TRUE(nearKnot || std::fabs(laplacian.eval(p) - secondDifferences) < 1e-5);
    }
    EXPECT_THROW(kernel.makePartialDerivative(&wide, 3), std::out_of_range);
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
