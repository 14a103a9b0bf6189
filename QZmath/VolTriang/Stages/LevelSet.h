// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>
#include <QZmath/VolTriang/Stages/CubeFrame.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

#include <optional>

namespace VolTr
{

class COctree;
class IInputSamples;

/// The lattice of the polygoniser's cubes.
struct SurfaceLattice
{
    double edge;
    int bounds[3]; ///< cubes on each side of the start point
    REmath::Point3D_d start;
};

/// Where an open surface ends: points that the walk must not cross. Thread-safe.
class SurfaceEnd
{
public:
    SurfaceEnd(IInputSamples const & samples, COctree const & octree, double edge);

    /// A point close to any sample is usable. One farther off is refused when the sample at hand lies on the
    /// border; this is the last sample of the walk inside the outer radius, or the first of the walk when
    /// none is inside.
    bool isBeyond(double const * point) const;

private:
    IInputSamples const & m_samples;
    COctree const & m_octree;
    double m_outerRadius;
    double m_innerRadius;
};

/// Which surface of a function is wanted.
struct LevelSet
{
    double isoValue;
    SurfaceLattice lattice;
    SurfaceEnd const * end; ///< null on a closed surface, where every point is usable
};

/// The lattice of cubes whose cube 0 has its middle on the level set near the start; none, and the reason in
/// the report, when the search met only one side of it.
std::optional<CubeFrame> findSurface(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet,
                                     StageContext const & context);

/// Hands what is wanted of a level set to a sink, with corners and vertices that are evaluated one by one.
/// \return false when no surface was found at the start point
bool polygoniseByCubes(ImplicitFunction::Evaluator & evaluator, LevelSet const & levelSet,
                       StageContext const & context, TriangleSink & sink);

} // namespace VolTr
