// SPDX-License-Identifier: Apache-2.0

// The 3 by 3 routines that fits call once per point, and the other small solvers. Every job walks over the
// same set of random inputs.

#include <QZmath/Foundation/BrentZero.h>
#include <QZmath/Foundation/CircumscribeCircle.h>
#include <QZmath/Foundation/GeneralizedEigen.h>
#include <QZmath/Foundation/OrthoNormBasis.h>
#include <QZmath/Foundation/Quaternion.h>
#include <QZmath/Foundation/RotationMatrix.h>
#include <QZmath/Foundation/SymmetricEigen.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D_d;

constexpr std::size_t inputCount = 256; // a power of 2

// Scatter matrices of clouds of ten points: symmetric and positive.
std::vector<CRotationMatrix> scatterMatrices()
{
    std::mt19937 random(3);
    std::normal_distribution<double> coordinate;
    std::vector<CRotationMatrix> matrices(inputCount, CRotationMatrix::Zero());
    for (CRotationMatrix & matrix : matrices) {
        for (int point = 0; point < 10; ++point) {
            double const p[3] = {coordinate(random), 0.3 * coordinate(random), 0.01 * coordinate(random)};
            double const q[3] = {p[0] + p[1], p[1] - 0.5 * p[0] + p[2], p[2] + 0.2 * p[0]};
            for (int row = 0; row < 3; ++row) {
                for (int col = 0; col < 3; ++col)
                    matrix.m[row][col] += q[row] * q[col];
            }
        }
    }
    return matrices;
}

std::vector<Point3D_d> points()
{
    std::mt19937 random(4);
    std::normal_distribution<double> coordinate;
    std::vector<Point3D_d> result(inputCount + 2);
    for (Point3D_d & point : result)
        point = {coordinate(random), coordinate(random), coordinate(random)};
    return result;
}

void symmetricEigen(benchmark::State & state)
{
    std::vector<CRotationMatrix> const matrices = scatterMatrices();
    std::size_t next = 0;
    for (auto _ : state) {
        CRotationMatrix vectors = matrices[next++ % inputCount];
        double * rows[3] = {vectors.m[0], vectors.m[1], vectors.m[2]};
        double d[3], e[3];
        tred2_d(rows, 3, d, e);
        benchmark::DoNotOptimize(tqli_d(d, e, 3, rows));
        benchmark::DoNotOptimize(vectors);
    }
}

void symmetricEigenVectors(benchmark::State & state)
{
    std::vector<CRotationMatrix> const matrices = scatterMatrices();
    std::size_t next = 0;
    for (auto _ : state) {
        Point3D_d vectors[3];
        double values[3];
        GetEigenVectorsSA(matrices[next++ % inputCount], vectors, values, true);
        benchmark::DoNotOptimize(vectors);
    }
}

void invert(benchmark::State & state)
{
    std::vector<CRotationMatrix> const matrices = scatterMatrices();
    std::size_t next = 0;
    CRotationMatrix inverse;
    for (auto _ : state) {
        benchmark::DoNotOptimize(invertMatrix(matrices[next++ % inputCount], inverse));
        benchmark::DoNotOptimize(inverse);
    }
}

void frameByAxis(benchmark::State & state)
{
    std::vector<Point3D_d> const directions = points();
    std::size_t next = 0;
    for (auto _ : state) {
        std::size_t const i = next++ % inputCount;
        benchmark::DoNotOptimize(
            COrthoNormBasis::buildAnyRightHandByV2AndOrigin(directions[i], directions[i + 1]));
    }
}

void quaternionThereAndBack(benchmark::State & state)
{
    std::vector<Point3D_d> const parts = points();
    std::size_t next = 0;
    for (auto _ : state) {
        Point3D_d const & p = parts[next++ % inputCount];
        Quaternion quaternion(1, p.x(), p.y(), p.z());
        quaternion.normalize();
        CRotationMatrix matrix;
        quaternion.getRotationMatrix(matrix);
        getQuaternionFromMatrix(matrix, quaternion);
        benchmark::DoNotOptimize(quaternion);
    }
}

void circle(benchmark::State & state)
{
    std::vector<Point3D_d> const corners = points();
    std::size_t next = 0;
    for (auto _ : state) {
        Point3D_d centre;
        double radius = 0;
        benchmark::DoNotOptimize(CircumscribeCircle(&corners[next++ % inputCount], centre, radius));
        benchmark::DoNotOptimize(centre);
    }
}

void brentZero(benchmark::State & state)
{
    for (auto _ : state) {
        int iterations = 100, status = 0;
        double root = 0;
        BrentZeroFun([](double x, void *) { return x * x * x - 2 * x - 5; }, 2, 3, 0, 12, iterations, root,
                     status, nullptr);
        benchmark::DoNotOptimize(root);
    }
}

// The constrained fit of a quadric: ten coefficients, three of them normalised.
void generalizedEigen10(benchmark::State & state)
{
    constexpr int n = 10;
    std::mt19937 random(5);
    std::normal_distribution<double> element;
    double a[n][n] = {}, b[n][n] = {}, vectors[n][n], values[n];
    for (int sample = 0; sample < 30; ++sample) {
        double row[n];
        std::generate(row, row + n, [&] { return element(random); });
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j)
                a[i][j] += row[i] * row[j];
        }
    }
    double const *rowsA[n], *rowsB[n];
    double * rowsOut[n];
    for (int i = 0; i < n; ++i) {
        rowsA[i] = a[i];
        rowsB[i] = b[i];
        rowsOut[i] = vectors[i];
        b[i][i] = i >= 6 && i < 9;
    }
    int count = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(gen_right_eigen(n, rowsA, rowsB, count, rowsOut, values));
    state.counters["found"] = count;
}

BENCHMARK(symmetricEigen);
BENCHMARK(symmetricEigenVectors);
BENCHMARK(invert);
BENCHMARK(frameByAxis);
BENCHMARK(quaternionThereAndBack);
BENCHMARK(circle);
BENCHMARK(brentZero);
BENCHMARK(generalizedEigen10);

} // namespace
