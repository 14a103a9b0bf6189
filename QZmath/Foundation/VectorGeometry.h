// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

/// Small functions of vector geometry on points and raw triples. All of them throw nothing, check no pointer,
/// allocate nothing and can be called from any thread. The `float` forms widen their input, compute in
/// `double` and round the result once. Degenerate input is answered by `false` or by the mark
/// `REmath::st_NoValueMark` where that is said, and else by infinities or NaN.

/// Vector from the line through `a` and `b` to `p`, perpendicular to the line:
/// `out = w - d (d . w) / (d . d)` with `w = p - a`, `d = b - a`. `out` can be one of the inputs. NaN when
/// `a == b`.
QZMATH_API void Vector_Line2Point(float const * a, float const * b, float const * p, float * out);
QZMATH_API void Vector_Line2Point(double const * a, double const * b, double const * p, double * out);

/// Unit vector perpendicular to `v`: that of `(-v.y, v.x, 0)` when `v.x² + v.y² > 0.1`, else that of
/// `(0, -v.z, v.y)`.
///
/// Meant for a unit `v`, for which neither branch divides by a small number. A short vector takes the second
/// branch, and gives NaN there if it lies along x; so does the zero vector. `out` can be `v`.
QZMATH_API void BuildDefPerpendicular(float const * v, float * out);
QZMATH_API void BuildDefPerpendicular(double const * v, double * out);

/// Completes a unit `v` to the right-handed orthonormal triple (`p`, `q`, `v`): `p` is the default
/// perpendicular of `v`, and `q = v x p`. `p` or `q` can be `v`.
QZMATH_API void BuildUCSbyVector(float const * v, float * p, float * q);
QZMATH_API void BuildUCSbyVector(double const * v, double * p, double * q);

/// Whether `p` lies in the plane through `origin` with the unit normal `normal`: nearer than `tol` to the
/// origin, or in a direction `d` from it with `| |d x normal|² - 1 | < tol`. The squared sine of the angle to
/// the plane is what `tol` bounds there, not a distance.
QZMATH_API bool PointInPlane(REmath::Point3D_d const & p, REmath::Point3D_d const & origin,
                             REmath::Point3D_d const & normal, double tol);

/// Whether `|a x b|² < tol |a|² |b|²`: `tol` bounds the squared sine of the angle. A zero vector is parallel
/// to nothing.
QZMATH_API bool VectorsAreParallel(REmath::Point3D_d const & a, REmath::Point3D_d const & b, double tol);

/// Cosine of the angle at `b` in the triangle `a b c`; the no-value mark when `b` coincides with `a` or `c`.
QZMATH_API float cos_ABC(REmath::Point3D const & a, REmath::Point3D const & b, REmath::Point3D const & c);

/// Scalar product of the parts of `c - a` and `d - a` that are perpendicular to the line `a b`: positive when
/// `c` and `d` lie on the same side of it. 0 when `a` and `b` coincide, that is when on every axis
/// `|a - b| <= (|a| + |b|) ε`, with ε of `float`.
QZMATH_API float SemiPlanarScalarProd(REmath::Point3D const & a, REmath::Point3D const & b,
                                      REmath::Point3D const & c, REmath::Point3D const & d);

/// Squared cosine of the angle between the half planes that the line `a b` bounds and in which `c` and `d`
/// lie, with the sign of the cosine. The no-value mark when the angle is not defined: when `a` and `b`
/// coincide, or when the distance of one of `c`, `d` from the line is no more than 1e-6 of that of the other.
QZMATH_API float SemiPlanarCos2(REmath::Point3D const & a, REmath::Point3D const & b,
                                REmath::Point3D const & c, REmath::Point3D const & d);

/// Decomposes `p` along two vectors that need not be orthogonal: `p = u e1 + v e2`, where a part of `p` that
/// is perpendicular to both is ignored. False, with `u` and `v` untouched, when the pair is too nearly
/// parallel: when the determinant of its Gram matrix is at most `tol` times the smaller of `|e1|⁴`, `|e2|⁴`.
/// False also on NaN.
QZMATH_API bool CoordinateRelativeForPlaneReperDbl(double const * p, double const * e1, double const * e2,
                                                   double & u, double & v, double tol);

/// Squared ratio of the height of the triangle `a b c` over its base `b c` to the length of that base. There
/// is no guard: NaN when `b` and `c` coincide.
QZMATH_API float GetTriangleBulge(float const * a, float const * b, float const * c);

/// `GetTriangleBulge` in the plane, for point `i` of a polyline over the base from `i - 1` to `i + 1`. All
/// three must exist, which is not checked.
QZMATH_API float GetTriangleBulge2(float const * xs, float const * ys, int i);
