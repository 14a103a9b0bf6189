// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/IsoValue.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <VolTriang/ScaledKernel.h>
#include <support/SampledClouds.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <string>

using namespace VolTr;

namespace
{

// Of unit radius about an uneven middle.
PointCloudSamples makeSphere(int size) { return qz_test::spiralSphere(size, 1.0f, {0.3f, -1.7f, 5.0f}); }

// A function in both forms.
struct Model
{
    Model(PointCloudSamples const & cloud, int depth, bool centred, int levels, double kernelFactor)
        : samples(cloud), octree(&samples, depth, nullptr, centred, levels),
          kernel(qz_test::scaledKernel(kernelFactor)), basis(kernel, &octree, 0), lattice(octree),
          amplitudes(lattice.nodes().size())
    {
        params.setOctreeDepth(depth);
    }

    template <class Amplitude>
    void setAmplitudes(Amplitude amplitude)
    {
        for (std::size_t n = 0; n < amplitudes.size(); ++n)
            amplitudes[n] = static_cast<float>(amplitude(lattice.nodes()[n]));
    }

    BrickFunction function(bool usesVectors = true) const
    {
        return BrickFunction(lattice, octree, kernel.getSummand(0).getMultiplier(0), amplitudes, usesVectors);
    }

    Combination combination(Basis const & space) const
    {
        Combination result(&space);
        for (std::size_t n = 0; n < amplitudes.size(); ++n) {
            int const node = lattice.nodes()[n];
            double const normalization = basis.makeFunctionByIndex(node).getNormalizationScale();
            result.setBasisCoefficient(node, amplitudes[n] / normalization);
        }
        return result;
    }

    StageContext context(int threads) const
    {
        return {samples, params, octree, basis, nullptr, nullptr, nullptr, report, threads};
    }

    PointCloudSamples samples;
    CVolTriangulationParams params;
    mutable CReconstructionReport report;
    COctree octree;
    Kernel kernel;
    Basis basis;
    BrickLattice lattice;
    std::vector<float> amplitudes;
};

struct Shape
{
    int depth;
    bool centred;
    int levels;
    double kernelFactor;
};

std::vector<Shape> const shapes = {{2, true, -1, 0.95},  {3, false, -1, 1.0}, {5, true, -1, 1.0},
                                   {5, false, -1, 0.95}, {5, false, 0, 0.8},  {6, true, 1, 0.7},
                                   {6, true, 0, 0.95},   {6, false, 2, 0.95}, {1, false, -1, 0.95}};

std::string describe(Shape const & shape)
{
    return "depth " + std::to_string(shape.depth) + (shape.centred ? " centred" : " corners") + " levels " +
           std::to_string(shape.levels) + " scale " + std::to_string(shape.kernelFactor);
}

} // namespace

TEST(BrickFunction, AgreesWithTheSumOverNodes)
{
    PointCloudSamples const cloud = makeSphere(3000);
    double const infinity = std::numeric_limits<double>::infinity();
    for (Shape const & shape : shapes) {
        SCOPED_TRACE(describe(shape));
        Model model(cloud, shape.depth, shape.centred, shape.levels, shape.kernelFactor);
        std::mt19937 random(7);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        model.setAmplitudes([&](int) { return uniform(random); });
        BrickFunction const function = model.function();
        Combination const reference = model.combination(model.basis);
        std::vector<std::unique_ptr<Basis>> derivativeBases;
        std::vector<Combination> derivatives;
        for (int axis = 0; axis < 3; ++axis) {
            Kernel derivative;
            model.kernel.makePartialDerivative(&derivative, axis);
            derivativeBases.push_back(std::make_unique<Basis>(derivative, &model.octree, 1));
            derivatives.push_back(model.combination(*derivativeBases.back()));
        }
        double const slope = 1.0 / model.octree.getCellSize(model.octree.getNodeDepthEnd() - 1);

        BrickFunction const plain = model.function(false);
        BrickFunction::Hint hint;
        BrickFunction::Hint plainHint;
        auto const check = [&](double const * point) {
            ASSERT_NEAR(function.eval(point, hint), reference.eval(point, nullptr), 4e-6);
            double gradient[3];
            function.gradient(point, gradient, hint);
            for (std::size_t axis = 0; axis < 3; ++axis)
                ASSERT_NEAR(gradient[axis], derivatives[axis].eval(point, nullptr), 2e-5 * slope);
            double again[3];
            function.gradient(point, again);
            ASSERT_EQ(function.eval(point), function.eval(point, hint));
            ASSERT_EQ(function.eval(point), plain.eval(point, plainHint));
            ASSERT_TRUE(std::equal(gradient, gradient + 3, again));
        };
        double const * low = model.octree.getBoxMin();
        double const size = model.octree.getBoxMax()[0] - low[0];
        for (int n = 0; n < 1500; ++n) {
            double point[3];
            if (n % 3 != 0) { // near a sample, or anywhere and out of the cube
                float const * sample = cloud.points[random() % cloud.points.size()].data();
                for (int axis = 0; axis < 3; ++axis)
                    point[axis] = sample[axis] + 2.0 * uniform(random) / slope;
            } else {
                for (int axis = 0; axis < 3; ++axis)
                    point[axis] = low[axis] + size * (0.5 + 1.2 * uniform(random));
            }
            check(point);
            // Right on planes of the lattice.
            point[n % 2] =
                low[n % 2] + model.octree.getUnit() * static_cast<double>(random() % (1U << shape.depth));
            ASSERT_NEAR(function.eval(point, hint), reference.eval(point, nullptr), 4e-6);
        }
        for (double const far : {-1e300, -1e9, 1e9, 1e300, infinity, -infinity, std::nan("")}) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                double point[3] = {low[0] + 0.5 * size, low[1] + 0.5 * size, low[2] + 0.99 * size};
                point[axis] = far;
                double gradient[3];
                function.gradient(point, gradient, hint);
                EXPECT_EQ(function.eval(point, hint), 0.0);
                EXPECT_EQ(gradient[0], 0.0);
            }
        }
    }
}

