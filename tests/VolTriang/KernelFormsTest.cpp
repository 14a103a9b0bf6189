// SPDX-License-Identifier: Apache-2.0
// The general and the separable form of the kernels against each other, from the kernel to scalar products.
#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>

#include <support/PiecewisePolynomials.h>
#include <support/PointCloudSamples.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

using namespace VolTr;
using namespace TestPolynomials;

namespace
{

using General = CPiecewisePolynom;
using Separable = CProductPiecewisePolynom;

/// The kernel, its derivatives along x, y, z and its Laplacian.
template <class TKernel>
TKernel makeKernel(int kind)
{
    if (kind == 0)
        return makeApproxGaussian<TKernel>();
    return kind < 4 ? DgaussianDx<TKernel>(kind - 1) : makeApproxGaussianLaplacian<TKernel>();
}

int derivativeLevel(int kind) { return kind == 0 ? 0 : kind < 4 ? 1 : 2; }

template <class TKernel>
CCSFunc3Tmpl<TKernel> place(TKernel const & kernel, double const * centre, double scale, double norm)
{
    double shift[3] = {centre[0], centre[1], centre[2]};
    int lattice[3] = {0, 0, 0};
    return CCSFunc3Tmpl<TKernel>(&kernel, shift, lattice, scale, norm, 3);
}

TEST(KernelForms, AreTheSameFunction)
{
    int const pieces[5] = {27, 27, 27, 27, 81};
    std::mt19937 random(21);
    for (int kind = 0; kind < 5; ++kind) {
        General const general = makeKernel<General>(kind);
        Separable const separable = makeKernel<Separable>(kind);
        EXPECT_EQ(general.termsNumber(), pieces[kind]);
        EXPECT_TRUE(general.checkClassInvariants());
        EXPECT_NEAR(integrateOnSupport(general), kind == 0 ? 1.0 : 0.0, 1e-14);
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(general.getCommonSupportRef().getMin()[axis], -1.5);
            EXPECT_EQ(general.getCommonSupportRef().getMax()[axis], 1.5);
        }
        for (int i = 0; i < 1000; ++i) {
            double const p[3] = {uniform(random, -1.8, 1.8), uniform(random, -1.8, 1.8),
                                 uniform(random, -1.8, 1.8)};
            EXPECT_NEAR(general.eval(p), separable.eval(p), 1e-13);
        }
    }
    General const laplacian = makeKernel<General>(4);
    double const centre[3] = {0.0, 0.0, 0.0}, face[3] = {-0.5, 0.0, 0.0}, below[3] = {-0.5 - 5e-11, 0.0, 0.0};
    EXPECT_EQ(makeKernel<General>(0).eval(centre), 0.421875);
    EXPECT_NEAR(laplacian.eval(face), makeKernel<Separable>(4).eval(face), 1e-14);
    EXPECT_NEAR(laplacian.eval(below), laplacian.eval(face), 1e-9);
    EXPECT_GT(std::fabs(makeKernel<Separable>(4).eval(below) - laplacian.eval(face)), 1.0);
    EXPECT_THROW(DgaussianDx<General>(3), std::out_of_range);
    EXPECT_THROW(DgaussianDx<General>(-1), std::out_of_range);
}

