// SPDX-License-Identifier: Apache-2.0
// The general and the separable form of the kernels against each other, from the kernel to scalar products.
#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>

#include <support/PiecewisePolynomials.h>
#include <support/SampledClouds.h>

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

// The kernel, its derivatives along x, y, z and its Laplacian.
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

TEST(KernelForms, GeneralFormHasItsPiecesAndClosedFaces)
{
    int const pieces[5] = {27, 27, 27, 27, 81};
    for (int kind = 0; kind < 5; ++kind) {
        General const general = makeKernel<General>(kind);
        EXPECT_EQ(general.termsNumber(), pieces[kind]);
        EXPECT_TRUE(general.checkClassInvariants());
        EXPECT_NEAR(integrateOnSupport(general), kind == 0 ? 1.0 : 0.0, 1e-14);
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(general.getCommonSupportRef().getMin()[axis], -1.5);
            EXPECT_EQ(general.getCommonSupportRef().getMax()[axis], 1.5);
        }
    }
    General const laplacian = makeKernel<General>(4);
    double const centre[3] = {0.0, 0.0, 0.0}, face[3] = {-0.5, 0.0, 0.0}, below[3] = {-0.5 - 5e-11, 0.0, 0.0};
    EXPECT_EQ(makeKernel<General>(0).eval(centre), 0.421875);
    EXPECT_NEAR(laplacian.eval(face), makeKernel<Separable>(4).eval(face), 1e-14);
    EXPECT_NEAR(laplacian.eval(below), laplacian.eval(face), 1e-9);
    EXPECT_GT(std::fabs(makeKernel<Separable>(4).eval(below) - laplacian.eval(face)), 1.0);
    for (int axis : {3, -1})
        EXPECT_THROW(DgaussianDx<General>(axis), std::out_of_range);
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
        Separable const polynomialOther = polynomByShiftedKernel(fOther);
        CParallelepiped const box = getScaledFunctionCommonSupport(f);
        for (int i = 0; i < 100; ++i) {
            double p[3], argument[3];
            for (int axis = 0; axis < 3; ++axis) {
                p[axis] = uniform(random, box.getMin()[axis] - 0.1, box.getMax()[axis] + 0.1);
                argument[axis] = s * (p[axis] - c[axis]);
            }
            double const value = 1.5 * separableF.eval(argument);
            EXPECT_NEAR(f.eval(p), value, 1e-12);
            EXPECT_NEAR(fOther.eval(p), value, 1e-12);
            EXPECT_NEAR(polynomial.eval(p), value, 1e-10);
            EXPECT_NEAR(polynomialOther.eval(p), value, 1e-10);
            double sum = 0.0;
            for (int summand = 0; summand < separableF.summandsNumber(); ++summand)
                sum += summandByShiftedKernel(fOther, summand, 0).eval(p[0]) *
                       summandByShiftedKernel(fOther, summand, 1).eval(p[1]) *
                       summandByShiftedKernel(fOther, summand, 2).eval(p[2]);
            EXPECT_NEAR(sum, value, 1e-10);
        }
        EXPECT_NEAR(integrateOnSupport(makeProduct(f, g)), integrateOnSupport(makeProduct(fOther, gOther)),
                    1e-10);
        EXPECT_THROW(summandByShiftedKernel(fOther, 3, 0), std::out_of_range);
    }
}

// Bases of all kinds of kernels of some width over one octree.
template <class TKernel>
struct Bases
{
    Bases(COctree const & octree, double width)
    {
        double const scale[3] = {1.0 / width, 1.0 / width, 1.0 / width};
        for (int kind = 0; kind < 5; ++kind) {
            TKernel kernel = makeKernel<TKernel>(kind);
            kernel.scaleArgument(scale);
            bases.push_back(
                std::make_unique<COctreeFuncBasisTmpl<TKernel>>(kernel, &octree, derivativeLevel(kind)));
        }
    }
    COctreeFuncBasisTmpl<TKernel> const * operator[](int kind) const
    {
        return bases[static_cast<std::size_t>(kind)].get();
    }

    std::vector<std::unique_ptr<COctreeFuncBasisTmpl<TKernel>>> bases;
};

class KernelFormsOnOctree : public testing::TestWithParam<std::tuple<bool, int, double>>
{
protected:
    PointCloudSamples samples = qz_test::cloudOf("slope", 30, {0.0, 1.0, 1.0f, {}, 0.4f, 23});
    COctree octree{&samples, 4, nullptr, std::get<0>(GetParam()), std::get<1>(GetParam())};
    double const width = std::get<2>(GetParam());
    Bases<General> general{octree, width};
    Bases<Separable> separable{octree, width};
    std::mt19937 random{24};

