// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickSystem.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>
#include <QZmath/VolTriang/Stages/BrickSplat.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <VolTriang/ScaledKernel.h>
#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <vector>

// The passes over bricks against the explicit integrals of the same functions.

using namespace VolTr;
using QzBackend::LoopTeam;

namespace
{

using Kernel = CProductPiecewisePolynom;
using Vector = BrickSystem::Vector;

struct Config
{
    int depth;
    bool useCenter;
    int detalizationLevel;
    double kernelScale;
};

// An octree with its functions, their derivatives and the bricks over them.
struct Model
{
    Model(PointCloudSamples const & samples, Config const & config)
        : octree(&samples, config.depth, nullptr, config.useCenter, config.detalizationLevel),
          kernel(qz_test::scaledKernel(config.kernelScale)), basis(kernel, &octree, 0), lattice(octree)
    {}

    CSingleVarLimitedPolynom const & factor() const { return kernel.getSummand(0).getMultiplier(0); }
    BrickSystem system(BrickPasses const & passes) const { return BrickSystem(lattice, factor(), passes); }

    // The matrix of the described equation, by the nodes of the octree.
    std::vector<std::vector<double>> matrix() const
    {
        Kernel laplacian;
        kernel.makeLaplacian(&laplacian);
        COctreeFuncBasisTmpl<Kernel> const laplacianBasis(laplacian, &octree, 2);
        int const parity[3] = {1, 1, 1};
        CCSFProductHelperTmpl<Kernel> helper(&basis, &laplacianBasis, BasisSymmetryFull, 7, parity);
        std::size_t const size = static_cast<std::size_t>(octree.getNodesNumber());
        std::vector<std::vector<double>> result(size, std::vector<double>(size));
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j < size; ++j)
                result[i][j] =
                    0.0 - helper.evalScalarProduct(basis.makeFunctionByIndex(static_cast<int>(i)),
                                                   laplacianBasis.makeFunctionByIndex(static_cast<int>(j)));
        }
        return result;
    }

    COctree octree;
    Kernel kernel;
    COctreeFuncBasisTmpl<Kernel> basis;
    BrickLattice lattice;
};

Vector randomVector(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    Vector result(size + brickEdge, 0.0f);
    std::generate(result.begin(), result.begin() + static_cast<std::ptrdiff_t>(size),
                  [&] { return uniform(random); });
    return result;
}

Vector inTeam(int threads, std::function<Vector(LoopTeam &)> const & job)
{
    Vector result;
    LoopTeam::run(threads, nullptr, [&](LoopTeam & team) { result = job(team); });
    return result;
}

class BrickSystemTest : public testing::TestWithParam<Config>
{};

} // namespace

TEST_P(BrickSystemTest, productIsThatOfTheExplicitMatrix)
{
    PointCloudSamples const samples = qz_test::sampledShape("sphere", 120, 0.01);
    Model const model(samples, GetParam());
    std::vector<int> const & nodes = model.lattice.nodes();
    std::size_t const size = nodes.size();
    auto const matrix = model.matrix();
    Vector const vector = randomVector(size, 2);
    BrickSystem system = model.system(bestBrickPasses());
    Vector const product = inTeam(1, [&](LoopTeam & team) { return system.product(vector, team); });
    for (std::size_t i = 0; i < size; ++i) {
        std::size_t const row = static_cast<std::size_t>(nodes[i]);
        double expected = 0.0;
        double magnitude = 0.0;
        for (std::size_t j = 0; j < size; ++j) {
            std::size_t const column = static_cast<std::size_t>(nodes[j]);
            double const element = matrix[row][column] / std::sqrt(matrix[row][row] * matrix[column][column]);
            expected += element * vector[j];
            magnitude += std::fabs(element);
        }
        ASSERT_NEAR(product[i], expected, 1e-6 * magnitude) << "node " << row;
    }
}

