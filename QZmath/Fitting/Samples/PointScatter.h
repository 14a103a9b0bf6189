// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <array>
#include <cstddef>

namespace REmath::Detail
{

/// Centroid and scatter matrix `sum (p - c)(p - c)^T` of a set of points, kept up to date while points come
/// in.
///
/// The points pass through the processor once, in blocks: with s the mean of everything before, and d = p -
/// s, a block of b points, n with all before it, adds `sum d d^T - (sum d)(sum d)^T / n` to the matrix and
/// `sum d / n` to the mean. This is the pairwise update of Chan, Golub and LeVeque (Algorithms for computing
/// the sample variance, 1983) with the block taken about s. What the subtraction cancels is never larger than
/// what the block truly adds by lying away from s, so the result is as accurate as with a pass for the
/// centroid and a second one for the matrix. The first block is taken about its own mean.
class PointScatter
{
public:
    template <class Point>
    PointScatter(Point const * points, std::size_t count);

    std::size_t count() const { return m_count; }
    /// Zero for no points.
    std::array<double, 3> const & centroid() const { return m_mean; }
    /// xx, xy, yy, xz, yz, zz.
    std::array<double, 6> const & elements() const { return m_elements; }
    /// Elements of the scatter about `centre` in place of the centroid.
    std::array<double, 6> elementsAbout(double const * centre) const;

private:
    std::size_t m_count;
    std::array<double, 3> m_mean{};
    std::array<double, 6> m_elements{};
};

extern template PointScatter::PointScatter(Point3D const *, std::size_t);
extern template PointScatter::PointScatter(Point3D_d const *, std::size_t);

/// Unit eigenvector of the smallest eigenvalue of the symmetric matrix with the `elements` xx, xy, yy, xz,
/// yz, zz; of equal ones that of the first. Its sign is as the eigensolver leaves it. Only eigenvalues below
/// `start` count. False, with `vector` untouched, when there is none or when the solver fails, as it does on
/// NaN.
bool leastEigenvector(std::array<double, 6> const & elements, double start, double * vector);

} // namespace REmath::Detail
