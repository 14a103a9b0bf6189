// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Lines, circles and planes through the points that agree on one, however many others there are: by random
/// sample consensus (M. Fischler, R. Bolles: Random sample consensus, 1981). The robust fits start from the
/// fit to all points, which many outliers spoil; these start from the best of many trials on few points.
///
/// The trials, on up to 512 points spread evenly over all, are scored by the distances of the points, cut off
/// at the inlier distance (P. Torr, A. Zisserman: MLESAC, 2000), and given up early when the first points
/// tell (D. Capel: An effective bail-out test for RANSAC consensus scoring, 2005). Each new best one is
/// fitted to its inliers by least squares (O. Chum, J. Matas, J. Kittler: Locally optimized RANSAC, 2003).
/// The last fits are to all points.
///
/// `found` is `false`, and what the object says is undefined, when no object has more support than the same
/// number of points spread at random would give some object by chance (the a-contrario test of L. Moisan,
/// B. Stival: A probabilistic criterion to detect rigid point matches, 2004), and when the supporting points
/// leave the object undetermined: all in one spot, or along one line for a plane or a circle. So it is when
/// no point is left to confirm an object, as with two points for a line and three for the others; for
/// coordinates or options that are not numbers in range; and for coordinates that span more than 1e290 or
/// less than 1e-290, or of which four fifths are equal.
///
/// The same points in the same order, options and seed give the same bits. Any thread may call;
/// `std::bad_alloc` is all that is thrown. A call costs O(n) for n points beside the trials, allocates
/// nothing in a trial, and takes up to 40 bytes for each supporting point while it runs.
namespace REmath
{

/// What to look for, and for how long.
struct ConsensusOptions
{
    /// Greatest distance of a supporting point from the object, in units of the coordinates: about 2.5 times
    /// the standard deviation of the noise. 0 finds the distance at which the support stands out most against
    /// uniform points, some 2.5 deviations; give it for coordinates that are coarsely rounded, as of pixels.
    double inlierDistance = 0;
    /// The trials end when the best object would have been hit with this probability, 0 to 1.
    double confidence = 0.9999;
    /// Greatest number of trials, at least 1. They bound the time where there is little support: with a share
    /// w of supporting points, about `9 / w²` are needed for a line, and `9 / w³` for a plane or a circle.
    int mostTrials = 10000;
    /// Another seed draws other samples.
    std::uint64_t seed = 0;
};

/// What is known of every object that was found.
struct ConsensusReport
{
    bool found = false;
    /// Numbers of the points within `inlierDistance` of the object, ascending.
    std::vector<std::size_t> inliers;
    /// Root of the mean square of the distances of the inliers.
    double rms = 0;
    /// The given distance, or the one that was found. Not below the rounding of the coordinates.
    double inlierDistance = 0;
    /// Share of the inliers among all points, 0 to 1.
    double support = 0;
    /// Samples that were drawn.
    int trials = 0;
};

/// A point on the line and its unit direction, of arbitrary sign.
struct LineConsensus : ConsensusReport
{
    Point3D_d origin, direction;
};

/// The same in the plane.
struct PlanarLineConsensus : ConsensusReport
{
    std::array<double, 2> origin{}, direction{};
};

/// A point in the plane and its unit normal, of arbitrary sign.
struct PlaneConsensus : ConsensusReport
{
    Point3D_d origin, normal;
};

/// Centre, unit normal of the plane of the circle, of arbitrary sign, and radius.
struct CircleConsensus : ConsensusReport
{
    Point3D_d center, normal;
    double radius = 0;
};

/// Centre and radius in the plane.
struct PlanarCircleConsensus : ConsensusReport
{
    std::array<double, 2> center{};
    double radius = 0;
};

/// The line that has the most support, and is the one of least squares to its inliers.
QZMATH_API LineConsensus findLine(std::vector<Point3D_d> const & points,
                                  ConsensusOptions const & options = {});
QZMATH_API LineConsensus findLine(std::vector<Point3D> const & points, ConsensusOptions const & options = {});
/// The same in the plane.
QZMATH_API PlanarLineConsensus findLine(std::vector<std::array<double, 2>> const & points,
                                        ConsensusOptions const & options = {});

/// The plane that has the most support, and is the one of least squares to its inliers.
QZMATH_API PlaneConsensus findPlane(std::vector<Point3D_d> const & points,
                                    ConsensusOptions const & options = {});
QZMATH_API PlaneConsensus findPlane(std::vector<Point3D> const & points,
                                    ConsensusOptions const & options = {});

/// The circle that has the most support. The distance of a point is that in space, from the curve. The circle
/// lies in the plane of least squares of its inliers, and there has the least sum of squared distances from
/// them; outliers beside the plane do not tilt it. Its radius is above the inlier distance, and at most some
/// thirty times the extent of the points.
QZMATH_API CircleConsensus findCircle(std::vector<Point3D_d> const & points,
                                      ConsensusOptions const & options = {});
QZMATH_API CircleConsensus findCircle(std::vector<Point3D> const & points,
                                      ConsensusOptions const & options = {});
/// The same in the plane.
QZMATH_API PlanarCircleConsensus findCircle(std::vector<std::array<double, 2>> const & points,
                                            ConsensusOptions const & options = {});

} // namespace REmath