TEST(KernelForms, PlacedFunctionsAndProductsAgree)
{
    std::mt19937 random(22);
    for (int trial = 0; trial < 25; ++trial) {
        int const kindF = trial % 5, kindG = trial / 5;
        General const generalF = makeKernel<General>(kindF), generalG = makeKernel<General>(kindG);
        Separable const separableF = makeKernel<Separable>(kindF), separableG = makeKernel<Separable>(kindG);
        double const c[3] = {uniform(random, -1, 1), uniform(random, -1, 1), uniform(random, -1, 1)};
        double const d[3] = {uniform(random, -1, 1), uniform(random, -1, 1), uniform(random, -1, 1)};
        double const s = uniform(random, 0.6, 2), t = uniform(random, 0.6, 2);
        auto const f = place(generalF, c, s, 1.5), g = place(generalG, d, t, -0.5);
        auto const fOther = place(separableF, c, s, 1.5), gOther = place(separableG, d, t, -0.5);
        General const polynomial = polynomByShiftedKernel(f);
        General const product = makeProduct(f, g);
        EXPECT_TRUE(product.checkClassInvariants());
        CParallelepiped const box = getScaledFunctionCommonSupport(f);
        for (int i = 0; i < 100; ++i) {
            double p[3];
            for (int axis = 0; axis < 3; ++axis)
                p[axis] = uniform(random, box.getMin()[axis] - 0.1, box.getMax()[axis] + 0.1);
            EXPECT_NEAR(f.eval(p), fOther.eval(p), 1e-12);
            EXPECT_NEAR(polynomial.eval(p), fOther.eval(p), 1e-10);
            EXPECT_NEAR(product.eval(p), fOther.eval(p) * gOther.eval(p), 1e-8);
        }
        EXPECT_NEAR(integrateOnSupport(product), integrateOnSupport(makeProduct(fOther, gOther)), 1e-10);
    }
}

PointCloudSamples makeCloud()
{
    std::mt19937 random(23);
    PointCloudSamples samples;
    for (int sample = 0; sample < 30; ++sample) {
        float const x = static_cast<float>(uniform(random, 0.0, 1.0));
        samples.add({x, static_cast<float>(uniform(random, 0.0, 1.0)), 0.4f * x}, {0.0f, 0.0f, 1.0f});
    }
    return samples;
}

/// Bases of all kinds of kernels over one octree.
template <class TKernel>
struct Bases
{
    explicit Bases(COctree const & octree)
    {
        for (int kind = 0; kind < 5; ++kind)
            bases.push_back(std::make_unique<COctreeFuncBasisTmpl<TKernel>>(makeKernel<TKernel>(kind),
                                                                            &octree, derivativeLevel(kind)));
    }
    COctreeFuncBasisTmpl<TKernel> const * operator[](int kind) const
    {
        return bases[static_cast<std::size_t>(kind)].get();
    }

    std::vector<std::unique_ptr<COctreeFuncBasisTmpl<TKernel>>> bases;
};

class KernelFormsOnOctree : public testing::TestWithParam<std::tuple<bool, int>>
{
protected:
    PointCloudSamples samples = makeCloud();
    COctree octree{&samples, 4, nullptr, std::get<0>(GetParam()), std::get<1>(GetParam())};
    Bases<General> general{octree};
    Bases<Separable> separable{octree};
    std::mt19937 random{24};

    /// Pairs of nodes with near functions, up to `perDepths` for every pair of depths.
    std::vector<std::pair<int, int>> nearPairs(std::size_t perDepths)
    {
        std::map<std::pair<int, int>, std::vector<std::pair<int, int>>> byDepths;
        for (int i = 0; i < octree.getNodesNumber(); ++i) {
            CParallelepiped const box = getScaledFunctionCommonSupport(general[0]->makeFunctionByIndex(i));
            for (CInterlacedSupportIteratorTmpl<General> it(general[0], box); !it.isFinished(); it.next())
                byDepths[{octree.getNodeDepth(i), octree.getNodeDepth(it.functionIndex())}].emplace_back(
                    i, it.functionIndex());
        }
        std::size_t const depths =
            static_cast<std::size_t>(octree.getNodeDepthEnd() - octree.getNodeDepthBegin());
        EXPECT_EQ(byDepths.size(), depths * depths);
        std::vector<std::pair<int, int>> pairs;
        for (auto & [key, ofDepths] : byDepths) {
            std::shuffle(ofDepths.begin(), ofDepths.end(), random);
            ofDepths.resize(std::min(ofDepths.size(), perDepths));
            pairs.insert(pairs.end(), ofDepths.begin(), ofDepths.end());
        }
        return pairs;
    }

