// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <apps/sampling/Random.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Oriented point clouds on analytic surfaces, as a scanner would see them, with the truth about the surface
/// at hand.
namespace qz_sampling
{

/// Point of a surface with the unit normal there.
struct SurfacePoint
{
    REmath::Point3D_d position;
    REmath::Point3D_d normal;
};

/// Receives the points of several sequences of random numbers.
class PointTaker
{
public:
    virtual ~PointTaker();
    /// The next point of a sequence, whose generator may be drawn from here. False when it was the last one.
    virtual bool take(int sequence, SurfacePoint const & point) = 0;
};

/// Analytic surface around the origin, a few units wide. The normals of a closed one point outward. All
/// operations are `const` and may be called from several threads; they use only arithmetic and square roots,
/// so that the results have the same bits on every platform with IEEE numbers.
class Shape
{
public:
    virtual ~Shape();

    virtual std::string name() const = 0;
    /// Random point, uniformly distributed by area.
    virtual SurfacePoint sample(Random & random) const = 0;
    /// Hands over the points that `sample` gives with each of so many generators, until the taker has enough
    /// of each; the generators take turns in any way. Faster than one after the other where it is overridden.
    virtual void sampleEach(Random * randoms, int count, PointTaker & taker) const;
    /// Distance to the surface, positive on the side to which the normals point. Exact for sphere, torus and
    /// plate; for the others the distance to a Newton projection: exact up to terms of second order in the
    /// distance.
    virtual double signedDistance(REmath::Point3D_d const & point) const = 0;
    /// Unit normal at the surface point nearest to `point`, in the sense of `signedDistance`.
    virtual REmath::Point3D_d normalNear(REmath::Point3D_d const & point) const = 0;
    /// Distance of a surface point to the border of an open surface, measured across the surface's outline;
    /// infinite for a closed one.
    virtual double distanceToBorder(REmath::Point3D_d const & point) const;
    virtual int eulerNumber() const = 0;
    virtual bool isClosed() const;
    /// Within 1 % of the true area; exact for sphere, torus and plate.
    virtual double area() const = 0;
    /// Half sides of a box around the origin that contains the surface.
    virtual REmath::Point3D_d halfExtent() const = 0;
};

/// Names that `makeShape` knows: "sphere", "torus", "genus3", "plate", "thin-plate", "block", "bumpy-sphere",
/// "sheet".
std::vector<std::string> const & shapeNames();

/// The shape of a name, null for an unknown one.
///
/// - sphere: radius 1;
/// - torus: ring radius 1 around z, tube radius 0.4;
/// - genus3: smooth disk with three holes, an implicit surface;
/// - plate: box of 2 x 1.4 x 0.3 with all edges rounded by 0.13;
/// - thin-plate: box of 2 x 1.4 x 0.06 with all edges rounded by 0.02;
/// - block: box of 2 x 1.4 x 1 with sharp edges;
/// - bumpy-sphere: radius varying smoothly between about 0.77 and 1.23;
/// - sheet: open height field over a square of side 2.
std::unique_ptr<Shape> makeShape(std::string const & name);

struct SamplingOptions
{
    std::size_t pointNumber = 100000;
    /// Standard deviation of the displacement along each axis, relative to the longest side of the shape's
    /// box, from 0 to 1. The normals stay those of the undisplaced points.
    double noise = 0;
    /// Points per area at the high end of x over those at the low end, linear between; from 0 to 1e6.
    double densityRatio = 1;
    std::uint64_t seed = 1;
};

/// Cloud in the form that files and the reconstruction take: three floats per point and per normal.
struct Cloud
{
    std::vector<float> positions;
    std::vector<float> normals;
    /// One mark per point of an open surface: 1 within about one and a half mean point distances of the
    /// border. Empty for a closed surface.
    std::vector<std::uint8_t> boundaryMarks;

    std::size_t size() const { return positions.size() / 3; }
};

/// Exactly `pointNumber` points, made on all threads of `CVescaThreadingTasksHelper::getNumOfPhisicalThread`.
/// The same options give the same cloud on every platform and for any number of threads. Up to 2 microseconds
/// of processor time a point, depending on the shape, and some megabytes a thread beside the cloud.
Cloud sampleCloud(Shape const & shape, SamplingOptions const & options);

} // namespace qz_sampling
