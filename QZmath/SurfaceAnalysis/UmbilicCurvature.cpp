// SPDX-License-Identifier: Apache-2.0
// The sphere of a neighbourhood.
#include <QZmath/SurfaceAnalysis/NormalEstimation.h>

#include <QZmath/SurfaceAnalysis/Neighbourhood/CurvatureTensor.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/ScaledPoints.h>
#include <QZmath/SurfaceAnalysis/Neighbourhood/Scatter.h>

#include <algorithm>
#include <cmath>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::dot;
using REmath::Detail::ScaledPoints;
using REmath::Detail::weightOf;

// With the best a for a given b it is a quadratic form of b, and its least value the smallest eigenvalue.
double REmath::Detail::sphereResidual(ScaledPoints const & points)
{
    double moments[4][4] = {};
    for (int i = 1; i < points.size(); ++i) {
        Point3D_d const p = points[i];
        double const terms[4] = {p.x(), p.y(), p.z(), dot(p, p)};
        double const weight = weightOf(p);
        for (int row = 0; row < 4; ++row) {
            for (int col = 0; col <= row; ++col)
                moments[row][col] += weight * terms[row] * terms[col];
        }
    }
    double matrix[3][3];
    double * rows[3] = {matrix[0], matrix[1], matrix[2]};
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col <= row; ++col)
            matrix[row][col] = moments[row][col] - moments[3][row] * moments[3][col] / moments[3][3];
    }
    REmath::Detail::ScatterEigen eigen;
    bool const isSolved = REmath::Detail::decomposeScatter(rows, eigen) && eigen.smallest >= 0;
    return isSolved ? eigen.values[eigen.smallest] : 1e30;
}

bool EstimateUmbilicCurvature(int n, Point3D const * pointArray, double * normal, double & curvature)
{
    if (n < 4)
        return false;
    ScaledPoints const points(n, pointArray);
    if (!points.isProper())
        return false;
    Point3D_d mean;
    for (int i = 1; i < n; ++i)
        mean += points[i];
    mean /= n;
    double meanSquare = 0;
    for (int i = 0; i < n; ++i) {
        Point3D_d const p = points[i] - mean;
        meanSquare += dot(p, p);
    }
    meanSquare /= n;
    // Relative to the mean, c = -a meanSquare is settled and the condition is 4 a² meanSquare + |b|² = 1: the
    // smallest eigenvector (2 a sqrt(meanSquare), b) of the moments of these four terms.
    double const factor = 0.5 / std::sqrt(meanSquare);
    double moments[4][4] = {};
    for (int i = 0; i < n; ++i) {
        Point3D_d const p = points[i] - mean;
        double const terms[4] = {(dot(p, p) - meanSquare) * factor, p.x(), p.y(), p.z()};
        for (int row = 0; row < 4; ++row) {
            for (int col = 0; col <= row; ++col)
                moments[row][col] += terms[row] * terms[col];
        }
    }
    double values[4], subdiagonal[4];
    double * rows[4] = {moments[0], moments[1], moments[2], moments[3]};
    tred2_d(rows, 4, values, subdiagonal);
    if (tqli_d(values, subdiagonal, 4, rows) == 0)
        return false;
    auto const least = static_cast<int>(std::min_element(values, values + 4) - values);
    // On a line or circle a second combination of the terms vanishes, and so do all spheres through it.
    double others[3], *end = others;
    for (int i = 0; i < 4; ++i) {
        if (i != least)
            *end++ = values[i];
    }
    if (!(*std::min_element(others, end) > 1e-10 * *std::max_element(others, end)))
        return false;

    double const a = factor * moments[0][least];
    Point3D_d const b(moments[1][least], moments[2][least], moments[3][least]);
    // |∇f| on the sphere, which is also 2 |a| times its radius.
    double const slope = std::sqrt(dot(b, b) + 4 * a * a * meanSquare);
    Point3D_d const gradient = b - 2 * a * mean;
    double const length = gradient.length();
    if (!(length > 1e-10 * slope))
        return false;
    // The gradient points away from the centre when a > 0.
    (gradient * ((a > 0 ? -1 : 1) / length)).toArray(normal);
    curvature = 2 * std::abs(a) / slope / points.scale();
    return true;
}
