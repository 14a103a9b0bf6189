// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/BrickFunctionDetail.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncLinComb.h>

#include <support/PointCloudSamples.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

using namespace VolTr;

namespace
{

using Kernel = CProductPiecewisePolynom;
using Basis = COctreeFuncBasisTmpl<Kernel>;
using Combination = COctreeFuncLinCombTmpl<Kernel>;

Kernel makeKernel(double factor)
{
    Kernel kernel = makeApproxGaussian<Kernel>();
    double const scale[3] = {1.0 / factor, 1.0 / factor, 1.0 / factor};
    kernel.scaleArgument(scale);
    return kernel;
}

// A sphere of unit radius about an uneven middle.
PointCloudSamples makeSphere(int size)
{
    PointCloudSamples samples;
    for (int i = 0; i < size; ++i) {
        double const z = 1.0 - (2.0 * i + 1.0) / size;
        double const ring = std::sqrt(1.0 - z * z);
        std::array<float, 3> const normal = {static_cast<float>(ring * std::cos(2.4 * i)),
                                             static_cast<float>(ring * std::sin(2.4 * i)),
                                             static_cast<float>(z)};
        samples.add({normal[0] + 0.3f, normal[1] - 1.7f, normal[2] + 5.0f}, normal);
    }
    return samples;
}

// The same function in both forms.
struct Model
{
    Model(PointCloudSamples const & cloud, int depth, bool centred, int levels, double kernelFactor)
        : samples(cloud), octree(&samples, depth, nullptr, centred, levels), kernel(makeKernel(kernelFactor)),
          basis(kernel, &octree, 0), lattice(octree), amplitudes(lattice.nodes().size())
    {}

    template <class Amplitude>
    void setAmplitudes(Amplitude amplitude)
    {
        for (std::size_t n = 0; n < amplitudes.size(); ++n)
            amplitudes[n] = static_cast<float>(amplitude(lattice.nodes()[n]));
    }

    BrickFunction function() const
    {
        return BrickFunction(lattice, octree, kernel.getSummand(0).getMultiplier(0), amplitudes);
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

    PointCloudSamples samples;
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

        BrickFunction::Hint hint;
        auto const check = [&](double const * point) {
            ASSERT_NEAR(function.eval(point, hint), reference.eval(point, nullptr), 4e-6);
            double gradient[3];
            function.gradient(point, gradient, hint);
            for (std::size_t axis = 0; axis < 3; ++axis)
                ASSERT_NEAR(gradient[axis], derivatives[axis].eval(point, nullptr), 2e-5 * slope);
            double again[3];
            function.gradient(point, again);
            ASSERT_EQ(function.eval(point), function.eval(point, hint));
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

TEST(BrickFunction, GridsAgreeWithPoints)
{
    PointCloudSamples const cloud = makeSphere(3000);
    for (Shape const & shape : shapes) {
        SCOPED_TRACE(describe(shape));
        Model model(cloud, shape.depth, shape.centred, shape.levels, shape.kernelFactor);
        std::mt19937 random(8);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        model.setAmplitudes([&](int) { return uniform(random); });
        BrickFunction const function = model.function();
        double const cell = model.octree.getCellSize(model.octree.getNodeDepthEnd() - 1);
        BrickFunction::GridScratch scratch;
        for (int n = 0; n < 60; ++n) {
            float const * middle = cloud.points[random() % cloud.points.size()].data();
            double const step = n % 2 == 0 ? cell : cell * std::exp2(2.5 * uniform(random));
            BrickFunction::GridCoords coords;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                double const first = middle[axis] + 6.0 * cell * uniform(random);
                double const direction = uniform(random) < 0.0 ? -step : step;
                for (std::size_t place = 0; place < 8; ++place)
                    coords[axis][place] = first + static_cast<double>(place) * direction;
            }
            if (n % 7 == 0)
                coords[static_cast<std::size_t>(n) % 3][3] = n % 14 == 0 ? std::nan("") : 1e30;
            std::vector<float> values(brickPlaces);
            function.evalGrid(coords, values.data(), scratch);
            for (std::size_t place = 0; place < values.size(); ++place) {
                double const point[3] = {coords[0][place >> 6], coords[1][place >> 3 & 7],
                                         coords[2][place & 7]};
                ASSERT_NEAR(values[place], function.eval(point), 3e-6);
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
