// SPDX-License-Identifier: Apache-2.0

// Products, solves and inverses of square matrices against the bare BLAS and LAPACK calls on memory that is
// there already. Neither side uses more than one thread.

#include <QZmath/Foundation/Matrix.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cblas.h>
#include <lapack.h>
#include <random>
#include <vector>

namespace
{

using REmath::Matrix;
using REmath::Vector;

template <class T>
Matrix<T> randomMatrix(int rows, int cols)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<T> element(-1, 1);
    Matrix<T> matrix(rows, cols);
    for (int col = 0; col < cols; ++col) {
        for (int row = 0; row < rows; ++row)
            matrix.elem(row, col) = element(random);
    }
    return matrix;
}

int sizeOf(benchmark::State const & state) { return static_cast<int>(state.range(0)); }

void bareProduct(int size, float const * a, float const * b, float * c)
{
    cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, size, size, size, 1, a, size, b, size, 0, c, size);
}

void bareProduct(int size, double const * a, double const * b, double * c)
{
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, size, size, size, 1, a, size, b, size, 0, c, size);
}

int bareSolve(int size, float * a, int * pivots, float * x)
{
    int const one = 1;
    int factored = 0, solved = 0;
    LAPACK_sgetrf(&size, &size, a, &size, pivots, &factored);
    LAPACK_sgetrs("N", &size, &one, a, &size, pivots, x, &size, &solved);
    return factored + solved;
}

int bareSolve(int size, double * a, int * pivots, double * x)
{
    int const one = 1;
    int factored = 0, solved = 0;
    LAPACK_dgetrf(&size, &size, a, &size, pivots, &factored);
    LAPACK_dgetrs("N", &size, &one, a, &size, pivots, x, &size, &solved);
    return factored + solved;
}

template <class T>
void product(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<T> const a = randomMatrix<T>(size, size);
    for (auto _ : state) {
        Matrix<T> const c = a * a;
        benchmark::DoNotOptimize(c[0]);
    }
}

template <class T>
void productBare(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<T> const a = randomMatrix<T>(size, size);
    Matrix<T> c(size, size);
    for (auto _ : state) {
        bareProduct(size, a[0], a[0], c[0]);
        benchmark::DoNotOptimize(c[0]);
    }
}

void vectorProduct(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<double> const a = randomMatrix<double>(size, size);
    Vector<double> const x = a.getDiag();
    for (auto _ : state) {
        Vector<double> const y = a * x;
        benchmark::DoNotOptimize(y.memory());
    }
}

void vectorProductBare(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<double> const a = randomMatrix<double>(size, size);
    Vector<double> const x = a.getDiag();
    Vector<double> y(size);
    for (auto _ : state) {
        cblas_dgemv(CblasColMajor, CblasNoTrans, size, size, 1, a[0], size, x.memory(), 1, 0, y.memory(), 1);
        benchmark::DoNotOptimize(y.memory());
    }
}

template <class T>
void solve(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<T> const a = randomMatrix<T>(size, size);
    Matrix<T> const b = randomMatrix<T>(size, 1);
    Matrix<T> factors(a);
    Matrix<T> x(b);
    for (auto _ : state) {
        factors = a;
        benchmark::DoNotOptimize(solveMat(factors, b, x));
    }
}

template <class T>
void solveBare(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<T> const a = randomMatrix<T>(size, size);
    Matrix<T> const b = randomMatrix<T>(size, 1);
    Matrix<T> factors(a);
    Matrix<T> x(b);
    std::vector<int> pivots(static_cast<std::size_t>(size));
    for (auto _ : state) {
        factors = a;
        x = b;
        benchmark::DoNotOptimize(bareSolve(size, factors[0], pivots.data(), x[0]));
    }
}

void inverse(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<double> const a = randomMatrix<double>(size, size);
    Matrix<double> result;
    for (auto _ : state)
        benchmark::DoNotOptimize(inverseMat(a, result));
}

void inverseBare(benchmark::State & state)
{
    int const size = sizeOf(state);
    Matrix<double> const a = randomMatrix<double>(size, size);
    Matrix<double> result(a);
    std::vector<int> pivots(static_cast<std::size_t>(size));
    int const workSize = size * 64;
    std::vector<double> work(static_cast<std::size_t>(workSize));
    for (auto _ : state) {
        result = a;
        int factored = 0, inverted = 0;
        LAPACK_dgetrf(&size, &size, result[0], &size, pivots.data(), &factored);
        LAPACK_dgetri(&size, result[0], &size, pivots.data(), work.data(), &workSize, &inverted);
        benchmark::DoNotOptimize(inverted);
    }
}

void sizes(benchmark::internal::Benchmark * job)
{
    for (int size : {3, 4, 8, 15, 16, 24, 32, 64, 128, 256, 512})
        job->Arg(size);
}

BENCHMARK(product<double>)->Apply(sizes);
BENCHMARK(productBare<double>)->Apply(sizes);
BENCHMARK(product<float>)->Apply(sizes);
BENCHMARK(productBare<float>)->Apply(sizes);
BENCHMARK(vectorProduct)->Apply(sizes);
BENCHMARK(vectorProductBare)->Apply(sizes);
BENCHMARK(solve<double>)->Apply(sizes);
BENCHMARK(solveBare<double>)->Apply(sizes);
BENCHMARK(solve<float>)->Apply(sizes);
BENCHMARK(solveBare<float>)->Apply(sizes);
BENCHMARK(inverse)->Apply(sizes);
BENCHMARK(inverseBare)->Apply(sizes);

} // namespace
