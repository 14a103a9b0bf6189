// SPDX-License-Identifier: Apache-2.0

// Systems over rows: what an equation costs to add, what a product of the matrix with a vector takes, and
// what a direct solve adds to its factorisation by reading the matrix element by element. The system couples
// each vertex with four neighbours on both sides, as the smoothing of a polyline does.

#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/SparseLinSysSolver.h>
#include <QZmath/LinSys/VPLSstorage.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace
{

using namespace REmath;

constexpr int reach = 4;

std::vector<CVertexLinearCombination<double>> bandEquations(int size)
{
    std::vector<CVertexLinearCombination<double>> equations(static_cast<std::size_t>(size));
    for (int row = 0; row < size; ++row) {
        for (int vertex = row - reach; vertex <= row + reach; ++vertex) {
            double const coeff = vertex == row ? 2.0 * reach : -1.0;
            equations[std::size_t(row)].AddVertex(std::clamp(vertex, -1, size), coeff);
        }
    }
    return equations;
}

template <class System>
void defineVertices(System & system, int size)
{
    for (int vertex = 0; vertex < size; ++vertex) {
        system.DefineFreeVertex(vertex);
    }
    system.DefineFixedVertex(-1);
    system.DefineFixedVertex(size);
}

template <template <class> class Row>
void addEquations(benchmark::State & state)
{
    int const size = int(state.range(0));
    std::vector<CVertexLinearCombination<double>> const equations = bandEquations(size);
    for (auto _ : state) {
        state.PauseTiming();
        CVPLSstorage<double, Row> storage;
        defineVertices(storage, size);
        storage.AllocateMatrix();
        state.ResumeTiming();
        for (auto const & equation : equations) {
            storage.AddEquation(equation);
        }
        benchmark::DoNotOptimize(storage.GetEquationsNumber());
    }
    state.counters["time/equation"] =
        benchmark::Counter(size, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetComplexityN(size);
}

template <template <class> class Row>
void product(benchmark::State & state)
{
    int const size = int(state.range(0));
    CVPLSstorage<double, Row> storage;
    defineVertices(storage, size);
    for (auto const & equation : bandEquations(size)) {
        storage.AddEquation(equation);
    }
    std::vector<double> const vector(static_cast<std::size_t>(size), 1.0);
    for (auto _ : state) {
        for (int row = 0; row < size; ++row) {
            benchmark::DoNotOptimize(storage.ScalarProductByMatrixRow(row, size, vector.data()));
        }
    }
    state.counters["time/row"] =
        benchmark::Counter(size, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

struct Ends : IVertexPosInformer<double>, IEqSysResultReciever<double>
{
    double GetVertexPosition(int vertex) const override { return double(vertex); }
    void SetVertexPosition(int, double position) override { sum += position; }
    double sum = 0;
};

template <class Solver>
void solve(benchmark::State & state)
{
    int const size = int(state.range(0));
    Solver solver;
    defineVertices(solver, size);
    for (auto const & equation : bandEquations(size)) {
        solver.AddEquation(equation);
    }
    Ends ends;
    IVertexPosInformer<double> const * informers[] = {&ends};
    IEqSysResultReciever<double> * receivers[] = {&ends};
    for (auto _ : state) {
        if (!solver.SolveSystem(1, informers, receivers, nullptr)) {
            std::abort();
        }
    }
}

BENCHMARK_TEMPLATE(addEquations, CStdVectorAsVPLSstorageRow)->Range(512, 4096)->Complexity();
BENCHMARK_TEMPLATE(addEquations, CShiftedVectorAsVPLstorageRow)->Range(512, 4096)->Complexity();
BENCHMARK_TEMPLATE(addEquations, CSparseVectorAsVPLSstorageRow)->Range(512, 4096)->Complexity();
BENCHMARK_TEMPLATE(product, CStdVectorAsVPLSstorageRow)->Arg(4096);
BENCHMARK_TEMPLATE(product, CShiftedVectorAsVPLstorageRow)->Arg(4096);
BENCHMARK_TEMPLATE(product, CSparseVectorAsVPLSstorageRow)->Arg(4096);
BENCHMARK_TEMPLATE(solve, CSparseLinSysSolver<double>)->Range(512, 8192)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(solve, CSparseStoreSparseLinSysSolver<double>)
    ->Range(512, 8192)
    ->Unit(benchmark::kMillisecond);

} // namespace
