// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>

#include <VolTriang/ScaledKernel.h>
#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

using namespace VolTr;

namespace
{

using Kernel = CProductPiecewisePolynom;
using Basis = COctreeFuncBasisTmpl<Kernel>;
using Combination = COctreeFuncLinCombTmpl<Kernel>;

// A kernel, its derivative and its Laplacian (three summands), with their derivative levels.
Kernel makeKernel(int level, double width)
{
    Kernel const kernel = qz_test::scaledKernel(width);
    Kernel result;
    if (level == 1)
        kernel.makePartialDerivative(&result, 1);
    else if (level == 2)
        kernel.makeLaplacian(&result);
    return level == 0 ? kernel : result;
}

class BasisOfLevel : public testing::TestWithParam<std::tuple<int, bool, int>>
{
protected:
    PointCloudSamples samples = qz_test::cloudOf("slope", 60, {0.0, 1.0, 1.0f, {}, 0.3f, 3});
    COctree octree{&samples, 5, nullptr, std::get<1>(GetParam()), std::get<2>(GetParam())};
    Basis basis{makeKernel(std::get<0>(GetParam()), 0.9), &octree, std::get<0>(GetParam())};
    std::mt19937 random{8};
    std::uniform_real_distribution<double> coord{-0.3, 1.3};

    void makePoint(double * point)
    {
        for (int axis = 0; axis < 3; ++axis)
            point[axis] = coord(random);
    }
};

} // namespace

TEST_P(BasisOfLevel, ValueOfANodeIsThatOfItsPlacedFunction)
{
    int const level = std::get<0>(GetParam());
    for (int node = 0; node < basis.getFunctionsNumber(); node += 3) {
        CCSFunc3Tmpl<Kernel> const function = basis.makeFunctionByIndex(node);
        CParallelepiped const support = getScaledFunctionCommonSupport(function);
        double const edge = octree.getCellSize(octree.getNodeDepth(node));
        EXPECT_NEAR(support.getMax()[0] - support.getMin()[0], 2.0 * 1.5 * 0.9 * edge, 1e-12);
        for (int trial = 0; trial < 20; ++trial) {
            double point[3];
            for (int axis = 0; axis < 3; ++axis)
                point[axis] = function.getArgumentShift()[axis] + (2.0 * coord(random) - 1.0) * edge;
            double const value = basis.evalBasisValue(node, point);
            EXPECT_NEAR(value, function.eval(point), 1e-12 * std::pow(edge, -3 - level));
            EXPECT_NEAR(function.getNormalizationScale(), std::pow(edge, -3 - level),
                        1e-12 * std::pow(edge, -3 - level));
        }
    }
}

TEST_P(BasisOfLevel, SupportIteratorMissesNoFunction)
{
    for (int query = 0; query < 40; ++query) {
        double low[3];
        makePoint(low);
        double const size = query % 4 * 0.1;
        double const high[3] = {low[0] + size, low[1] + 0.5 * size, low[2] + size};
        CParallelepiped const box(low, high);
        std::vector<int> found;
        int depth = octree.getNodeDepthEnd();
        for (CInterlacedSupportIteratorTmpl<Kernel> it(&basis, box); !it.isFinished(); it.next()) {
            found.push_back(it.functionIndex());
            CCSFunc3Tmpl<Kernel> const expected = basis.makeFunctionByIndex(found.back());
            EXPECT_LE(expected.getNodeDepth(), depth);
            depth = expected.getNodeDepth();
            EXPECT_EQ((*it).getNodeDepth(), expected.getNodeDepth());
            EXPECT_EQ((*it).getArgumentScale(), expected.getArgumentScale());
            EXPECT_TRUE(std::equal(expected.getArgumentShift(), expected.getArgumentShift() + 3,
                                   (*it).getArgumentShift()));
            EXPECT_TRUE(std::equal(expected.getArgumentShiftInt(), expected.getArgumentShiftInt() + 3,
                                   (*it).getArgumentShiftInt()));
        }
        std::sort(found.begin(), found.end());
        EXPECT_TRUE(std::adjacent_find(found.begin(), found.end()) == found.end());
        for (int node = 0; node < basis.getFunctionsNumber(); ++node) {
            CParallelepiped const support = getScaledFunctionCommonSupport(basis.makeFunctionByIndex(node));
            bool touches = true;
            for (int axis = 0; axis < 3; ++axis)
                touches =
                    touches && support.getMin()[axis] < high[axis] && low[axis] < support.getMax()[axis];
            if (touches) {
                EXPECT_TRUE(std::binary_search(found.begin(), found.end(), node)) << node;
            }
        }
    }
    CParallelepiped const far(50.0, 51.0, 50.0, 51.0, 50.0, 51.0);
    EXPECT_TRUE(CInterlacedSupportIteratorTmpl<Kernel>(&basis, far).isFinished());
}

