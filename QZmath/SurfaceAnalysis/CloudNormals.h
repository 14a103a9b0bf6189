// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

class CProgressCounter;

/// Normals and curvatures at all points of a cloud: the functions of NormalEstimation.h, each point with its
/// neighbourhood.
///
///     std::vector<REmath::Point3D> normals(points.size());
///     int const made = EstimateNormals(int(points.size()), points.data(), {}, normals.data());
///
/// The work is spread over the threads of `CVescaThreadingTasksHelper`; the results have the same bits for
/// any number of them. Multiplying all coordinates by a power of 2 changes no bit of a normal.
///
/// A point that is NaN or infinite takes part in nothing. A failure at a point is a zero normal and ends
/// nothing else. `progress` can be null; it is worked from the calling thread, and an interruption
/// (`CUserIntrException`) leaves the outputs undefined. `std::bad_alloc` is the other exception. The arrays
/// are the caller's and have `n` elements.

/// Which points stand for the surface around a point: the `count` nearest, itself included, as far as they
/// are within `radius`. Of points equally far, those of lower index come first. Distances are compared in
/// `float`.
struct CNeighbourhoodPrms
{
    int count = 20;    ///< 0 for no limit, which takes a radius then
    double radius = 0; ///< in units of the points; 0 for no limit
};

/// Which of its two signs a normal gets.
enum class NormalOrientation
{
    none,        ///< arbitrary, but the same in every run
    viewpoint,   ///< towards the viewpoint: `OrientNormalsTowards`
    spanningTree ///< consistent over the surface and outwards: `OrientNormalsBySpanningTree`
};

struct CEstimateNormalsPrms
{
    CNeighbourhoodPrms neighbourhood;
    NormalOrientation orientation = NormalOrientation::spanningTree;
    REmath::Point3D viewpoint; ///< the place of the scanner
};

/// Unit normals of the planes of least squares, as `GetNormal` gives them. The return value is the number of
/// points that have got one; the others have fewer than three neighbours, themselves included, or neighbours
/// that all lie in one place or on a line. Settings without a limit, with a negative one or with one that is
/// NaN leave all points without.
///
/// With k neighbours about O(n (log n + k)) operations; in a cloud whose density changes abruptly at every
/// point O(n k log n). A radius without a count can reach all points from every point: O(n²). About 40 bytes
/// per point, and see the orientations. `guessed`, unless null, gets what `OrientNormalsBySpanningTree` says,
/// and 0 with another orientation.
QZMATH_API int EstimateNormals(int n, REmath::Point3D const * points, CEstimateNormalsPrms const & prms,
                               REmath::Point3D * normals, CProgressCounter * progress = nullptr,
                               int * guessed = nullptr);

/// Turns every normal into the half space of `viewpoint`. For scans from one place: the normals point out of
/// what was seen. O(n).
QZMATH_API void OrientNormalsTowards(int n, REmath::Point3D const * points, REmath::Point3D const & viewpoint,
                                     REmath::Point3D * normals);

/// Makes the signs consistent by spreading them from point to point along a minimum spanning tree of the
/// graph of near neighbours, where the weight of an edge is the angle between the two tangent planes (Hoppe,
/// DeRose, Duchamp, McDonald, Stuetzle: Surface reconstruction from unorganized points, 1992). Angles are
/// rounded to steps of about a third of a degree. The graph has the 15 nearest points of each.
///
/// The sign of each connected part is chosen outwards: its outermost points in 14 directions vote with the
/// component of their normal along the direction, which on a closed surface is nearly 1 for all of them. A
/// part whose vote is undecided, such as one line of a line scanner, is first linked to others by the 63
/// nearest points. A sheet that has no outside gets some side.
///
/// Input normals need not be unit vectors, only their signs change; zero ones are left out. Two surfaces that
/// are closer to each other than the points on them cannot be told apart. O(n log n); about 190 bytes per
/// point in all. `guessed`, unless null, gets the number of points in parts whose vote stayed undecided.
QZMATH_API void OrientNormalsBySpanningTree(int n, REmath::Point3D const * points, REmath::Point3D * normals,
                                            CProgressCounter * progress = nullptr, int * guessed = nullptr);

/// Gives a normal to each point that has a zero one: that of the plane of its `neighbours` nearest points, on
/// the side of those among them that have one, first from the given ones, then from ring to ring. The return
/// value is the number of normals made; what is left, without a plane or without a way to a given one, is
/// zero as before. Other normals stay as they are. Cost as of `EstimateNormals`; about 8 `neighbours` + 80
/// bytes for each zero normal besides.
QZMATH_API int CompleteNormals(int n, REmath::Point3D const * points, int neighbours,
                               REmath::Point3D * normals, CProgressCounter * progress = nullptr);

/// What `EstimateCurvatures` finds at a point.
struct CPointCurvatures
{
    /// How it was found.
    enum Method
    {
        failed,  ///< not at all, or beyond the range of `float`: everything is 0
        quadric, ///< by `EstimateCurvature`
        sphere   ///< by `EstimateUmbilicCurvature`, where a sphere fits better than any acceptable quadric
    };

    Method method = failed;
    /// Principal curvatures, 1 / radius in the inverse unit of the points, positive where the surface bends
    /// towards the normal; the smaller one first. Their mean and their product are the mean and the Gaussian
    /// curvature.
    float minCurvature = 0, maxCurvature = 0;
    REmath::Point3D normal;       ///< unit vector, of the quadric or sphere
    REmath::Point3D maxDirection; ///< unit direction of the larger curvature, of either sign; 0 for a sphere
};

/// Principal curvatures by a quadric through each point, or by a sphere at umbilic points and flat places.
/// `normals` decide the sides from which the curvatures are seen, for instance those of `EstimateNormals`;
/// only their signs matter. Null, or a zero normal, leaves the side open.
///
/// The quadric passes through its point, so noise of the points enters the curvatures amplified by about
/// 1 / (neighbourhood radius)²; more neighbours average it out. Where the points are no smooth surface, at
/// edges and in noise, a sphere can be what is left: `sphere` is no warranty that there is one.
///
/// The return value is the number of points that have not failed. The cost is that of `GetNormal2`, about
/// twenty times that of a normal.
QZMATH_API int EstimateCurvatures(int n, REmath::Point3D const * points, CNeighbourhoodPrms const & prms,
                                  REmath::Point3D const * normals, CPointCurvatures * curvatures,
                                  CProgressCounter * progress = nullptr);