    /// A bound of the greatest integrals of this kind.
    double magnitude(int i, int j, int kind) const
    {
        double const scaleI = 1.0 / octree.getCellSize(octree.getNodeDepth(i));
        double const scaleJ = 1.0 / octree.getCellSize(octree.getNodeDepth(j));
        return std::pow(std::min(scaleI, scaleJ), 3.0) * std::pow(scaleJ, derivativeLevel(kind));
    }
};

TEST_P(KernelFormsOnOctree, BasesAndCombinationsAgree)
{
    for (int kind : {0, 2, 4}) {
        COctreeFuncLinCombTmpl<General> combination(general[kind]);
        COctreeFuncLinCombTmpl<Separable> other(separable[kind]);
        EXPECT_EQ(general[kind]->getSupportSizeInCells(), 1.5);
        for (int node = 0; node < octree.getNodesNumber(); ++node) {
            double const coefficient = node % 5 == 0 ? 0.0 : uniform(random, -1, 1);
            combination.setBasisCoefficient(node, coefficient);
            other.setBasisCoefficient(node, coefficient);
        }
        COctreeFuncLinCombTmpl<General> const copy(combination);
        COctreeFuncEvalHelper helper(2, 0.15);
        double const norm = std::pow(1.0 / octree.getUnit(), 3.0 + derivativeLevel(kind));
        double p[3] = {0.5, 0.5, 0.2};
        for (int trial = 0; trial < 200; ++trial) {
            for (double & x : p)
                x = trial % 20 == 0 ? uniform(random, -0.3, 1.3) : x + uniform(random, -0.02, 0.02);
            double const value = other.eval(p, nullptr);
            EXPECT_NEAR(combination.eval(p, nullptr), value, 1e-12 * norm);
            EXPECT_EQ(copy.eval(p, &helper), combination.eval(p, nullptr));
            float const pFloat[3] = {static_cast<float>(p[0]), static_cast<float>(p[1]),
                                     static_cast<float>(p[2])};
            int const node = trial * 7 % octree.getNodesNumber();
            EXPECT_NEAR(general[kind]->evalBasisValue(node, pFloat),
                        separable[kind]->evalBasisValue(node, pFloat), 1e-12 * norm);
        }
        CInterlacedSupportIteratorTmpl<General> it(general[kind],
                                                   CParallelepiped(0.2, 0.4, 0.3, 0.3, 0.0, 0.2));
        CInterlacedSupportIteratorTmpl<Separable> itOther(separable[kind],
                                                          CParallelepiped(0.2, 0.4, 0.3, 0.3, 0.0, 0.2));
        for (; !it.isFinished() && !itOther.isFinished(); it.next(), itOther.next()) {
            EXPECT_EQ(it.functionIndex(), itOther.functionIndex());
            EXPECT_EQ(it.functionIndex() < 0 ? 0.0 : (*it).getArgumentScale(), (*itOther).getArgumentScale());
        }
        EXPECT_TRUE(it.isFinished() && itOther.isFinished());
    }
}

TEST_P(KernelFormsOnOctree, ScalarProductsAgreeWithEachOtherAndWithDirectIntegration)
{
    std::vector<std::pair<int, int>> const pairs = nearPairs(6);
    int const evenParity[3] = {1, 1, 1};
    for (int kind : {0, 4}) {
        // With all symmetries in use, and with none.
        CCSFProductHelperTmpl<General> helper(general[0], general[kind], BasisSymmetryFull, 7, evenParity);
        CCSFProductHelperTmpl<General> plain(general[0], general[kind], BasisSymmetryNone, 0, nullptr);
        CCSFProductHelperTmpl<Separable> other(separable[0], separable[kind], BasisSymmetryFull, 7,
                                               evenParity);
        for (auto const & [i, j] : pairs) {
            auto const f = general[0]->makeFunctionByIndex(i);
            auto const g = general[kind]->makeFunctionByIndex(j);
            double const value = other.evalScalarProduct(separable[0]->makeFunctionByIndex(i),
                                                         separable[kind]->makeFunctionByIndex(j));
            double const tolerance = 1e-11 * std::max(magnitude(i, j, kind), magnitude(j, i, kind));
            EXPECT_NEAR(helper.evalScalarProduct(f, g), value, tolerance);
            EXPECT_NEAR(plain.evalScalarProduct(f, g), value, tolerance);
            if (std::abs(f.getNodeDepth() - g.getNodeDepth()) < 2) {
                EXPECT_NEAR(integrateOnSupport(makeProduct(f, g)), value, 1e3 * tolerance);
            }
        }
        EXPECT_LT(helper.cashSize(), plain.cashSize());
        int const size = plain.cashSize();
        for (auto const & [i, j] : pairs)
            plain.evalScalarProduct(general[0]->makeFunctionByIndex(i),
                                    general[kind]->makeFunctionByIndex(j));
        EXPECT_EQ(plain.cashSize(), size);
    }
}

