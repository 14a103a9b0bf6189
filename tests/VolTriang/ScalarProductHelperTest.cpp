// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/ScalarProductHelper.h>

#include <QZmath/VolTriang/InterlacedSupportIterator.h>

#include <VolTriang/ScaledKernel.h>
#include <support/PiecewisePolynomials.h>
#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>

using namespace VolTr;
using namespace TestPolynomials;

namespace
{

using Kernel = CProductPiecewisePolynom;
using Basis = COctreeFuncBasisTmpl<Kernel>;
using Combination = COctreeFuncLinCombTmpl<Kernel>;
using Helper = CCSFProductHelperTmpl<Kernel>;
using Function = CCSFunc3Tmpl<Kernel>;

int const evenParity[3] = {1, 1, 1};
int const oddAlongXParity[3] = {-1, 1, 1};

// The bases of a reconstruction over one octree: a kernel of some width, a derivative and its Laplacian.
struct Bases
{
    Bases(COctree const & octree, double width)
    {
        Kernel const kernel = qz_test::scaledKernel(width);
        plain = std::make_unique<Basis>(kernel, &octree, 0);
        Kernel derived;
        kernel.makePartialDerivative(&derived, 0);
        gradient = std::make_unique<Basis>(derived, &octree, 1);
        kernel.makeLaplacian(&derived);
        laplacian = std::make_unique<Basis>(derived, &octree, 2);
    }

