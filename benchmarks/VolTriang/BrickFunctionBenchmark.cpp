// SPDX-License-Identifier: Apache-2.0
// Evaluation of a function in bricks, alone and on the way to its mean over the samples and its surface, and
// the density of the samples. A sphere, kernel scale 0.95, nodes at cell centres; the argument is the depth.
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/BrickedFunction.h>
#include <QZmath/VolTriang/Stages/CombinationFunction.h>
#include <QZmath/VolTriang/Stages/IsoSurface.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <support/PointCloudSamples.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>

using namespace VolTr;

namespace
{

PointCloudSamples makeSphere(int size)
{
    PointCloudSamples samples;
    double const pi = std::acos(-1.0);
    for (int i = 0; i < size; ++i) {
        double const z = 1.0 - (2.0 * i + 1.0) / size;
        double const angle = i * pi * (3.0 - std::sqrt(5.0));
        double const ring = std::sqrt(1.0 - z * z);
        std::array<float, 3> const direction = {static_cast<float>(ring * std::cos(angle)),
                                                static_cast<float>(ring * std::sin(angle)),
                                                static_cast<float>(z)};
        samples.add(direction, direction);
    }
    return samples;
}

struct Model
{
    explicit Model(int depth)
        : samples(makeSphere(100000)), octree(&samples, depth, nullptr, true, -1), lattice(octree)
    {
        params.setOctreeDepth(depth);
        double const scale[3] = {1.0 / 0.95, 1.0 / 0.95, 1.0 / 0.95};
        kernel.scaleArgument(scale);
        basis = std::make_unique<Basis>(kernel, &octree, 0);
        // A ball of radius 1: each depth corrects by a little what the coarser ones give.
        for (int const node : lattice.nodes()) {
            double position[3];
            octree.getNodePosition(node, position);
            double const radius = std::hypot(position[0], position[1], position[2]);
            amplitudes.push_back(static_cast<float>((1.0 - radius) * std::exp2(octree.getNodeDepth(node))));
        }
        function = std::make_unique<BrickFunction>(makeFunction());
    }

    BrickFunction makeFunction() const
    {
        return BrickFunction(lattice, octree, kernel.getSummand(0).getMultiplier(0), amplitudes);
    }

    StageContext context() const
    {
        return {samples, params, octree, *basis, nullptr, nullptr, nullptr, report, 1};
    }

