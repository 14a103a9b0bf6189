// SPDX-License-Identifier: Apache-2.0

// Quadratic programs with bounds on all variables and twice as many rows as variables, for H definite, of
// half rank, and 0.

#include <QZmath/Fitting/QuadraticProgram.h>

#include <apps/sampling/Random.h>

#include <benchmark/benchmark.h>
#include <cstddef>
#include <vector>

namespace
{

struct Program
{
    Program(int variables, int rank) : n(variables), m(2 * variables)
    {
        qz_sampling::Random random(6);
        auto const size = static_cast<std::size_t>(n), rows = static_cast<std::size_t>(m);
        std::vector<double> factor(size * static_cast<std::size_t>(rank));
        for (double & element : factor)
            element = random.normal();
        h.resize(size * size);
        for (std::size_t j = 0; j < size; ++j) {
            for (std::size_t i = 0; i < size; ++i) {
                for (std::size_t k = 0; k < static_cast<std::size_t>(rank); ++k)
                    h[j * size + i] += factor[k * size + i] * factor[k * size + j];
            }
        }
        for (std::size_t i = 0; i < rows * size; ++i)
            a.push_back(random.normal());
        for (std::size_t i = 0; i < size; ++i)
            c.push_back(10 * random.normal());
        b.assign(rows, -0.1);
        xl.assign(size, -1);
        xu.assign(size, 1);
        x.resize(size);
        lambda.resize(rows);
        zl.resize(size);
        zu.resize(size);
        activeSet.resize(rows + size);
        lwork = static_cast<int>((3 * size + 13) * size + 4 * rows);
        liwork = static_cast<int>(3 * size + rows);
        work.resize(static_cast<std::size_t>(lwork));
        iwork.resize(static_cast<std::size_t>(liwork));
    }

    void solve(int warm)
    {
        QLPoptimize(&n, &m, &zero, &n, &m, &zero, &warm, h.data(), c.data(), a.data(), b.data(), xl.data(),
                    xu.data(), x.data(), lambda.data(), zl.data(), zu.data(), &f, &tol, &violation,
                    activeSet.data(), &nActive, &iterations, &status, &badIndex, nullptr, work.data(), &lwork,
                    iwork.data(), &liwork, nullptr, nullptr);
    }

    int n, m, zero = 0, nActive = 0, iterations = 0, status = 0, badIndex = 0, lwork = 0, liwork = 0;
    std::vector<double> h, c, a, b, xl, xu, x, lambda, zl, zu, work;
    std::vector<int> activeSet, iwork;
    double f = 0, tol = 0, violation = 0;
};

// Arguments: variables, rank of H in percent of them, and whether the active set of the solution is given.
void quadraticProgram(benchmark::State & state)
{
    int const n = static_cast<int>(state.range(0));
    Program program(n, n * static_cast<int>(state.range(1)) / 100);
    program.solve(0);
    for (auto _ : state) {
        program.x.assign(program.x.size(), 0);
        program.solve(static_cast<int>(state.range(2)));
        if (program.status != 0)
            state.SkipWithError("not solved");
    }
    state.counters["iterations"] = program.iterations;
    state.counters["active"] = program.nActive;
}
BENCHMARK(quadraticProgram)
    ->ArgsProduct({{10, 50, 200}, {100, 50, 0}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

} // namespace
