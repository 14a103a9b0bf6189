// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Fitting/PlaneEquation.h>
#include <QZmath/Foundation/Coord3DRefs.h>

/// What a recognised plane must satisfy.
enum PlaneFitConstraintType
{
    PlaneFitFree = 0,          ///< nothing
    PlaneFitNormalAndDist = 1, ///< a given normal, and a given distance from a given point
    PlaneFitNormal = 2,        ///< a given normal
    PlaneFitThroughPoint = 3,  ///< contain a given point
    PlaneFitThroughLine = 4,   ///< contain a given line
    PlaneFitAngleToAxis = 5    ///< a normal at a given angle to a given direction
};

namespace REmath
{

/// Plane of least squares through a set of points that come and go in portions. Keeps sums only, so that each
/// portion costs what its own points cost, and nothing has to be kept of the points. One object belongs to
/// one thread.
class QZMATH_API IPlaneAppoximator
{
public:
    virtual ~IPlaneAppoximator();

    /// The plane of the points inside, its normal turned to the side of the sum of the normals that came with
    /// them. Invalid with fewer than 3 points inside and after NaN or infinite coordinates, which cannot be
    /// removed again. Collinear points give some plane through their line.
    virtual void getPlane(CPlaneEquation & plane) = 0;
    /// Adds `points`, with the `normals` measured there or null.
    virtual void addPoints(ICoord3DRefs const * points, ICoord3DRefs const * normals) = 0;
    /// Takes out points that were added before, which is not checked, with the same normals. When the last
    /// ones go, so does all rounding of the past.
    virtual void removePoints(ICoord3DRefs const * points, ICoord3DRefs const * normals) = 0;
    /// Adds with `sign` 1, removes with `sign` -1. Null for `points` counts as none.
    virtual void update(ICoord3DRefs const * points, ICoord3DRefs const * normals, int sign) = 0;

    /// A new approximator, which the caller owns. Exists for `PlaneFitFree`; `CVescaTextException` with "bad
    /// allocation" for any other type.
    static IPlaneAppoximator * CreateByConstraint(PlaneFitConstraintType type);

protected:
    IPlaneAppoximator() = default;
    IPlaneAppoximator(IPlaneAppoximator const &) = default;
    IPlaneAppoximator & operator=(IPlaneAppoximator const &) = default;
};

} // namespace REmath
