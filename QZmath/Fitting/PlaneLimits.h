// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Fitting/PlaneEquation.h>
#include <QZmath/Foundation/Coord3DRefs.h>

namespace REmath
{

/// Turns the axes of a plane so that the rectangle along them around the points is smallest. `normal` is the
/// unit normal; `e1` and `e2` receive three numbers each and may overlap nothing.
///
/// With (e1, e2) first the default frame of `BuildUCSbyVector`, the angles i pi / `steps`, 0 <= i < `steps`,
/// are tried; the first of the smallest area below 1e30 wins, and e1 is turned by it towards e2. **e2 stays
/// where it was**: the other side of the rectangle lies along `normal` x `e1`. Nothing is turned when there
/// are no points or no steps. Coordinates that are NaN do not count.
///
/// Looks at each point a few times and takes memory for those near the boundary of the set: only these can
/// limit a rectangle, and for all but thin or tiny sets they are few. `std::bad_alloc` when there is no
/// memory for them. Can run in any thread.
QZMATH_API void DefinePointsLimitsBasis(ICoord3DRefs const & refs, double const * normal, double * e1,
                                        double * e2, int steps);

/// `limits` receives the least and the greatest p·`direction`, in units of the length of `direction`, which
/// is only read; (-1, 1) for no points. NaN does not count. Throws nothing of its own, allocates nothing.
QZMATH_API void GetSelectionLinearLimits(ICoord3DRefs const & refs, double * direction, double * limits);

/// Extent of a set of points in a plane: two directions and the range of the points along each.
class QZMATH_API CPlaneLimits
{
public:
    static constexpr int DIM = 3;

    /// All zero.
    CPlaneLimits();
    CPlaneLimits(CPlaneLimits const &) = default;
    CPlaneLimits & operator=(CPlaneLimits const &) = default;
    virtual ~CPlaneLimits();

    /// Back to all zero.
    void Clear();
    /// The `DIM` components of the first direction for `i` = 0, and of the second for any other `i`.
    double * GetBasisVector(int i);
    double const * GetBasisVector(int i) const;
    /// Minimum and maximum along the first direction for `i` = 0, and along the second for any other `i`.
    double * GetLimitsInDir(int i);
    double const * GetLimitsInDir(int i) const;

    /// Takes the directions of `DefinePointsLimitsBasis` in 120 steps and the limits of `refs` along each. So
    /// the first direction is a side of the smallest rectangle, while the second is perpendicular to the
    /// first only when nothing was turned.
    void DefineAuto(ICoord3DRefs const & refs, CPlaneEquation const & plane);

private:
    double m_basis[2][DIM];
    double m_limits[2][2];
};

} // namespace REmath