TEST_P(BrickSystemTest, rightPartIsThatOfTheExplicitProducts)
{
    PointCloudSamples const samples = qz_test::sampledShape("sphere", 100, 0.01);
    Model const model(samples, GetParam());
    COctree const & octree = model.octree;
    std::vector<int> const & nodes = model.lattice.nodes();
    std::size_t const size = nodes.size();
    // Values on the two deepest depths, as splats of uneven clouds have them.
    std::array<Vector, 3> field;
    for (unsigned axis = 0; axis < 3; ++axis) {
        field[axis] = randomVector(size, 10 + axis);
        for (std::size_t i = 0; i < size; ++i) {
            if (octree.getNodeDepth(nodes[i]) < octree.getNodeDepthEnd() - 2)
                field[axis][i] = 0.0f;
        }
    }
    BrickSystem system = model.system(bestBrickPasses());
    Vector const right = inTeam(1, [&](LoopTeam & team) { return system.rightPart(field, team); });

    auto const matrix = model.matrix();
    std::vector<double> expected(size, 0.0);
    for (int axis = 0; axis < 3; ++axis) {
        Kernel derivative;
        model.kernel.makePartialDerivative(&derivative, axis);
        COctreeFuncBasisTmpl<Kernel> const gradient(derivative, &octree, 1);
        int parity[3] = {1, 1, 1};
        parity[axis] = -1;
        CCSFProductHelperTmpl<Kernel> helper(&model.basis, &gradient, BasisSymmetryNone, 6, parity);
        for (std::size_t i = 0; i < size; ++i) {
            for (std::size_t j = 0; j < size; ++j) {
                float const value = field[static_cast<std::size_t>(axis)][j];
                if (value != 0.0f)
                    expected[i] -= value * helper.evalScalarProduct(model.basis.makeFunctionByIndex(nodes[i]),
                                                                    gradient.makeFunctionByIndex(nodes[j]));
            }
        }
    }
    double greatest = 0.0;
    double ratio = 0.0; // of the units, which are common to all nodes
    for (std::size_t i = 0; i < size; ++i) {
        std::size_t const row = static_cast<std::size_t>(nodes[i]);
        expected[i] /= std::sqrt(matrix[row][row]);
        if (std::fabs(expected[i]) > greatest) {
            greatest = std::fabs(expected[i]);
            ratio = expected[i] / right[i];
        }
    }
    EXPECT_GT(ratio, 0.0);
    for (std::size_t i = 0; i < size; ++i)
        ASSERT_NEAR(right[i] * ratio, expected[i], 1e-6 * greatest) << "node " << nodes[i];
}

TEST_P(BrickSystemTest, solutionMeetsTheEquationWithTheSameBitsEverywhere)
{
    PointCloudSamples const samples = qz_test::sampledShape("sphere", 600, 0.01);
    Model const model(samples, GetParam());
    std::size_t const size = model.lattice.nodes().size();
    Vector const right = randomVector(size, 6);
    BrickSystem::Solution solution;
    auto const solve = [&](BrickPasses const & passes) {
        return [&](LoopTeam & team) {
            BrickSystem system = model.system(passes);
            Vector image = system.product(right, team); // in the range of the matrix
            solution = system.solve(image, 1e-4, 200, team);
            image = system.product(solution.values, team);
            return image;
        };
    };
    Vector const image = inTeam(1, solve(bestBrickPasses()));
    ASSERT_TRUE(solution.hasConverged);
    EXPECT_LT(solution.iterations, 120);
    Vector const values = solution.values;
    BrickSystem system = model.system(bestBrickPasses());
    Vector const given = inTeam(1, [&](LoopTeam & team) { return system.product(right, team); });
    double error = 0.0;
    double norm = 0.0;
    for (std::size_t i = 0; i < size; ++i) {
        error += std::pow(image[i] - given[i], 2.0);
        norm += std::pow(given[i], 2.0);
    }
    EXPECT_LT(std::sqrt(error / norm), 1e-3);

    for (int threads : {1, 2, 3}) {
        inTeam(threads, solve(threads == 2 ? bestBrickPasses() : plainBrickPasses()));
        EXPECT_EQ(solution.values, values) << threads << " threads";
    }
}