TEST_P(KernelFormsOnOctree, VariablesCanBeSwapped)
{
    std::vector<std::pair<int, int>> const pairs = nearPairs(6);
    int const oddAlongXParity[3] = {-1, 1, 1};
    CCSFProductHelperTmpl<General> helper(general[0], general[1], BasisSymmetryNone, 6, oddAlongXParity);
    CCSFProductHelperTmpl<Separable> other(separable[0], separable[1], BasisSymmetryNone, 6, oddAlongXParity);
    for (int axis = 0; axis < 3; ++axis) {
        int const kind = axis + 1;
        if (axis > 0) {
            int const size = helper.cashSize();
            helper.initWithVariablesSwap(axis - 1, axis, general[0], general[kind]);
            other.initWithVariablesSwap(axis - 1, axis, separable[0], separable[kind]);
            EXPECT_EQ(helper.cashSize(), size);
        }
        EXPECT_EQ(&helper.rightBasisRef(), general[kind]);
        for (auto const & [i, j] : pairs) {
            EXPECT_NEAR(helper.evalScalarProduct(general[0]->makeFunctionByIndex(i),
                                                 general[kind]->makeFunctionByIndex(j)),
                        other.evalScalarProduct(separable[0]->makeFunctionByIndex(i),
                                                separable[kind]->makeFunctionByIndex(j)),
                        1e-11 * magnitude(i, j, kind));
        }
    }
    COctreeFuncLinCombTmpl<General> combination(general[3]);
    COctreeFuncLinCombTmpl<Separable> otherCombination(separable[3]);
    for (int node = 0; node < octree.getNodesNumber(); node += 9) {
        combination.setBasisCoefficient(node, 1.0 + node % 4);
        otherCombination.setBasisCoefficient(node, 1.0 + node % 4);
    }
    for (int node = 1; node < octree.getNodesNumber(); node += octree.getNodesNumber() / 6) {
        double const value =
            other.evalScalarProduct(separable[0]->makeFunctionByIndex(node), otherCombination);
        EXPECT_NEAR(helper.evalScalarProduct(general[0]->makeFunctionByIndex(node), combination), value,
                    1e-9 * std::pow(octree.getUnit(), -4.0));
    }
    EXPECT_THROW(helper.initWithVariablesSwap(0, 3, general[0], general[3]), std::out_of_range);
    EXPECT_THROW(helper.initWithVariablesSwap(-1, 2, general[0], general[3]), std::out_of_range);
}