    Kernel kernel = makeApproxGaussian<Kernel>();
    CVolTriangulationParams params;
    mutable CReconstructionReport report;
    PointCloudSamples samples;
    COctree octree;
    BrickLattice lattice;
    std::vector<float> amplitudes;
    std::unique_ptr<Basis> basis;
    std::unique_ptr<BrickFunction> function;
};

Model & modelOfDepth(int depth)
{
    static std::unique_ptr<Model> models[16];
    std::unique_ptr<Model> & model = models[depth];
    if (!model)
        model = std::make_unique<Model>(depth);
    return *model;
}

void countEach(benchmark::State & state, std::int64_t number)
{
    state.counters["per_point"] = benchmark::Counter(
        static_cast<double>(number), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Points around cells of the surface.
template <bool isGradient>
void evaluateNearSurface(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    std::mt19937 random(1);
    std::uniform_real_distribution<double> jitter(-1.0, 1.0);
    double const edge = model.octree.getCellSize(model.octree.getLeafCellDepth() - 1);
    BrickFunction::Hint hint;
    std::vector<std::array<double, 3>> points;
    for (int cell = 0; cell < model.octree.getCellsNumberOnDeepestLevel(); cell += 50) {
        CParallelepiped const box = model.octree.getCellBox(cell);
        for (int i = 0; i < 100; ++i)
            points.push_back({box.getMin()[0] + 2.0 * edge * jitter(random),
                              box.getMin()[1] + 2.0 * edge * jitter(random),
                              box.getMin()[2] + 2.0 * edge * jitter(random)});
    }
    double gradient[3];
    std::int64_t evaluated = 0;
    for (auto _ : state) {
        for (std::array<double, 3> const & point : points) {
            if (isGradient) {
                model.function->gradient(point.data(), gradient, hint);
                benchmark::DoNotOptimize(gradient);
            } else {
                benchmark::DoNotOptimize(model.function->eval(point.data(), hint));
            }
        }
        evaluated += static_cast<std::int64_t>(points.size());
    }
    countEach(state, evaluated);
}

// Grids of 8 x 8 x 8 with the step of the deepest nodes.
void evaluateGrids(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    double const edge = model.octree.getCellSize(model.octree.getLeafCellDepth() - 1);
    BrickFunction::GridScratch scratch;
    std::vector<float> values(brickPlaces);
    std::int64_t evaluated = 0;
    BrickLevel const & level = model.lattice.level(model.lattice.endDepth() - 1);
    for (auto _ : state) {
        for (std::array<int, 3> const & brick : level.bricks) {
            BrickFunction::GridCoords coords;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                for (std::size_t n = 0; n < 8; ++n)
                    coords[axis][n] = model.octree.getBoxMin()[axis] +
                                      edge * (8.0 * brick[axis] + 7.0 - static_cast<double>(n) + 1.2);
            }
            model.function->evalGrid(coords, values.data(), scratch);
            benchmark::DoNotOptimize(values.data());
            evaluated += brickPlaces;
        }
    }
    countEach(state, evaluated);
}

class Counter final : public ITriangulationTarget
{
public:
    std::int64_t triangles = 0;

private:
    void onAddNewVertex(int, double const *, double const *) override {}
    void onAddNewVertex(int, float const *, float const *) override {}
    void onAddNewTriangle(int, int, int) override { ++triangles; }
};

// Per sample.
void meanAtSamples(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    BrickedFunction const function(model.makeFunction());
    std::int64_t evaluated = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(function.meanAtSamples(model.context()));
        evaluated += model.samples.pointsNumber();
    }
    countEach(state, evaluated);
}

// Per vertex, in bricks or, for comparison, as a sum over nodes.
template <bool isInBricks>
void extractSurface(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    BrickedFunction const inBricks(model.makeFunction());
    double const isoValue = inBricks.meanAtSamples(model.context());
    auto combination = std::make_unique<Combination>(model.basis.get());
    for (std::size_t n = 0; n < model.amplitudes.size(); ++n) {
        int const node = model.lattice.nodes()[n];
        combination->setBasisCoefficient(
            node, model.amplitudes[n] / model.basis->makeFunctionByIndex(node).getNormalizationScale());
    }
    CombinationFunction const overNodes(std::move(combination));
    ImplicitFunction const & function =
        isInBricks ? static_cast<ImplicitFunction const &>(inBricks) : overNodes;
    std::int64_t vertices = 0;
    for (auto _ : state) {
        Counter target;
        extractIsoSurface(model.context(), function, isoValue, nullptr, target);
        vertices += target.debugCurrentVertexNumber();
    }
    countEach(state, vertices);
}

// Per sample.
void estimateDensity(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    std::int64_t estimated = 0;
    for (auto _ : state) {
        estimateSampleDensity(model.samples, model.octree, *model.basis, model.octree.getNodeDepthEnd() - 3,
                              1, nullptr, nullptr);
        estimated += model.samples.pointsNumber();
    }
    countEach(state, estimated);
}

BENCHMARK(evaluateNearSurface<false>)->DenseRange(7, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(evaluateNearSurface<true>)->DenseRange(7, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(evaluateGrids)->DenseRange(7, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(meanAtSamples)->DenseRange(7, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(extractSurface<true>)->DenseRange(7, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(extractSurface<false>)->DenseRange(7, 8)->Unit(benchmark::kMillisecond);
BENCHMARK(estimateDensity)->DenseRange(7, 9)->Unit(benchmark::kMillisecond);

} // namespace
