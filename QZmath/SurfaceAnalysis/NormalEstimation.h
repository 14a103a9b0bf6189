// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/Point3D.h>
#include <QZmath/SurfaceAnalysis/QuadraticForm.h>

#include <vector>

/// Normal, quadric and curvatures of a surface at a point, out of a small neighbourhood of points with the
/// point itself first. `EstimateNormals` and `EstimateCurvatures` of CloudNormals.h apply them to whole
/// clouds.
///
/// Two methods: the plane of least squares (`GetNormal`), whose normal is the eigenvector of the scatter
/// matrix for its smallest eigenvalue, and a quadric fitted to the points (`GetNormal2`).
///
/// The sign of a normal is arbitrary: nothing here orients it, apart from `DetectContourNormal`. Curvatures
/// are in the inverse unit of the points. 20 stands for an unknown curvature in the functions on forms.
///
/// All functions are pure and allocate nothing (a `tensor` that is not 3 by 3 yet apart), so they can run in
/// any thread. They throw nothing; false or 0 means that there is no result, and the outputs are undefined
/// then. Points that are NaN or infinite are such a case.

/// Settings of `GetNormal2`.
class QZMATH_API CGetNormal2Prms
{
public:
    CGetNormal2Prms() = default;
    CGetNormal2Prms(CGetNormal2Prms const &) = default;
    CGetNormal2Prms & operator=(CGetNormal2Prms const &) = default;
    virtual ~CGetNormal2Prms();

    /// Fit the quadric even if the neighbourhood is flat. False by default.
    bool Force2() const { return m_force2; }
    bool & Force2() { return m_force2; }
    /// The quadric passes through the first point, which makes 9 coefficients; otherwise it has a free term
    /// too. True by default.
    bool ZeroFremTerm() const { return m_zeroFremTerm; }
    bool & ZeroFremTerm() { return m_zeroFremTerm; }
    /// The neighbourhood is flat when no point is farther than this from the plane of least squares, in units
    /// of the scale of `GetNormal2`. 0.01 by default.
    float Appr2MinDist() const { return m_appr2MinDist; }
    float & Appr2MinDist() { return m_appr2MinDist; }

    /// The number of coefficients, 9 or 10.
    int q_size() const { return m_zeroFremTerm ? 9 : 10; }
    void SetDefault() { *this = CGetNormal2Prms(); }

private:
    bool m_force2 = false;
    bool m_zeroFremTerm = true;
    float m_appr2MinDist = 0.01F;
};

/// Normal of the plane of least squares. 1, or 0 on failure. `matrix` is three rows of three, which get the
/// eigenvectors of the scatter matrix as columns. Points on a line or all in one place are a success with
/// some perpendicular of the line or some direction; a scatter above 1e30 in all directions is a failure.
QZMATH_API int GetNormal(int n, REmath::Point3D const * points, double ** matrix, double * normal);
QZMATH_API int GetNormal(int n, REmath::Point3D const * points, double ** matrix, float * normal);

/// How far the points are from lying in a plane: the smallest eigenvalue of the scatter matrix over the sum
/// of all three, from 0 (flat) to 1/3 (alike in all directions). Points all in one place give 0.33333334. 1,
/// or 0 on failure.
QZMATH_API int GetAnisotropy(int n, REmath::Point3D const * points, double ** matrix, float & anisotropy);

/// `GetNormal` without the matrix. `normal` is zero on failure.
QZMATH_API bool EstimateNormal(std::vector<REmath::Point3D> const & points, double * normal);

/// Normal at the first point by a quadric, or by a plane where the neighbourhood is flat.
///
/// The quadric lives in coordinates relative to the first point and divided by the scale, the root mean
/// square of the distances to it. There its coefficients c minimise the weighted sum of f(p)² over the points
/// under the condition that the gradient at the first point has unit length; the weights are
/// 0.1 / (|p|² + 0.1). That is a generalised eigenvalue problem A c = λ B c of 9 or 10 coefficients, of whose
/// solutions in the lower half of the eigenvalues (|λ| at most half the largest) the one with the smallest
/// sum is taken that is no artefact: its curvatures must be known and at most 2 in scaled units, and a
/// quadric that bends in three directions must not wrap the points in two sheets (fewer than a fifth of them
/// with a gradient turned against that of the first point).
///
/// @param prms    null means the defaults
/// @param form    the quadric in the scaled coordinates; for a flat neighbourhood Q = 0, L = the normal,
///                K = 0. Can be null
/// @param normal  unit normal; when no quadric was acceptable that of the plane
/// @param dist    room for `n` distances to the surface in scaled units: unsigned ones to the plane; to the
///                quadric along its gradient at the first point, and 1e20 |L|² where that line misses it.
///                Where the line meets the quadric once, the sign is that of the side. Can be null
/// @param scale   the scale, in units of the points. Can be null
///
/// False for fewer than two points, for points that are all in one place and when no quadric is acceptable.
///
/// Umbilic points are outside the method. Where both curvatures agree, on a sphere, and on a plane under
/// `Force2`, the true quadric counts as one of unknown curvature (the discriminant stays under 1e-10). Exact
/// points then fail or get a worse quadric, whose curvatures mean nothing; points with noise come out well.
/// `EstimateUmbilicCurvature` gives the answer there, and `EstimateCurvatures` of CloudNormals.h decides
/// between the two.
QZMATH_API bool GetNormal2(int n, REmath::Point3D const * points, CGetNormal2Prms const * prms,
                           CQuadraticForm * form, double * normal, float * dist, double * scale);