TEST(BrickFunction, RefusesWhatItCannotHold)
{
    Model model(makeSphere(100), 3, true, -1, 0.95);
    CSingleVarLimitedPolynom const spline = model.kernel.getSummand(0).getMultiplier(0);
    CSingleVarLimitedPolynom wide = spline;
    wide.scaleArgument(0.9);
    CSingleVarLimitedPolynom slope;
    spline.makeDerivative(&slope);
    CSingleVarLimitedPolynom shifted = spline;
    shifted.substituteArgPlusConst(0.01);
    std::vector<float> const & amplitudes = model.amplitudes;
    EXPECT_NO_THROW(BrickFunction(model.lattice, model.octree, spline, amplitudes));
    for (CSingleVarLimitedPolynom const & kernel : {wide, slope, shifted, CSingleVarLimitedPolynom()})
        EXPECT_THROW(BrickFunction(model.lattice, model.octree, kernel, amplitudes), std::exception);
    EXPECT_THROW(BrickFunction(model.lattice, model.octree, spline, {}), std::exception);
}

TEST(BrickFunction, ATeamMakesTheSame)
{
    Model model(makeSphere(20000), 7, true, -1, 0.95);
    std::mt19937 random(11);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    model.setAmplitudes([&](int) { return uniform(random); });
    BrickFunction const alone = model.function();
    CSingleVarLimitedPolynom const & factor = model.kernel.getSummand(0).getMultiplier(0);
    for (int threads = 1; threads <= 3; ++threads) {
        QzBackend::LoopTeam::run(threads, nullptr, [&](QzBackend::LoopTeam & team) {
            BrickFunction const together(model.lattice, model.octree, factor, model.amplitudes, team);
            for (int n = 0; n < 2000; ++n) {
                double const point[3] = {0.3 + 1.2 * uniform(random), -1.7 + 1.2 * uniform(random),
                                         5.0 + 1.2 * uniform(random)};
                ASSERT_EQ(together.eval(point), alone.eval(point));
            }
            ASSERT_EQ(together.deepestBoxes(), alone.deepestBoxes());
            for (int box = 0; box < alone.deepestBoxes(); ++box) {
                std::array<double, 6> own, expected;
                together.deepestBox(box, own.data(), own.data() + 3);
                alone.deepestBox(box, expected.data(), expected.data() + 3);
                ASSERT_EQ(own, expected);
            }
        });
    }
}

// More samples than one thread takes at a time, in few cells: added in the order of one loop over them.
TEST(BrickFunction, MeanOfCrowdedSamplesIsThatOfOneLoop)
{
    std::mt19937 random(12);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    PointCloudSamples cloud = makeSphere(200);
    for (int n = 0; n < 150000; ++n)
        cloud.add(cloud.points[static_cast<std::size_t>(n % 7)], {});
    Model model(cloud, 4, true, -1, 0.95);
    model.setAmplitudes([&](int) { return uniform(random); });
    BrickFunction const function = model.function();
    int const cells = model.octree.getCellsNumberOnDeepestLevel();
    ASSERT_LT(cells, 256); // that are one piece
    double values = 0.0;
    double weights = 0.0;
    for (int cell = 0; cell < cells; ++cell) {
        int const * const end = model.octree.getSamplesEnd(cell);
        for (int const * it = model.octree.getSamplesBegin(cell); it != end; ++it) {
            float const * const coords = model.samples.getSampleCoords3(*it);
            double const point[3] = {coords[0], coords[1], coords[2]};
            values += function.eval(point);
            weights += 1.0;
        }
    }
    EXPECT_EQ(weights, static_cast<double>(cloud.points.size()));
    for (int threads = 1; threads <= 3; ++threads)
        EXPECT_EQ(calcMeanIsoValue(function, model.context(threads)), values / weights);
}