    std::unique_ptr<Basis> plain, gradient, laplacian;
};

// Pairs of functions with overlapping supports, from every pair of depths.
std::vector<std::pair<int, int>> overlappingPairs(Basis const & basis, int perFunction, std::mt19937 & random)
{
    std::vector<std::pair<int, int>> pairs;
    for (int i = 0; i < basis.getFunctionsNumber(); i += 5) {
        std::vector<int> others;
        CParallelepiped const box = getScaledFunctionCommonSupport(basis.makeFunctionByIndex(i));
        for (CInterlacedSupportIteratorTmpl<Kernel> it(&basis, box); !it.isFinished(); it.next())
            others.push_back(it.functionIndex());
        std::shuffle(others.begin(), others.end(), random);
        for (int j = 0; j < std::min(perFunction, static_cast<int>(others.size())); ++j)
            pairs.emplace_back(i, others[static_cast<std::size_t>(j)]);
    }
    return pairs;
}

// Bound of an integral of f g: the greatest |f| times the integral of |g|, whichever way is less.
double magnitude(Function const & f, Function const & g)
{
    double const greatestF = f.getNormalizationScale();
    double const greatestG = g.getNormalizationScale();
    return std::min(greatestF * greatestG * std::pow(f.getArgumentScale(), -3.0),
                    greatestF * greatestG * std::pow(g.getArgumentScale(), -3.0));
}

class Products : public testing::TestWithParam<std::tuple<bool, int, double>>
{
protected:
    PointCloudSamples samples = qz_test::cloudOf("slope", 40, {0.0, 1.0, 1.0f, {}, 0.4f, 11});
    COctree octree{&samples, 5, nullptr, std::get<0>(GetParam()), std::get<1>(GetParam())};
    Bases bases{octree, std::get<2>(GetParam())};
    std::mt19937 random{12};
};

TEST_P(Products, AgreeWithQuadrature)
{
    Helper laplacian(bases.plain.get(), bases.laplacian.get(), BasisSymmetryFull, 7, evenParity);
    std::vector<std::pair<int, int>> pairs = overlappingPairs(*bases.plain, 3, random);
    std::shuffle(pairs.begin(), pairs.end(), random);
    pairs.resize(15);
    double const width = std::get<2>(GetParam());
    for (auto const & [i, j] : pairs) {
        Function const f = bases.plain->makeFunctionByIndex(i);
        Function const g = bases.laplacian->makeFunctionByIndex(j);
        std::vector<double> knots[3];
        for (int axis = 0; axis < 3; ++axis) {
            for (double knot : {-1.5, -0.5, 0.5, 1.5}) {
                knots[axis].push_back(f.getArgumentShift()[axis] + knot * width / f.getArgumentScale());
                knots[axis].push_back(g.getArgumentShift()[axis] + knot * width / g.getArgumentScale());
            }
            std::sort(knots[axis].begin(), knots[axis].end());
        }
        double const integral = integrateBetweenKnots(
            [&](double x) {
                return integrateBetweenKnots(
                    [&](double y) {
                        return integrateBetweenKnots(
                            [&](double z) {
                                double const p[3] = {x, y, z};
                                return f.eval(p) * g.eval(p);
                            },
                            knots[2]);
                    },
                    knots[1]);
            },
            knots[0]);
        EXPECT_NEAR(laplacian.evalScalarProduct(f, g), integral, 1e-9 * magnitude(f, g));
    }
}

TEST_P(Products, WithACombinationAreTheSumOverItsFunctions)
{
    Combination combination(bases.gradient.get());
    int const count = bases.plain->getFunctionsNumber();
    for (int node = 0; node < count; ++node)
        combination.setBasisCoefficient(node, node % 3 == 0 ? 0.0 : uniform(random, -1.0, 1.0));
    Helper helper(bases.plain.get(), bases.gradient.get(), BasisSymmetryNone, 6, oddAlongXParity);
    int const size = helper.cashSize();
    for (int i = 0; i < count; i += 17) {
        Function const f = bases.plain->makeFunctionByIndex(i);
        double sum = 0.0;
        double magnitudes = 0.0;
        for (int j = 0; j < count; ++j) {
            double const term = combination.getBasisCoefficient(j) *
                                helper.evalScalarProduct(f, bases.gradient->makeFunctionByIndex(j));
            sum += term;
            magnitudes += std::fabs(term);
        }
        EXPECT_NEAR(helper.evalScalarProduct(f, combination), sum, 1e-12 * magnitudes);
    }
    EXPECT_EQ(helper.cashSize(), size);
    combination.setBasisCoefficient(3, std::numeric_limits<double>::quiet_NaN());
    EXPECT_TRUE(std::isnan(helper.evalScalarProduct(bases.plain->makeFunctionByIndex(3), combination)));
}

INSTANTIATE_TEST_SUITE_P(Kinds, Products,
                         testing::Combine(testing::Bool(), testing::Values(-1, 2),
                                          testing::Values(0.7, 0.95, 1.0, 1.3)));

// Depths far apart, whose tables would not fit into memory.
TEST(ScalarProductHelper, DeepTreesTakeLittleMemory)
{
    PointCloudSamples samples;
    samples.add({0.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 1.0f});
    samples.add({1.0f, 0.7f, 0.4f}, {0.0f, 0.0f, 1.0f});
    for (bool useCenter : {false, true}) {
        COctree const octree(&samples, COctree::MAX_DEPTH, nullptr, useCenter, -1);
        double const width = 0.95;
        Bases const bases(octree, width);
        Helper helper(bases.plain.get(), bases.plain.get(), BasisSymmetryFull, 7, evenParity);
        EXPECT_EQ(helper.cashSize(), std::numeric_limits<int>::max());
        std::mt19937 random(13);
        int const count = bases.plain->getFunctionsNumber();
        for (int trial = 0; trial < 4000; ++trial) {
            int const i = std::uniform_int_distribution<int>(0, count - 1)(random);
            int const j = std::uniform_int_distribution<int>(0, count - 1)(random);
            Function const f = bases.plain->makeFunctionByIndex(i);
            Function const g = bases.plain->makeFunctionByIndex(j);
            Function const & deeper = f.getNodeDepth() > g.getNodeDepth() ? f : g;
            Function const & coarser = f.getNodeDepth() > g.getNodeDepth() ? g : f;
            // To the other one, a far deeper function is a point with its integral as weight.
            if (deeper.getNodeDepth() - coarser.getNodeDepth() < 12)
                continue;
            double const value = width * width * width * coarser.eval(deeper.getArgumentShift());
            double const tolerance = 1e-6 * coarser.getNormalizationScale();
            EXPECT_NEAR(helper.evalScalarProduct(f, g), value, tolerance);
        }
    }
}

} // namespace
