// SPDX-License-Identifier: Apache-2.0

// Direct solution of operators on a cube that couple each point with 26 or 124 neighbours. Volumes fill in
// far more than the surface-like systems of a reconstruction do: per row, these are harder. "peakGB" is that
// of the process so far; run one case at a time to read it.

#include <QZmath/LinSys/CsrMatrix.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <vector>

#include <tests/support/SparseSystems.h>

namespace
{

void directSolve(benchmark::State & state)
{
    testSupport::CompressedMatrix const grid =
        testSupport::gridOperator(int(state.range(0)), int(state.range(1)), 0.01, 1);
    REmath::CCSRSquareMatrix<double> matrix;
    matrix.initMemory(grid.size, grid.nonZeros(), REmath::CSR_INDEX_BASE_1, true);
    std::copy(grid.values.begin(), grid.values.end(), matrix.getCsrValuesMod());
    std::copy(grid.columns.begin(), grid.columns.end(), matrix.getCsrColumnsMod());
    std::copy(grid.rowIndex.begin(), grid.rowIndex.end(), matrix.getRowIndexMod());
    std::vector<double> const right(std::size_t(grid.size), 1.0);
    std::vector<double> solution(right.size());
    REmath::CLinSysSolverSparseDss<double> solver;
    bool const definite = state.range(2) != 0;
    for (auto _ : state)
        if (!solver.solveForExplicitMatrix(solution.data(), matrix, definite, right.data(), nullptr))
            state.SkipWithError("the solver failed");
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["n"] = grid.size;
    state.counters["nonZeros"] = grid.nonZeros();
    state.counters["residual"] = testSupport::relativeDistance(grid.product(solution), right);
    state.counters["peakGB"] = double(usage.ru_maxrss) * 1024e-9;
}

BENCHMARK(directSolve)
    ->ArgNames({"side", "reach", "definite"})
    ->Args({30, 1, 1})
    ->Args({45, 1, 1})
    ->Args({30, 2, 1})
    ->Args({40, 2, 1})
    ->Args({20, 1, 0})
    ->Unit(benchmark::kSecond)
    ->Iterations(1);

} // namespace