TEST_P(KernelFormsOnOctree, GeneralProductsNeedNoOverlapAndNoOrder)
{
    CCSFProductHelperTmpl<General> forwards(general[0], general[4], BasisSymmetryFull, 7, nullptr);
    CCSFProductHelperTmpl<General> backwards(general[0], general[4], BasisSymmetryFull, 7, nullptr);
    std::vector<std::pair<int, int>> const pairs = nearPairs(3);
    std::vector<double> values;
    for (auto const & [i, j] : pairs)
        values.push_back(forwards.evalScalarProduct(general[0]->makeFunctionByIndex(i),
                                                    general[4]->makeFunctionByIndex(j)));
    for (std::size_t k = pairs.size(); k-- > 0;)
        EXPECT_EQ(backwards.evalScalarProduct(general[0]->makeFunctionByIndex(pairs[k].first),
                                              general[4]->makeFunctionByIndex(pairs[k].second)),
                  values[k]);

    auto const f = general[0]->makeFunctionByIndex(0);
    int const size = forwards.cashSize();
    int const reach = 3 << (octree.getLeafCellDepth() - f.getNodeDepth());
    for (int axis = 0; axis < 3; ++axis) {
        for (int offset : {std::numeric_limits<int>::max(), std::numeric_limits<int>::min(), reach + 1}) {
            auto g = f;
            g.getArgumentShiftIntMod()[axis] =
                offset == reach + 1 ? f.getArgumentShiftInt()[axis] + offset : offset;
            EXPECT_EQ(forwards.evalScalarProduct(f, g), 0.0);
        }
    }
    EXPECT_EQ(forwards.cashSize(), size);
    auto touching = f;
    touching.getArgumentShiftIntMod()[1] += reach;
    EXPECT_NEAR(forwards.evalScalarProduct(f, touching), 0.0, 1e-13 * std::pow(f.getArgumentScale(), 5.0));
    double centre[3] = {0.0, 0.0, 0.0};
    int lattice[3] = {0, 0, 0};
    for (int depth : {-1, 5, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        CCSFunc3Tmpl<General> const foreign(&f.getkernelRef(), centre, lattice, 1.0, 1.0, depth);
        EXPECT_EQ(forwards.evalScalarProduct(f, foreign), 0.0);
    }
}

// Two quadratic B-splines correlate to the quintic one, whose values and second derivatives at the integers
// are known.
TEST_P(KernelFormsOnOctree, ProductsOnOneDepthHaveClosedForms)
{
    double const values[4] = {11.0 / 20.0, 13.0 / 60.0, 1.0 / 120.0, 0.0};
    double const secondDerivatives[4] = {-1.0, 1.0 / 3.0, 1.0 / 6.0, 0.0};
    CCSFProductHelperTmpl<General> mass(general[0], general[0], BasisSymmetryNone, 0, nullptr);
    CCSFProductHelperTmpl<General> laplacian(general[0], general[4], BasisSymmetryNone, 0, nullptr);
    for (int depth = octree.getNodeDepthBegin(); depth < octree.getNodeDepthEnd(); ++depth) {
        int node = 0;
        while (octree.getNodeDepth(node) != depth)
            ++node;
        auto const f = general[0]->makeFunctionByIndex(node);
        int const step = 1 << (octree.getLeafCellDepth() - depth);
        for (auto const & cells :
             {CInt3(0, 0, 0), CInt3(1, 0, -2), CInt3(-1, 1, 1), CInt3(2, -2, 0), CInt3(0, 3, 1)}) {
            auto g = general[0]->makeFunctionByIndex(node);
            auto gLaplacian = general[4]->makeFunctionByIndex(node);
            std::size_t distance[3];
            for (int axis = 0; axis < 3; ++axis) {
                int const offset = axis == 0 ? cells.x() : axis == 1 ? cells.y() : cells.z();
                g.getArgumentShiftIntMod()[axis] += offset * step;
                gLaplacian.getArgumentShiftIntMod()[axis] += offset * step;
                distance[axis] = static_cast<std::size_t>(std::abs(offset));
            }
            double const x = values[distance[0]], y = values[distance[1]], z = values[distance[2]];
            double const sum = secondDerivatives[distance[0]] * y * z +
                               x * secondDerivatives[distance[1]] * z +
                               x * y * secondDerivatives[distance[2]];
            double const scale = f.getArgumentScale();
            EXPECT_NEAR(mass.evalScalarProduct(f, g), x * y * z * std::pow(scale, 3.0),
                        1e-11 * std::pow(scale, 3.0));
            EXPECT_NEAR(laplacian.evalScalarProduct(f, gLaplacian), sum * std::pow(scale, 5.0),
                        1e-11 * std::pow(scale, 5.0));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, KernelFormsOnOctree,
                         testing::Combine(testing::Bool(), testing::Values(-1, 1)));

} // namespace
