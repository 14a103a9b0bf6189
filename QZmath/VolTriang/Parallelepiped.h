// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

namespace VolTr
{

/// An interval of the real line.
class QZMATH_API CInterval
{
public:
    /// [0, 0].
    CInterval() : m_left(0.0), m_right(0.0) {}
    CInterval(double left, double right) : m_left(left), m_right(right) {}

    /// From minus to plus the greatest finite `double`.
    static CInterval all();
    /// From minus the greatest finite `double` to `x`.
    static CInterval lessX(double x);
    /// From `x` to the greatest finite `double`.
    static CInterval greaterX(double x);

    double getLeft() const { return m_left; }
    double getRight() const { return m_right; }
    void setLeft(double left) { m_left = left; }
    void setRight(double right) { m_right = right; }

private:
    double m_left;
    double m_right;
};

/// An axis-aligned box. Nothing keeps its minima below its maxima; a box with a minimum
/// above its maximum is empty.
class QZMATH_API CParallelepiped
{
public:
    static constexpr int DIM = 3;

    /// All six coordinates 0.
    CParallelepiped() : m_min{0.0, 0.0, 0.0}, m_max{0.0, 0.0, 0.0} {}
    CParallelepiped(double xMin, double xMax, double yMin, double yMax, double zMin, double zMax)
        : m_min{xMin, yMin, zMin}, m_max{xMax, yMax, zMax}
    {}
    /// \param min three minima  \param max three maxima
    CParallelepiped(double const * min, double const * max)
        : m_min{min[0], min[1], min[2]}, m_max{max[0], max[1], max[2]}
    {}
    CParallelepiped(CInterval const & x, CInterval const & y, CInterval const & z);

    /// The three minima.
    double const * getMin() const { return m_min; }
    /// The three maxima.
    double const * getMax() const { return m_max; }
    double * getMinMod() { return m_min; }
    double * getMaxMod() { return m_max; }

    /// Extent on an axis 0, 1 or 2 (unchecked).
    CInterval getDimension(int axis) const { return CInterval(m_min[axis], m_max[axis]); }
    /// Replaces the extent on an axis 0, 1 or 2 (unchecked).
    void setDimension(int axis, CInterval const & extent);

    /// True when `point` (three coordinates) lies within `tolerance` of the box on all axes and within
    /// `tolerance` of at least one of its six faces.
    bool isBoundaryPoint(double const * point, double tolerance) const;

private:
    double m_min[3];
    double m_max[3];
};

} // namespace VolTr