QZMATH_API bool GetNormal2(int n, REmath::Point3D const * points, CGetNormal2Prms const * prms,
                           CQuadraticForm * form, float * normal, float * dist, double * scale);

/// `GetNormal2` with a free term and a flatness limit of 1e-5; the form comes in the points' own units, still
/// relative to the first point: f(p - points[0]). On failure the form is the default one.
QZMATH_API bool GetNormalAndQuadricApprShiftedNonScaled(int n, REmath::Point3D const * points,
                                                        CQuadraticForm & form, double * normal);
QZMATH_API bool GetNormalAndQuadricApprShiftedNonScaled(int n, REmath::Point3D const * points,
                                                        CQuadraticForm & form, float * normal);

/// The larger of the magnitudes of the two principal curvatures at the origin of the quadric that passes
/// through it with this form; 20 where `GetCurvatures` leaves them unknown.
QZMATH_API double MaxCurvature(CQuadraticForm const & form);
QZMATH_API double MaxCurvature(CQuadFormRaw9<double> const & form);

/// Magnitudes of the principal curvatures at the origin, in no order. Both are 20 when the gradient there is
/// shorter than 1e-5, and at an umbilic point, where both curvatures agree within 2e-5.
///
/// When they are known and `tensor` is given, it becomes the symmetric 3 by 3 matrix R diag(curvatures, 0)
/// R^T, with the columns of R being two tangents and the unit normal, which `normal` gets then. The tangents
/// are arbitrary ones and not the principal directions, so the tensor tells the two magnitudes and the
/// tangent plane only; `EstimateCurvature` gives the true one. Both can be null, `normal` is written together
/// with the tensor only.
QZMATH_API void GetCurvatures(CQuadFormRaw9<double> const & form, double * curvatures,
                              REmath::Matrix<double> * tensor, double * normal);

/// Curvature tensor at the first point, 3 by 3 and symmetric: its eigenvectors are the normal, with
/// eigenvalue 0, and the principal directions with the principal curvatures, positive where the surface bends
/// towards the normal. By the quadric of `GetNormal2` with `Force2`, which see for failures.
///
/// With `computeNormal`, `normal` gets the unit normal; without, it is read, need not have unit length, and
/// decides the tangent plane and the signs. Null means the estimated normal in both cases.
QZMATH_API bool EstimateCurvature(std::vector<REmath::Point3D> const & points, bool computeNormal,
                                  double * normal, REmath::Matrix<double> & tensor);

/// Magnitudes of the principal curvatures at the first point, in order, by the same quadric. Where one of
/// them is exactly 0 and comes second, both are negated before they are ordered. Curvatures beyond the range
/// of `float`, of neighbourhoods smaller than about 1e-38, are a failure.
QZMATH_API bool GetMinMaxCurvaturesForPoints(std::vector<REmath::Point3D> & points, float & minCurvature,
                                             float & maxCurvature);

/// Curvature at a point whose neighbourhood bends alike in all directions, by a sphere through the points:
/// what the functions above cannot give. The sphere minimises the sum of f(p)² for f(p) = a |p|² + b . p + c
/// under Σ |∇f|² = n (Taubin, Estimation of planar curves, surfaces and nonplanar space curves, 1991), so a
/// plane is as good an answer, with curvature 0.
///
/// `curvature` is 1 / radius; the unit `normal` belongs to the first point, or the nearest of the sphere, and
/// points to the centre, that is the side to which the surface bends. False for fewer than four points,
/// points in one place or on a line or circle, and when the first point is the centre. Nothing tells whether
/// the surface is a sphere at all. About a microsecond for 20 points.
QZMATH_API bool EstimateUmbilicCurvature(int n, REmath::Point3D const * points, double * normal,
                                         double & curvature);

/// Unit normal of a closed contour by its vector area, counter-clockwise as seen from its tip. The contour
/// need not be flat. Sums in `float`, relative to the mean of the points. False when the area vanishes or is
/// not a number, and for a null `normal`.
QZMATH_API bool DetectContourNormal(std::vector<REmath::Point3D> const & contour, float * normal);
