// SPDX-License-Identifier: Apache-2.0

// Making and multiplying a matrix of the size and shape of a reconstruction at depth 8: 190 000 rows, about
// 240 stored elements each in the upper triangle, in runs of neighbouring columns. "time/element" is what
// counts.

#include <QZmath/LinSys/CsrStorage.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace
{

constexpr int rowsNumber = 190000;

// Columns as unknowns numbered along a lattice curve give them: the row itself and its neighbours, then runs
// of one to nine columns at distances of all scales.
void makeRow(int row, int size, std::mt19937 & random, std::vector<int> & columns)
{
    columns.clear();
    std::int64_t column = row;
    while (column < size && columns.size() < 240) {
        int const runLength = 1 + int(random() % 9);
        for (int k = 0; k < runLength && column < size; ++k) {
            columns.push_back(int(column++));
        }
        std::int64_t const longestGap = std::int64_t(1) << (random() % 12);
        column += 1 + std::int64_t(random()) % longestGap;
    }
}

template <class T>
void fill(REmath::CCSRSstorage<T> & storage, bool symmetric, int size)
{
    storage.setIndexBase(0);
    storage.setSymmetric(symmetric);
    for (int vertex = 0; vertex < size; ++vertex) {
        storage.DefineFreeVertex(vertex);
    }
    std::mt19937 random(7);
    std::vector<int> columns;
    std::vector<T> values;
    storage.reserveMatrixMemory(std::int64_t(size) * 240);
    for (int row = 0; row < size; ++row) {
        makeRow(row, size, random, columns);
        values.assign(columns.size(), T(0.01));
        storage.addEquationFreePartNoAliases(row, int(columns.size()), values.data(), columns.data());
    }
}

template <class T, bool symmetric>
void product(benchmark::State & state)
{
    REmath::CCSRSstorage<T> storage;
    fill(storage, symmetric, rowsNumber);
    REmath::ICsrMatrix<T> const & matrix = storage;
    std::vector<T> vector(std::size_t(rowsNumber), T(1));
    std::vector<T> result(std::size_t(rowsNumber), T(0));
    for (auto _ : state) {
        REmath::MatrixMultVector<T>(rowsNumber, result.data(), matrix, vector.data());
        benchmark::DoNotOptimize(result.data());
        benchmark::ClobberMemory();
    }
    double const elements = double(matrix.getNonZeroValuesNumber());
    state.counters["elements"] = elements;
    state.counters["time/element"] = benchmark::Counter(
        elements, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void pushElements(benchmark::State & state)
{
    constexpr int size = 20000;
    std::vector<int> columns;
    std::mt19937 random(7);
    makeRow(0, size, random, columns);
    std::int64_t elements = 0;
    for (auto _ : state) {
        REmath::CCSRSquareMatrix<double> matrix;
        REmath::CCSRSquareMatrixFiller<double> filler(&matrix, size, -1, 1, true);
        filler.reserveMemory(std::int64_t(size) * std::int64_t(columns.size()));
        elements = 0;
        for (int row = 0; row + columns.back() < size; ++row) {
            for (int column : columns) {
                filler.pushByRawNextNonZeroElement(row + 1, row + column + 1, 1.0);
            }
            elements += std::int64_t(columns.size());
        }
    }
    state.counters["time/element"] = benchmark::Counter(
        double(elements), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void pushRows(benchmark::State & state)
{
    constexpr int size = 20000;
    std::vector<int> columns;
    std::mt19937 random(7);
    makeRow(0, size, random, columns);
    std::vector<double> const values(columns.size(), 1.0);
    std::vector<int> shifted(columns.size());
    std::int64_t elements = 0;
    for (auto _ : state) {
        REmath::CCSRSstorage<double> storage;
        storage.setSymmetric(true);
        for (int vertex = 0; vertex < size; ++vertex) {
            storage.DefineFreeVertex(vertex);
        }
        storage.reserveMatrixMemory(std::int64_t(size) * std::int64_t(columns.size()));
        elements = 0;
        for (int row = 0; row + columns.back() < size; ++row) {
            std::transform(columns.begin(), columns.end(), shifted.begin(), [row](int c) { return c + row; });
            storage.addEquationFreePartNoAliases(row, int(columns.size()), values.data(), shifted.data());
            elements += std::int64_t(columns.size());
        }
    }
    state.counters["time/element"] = benchmark::Counter(
        double(elements), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void defineVertices(benchmark::State & state)
{
    constexpr int vertices = 200000;
    for (auto _ : state) {
        REmath::CCSRSstorage<double> storage;
        for (int vertex = 0; vertex < vertices; ++vertex) {
            storage.DefineFreeVertex(vertex);
        }
        benchmark::DoNotOptimize(storage.GetFreeVariablesNumber());
    }
    state.counters["time/vertex"] = benchmark::Counter(
        vertices, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void addEquations(benchmark::State & state)
{
    constexpr int size = 50000;
    constexpr int terms = 9;
    for (auto _ : state) {
        REmath::CCSRSstorage<double> storage;
        storage.setExpectedElementsPerLine(terms);
        for (int vertex = 0; vertex < size; ++vertex) {
            storage.DefineFreeVertex(vertex);
        }
        storage.DefineFixedVertex(size);
        for (int row = 0; row < size; ++row) {
            REmath::CVertexLinearCombination<double> equation;
            for (int term = 0; term < terms; ++term) {
                equation.AddVertex(std::min(row + term * 5, size), 1.0);
            }
            storage.AddEquation(equation);
        }
        benchmark::DoNotOptimize(storage.GetEquationsNumber());
    }
    state.counters["time/term"] = benchmark::Counter(
        double(size) * terms, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK_TEMPLATE(product, double, true)->Name("product/symmetric/double")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(product, double, false)->Name("product/general/double")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(product, float, true)->Name("product/symmetric/float")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(product, float, false)->Name("product/general/float")->Unit(benchmark::kMillisecond);
BENCHMARK(pushElements)->Unit(benchmark::kMillisecond);
BENCHMARK(pushRows)->Unit(benchmark::kMillisecond);
BENCHMARK(defineVertices)->Unit(benchmark::kMillisecond);
BENCHMARK(addEquations)->Unit(benchmark::kMillisecond);

} // namespace
