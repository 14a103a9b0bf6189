// SPDX-License-Identifier: Apache-2.0

// Normal and curvature of single neighbourhoods. Every job walks over the same noisy patches of a torus; the
// argument is the number of points in each.

#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D;

constexpr std::size_t patchCount = 512; // a power of 2

class Patches
{
public:
    explicit Patches(benchmark::State const & state)
    {
        std::mt19937 random(1);
        std::uniform_real_distribution<double> unit(-1, 1);
        std::normal_distribution<double> noise(0, 0.001);
        for (std::size_t patch = 0; patch < patchCount; ++patch) {
            double const u = 4 * unit(random), v = 4 * unit(random);
            std::vector<Point3D> points;
            for (int i = 0; i < state.range(0); ++i) {
                double const around = i == 0 ? u : u + 0.1 * unit(random);
                double const tube = i == 0 ? v : v + 0.3 * unit(random);
                double const ring = 3 + std::cos(tube);
                points.emplace_back(ring * std::cos(around) + noise(random),
                                    ring * std::sin(around) + noise(random), std::sin(tube) + noise(random));
            }
            m_patches.push_back(points);
        }
    }

    std::vector<Point3D> & next() { return m_patches[m_next++ % patchCount]; }

private:
    std::vector<std::vector<Point3D>> m_patches;
    std::size_t m_next = 0;
};

void getNormal(benchmark::State & state)
{
    Patches patches(state);
    double memory[3][3], normal[3];
    double * rows[3] = {memory[0], memory[1], memory[2]};
    for (auto _ : state) {
        std::vector<Point3D> const & points = patches.next();
        benchmark::DoNotOptimize(GetNormal(static_cast<int>(points.size()), points.data(), rows, normal));
        benchmark::DoNotOptimize(normal);
    }
}

void getNormal2(benchmark::State & state)
{
    Patches patches(state);
    std::vector<float> dist(static_cast<std::size_t>(state.range(0)));
    CGetNormal2Prms prms;
    prms.Force2() = true;
    CQuadraticForm form;
    double normal[3], scale = 0;
    double found = 0;
    for (auto _ : state) {
        std::vector<Point3D> const & points = patches.next();
        found += GetNormal2(static_cast<int>(points.size()), points.data(), &prms, &form, normal, dist.data(),
                            &scale);
    }
    state.counters["found"] = benchmark::Counter(found, benchmark::Counter::kAvgIterations);
}

void estimateCurvature(benchmark::State & state)
{
    Patches patches(state);
    REmath::Matrix<double> tensor(3, 3);
    double normal[3];
    for (auto _ : state)
        benchmark::DoNotOptimize(EstimateCurvature(patches.next(), true, normal, tensor));
}

void estimateUmbilicCurvature(benchmark::State & state)
{
    Patches patches(state);
    double normal[3], curvature = 0;
    for (auto _ : state) {
        std::vector<Point3D> const & points = patches.next();
        benchmark::DoNotOptimize(
            EstimateUmbilicCurvature(static_cast<int>(points.size()), points.data(), normal, curvature));
    }
}

BENCHMARK(getNormal)->Arg(20)->Arg(60);
BENCHMARK(getNormal2)->Arg(20)->Arg(60);
BENCHMARK(estimateCurvature)->Arg(20);
BENCHMARK(estimateUmbilicCurvature)->Arg(20);

} // namespace
