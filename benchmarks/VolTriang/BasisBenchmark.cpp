// SPDX-License-Identifier: Apache-2.0
// The inner loops of a reconstruction: visiting the functions around a function, looking up scalar products,
// evaluating the implicit function. A bumpy sphere, kernel scale 0.95, nodes at cell centres; the argument is
// the depth.
#include <QZmath/VolTriang/InterlacedSupportIterator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/ScalarProductHelper.h>

#include <support/PointCloudSamples.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>

using namespace VolTr;

namespace
{

using Kernel = CProductPiecewisePolynom;
using Basis = COctreeFuncBasisTmpl<Kernel>;
using Combination = COctreeFuncLinCombTmpl<Kernel>;

double const pi = 3.14159265358979323846;

PointCloudSamples makeBumpySphere(int size)
{
    PointCloudSamples samples;
    for (int i = 0; i < size; ++i) {
        double const z = 1.0 - (2.0 * i + 1.0) / size;
        double const angle = i * pi * (3.0 - std::sqrt(5.0));
        double const ring = std::sqrt(1.0 - z * z);
        double const radius = 1.0 + 0.1 * std::sin(5.0 * angle) * ring * ring + 0.1 * std::cos(7.0 * z);
        std::array<float, 3> const direction = {static_cast<float>(ring * std::cos(angle)),
                                                static_cast<float>(ring * std::sin(angle)),
                                                static_cast<float>(z)};
        float const r = static_cast<float>(radius);
        samples.add({r * direction[0], r * direction[1], r * direction[2]}, direction);
    }
    return samples;
}

Kernel makeKernel(int derivative)
{
    Kernel kernel = makeApproxGaussian<Kernel>();
    double const scale[3] = {1.0 / 0.95, 1.0 / 0.95, 1.0 / 0.95};
    kernel.scaleArgument(scale);
    Kernel derived;
    if (derivative == 1)
        kernel.makePartialDerivative(&derived, 0);
    else if (derivative == 2)
        kernel.makeLaplacian(&derived);
    return derivative == 0 ? kernel : derived;
}

struct Model
{
    explicit Model(int depth)
        : samples(makeBumpySphere(200000)), octree(&samples, depth, nullptr, true, -1),
          plain(makeKernel(0), &octree, 0), gradient(makeKernel(1), &octree, 1),
          laplacian(makeKernel(2), &octree, 2)
    {}

    PointCloudSamples samples;
    COctree octree;
    Basis plain;
    Basis gradient;
    Basis laplacian;
};

Model & modelOfDepth(int depth)
{
    static std::unique_ptr<Model> models[16];
    std::unique_ptr<Model> & model = models[depth];
    if (!model)
        model = std::make_unique<Model>(depth);
    return *model;
}

// Every step-th row, so that a run stays short while it passes over the whole tree.
int const rowStep = 7;

void visitSupports(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    std::int64_t visited = 0;
    for (auto _ : state) {
        for (int row = 0; row < model.plain.getFunctionsNumber(); row += rowStep) {
            CParallelepiped const box = getScaledFunctionCommonSupport(model.plain.makeFunctionByIndex(row));
            for (CInterlacedSupportIteratorTmpl<Kernel> it(&model.laplacian, box); !it.isFinished();
                 it.next()) {
                benchmark::DoNotOptimize((*it).getArgumentShiftInt()[2]);
                ++visited;
            }
        }
    }
    state.counters["per_visited"] = benchmark::Counter(
        static_cast<double>(visited), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void assembleMatrixRows(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    int const parity[3] = {1, 1, 1};
    CCSFProductHelperTmpl<Kernel> helper(&model.plain, &model.laplacian, BasisSymmetryFull, 7, parity);
    std::int64_t visited = 0;
    std::int64_t stored = 0;
    for (auto _ : state) {
        for (int row = 0; row < model.plain.getFunctionsNumber(); row += rowStep) {
            CCSFunc3Tmpl<Kernel> const function = model.plain.makeFunctionByIndex(row);
            CParallelepiped const box = getScaledFunctionCommonSupport(function);
            for (CInterlacedSupportIteratorTmpl<Kernel> it(&model.laplacian, box); !it.isFinished();
                 it.next()) {
                ++visited;
                if (it.functionIndex() >= row && helper.evalScalarProduct(function, *it) != 0.0)
                    ++stored;
            }
        }
    }
    state.counters["visited/stored"] = static_cast<double>(visited) / static_cast<double>(stored);
    state.counters["per_stored"] = benchmark::Counter(
        static_cast<double>(stored), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void projectCombination(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    int const parity[3] = {-1, 1, 1};
    CCSFProductHelperTmpl<Kernel> helper(&model.plain, &model.gradient, BasisSymmetryNone, 6, parity);
    Combination field(&model.gradient);
    for (int node = 0; node < model.plain.getFunctionsNumber(); ++node)
        if (model.octree.getNodeDepth(node) == model.octree.getNodeDepthEnd() - 1)
            field.setBasisCoefficient(node, 1.0);
    std::int64_t rows = 0;
    for (auto _ : state) {
        for (int row = 0; row < model.plain.getFunctionsNumber(); row += rowStep, ++rows)
            benchmark::DoNotOptimize(helper.evalScalarProduct(model.plain.makeFunctionByIndex(row), field));
    }
    state.counters["per_row"] = benchmark::Counter(static_cast<double>(rows),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Points close to the surface, one after the other as a walk along it meets them, with eight regions of four
// polygoniser cells to each side.
void evaluateAlongSurface(benchmark::State & state)
{
    Model & model = modelOfDepth(static_cast<int>(state.range(0)));
    std::mt19937 random(1);
    std::uniform_real_distribution<double> jitter(-1.0, 1.0);
    Combination function(&model.plain);
    for (int node = 0; node < model.plain.getFunctionsNumber(); ++node)
        function.setBasisCoefficient(node, jitter(random));
    double const edge = model.octree.getCellSize(model.octree.getLeafCellDepth() - 1);
    COctreeFuncEvalHelper helper(8, 4.0 * edge);
    std::int64_t evaluated = 0;
    for (auto _ : state) {
        for (int cell = 0; cell < model.octree.getCellsNumberOnDeepestLevel(); cell += 50) {
            CParallelepiped const box = model.octree.getCellBox(cell);
            for (int i = 0; i < 300; ++i, ++evaluated) {
                double point[3];
                for (int axis = 0; axis < 3; ++axis)
                    point[axis] = box.getMin()[axis] + 2.0 * edge * jitter(random);
                benchmark::DoNotOptimize(function.eval(point, &helper));
            }
        }
    }
    state.counters["per_point"] = benchmark::Counter(
        static_cast<double>(evaluated), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

BENCHMARK(visitSupports)->DenseRange(6, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(assembleMatrixRows)->DenseRange(6, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(projectCombination)->DenseRange(6, 9)->Unit(benchmark::kMillisecond);
BENCHMARK(evaluateAlongSurface)->DenseRange(6, 9)->Unit(benchmark::kMillisecond);

} // namespace
