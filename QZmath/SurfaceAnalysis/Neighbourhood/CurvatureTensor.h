// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

namespace REmath::Detail
{

class ScaledPoints;

/// Symmetric curvature tensor, row by row, at the first point of a neighbourhood by a quadric: what
/// `EstimateCurvature` gives, with the same arguments. `isSphereBetter`, which can be null, tells whether a
/// sphere through the first point fits better: the quadric is an artefact then, since the spheres are among
/// the quadrics.
bool estimateCurvatureTensor(int n, Point3D const * points, bool computeNormal, double * normal,
                             double (&tensor)[3][3], bool * isSphereBetter);

/// What the fit of a quadric minimises, for the best sphere a |p|² + b . p through the first point, |b| = 1.
double sphereResidual(ScaledPoints const & points);

} // namespace REmath::Detail