    // Pairs of nodes with near functions, up to `perDepths` for every pair of depths.
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

    // A bound of the greatest integrals of this kind.
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
        EXPECT_DOUBLE_EQ(general[kind]->getSupportSizeInCells(), 1.5 * width);
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
    }
}

// The products with the kernel, its derivatives (one helper by swapped variables) and its Laplacian.
TEST_P(KernelFormsOnOctree, ScalarProductsAgree)
{
    std::vector<std::pair<int, int>> const pairs = nearPairs(6);
    int const parities[2][3] = {{1, 1, 1}, {-1, 1, 1}};
    std::unique_ptr<CCSFProductHelperTmpl<General>> helper;
    std::unique_ptr<CCSFProductHelperTmpl<Separable>> other;
    for (int kind = 0; kind < 5; ++kind) {
        bool const isGradient = kind > 0 && kind < 4;
        if (kind > 1 && isGradient) {
            int const size = helper->cashSize();
            helper->initWithVariablesSwap(kind - 2, kind - 1, general[0], general[kind]);
            other->initWithVariablesSwap(kind - 2, kind - 1, separable[0], separable[kind]);
            EXPECT_EQ(helper->cashSize(), size);
        } else {
            auto const symmetry = isGradient ? BasisSymmetryNone : BasisSymmetryFull;
            int const flips = isGradient ? 6 : 7;
            int const * const parity = parities[isGradient];
            helper = std::make_unique<CCSFProductHelperTmpl<General>>(general[0], general[kind], symmetry,
                                                                      flips, parity);
            other = std::make_unique<CCSFProductHelperTmpl<Separable>>(separable[0], separable[kind],
                                                                       symmetry, flips, parity);
        }
        // Without any symmetry in use.
        CCSFProductHelperTmpl<General> plain(general[0], general[kind], BasisSymmetryNone, 0, nullptr);
        EXPECT_EQ(&helper->rightBasisRef(), general[kind]);
        for (auto const & [i, j] : pairs) {
            auto const f = general[0]->makeFunctionByIndex(i);
            auto const g = general[kind]->makeFunctionByIndex(j);
            double const value = helper->evalScalarProduct(f, g);
            double const tolerance = 1e-11 * std::max(magnitude(i, j, kind), magnitude(j, i, kind));
            auto const fOther = separable[0]->makeFunctionByIndex(i);
            auto const gOther = separable[kind]->makeFunctionByIndex(j);
            EXPECT_NEAR(other->evalScalarProduct(fOther, gOther), value, tolerance);
            EXPECT_NEAR(plain.evalScalarProduct(f, g), value, tolerance);
            EXPECT_NEAR(integrateOnSupport(makeProduct(fOther, gOther)), value, 1e3 * tolerance);
            if (std::abs(f.getNodeDepth() - g.getNodeDepth()) < 2) {
                EXPECT_NEAR(integrateOnSupport(makeProduct(f, g)), value, 1e3 * tolerance);
            }
        }
        EXPECT_TRUE(isGradient || helper->cashSize() < plain.cashSize());
    }
}

TEST_P(KernelFormsOnOctree, ProductWithACombinationIsTheSumOverItsFunctions)
{
    COctreeFuncLinCombTmpl<Separable> combination(separable[1]);
    int const count = octree.getNodesNumber(), parity[3] = {-1, 1, 1};
    for (int node = 0; node < count; ++node)
        combination.setBasisCoefficient(node, node % 3 == 0 ? 0.0 : uniform(random, -1.0, 1.0));
    CCSFProductHelperTmpl<Separable> helper(separable[0], separable[1], BasisSymmetryNone, 6, parity);
    int const size = helper.cashSize();
    for (int i = 0; i < count; i += 17) {
        auto const f = separable[0]->makeFunctionByIndex(i);
        double sum = 0.0;
        double magnitudes = 0.0;
        for (int j = 0; j < count; ++j) {
            double const term = combination.getBasisCoefficient(j) *
                                helper.evalScalarProduct(f, separable[1]->makeFunctionByIndex(j));
            sum += term;
            magnitudes += std::fabs(term);
        }
        EXPECT_NEAR(helper.evalScalarProduct(f, combination), sum, 1e-12 * magnitudes);
    }
    EXPECT_EQ(helper.cashSize(), size);
    combination.setBasisCoefficient(3, std::numeric_limits<double>::quiet_NaN());
    EXPECT_TRUE(std::isnan(helper.evalScalarProduct(separable[0]->makeFunctionByIndex(3), combination)));
}

