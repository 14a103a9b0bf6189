// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Surface/CubeOwners.h>
#include <QZmath/Distributed/Surface/SurfacePart.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeFuncBasis.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/BrickPath.h>
#include <QZmath/VolTriang/Stages/BrickedFunction.h>
#include <QZmath/VolTriang/Stages/PathChoice.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <support/Mesh.h>
#include <support/PointCloudSamples.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace qz_test
{

/// A sub-group of the ranks of the program: the first `size` of them.
class RankGroup
{
public:
    explicit RankGroup(int size)
    {
        int rank = 0;
        MPI_Comm_rank(MPI_COMM_WORLD, &rank);
        MPI_Comm_split(MPI_COMM_WORLD, rank < size ? 0 : MPI_UNDEFINED, rank, &m_comm);
        if (m_comm != MPI_COMM_NULL)
            m_ranks = std::make_unique<QZmath::Distributed::Communicator>(m_comm);
    }
    ~RankGroup()
    {
        m_ranks.reset();
        if (m_comm != MPI_COMM_NULL)
            MPI_Comm_free(&m_comm);
    }
    RankGroup(RankGroup const &) = delete;
    RankGroup & operator=(RankGroup const &) = delete;

    bool isMember() const { return m_ranks != nullptr; }
    QZmath::Distributed::Communicator const & ranks() const { return *m_ranks; }

    static int worldSize()
    {
        int size = 0;
        MPI_Comm_size(MPI_COMM_WORLD, &size);
        return size;
    }

private:
    MPI_Comm m_comm = MPI_COMM_NULL;
    std::unique_ptr<QZmath::Distributed::Communicator> m_ranks;
};

/// A cloud and its function, found by this process from all of it.
class WholeCloud
{
public:
    PointCloudSamples samples;
    std::vector<std::uint8_t> colors; ///< 3 a sample, or empty
    VolTr::CVolTriangulationParams params;
    VolTr::SampleDensity density;
    std::unique_ptr<VolTr::COctree> octree;
    std::unique_ptr<VolTr::ImplicitFunction> function;
    double isoValue = 0.0;

    WholeCloud(PointCloudSamples cloud, int depth) : samples(std::move(cloud))
    {
        params.setOctreeDepth(depth);
        params.setAccelerated(true);
        VolTr::Kernel const kernel = VolTr::makeReconstructionKernel(params.getKernelScaleFactor());
        octree = std::make_unique<VolTr::COctree>(&samples, depth, nullptr, params.getUseCenter(), -1);
        VolTr::Basis const basis(kernel, octree.get(), 0);
        VolTr::CReconstructionReport report;
        VolTr::StageContext context = {samples, params, *octree, basis, nullptr, nullptr, nullptr, report, 1};
        VolTr::BrickPath path;
        path.prepare(context);
        int const densityDepth = std::max(octree->getNodeDepthEnd() - 3, octree->getNodeDepthBegin());
        density = VolTr::estimateSampleDensity(samples, *octree, basis, densityDepth, 1, nullptr, nullptr);
        context.density = &density;
        path.splat(context);
        VolTr::RunPhases phases(nullptr, nullptr);
        path.registerPhases(phases);
        path.assemble(context, phases);
        function = path.solve(context);
        isoValue = function->meanAtSamples(context);
    }

    VolTr::BrickFunction const & bricks() const
    {
        return static_cast<VolTr::BrickedFunction const &>(*function).bricks();
    }
    double leafCell() const { return octree->getUnit(); }
};

/// What ranks made of a cloud together; the mesh on the first of them only.
struct SurfaceResult
{
    Mesh mesh;
    std::vector<float> normals;
    std::vector<std::uint8_t> colors;
    QZmath::Distributed::DistributedReport report;
    std::vector<std::int64_t> trianglesByRank;
};

inline QZmath::Distributed::Partition partitionOf(WholeCloud const & whole, int unitDepth, int ranks,
                                                  bool isAllOnFirst = false)
{
    using QZmath::Distributed::Partition;
    if (isAllOnFirst)
        return Partition(unitDepth,
                         std::vector<std::uint64_t>(static_cast<std::size_t>(ranks - 1), ~std::uint64_t{0}));
    Partition const keys(unitDepth, {});
    std::map<std::uint64_t, double> counts;
    int const shift = whole.octree->getLeafCellDepth() - unitDepth;
    for (int sample = 0; sample < whole.samples.pointsNumber(); ++sample) {
        VolTr::CInt3 const cell = whole.octree->getCellOffset(whole.octree->getCellByCoordinates(sample));
        counts[keys.keyOf({cell.x() >> shift, cell.y() >> shift, cell.z() >> shift})] += 1.0;
    }
    std::vector<std::uint64_t> order;
    std::vector<double> weights;
    for (auto const & [key, count] : counts) {
        order.push_back(key);
        weights.push_back(count);
    }
    return Partition(unitDepth, Partition::split(order, weights, ranks));
}

/// The samples of a rank: its own, those within a margin of its territory, and copies of the outermost of
/// all, so that an octree over them has the cube of the whole cloud.
struct RankScene
{
    QZmath::Distributed::RankCloud cloud;
    std::vector<int> numbers; // in the whole cloud

    RankScene(WholeCloud const & whole, QZmath::Distributed::Partition const & partition, int rank,
              QZmath::Distributed::Margins const & margins)
    {
        VolTr::COctree const & octree = *whole.octree;
        std::vector<char> isWanted(whole.samples.points.size(), 0);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            auto const isLess = [axis](auto const & a, auto const & b) { return a[axis] < b[axis]; };
            auto const ends =
                std::minmax_element(whole.samples.points.begin(), whole.samples.points.end(), isLess);
            isWanted[static_cast<std::size_t>(ends.first - whole.samples.points.begin())] = 1;
            isWanted[static_cast<std::size_t>(ends.second - whole.samples.points.begin())] = 1;
        }
        int const shift = octree.getLeafCellDepth() - partition.unitDepth();
        int const reach = margins.samples;
        cloud.margins = margins;
        cloud.total = static_cast<std::int64_t>(isWanted.size());
        for (std::size_t sample = 0; sample < isWanted.size(); ++sample) {
            VolTr::CInt3 const cell =
                octree.getCellOffset(octree.getCellByCoordinates(static_cast<int>(sample)));
            std::array<int, 3> const at = {cell.x(), cell.y(), cell.z()};
            bool const isOwn = partition.ownerOfCell(octree.getLeafCellDepth(), at) == rank;
            QZmath::Distributed::forRanksIn(
                partition, {(at[0] - reach) >> shift, (at[1] - reach) >> shift, (at[2] - reach) >> shift},
                {(at[0] + reach) >> shift, (at[1] + reach) >> shift, (at[2] + reach) >> shift},
                [&](int first, int last) {
                    if (first <= rank && rank <= last)
                        isWanted[sample] = 1;
                });
            if (!isOwn && isWanted[sample] == 0)
                continue;
            numbers.push_back(static_cast<int>(sample));
            cloud.isOwn.push_back(isOwn ? 1 : 0);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                cloud.positions.push_back(whole.samples.points[sample][axis]);
                cloud.normals.push_back(whole.samples.normals[sample][axis]);
                if (!whole.colors.empty())
                    cloud.colors.push_back(whole.colors[3 * sample + axis]);
            }
        }
    }
};