TEST_P(BasisOfLevel, CombinationIsTheSumOfItsTermsWithOrWithoutAHelper)
{
    Combination combination(&basis);
    COctreeFuncEvalHelper fresh(1, 0.05);
    double origin[3] = {0.5, 0.5, 0.1};
    EXPECT_EQ(combination.eval(origin, &fresh), 0.0);
    EXPECT_TRUE(fresh.getBasisIndexesBegin(0) == fresh.getBasisIndexesEnd(0));

    for (int node = 0; node < basis.getFunctionsNumber(); ++node)
        combination.setBasisCoefficient(node, node % 7 == 0 ? 0.0 : coord(random) - 0.5);
    COctreeFuncEvalHelper none(0, 0.1);
    COctreeFuncEvalHelper one(1, 0.04);
    COctreeFuncEvalHelper many(5, 0.11);
    double point[3];
    makePoint(point);
    for (int trial = 0; trial < 400; ++trial) {
        // A walk with jumps, so that regions are hit, replaced and left.
        for (double & x : point)
            x += 0.03 * (coord(random) - 0.5);
        if (trial % 40 == 0)
            makePoint(point);
        double const value = combination.eval(point, nullptr);
        EXPECT_EQ(combination.eval(point, &none), value);
        EXPECT_EQ(combination.eval(point, &one), value);
        EXPECT_EQ(combination.eval(point, &many), value);
        double sum = 0.0;
        double magnitude = 0.0;
        for (int node = 0; node < basis.getFunctionsNumber(); ++node) {
            double const term = combination.getBasisCoefficient(node) * basis.evalBasisValue(node, point);
            sum += term;
            magnitude += std::fabs(term);
        }
        EXPECT_NEAR(value, sum, 1e-12 * magnitude);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, BasisOfLevel,
                         testing::Combine(testing::Values(0, 1, 2), testing::Bool(), testing::Values(-1, 1)));

// Kernels that reach more nodes than the usual three on a line, regions around the whole tree, lattices whose
// coordinates fill an `int`.
TEST(OctreeFuncLinComb, HelpersChangeNoBitForWideKernelsAndLargeRegions)
{
    PointCloudSamples const samples = qz_test::cloudOf("slope", 60, {0.0, 1.0, 1.0f, {}, 0.3f, 3});
    std::mt19937 random(9);
    std::uniform_real_distribution<double> offset(-1.0, 1.0);
    for (int depth : {4, 7, COctree::MAX_DEPTH}) {
        COctree const octree(&samples, depth, nullptr, depth == 7, -1);
        for (double width : {1.0, 1.3, 2.5, 7.0}) {
            for (int level : {0, 2}) {
                Basis const basis(makeKernel(level, width), &octree, level);
                Combination combination(&basis);
                for (int node = 0; node < basis.getFunctionsNumber(); ++node)
                    combination.setBasisCoefficient(node, offset(random));
                COctreeFuncEvalHelper leaves(2, 4.0 * octree.getCellSize(depth));
                COctreeFuncEvalHelper all(1, 3.0);
                for (int trial = 0; trial < 60; ++trial) {
                    double point[3];
                    octree.getNodePosition(trial * 7 % octree.getNodesNumber(), point);
                    for (int axis = 0; axis < 3 && trial % 4 != 0; ++axis)
                        point[axis] += 3.0 * offset(random) * octree.getCellSize(depth);
                    double const value = combination.eval(point, nullptr);
                    for (int repeat = 0; repeat < 2; ++repeat) {
                        EXPECT_EQ(combination.eval(point, &leaves), value);
                        EXPECT_EQ(combination.eval(point, &all), value);
                    }
                }
            }
        }
    }
}

TEST(OctreeFuncEvalHelper, KeepsTheRegionsThatAreHitMost)
{
    COctreeFuncEvalHelper helper(2, 1.0);
    double const a[3] = {0.0, 0.0, 0.0}, b[3] = {5.0, 0.0, 0.0}, c[3] = {9.0, 0.0, 0.0};
    double const border[3] = {1.0, -1.0, 1.0};
    EXPECT_EQ(helper.getCashedRegionindex(a), -1);
    EXPECT_EQ(helper.recordNewRegion(a), 0);
    EXPECT_EQ(helper.recordNewRegion(b), 1);
    EXPECT_EQ(helper.getCashedRegionindex(border), 0);
    EXPECT_EQ(helper.recordNewRegion(c), 1);
    EXPECT_EQ(helper.getCashedRegionindex(b), -1);
    EXPECT_EQ(helper.getCashedRegionindex(c), 1);
    // At equal counters the first goes.
    EXPECT_EQ(helper.recordNewRegion(b), 0);
}
