// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Fitting/PolylineFitCurve.h>
#include <QZmath/Fitting/Samples/PlaneFrame.h>

class CPolylineFitCurve::TF_CBuilderUCS : public REmath::Detail::PlaneFrame
{
public:
    TF_CBuilderUCS() = default;
    virtual ~TF_CBuilderUCS();
};

/// The two sides of a joint as the first approximations see them.
struct CPolylineFitCurve::JointSides
{
    REmath::Point3D_d normalBefore, normalAfter;

    /// Cosine of the angle between the normals.
    double cosine() const;
};
