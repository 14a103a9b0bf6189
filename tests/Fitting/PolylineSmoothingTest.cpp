// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PolylineSmoothing.h>

#include <support/DenseSolve.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace
{

using REmath::Point3D;
using REmath::Point3D_d;

template <class Point>
std::vector<Point> randomPolyline(std::mt19937 & random, std::size_t size, bool closed)
{
    std::uniform_real_distribution<double> coordinate(-5, 5);
    std::vector<Point> points;
    for (std::size_t i = 0; i < size; ++i)
        points.emplace_back(coordinate(random), coordinate(random), coordinate(random));
    if (closed)
        points.back() = points.front();
    return points;
}

// The smoothed polyline of one axis with fixed points, from one dense system: it is the product of the
// matrices of all steps, applied to the original plus unknown pushes, under the condition that fixed points
// stay.
std::vector<long double> smoothDense(std::vector<long double> const & original, bool closed, double weight,
                                     int passes, bool preserve, std::vector<std::size_t> const & fixed)
{
    std::size_t const m = original.size(), k = fixed.size();
    long double const u =
        preserve ? weight / (1 - static_cast<long double>(0.1F) * static_cast<long double>(weight)) : 0;
    DenseRows matrix(m, std::vector<long double>(m));
    for (std::size_t i = 0; i < m; ++i)
        matrix[i][i] = 1;
    for (int step = 0; step < 2 * passes; ++step) {
        long double const w = step % 2 == 0 ? static_cast<long double>(weight) : -u;
        DenseRows const before = matrix;
        for (std::size_t i = 0; i < m; ++i) {
            if (!closed && (i == 0 || i + 1 == m))
                continue;
            for (std::size_t j = 0; j < m; ++j)
                matrix[i][j] =
                    (1 - w) * before[i][j] + w / 2 * (before[(i + m - 1) % m][j] + before[(i + 1) % m][j]);
        }
    }
    DenseRows system(m + k, std::vector<long double>(m + k + 1));
    for (std::size_t i = 0; i < m; ++i) {
        system[i][i] = 1;
        for (std::size_t j = 0; j < m; ++j)
            system[i][m + k] += matrix[i][j] * original[j];
        for (std::size_t j = 0; j < k; ++j)
            system[i][m + j] = -matrix[i][fixed[j]];
    }
    for (std::size_t j = 0; j < k; ++j) {
        system[m + j][fixed[j]] = 1;
        system[m + j][m + k] = original[fixed[j]];
    }
    std::vector<long double> solution = solveDense(system).value();
    solution.resize(m);
    return solution;
}

template <class Point>
void compareWithDense(double tolerance)
{
    std::mt19937 random(71);
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        bool const closed = trial % 2 == 0, preserve = trial % 3 != 0;
        std::size_t const size = 2 + static_cast<std::size_t>(trial) / 2;
        int const passes = trial % 7;
        double const weight = 0.2 + 0.05 * (trial % 9);
        std::vector<Point> points = randomPolyline<Point>(random, size, closed);
        std::vector<Point> const original = points;
        // The ends of a closed polyline by either or both of their indices.
        std::vector<int> list;
        std::vector<std::size_t> fixed;
        for (std::size_t i = 0; i + closed < size && trial % 5 != 0;
             i += 3 + static_cast<std::size_t>(trial) % 4) {
            fixed.push_back(i);
            if (i > 0 || !closed || trial % 3 != 0)
                list.push_back(static_cast<int>(i));
        }
        if (closed && !fixed.empty() && trial % 3 < 2)
            list.push_back(static_cast<int>(size) - 1);
        ASSERT_TRUE(smoothPolylineWithFixedPoints(
            points, CPolylineSmoothParams(closed, weight, passes, preserve, &list)));
        for (int axis = 0; axis < 3; ++axis) {
            std::vector<long double> values;
            for (Point const & point : original)
                values.push_back(static_cast<long double>(point.asArray()[axis]));
            values.resize(closed ? size - 1 : size);
            auto const expected = smoothDense(values, closed, weight, passes, preserve, fixed);
            for (std::size_t i = 0; i < expected.size(); ++i)
                EXPECT_NEAR(static_cast<double>(points[i].asArray()[axis]), static_cast<double>(expected[i]),
                            tolerance);
        }
        for (int index : list)
            EXPECT_EQ(points[static_cast<std::size_t>(index)], original[static_cast<std::size_t>(index)]);
        EXPECT_TRUE(!closed || points.front() == points.back());
    }
}

} // namespace

TEST(PolylineSmoothing, AgreesWithADenseConstrainedSolve)
{
    compareWithDense<Point3D_d>(1e-8);
    compareWithDense<Point3D>(2e-3);
}

TEST(PolylineSmoothing, AnswersWhatCannotBeDone)
{
    std::mt19937 random(72);
    std::vector<Point3D_d> const original = randomPolyline<Point3D_d>(random, 12, false);
    auto const run = [&](std::vector<int> fixed, bool closed, std::vector<Point3D_d> & points) {
        points = original;
        if (closed)
            points.back() = points.front();
        return smoothPolylineWithFixedPoints(points, CPolylineSmoothParams(closed, 0.4, 10, true, &fixed));
    };
    std::vector<Point3D_d> points, smoothed;
    ASSERT_TRUE(run({}, false, smoothed));
    EXPECT_NE(smoothed, original);
    for (int index : {-1, 12, 1 << 30})
        EXPECT_TRUE(!run({3, index}, false, points) && points == original);
    EXPECT_TRUE(!run({3, 5, 3}, false, points) && points == smoothed);
    EXPECT_TRUE(run({11, 4, 0}, true, points));
    EXPECT_FALSE(run({3, 5, 3}, true, points));
    EXPECT_TRUE(points.back() == original.front() && points.front() != original.front());

    points = original;
    std::vector<int> single = {5};
    for (double weight : {std::nan(""), 1e200}) {
        CPolylineSmoothParams const params(false, weight, 2, true, weight > 1 ? nullptr : &single);
        EXPECT_FALSE(smoothPolylineWithFixedPoints(points, params));
        EXPECT_TRUE(weight > 1 || points == original);
    }
    for (std::size_t size : {0U, 1U}) {
        std::vector<Point3D_d> few(size, original[0]);
        EXPECT_TRUE(smoothPolylineWithFixedPoints(few, CPolylineSmoothParams(true, 0.4, 10, true, &single)));
        EXPECT_EQ(few.size(), size);
    }
}
