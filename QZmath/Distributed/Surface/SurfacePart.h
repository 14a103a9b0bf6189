// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Cloud/RankCloud.h>
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/Distributed/Ranks/Partition.h>

#include <functional>

namespace VolTr
{
class BrickFunction;
struct StageContext;
} // namespace VolTr

namespace QZmath::Distributed
{

/// What a rank needs to find its part of the surface. It only refers.
struct SurfaceInput
{
    Communicator const & ranks;
    Partition const & partition;
    RankCloud const & cloud; ///< the samples of the rank's territory and of a margin around it
    /// The samples of `cloud`, the octree over the cube of all ranks with the cells of those samples, the
    /// weights of all of them, and the parameters, which are the same on all ranks.
    VolTr::StageContext const & context;
    /// Has the values of the whole function in the territory and in the surface's margin around it.
    VolTr::BrickFunction const & function;
    double isoValue;
    DistributedOptions const & options;
    /// Called when neither the function nor the weights of the samples are needed any more; may be empty.
    std::function<void()> releaseFunction{};
};

/// The surface is cut off at most so many leaf cells from the samples.
double const greatestTrimDistance = 100.0;

/// Finds the surface of the function and divides its mesh among the ranks. Collective.
///
/// The cubes of the polygoniser stand on a lattice that the octree's cube fixes; each belongs to the rank in
/// whose territory its least corner lies. A rank walks over its cubes, and tells the owner of a cube of which
/// it knows that the surface enters it; so on until nobody learns anything. A vertex belongs to the lowest
/// rank that has a triangle with it. Fills the mesh, in the coordinates of the samples and with `origin` 0,
/// and, of the report, what is of the surface.
///
/// \throws RankError on all ranks, CUserIntrException likewise
QZMATH_DISTRIBUTED_API void extractSurface(SurfaceInput const & input, MeshPart & mesh,
                                           DistributedReport & report);

} // namespace QZmath::Distributed
