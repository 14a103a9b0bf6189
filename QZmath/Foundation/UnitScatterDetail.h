// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <cmath>

namespace REmath::Detail
{

/// A scatter matrix of 3 by 3 over its trace, for one eigenvector of it where its eigenvalue is well apart
/// from the others: in a quarter of the time of the iteration for all three. Where it is not, or where the
/// trace is no positive number, `eigenvectorOf` says so.
class UnitScatter
{
public:
    UnitScatter(double xx, double xy, double xz, double yy, double yz, double zz)
    {
        double const trace = xx + yy + zz;
        double const unit = 1 / trace;
        a = xx * unit, b = yy * unit, c = zz * unit;
        d = xy * unit, e = xz * unit, f = yz * unit;
        second = a * b + a * c + b * c - d * d - e * e - f * f;
        third = a * (b * c - f * f) - d * (d * c - e * f) + e * (d * f - b * e);
    }

    // Newton's method on -det(M - x I) = x³ - x² + second x - third rises to the least root from 0, and falls
    // to the greatest from the trace.
    double leastEigenvalue() const
    {
        double x = 0;
        for (int step = 0; step < mostSteps; ++step) {
            double const next = improved(x);
            if (!(next > x + precision))
                break;
            x = next;
        }
        return x;
    }
    double greatestEigenvalue() const
    {
        double x = 1;
        for (int step = 0; step < mostSteps; ++step) {
            double const next = improved(x);
            if (!(next < x - precision))
                break;
            x = next;
        }
        return x;
    }

    /// Unit eigenvector of the eigenvalue `x`, of either sign. False unless the product of the distances from
    /// x to the two other eigenvalues exceeds `leastGap` about; the error of the vector is some 1e-15 over
    /// that.
    bool eigenvectorOf(double x, double leastGap, Point3D_d & vector) const
    {
        // The columns of the adjugate of M - x I are multiples of the eigenvector.
        double const p = a - x, q = b - x, r = c - x;
        double const columns[3][3] = {{q * r - f * f, e * f - d * r, d * f - e * q},
                                      {e * f - d * r, p * r - e * e, d * e - p * f},
                                      {d * f - e * q, d * e - p * f, p * q - d * d}};
        int longest = 0;
        for (int i = 1; i < 3; ++i) {
            if (columns[i][i] > columns[longest][longest])
                longest = i;
        }
        vector = Point3D_d(columns[longest]);
        // The trace of the adjugate is the product of the distances.
        double const length = vector.length();
        if (!(length > leastGap))
            return false;
        vector = vector / length;
        // Where two eigenvalues are nearly the same, as the least ones of points on a line are, Newton's
        // method may have ended anywhere.
        double const vx = vector.x(), vy = vector.y(), vz = vector.z();
        return std::fabs(p * vx + d * vy + e * vz) + std::fabs(d * vx + q * vy + f * vz) +
                   std::fabs(e * vx + f * vy + r * vz) <
               1e-9;
    }

private:
    static constexpr int mostSteps = 20;
    static constexpr double precision = 1e-15;

    double improved(double x) const
    {
        double const value = ((x - 1) * x + second) * x - third, slope = (3 * x - 2) * x + second;
        return x - value / slope;
    }

    double a, b, c; ///< on the diagonal
    double d, e, f; ///< xy, xz, yz
    double second, third;
};

} // namespace REmath::Detail