/// Makes the function of a rank from the octree of its samples.
using FunctionMaker = std::function<VolTr::BrickFunction(VolTr::COctree const &, VolTr::Kernel const &)>;

/// \param makeFunction empty, or for other functions than that of the cloud
inline SurfaceResult extract(WholeCloud const & whole, QZmath::Distributed::Communicator const & ranks,
                             QZmath::Distributed::Partition const & partition,
                             QZmath::Distributed::DistributedOptions const & options,
                             CProgressCounter * progress = nullptr, FunctionMaker const & makeFunction = {})
{
    using namespace QZmath::Distributed;
    RankScene const scene(whole, partition, ranks.rank(), wideMargins);
    RankSamples const samples(scene.cloud);
    VolTr::COctree const octree(&samples, whole.params.getOctreeDepth(), nullptr, whole.params.getUseCenter(),
                                -1);
    VolTr::Kernel const kernel = VolTr::makeReconstructionKernel(whole.params.getKernelScaleFactor());
    VolTr::Basis const basis(kernel, &octree, 0);
    std::optional<VolTr::BrickFunction> ownFunction;
    if (makeFunction)
        ownFunction.emplace(makeFunction(octree, kernel));
    VolTr::SampleDensity density;
    for (int const number : scene.numbers)
        density.weights.push_back(whole.density.weights[static_cast<std::size_t>(number)]);
    density.averageDensity = whole.density.averageDensity;
    VolTr::CReconstructionReport report;
    VolTr::StageContext const context = {samples,  whole.params, octree, basis, &density,
                                         progress, nullptr,      report, 1};
    SurfaceResult result;
    MeshPart part;
    extractSurface({ranks, partition, scene.cloud, context, ownFunction ? *ownFunction : whole.bricks(),
                    ownFunction ? 0.0 : whole.isoValue, options},
                   part, result.report);
    std::vector<float> const positions = ranks.gatherToAll(part.positions);
    std::vector<std::int64_t> const triangles = ranks.gatherToAll(part.triangles);
    result.normals = ranks.gatherToAll(part.normals);
    result.colors = ranks.gatherToAll(part.colors);
    result.trianglesByRank = ranks.all(static_cast<std::int64_t>(part.ownTriangles()));
    for (std::size_t n = 0; n < positions.size(); n += 3)
        result.mesh.vertices.emplace_back(positions[n], positions[n + 1], positions[n + 2]);
    for (std::size_t n = 0; n < triangles.size(); n += 3)
        result.mesh.triangles.push_back({static_cast<int>(triangles[n]), static_cast<int>(triangles[n + 1]),
                                         static_cast<int>(triangles[n + 2])});
    return result;
}

/// The triangles of a mesh by the places of their corners, the least corner first: equal for meshes that are
/// the same but for the order and the numbers of their parts.
inline std::vector<std::array<double, 9>> sortedTriangles(Mesh const & mesh)
{
    std::vector<std::array<double, 9>> result;
    for (std::array<int, 3> const & triangle : mesh.triangles) {
        std::array<std::array<double, 3>, 3> corners;
        for (std::size_t k = 0; k < 3; ++k) {
            REmath::Point3D_d const & place = mesh.vertices.at(static_cast<std::size_t>(triangle[k]));
            corners[k] = {place.x(), place.y(), place.z()};
        }
        std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
        std::array<double, 9> flat;
        for (std::size_t n = 0; n < 9; ++n)
            flat[n] = corners[n / 3][n % 3];
        result.push_back(flat);
    }
    std::sort(result.begin(), result.end());
    return result;
}

} // namespace qz_test
