// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/PolylineFitCurve.h>

/// The plane of a polyline: axes, origin and normal, all 0 until a plane is known.
class CPolylineFitCurve::TF_CBuilderUCS
{
public:
    TF_CBuilderUCS() = default;
    virtual ~TF_CBuilderUCS();

    /// Coordinates of a point in the plane; the third is 0.
    REmath::Point3D_d toPlane(REmath::Point3D_d const & point) const;
    REmath::Point3D_d directionToPlane(REmath::Point3D_d const & direction) const;
    /// Back to space.
    REmath::Point3D_d toSpace(double x, double y) const;
    REmath::Point3D_d directionToSpace(REmath::Point3D_d const & direction) const;

    REmath::Point3D_d m_axisU, m_axisV, m_origin, m_normal;
};

/// The two sides of a joint as the first approximations see them.
struct CPolylineFitCurve::JointSides
{
    REmath::Point3D_d normalBefore, normalAfter;

    /// Cosine of the angle between the normals.
    double cosine() const;
};
