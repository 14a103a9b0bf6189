// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/Foundation/RotationMatrix.h>

/// Affine map of column vectors, p -> `matrix` p + `shift`. A plain value; no function throws or allocates.
class QZMATH_API RElinearTransform
{
public:
    /// The identity.
    RElinearTransform() = default;
    RElinearTransform(double const (&elements)[3][3], double const * translation);
    RElinearTransform(CRotationMatrix const & rotation, REmath::Point3D_d const & translation);

    /// Shared constants, made on first use.
    static RElinearTransform const & Identity();
    /// The map of everything to the origin.
    static RElinearTransform const & Zero();

    /// The image of a point. Each coordinate is summed in the order x, shift, y, z.
    REmath::Point3D_d apply(REmath::Point3D_d const & point) const;

    /// Whether this map after its `getInvertedOrtho()` is the identity within the rounding of `float`: every
    /// element `a` of matrix and shift near its counterpart `b` by `max(|a| + |b|, 1) * 1.19e-7`. Reflections
    /// pass too. The rounding of the shift counts, so a rotation can fail when it is shifted by more than
    /// about 1e8. False on NaN.
    bool isOrtho() const;

    /// Replaces an orthogonal map by its inverse: the transposed matrix M^T and the shift -M^T t. Other
    /// matrices are not noticed and give another map than the inverse; see `invertTransform`.
    void invertOrtho();
    RElinearTransform getInvertedOrtho() const;

    double matrix[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}; ///< Row by row.
    double shift[3] = {0, 0, 0};
};

/// The inverse of any regular affine map: M^-1 and -M^-1 t. False for a matrix that `invertMatrix` calls
/// singular, with `out` as it was. `out` can be `a`.
QZMATH_API bool invertTransform(RElinearTransform const & a, RElinearTransform & out);

/// Rotation by `angle` radians about the line through `point` along `axis`, counter-clockwise as seen from
/// the tip of the axis. `axis` must be a unit vector and is not normalised. With c, s the cosine and sine, u
/// = 1 - c and the axis (x, y, z), the matrix is
///
///     | x x u + c     x y u - z s   x z u + y s |
///     | y x u + z s   y y u + c     y z u - x s |
///     | z x u - y s   z y u + x s   z z u + c   |
///
/// and the shift is what leaves the points of the line where they are.
QZMATH_API void setAxisRotationTransform(RElinearTransform & out, REmath::Point3D_d const & point,
                                         REmath::Point3D_d const & axis, double angle);