INSTANTIATE_TEST_SUITE_P(Configurations, BrickSystemTest,
                         testing::Values(Config{5, true, -1, 0.95}, Config{4, false, -1, 0.95},
                                         Config{4, false, -1, 1.0}, Config{5, true, 1, 1.0},
                                         Config{5, true, 0, 0.7}, Config{3, false, 2, 0.8},
                                         Config{6, true, -1, 0.7}, Config{5, true, -1, 0.1}));

// Tables between depths farther apart than all of whose tables could be held: against sums over fine steps,
// also where the finer function straddles a knot of the coarser one.
TEST(BrickSplat, AddsUpCrowdedColumnsAsTheExactPathDoes)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    PointCloudSamples cloud;
    for (int n = 0; n < 160000; ++n) {
        float const width = n % 50 == 0 ? 1.0f : 0.02f;
        cloud.add({width * uniform(random), width * uniform(random), uniform(random)},
                  {uniform(random), uniform(random), uniform(random)});
    }
    Model const model(cloud, {5, true, -1, 0.95});
    CVolTriangulationParams const params;
    CReconstructionReport report;
    StageContext const context = {cloud,  params, model.octree, model.basis, nullptr, nullptr, nullptr,
                                  report, 1};
    VectorField expected;
    for (auto & component : expected)
        component = std::make_unique<Combination>(&model.basis);
    splatNormals(context, expected);
    LoopTeam::run(2, nullptr, [&](LoopTeam & team) {
        auto const field = splatOnBricks(context, model.lattice, nullptr, team);
        for (std::size_t n = 0; n < 3 * field.size(); ++n)
            ASSERT_NEAR(field[n / 3][n % 3],
                        expected[n % 3]->getBasisCoefficient(model.lattice.nodes()[n / 3]), 1e-9);
    });
}

TEST(BrickTables, CoupleDepthsThatAreFarApart)
{
    Kernel const kernel = qz_test::scaledKernel(1.0);
    CSingleVarLimitedPolynom const & factor = kernel.getSummand(0).getMultiplier(0);
    CSingleVarLimitedPolynom derivative;
    factor.makeDerivative(&derivative);
    for (int const delta : {13, 17, 20}) {
        double const step = std::ldexp(1.0, -delta);
        int const bricks = 1 << (delta - 3);
        std::vector<std::vector<int>> asked(8, {0, bricks / 3, bricks / 2 - 1, bricks / 2, bricks - 1, -1});
        BrickTables const tables(factor, true, delta, asked);
        for (int const brick : asked[0]) {
            CoarseTable const & table = tables.coarse(delta, brick);
            int const position = brick & (bricks - 1);
            for (int place = 0; place < brickEdge; ++place) {
                double const coordinate = (8.0 * position + place + 0.5) * step - 0.5;
                for (int coarse = 0; coarse < table.width; ++coarse) {
                    double const x = coordinate - table.firstPlace - coarse;
                    double mass = 0.0, stiffness = 0.0, gradient = 0.0;
                    int const pieces = 3000;
                    for (int piece = 0; piece < pieces; ++piece) {
                        double const s = -1.5 + 3.0 * (piece + 0.5) / pieces;
                        mass += factor.eval(x + step * s) * factor.eval(s);
                        stiffness += derivative.eval(x + step * s) * derivative.eval(s);
                        gradient += factor.eval(x + step * s) * derivative.eval(s);
                    }
                    double const width = 3.0 / pieces;
                    EXPECT_NEAR(table.mass.byPlace[place][coarse], mass * width, 1e-5);
                    EXPECT_NEAR(table.stiffness.byPlace[place][coarse], stiffness * width / step, 1e-3)
                        << delta << ' ' << brick << ' ' << place;
                    EXPECT_NEAR(table.gradient.byPlace[place][coarse], gradient * width / step, 1e-3);
                }
            }
        }
    }
}
