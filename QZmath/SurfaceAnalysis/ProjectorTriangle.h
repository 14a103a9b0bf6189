// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/LinearTransform.h>
#include <QZmath/Foundation/Point3D.h>

namespace REmath
{

/// A triangle that answers the distances of many points, from a frame of its own: the first vertex is the
/// origin, x runs along the first side, z along the normal. There a distance is one affine map and a
/// few operations in the plane.
///
/// Making one copies the vertices only; `PreCalc` makes the frame. The `const` functions can be called from
/// several threads at once. Nothing throws or allocates. The position of a point in the frame is rounded to
/// `float`, so that a result is good to about 1e-7 of the point's distance from the first vertex.
///
/// A third vertex nearer to the line of the first side than 1e-6 of its own distance from the first vertex is
/// taken to lie on that line: the triangle is then its sides, or the point that they shrink to.
class QZMATH_API CProjectorTriangle
{
public:
    /// From three triples.
    CProjectorTriangle(float const * a, float const * b, float const * c);
    CProjectorTriangle(Point3D const & a, Point3D const & b, Point3D const & c);
    /// From three points that follow each other.
    explicit CProjectorTriangle(Point3D const * vertices);

    /// Makes the frame and all that `DistToTriangle2Precalced` reads.
    void PreCalc();

    /// Squared distance of `p`. Makes the frame for this one point.
    double DistToTriangle2(float const * p) const;
    /// `DistToTriangle2` to the bit, from the frame that `PreCalc` made. Without that, no faster.
    double DistToTriangle2Precalced(float const * p) const;

    /// The greatest of the squared lengths of the sides. Needs no `PreCalc`.
    double GetMaxSideLen2() const;

private:
    double distanceInFrame(float const * p) const;

    float m_vertices[3][3];
    bool m_precalced = false;
    RElinearTransform m_toLocal;
    double m_second[2] = {}; // local x and y of the second and third vertex
    double m_third[2] = {};
    double m_edges[3][2] = {}; // from vertex i to the next
    double m_inwardNormals[3][2] = {};
    double m_squaredSides[3] = {};
};

} // namespace REmath