// Nothing beyond the reach of a function, whatever place or depth is given, and no table grows for it.
template <class TKernel>
void expectNoProductsOutOfReach(COctreeFuncBasisTmpl<TKernel> const & basis, double width, double touching)
{
    CCSFProductHelperTmpl<TKernel> helper(&basis, &basis, BasisSymmetryFull, 7, nullptr);
    auto const f = basis.makeFunctionByIndex(0);
    int const size = helper.cashSize();
    int const steps = 1 << (basis.getOctreeRef().getLeafCellDepth() - f.getNodeDepth());
    int const reach = static_cast<int>(std::ceil(3.0 * width * steps));
    for (int axis = 0; axis < 3; ++axis) {
        int const own = f.getArgumentShiftInt()[axis];
        auto const at = [&](int position) {
            auto g = f;
            g.getArgumentShiftIntMod()[axis] = position;
            return helper.evalScalarProduct(f, g);
        };
        for (int position : {own + reach + 1, own - reach - 1, std::numeric_limits<int>::max(),
                             std::numeric_limits<int>::min()})
            EXPECT_EQ(at(position), 0.0);
        EXPECT_NEAR(at(own + reach), 0.0, touching);
        EXPECT_GT(at(own + reach / 2), 0.0);
    }
    double centre[3] = {0.0, 0.0, 0.0};
    int lattice[3] = {0, 0, 0};
    for (int depth : {-1, 5, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        CCSFunc3Tmpl<TKernel> const foreign(&f.getkernelRef(), centre, lattice, 1.0, 1.0, depth);
        EXPECT_EQ(helper.evalScalarProduct(f, foreign), 0.0);
    }
    EXPECT_LE(helper.cashSize(), size + 6);
    EXPECT_THROW(helper.initWithVariablesSwap(0, 3, &basis, &basis), std::out_of_range);
    EXPECT_THROW(helper.initWithVariablesSwap(-1, 2, &basis, &basis), std::out_of_range);
}

TEST_P(KernelFormsOnOctree, ProductsEndAtTheReach)
{
    expectNoProductsOutOfReach(*separable[0], width, 0.0);
    expectNoProductsOutOfReach(*general[0], width, 1e-13 * std::pow(octree.getUnit(), -3.0));
}

INSTANTIATE_TEST_SUITE_P(Kinds, KernelFormsOnOctree,
                         testing::Values(std::tuple(false, -1, 1.0), std::tuple(false, 1, 0.7),
                                         std::tuple(true, -1, 0.95), std::tuple(true, 1, 1.0),
                                         std::tuple(true, 1, 1.3)));

// Depths far apart, whose tables would not fit into memory.
TEST(ScalarProductHelper, DeepTreesTakeLittleMemory)
{
    PointCloudSamples samples;
    samples.add({0.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 1.0f});
    samples.add({1.0f, 0.7f, 0.4f}, {0.0f, 0.0f, 1.0f});
    for (bool useCenter : {false, true}) {
        COctree const octree(&samples, COctree::MAX_DEPTH, nullptr, useCenter, -1);
        double const width = 0.95;
        Bases<Separable> const bases(octree, width);
        COctreeFuncBasisTmpl<Separable> const & basis = *bases[0];
        int const parity[3] = {1, 1, 1};
        CCSFProductHelperTmpl<Separable> helper(&basis, &basis, BasisSymmetryFull, 7, parity);
        EXPECT_EQ(helper.cashSize(), std::numeric_limits<int>::max());
        std::mt19937 random(13);
        int const count = basis.getFunctionsNumber();
        for (int trial = 0; trial < 4000; ++trial) {
            int const i = std::uniform_int_distribution<int>(0, count - 1)(random);
            int const j = std::uniform_int_distribution<int>(0, count - 1)(random);
            auto const f = basis.makeFunctionByIndex(i);
            auto const g = basis.makeFunctionByIndex(j);
            auto const & deeper = f.getNodeDepth() > g.getNodeDepth() ? f : g;
            auto const & coarser = f.getNodeDepth() > g.getNodeDepth() ? g : f;
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
