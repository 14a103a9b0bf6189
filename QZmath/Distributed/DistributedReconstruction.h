// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Export.h>
#include <QZmath/Files/PointCloud.h>
#include <QZmath/Foundation/PointCloudView.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <mpi.h>

class CProgressCounter;

/// One surface from a cloud that is spread over the ranks of a cluster.
///
///     MPI_Init(&argc, &argv);
///     QZmath::PointCloudView own;                       // the points that this rank has, with normals
///     QZmath::Distributed::MeshPart mesh;
///     QZmath::Distributed::reconstructDistributed(MPI_COMM_WORLD, own, {}, mesh);
///
/// Which rank has which points does not matter; they may overlap in space. Every call here is collective. The
/// cloud needs normals, or a place that it was seen from, as no rank sees enough of it to tell inside from
/// outside.
namespace QZmath::Distributed
{

struct DistributedOptions
{
    /// Depth of the octree, 2 to 21: the leaf lattice has 2^depth cells along the cloud's longest side. 0:
    /// that which `cellSize` says.
    int depth = 0;
    /// With depth 0: the least depth whose leaf cells are at most this large, in units of the cloud.
    double cellSize = 0;

    /// The surface is cut off farther than so many leaf cells from all samples, or spacings of the samples
    /// where these are larger, 0.5 to 100; so gaps of twice that width are closed, and no wider ones. Below
    /// 0: it is followed wherever it goes, and all gaps close. Never farther than 100 leaf cells.
    double trimDistance = 4;
    /// Pieces with a smaller share of the triangles are dropped, 0 to 1.
    double smallestComponent = 0.001;

    /// Where the points were seen from, in units of the cloud: those that come without normals get that of
    /// the plane of their neighbours, towards this place. For what was seen from the air, one far above.
    /// Points with normals keep theirs.
    std::array<double, 3> viewpoint{};
    bool hasViewpoint = false;
    int normalNeighbours = 20; ///< points that an estimated normal is taken from, 3 to 1000

    bool refine = true; ///< `VolTr::CVolTriangulationParams::refine`
    bool vertexNormals = true;
    bool vertexColors = true; ///< where the samples have some

    int threads = 0;      ///< of each rank; 0: the cores of its machine by the ranks on it
    double tolerance = 0; ///< of the solver; 0: that of `VolTr::CVolTriangulationParams`
    int maxIterations = 200;

    /// Folder for what is needed to go on after a fault; empty: none is written.
    std::string checkpoint;
    /// Folder of an earlier run to go on from, whose points are taken and no others; empty: none.
    std::string resume;

    /// \throws ReconstructionError that names the first option out of its range
    QZMATH_DISTRIBUTED_API void check() const;
};

/// A rank's part of the mesh. Vertices are numbered over all ranks: a rank has those from `firstVertex` on,
/// and its triangles may name vertices of others.
struct MeshPart
{
    std::array<double, 3> origin{};      ///< the place of a vertex is `origin + position`
    std::vector<float> positions;        ///< 3 a vertex
    std::vector<float> normals;          ///< 3 a vertex, or empty
    std::vector<std::uint8_t> colors;    ///< 3 a vertex, or empty
    std::vector<std::int64_t> triangles; ///< 3 numbers of vertices a triangle
    std::int64_t firstVertex = 0;
    std::int64_t firstTriangle = 0;
    std::int64_t vertices = 0;      ///< of the whole mesh
    std::int64_t triangleCount = 0; ///< of the whole mesh

    std::size_t ownVertices() const { return positions.size() / 3; }
    std::size_t ownTriangles() const { return triangles.size() / 3; }
};

/// What a call found, the same on all ranks but for what is of a rank.
struct DistributedReport
{
    int depth = 0;
    double spacing = 0;  ///< of the samples on the surface, in units of the cloud; 0 when nothing is cut off
    double leafCell = 0; ///< edge, in units of the cloud
    std::int64_t samples = 0;
    std::int64_t leafCells = 0;
    std::int64_t unknowns = 0;
    int unitDepth = 0;        ///< of the cells that the partition is made of
    int replicatedDepths = 0; ///< coarse depths that every rank has all of
    std::int64_t replicatedUnknowns = 0;
    double sampleBalance = 0; ///< most samples of a rank over the mean
    double cellBalance = 0;   ///< most leaf cells of a rank over the mean
    int iterations = 0;
    double relativeResidual = 0;
    double isoValue = 0;
    std::int64_t bytesPerIteration = 0;    ///< that the rank with most sends
    std::int64_t messagesPerIteration = 0; ///< likewise
    std::int64_t componentsFound = 0;
    std::int64_t componentsKept = 0;
    int surfaceRounds = 0; ///< in which the surface was followed from rank to rank
    bool isClosed = false; ///< the mesh has no border
    std::vector<std::string> warnings;

    struct Phase
    {
        std::string name;
        double seconds = 0;          ///< of the slowest rank
        std::int64_t peakMemory = 0; ///< resident bytes of the largest rank, up to its end
    };
    std::vector<Phase> phases;
};

/// The surface of the points of all ranks. Collective; initialises PETSc over `comm` when nobody has.
///
/// The mesh does not depend on which rank had which points. On the number of ranks it does, as sums over the
/// borders between ranks are rounded otherwise: vertices near samples move by less than a thousandth of a
/// leaf cell; far from all, where the function is flat, by up to some hundredths.
///
/// \param mesh     the part of this rank
/// \param report   may be null
/// \param progress of this rank; may be null. An interruption of one rank ends all.
/// \throws RankError on all ranks, of the lowest rank that failed
/// \throws CUserIntrException on all ranks
QZMATH_DISTRIBUTED_API void reconstructDistributed(MPI_Comm comm, PointCloudView const & localPoints,
                                                   DistributedOptions const & options, MeshPart & mesh,
                                                   DistributedReport * report = nullptr,
                                                   CProgressCounter * progress = nullptr);

/// The same with points that are not needed afterwards: they are freed once they have been sent.
QZMATH_DISTRIBUTED_API void reconstructDistributed(MPI_Comm comm, PointCloud && localPoints,
                                                   DistributedOptions const & options, MeshPart & mesh,
                                                   DistributedReport * report = nullptr,
                                                   CProgressCounter * progress = nullptr);

} // namespace QZmath::Distributed
