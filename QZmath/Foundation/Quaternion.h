// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/RotationMatrix.h>

/// Quaternion (w; x, y, z) of `double`, for rotations of unit length.
///
/// **Sign.** The matrix that belongs to a quaternion here is the transpose of the usual one, so (cos(a/2);
/// sin(a/2) axis) turns column vectors by `-a` about the axis, and row vectors by `+a`:
///
///     | 1 - 2 (y² + z²)    2 (x y + z w)      2 (x z - y w)   |
///     | 2 (x y - z w)      1 - 2 (z² + x²)    2 (x w + y z)   |
///     | 2 (x z + y w)      2 (y z - x w)      1 - 2 (y² + x²) |
///
/// The product has the matching sign, `p * q` here being q p in Hamilton's: the matrix of `p * q` is the
/// matrix of `p` times that of `q`. q and -q are the same rotation.
///
/// A plain value. Angles are in radians. No function throws or allocates.
class QZMATH_API Quaternion
{
public:
    /// The identity, (1; 0, 0, 0).
    Quaternion() = default;
    /// The four numbers as they are.
    Quaternion(double scalar, double x, double y, double z);
    /// The rotation of `makeEulerMatrix` with the angles `a0`, `a1`, `a2`.
    Quaternion(double a0, double a1, double a2);

    double getScalar() const { return m_scalar; }
    double getX() const { return m_x; }
    double getY() const { return m_y; }
    double getZ() const { return m_z; }

    void setIdentity();
    /// (cos(a/2); sin(a/2) axis) for an axis of the world, see the sign above. The form about x normalises
    /// the result, which can move its last bit, and makes a NaN of the angle the identity; the others do not.
    void setToRotateAboutX(double angle);
    void setToRotateAboutY(double angle);
    void setToRotateAboutZ(double angle);

    /// Scales to unit length; a quaternion of length 0, or with a NaN, becomes the identity.
    void normalize();
    double length() const;

    /// The matrix above, which is a rotation for a unit quaternion.
    void getRotationMatrix(CRotationMatrix & matrix) const;
    /// Euler angles of that matrix, as `getEulerAnglesFromMatrix` defines them.
    void getEulerAngle(double & a0, double & a1, double & a2) const;

    /// Spherical interpolation from `a` to `b` between unit quaternions along the shorter arc, with constant
    /// speed. Up to `t` = 0 it is `a`, from 1 on `b` itself, also where the shorter arc leads to -b. When the
    /// angle between them is below about 0.014, their product above 0.9998999834060669, it is the linear
    /// blend, which is not normalised. NaN in `t` gives NaN.
    static Quaternion slerp(Quaternion const & a, Quaternion const & b, double t);
    static double dotProduct(Quaternion const & a, Quaternion const & b);

    /// Whether every component is at most `eps` away from that of `other`; q and -q differ.
    bool areEqualTo(Quaternion const & other, double eps) const;

    /// First `other`, then this one, as maps of column vectors.
    Quaternion operator*(Quaternion const & other) const;
    /// Exact; a NaN is equal to nothing.
    bool operator==(Quaternion const & other) const;
    bool operator!=(Quaternion const & other) const;

private:
    double m_scalar = 1;
    double m_x = 0;
    double m_y = 0;
    double m_z = 0;
};

/// The quaternion of a rotation, the inverse of `Quaternion::getRotationMatrix` up to the common sign: the
/// component of the largest magnitude comes out positive, and of equal ones the first. Loses no accuracy for
/// any angle. Matrices that are no rotations give a quaternion of another length, or NaN.
QZMATH_API void getQuaternionFromMatrix(CRotationMatrix const & matrix, Quaternion & quaternion);
