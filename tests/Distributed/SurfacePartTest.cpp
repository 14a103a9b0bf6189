// SPDX-License-Identifier: Apache-2.0
#include "SurfaceScene.h"

#include <QZmath/VolTriang/Bricks/BrickLattice.h>

#include <VolTriang/Runs.h>
#include <support/SampledClouds.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>

using namespace QZmath::Distributed;
using namespace qz_test;

namespace
{

PointCloudSamples joined(std::vector<PointCloudSamples> const & clouds,
                         std::vector<std::array<float, 4>> const & placesAndScales)
{
    PointCloudSamples all;
    for (std::size_t n = 0; n < clouds.size(); ++n) {
        std::array<float, 4> const & frame = placesAndScales[n];
        for (std::size_t point = 0; point < clouds[n].points.size(); ++point) {
            std::array<float, 3> place = clouds[n].points[point];
            for (std::size_t axis = 0; axis < 3; ++axis)
                place[axis] = place[axis] * frame[3] + frame[axis];
            all.add(place, clouds[n].normals[point]);
        }
    }
    return all;
}

// Calls check(result) on the first rank for groups of several sizes, after it is known to be the same mesh,
// to the bit, as that of one rank.
template <class Check>
void forGroups(WholeCloud const & whole, DistributedOptions const & options, int unitDepth,
               Check const & check)
{
    std::vector<std::array<double, 9>> expected;
    std::size_t vertices = 0;
    for (int const size : {1, 2, 3, 5, 8}) {
        if (size > RankGroup::worldSize())
            break;
        RankGroup const group(size);
        if (!group.isMember())
            continue;
        SurfaceResult const result =
            extract(whole, group.ranks(), partitionOf(whole, unitDepth, size), options);
        if (group.ranks().rank() != 0)
            continue;
        SCOPED_TRACE("ranks " + std::to_string(size));
        std::vector<std::array<double, 9>> const found = sortedTriangles(result.mesh);
        if (size == 1) {
            expected = found;
            vertices = result.mesh.vertices.size();
        }
        EXPECT_EQ(found.size(), expected.size());
        EXPECT_TRUE(found == expected);
        EXPECT_EQ(result.mesh.vertices.size(), vertices);
        EXPECT_EQ(result.report.isClosed, examine(result.mesh).boundaryEdges == 0);
        check(result);
    }
}

// Of the vertices of a mesh from the triangles of another.
double greatestDistance(Mesh const & from, Mesh const & to)
{
    MeshDistance const distance(to);
    double greatest = 0.0;
    for (REmath::Point3D_d const & vertex : from.vertices)
        greatest = std::max(greatest, distance(vertex));
    return greatest;
}

DistributedOptions plainOptions(double trimDistance)
{
    DistributedOptions options;
    options.trimDistance = trimDistance;
    options.refine = false;
    return options;
}

} // namespace

TEST(SurfacePart, FindsTheSameClosedSurfaceOnAnyNumberOfRanks)
{
    WholeCloud const whole(sampledShape("sphere", 20000), 6);
    for (int const unitDepth : {2, 4, 6}) {
        forGroups(whole, plainOptions(-1.0), unitDepth, [&](SurfaceResult const & result) {
            Topology const topology = examine(result.mesh);
            EXPECT_TRUE(topology.isClosed());
            EXPECT_EQ(topology.eulerNumber(), 2);
            EXPECT_EQ(topology.unusedVertices, 0);
            EXPECT_TRUE(result.report.isClosed);
            EXPECT_EQ(result.report.componentsFound, 1);
            double greatest = 0.0;
            for (REmath::Point3D_d const & vertex : result.mesh.vertices)
                greatest =
                    std::max(greatest, std::fabs(std::sqrt(vertex.x() * vertex.x() + vertex.y() * vertex.y() +
                                                           vertex.z() * vertex.z()) -
                                                 1.0));
            EXPECT_LT(greatest, whole.leafCell());
        });
    }
}

TEST(SurfacePart, FollowsPiecesAndDropsSpecks)
{
    // Two spheres, and a speck on the scale of a few cells.
    WholeCloud const whole(
        joined({sampledShape("sphere", 8000), sampledShape("torus", 9000), sampledShape("sphere", 200)},
               {{0.0f, 0.0f, 0.0f, 1.0f}, {2.5f, 0.3f, 0.2f, 0.8f}, {1.0f, 1.6f, -0.5f, 0.1f}}),
        7);
    DistributedOptions options = plainOptions(2.0);
    options.smallestComponent = 0.0;
    forGroups(whole, options, 4, [&](SurfaceResult const & result) {
        Topology const topology = examine(result.mesh);
        EXPECT_TRUE(topology.isClosed());
        EXPECT_EQ(topology.components, 3);
        EXPECT_EQ(topology.eulerNumber(), 4);
        EXPECT_EQ(result.report.componentsFound, 3);
        EXPECT_EQ(result.report.componentsKept, 3);
    });
    options.smallestComponent = 0.05;
    forGroups(whole, options, 4, [&](SurfaceResult const & result) {
        EXPECT_EQ(examine(result.mesh).components, 2);
        EXPECT_EQ(result.report.componentsFound, 3);
        EXPECT_EQ(result.report.componentsKept, 2);
    });
}

TEST(SurfacePart, CutsAnOpenSheetAtTheTrimDistance)
{
    WholeCloud const whole(sampledShape("sheet", 20000), 6);
    double const distance = 1.5;
    forGroups(whole, plainOptions(distance), 4, [&](SurfaceResult const & result) {
        Topology const topology = examine(result.mesh);
        EXPECT_EQ(topology.badEdges, 0);
        EXPECT_EQ(topology.brokenTriangles, 0);
        EXPECT_EQ(topology.components, 1);
        EXPECT_EQ(topology.eulerNumber(), 1);
        EXPECT_FALSE(result.report.isClosed);
        double greatest = 0.0;
        for (REmath::Point3D_d const & vertex : result.mesh.vertices) {
            double nearest = 1e30;
            for (std::array<float, 3> const & point : whole.samples.points) {
                double const x = vertex.x() - point[0];
                double const y = vertex.y() - point[1];
                double const z = vertex.z() - point[2];
                nearest = std::min(nearest, x * x + y * y + z * z);
            }
            greatest = std::max(greatest, nearest);
        }
        double const limit = distance * whole.leafCell();
        EXPECT_LT(std::sqrt(greatest), 1.01 * limit);
        EXPECT_GT(std::sqrt(greatest), 0.99 * limit);
    });
}

TEST(SurfacePart, GivesNormalsAndColours)
{
    WholeCloud whole(sampledShape("sphere", 12000), 6);
    for (std::array<float, 3> const & point : whole.samples.points) {
        whole.colors.push_back(point[0] > 0.0f ? 200 : 20);
        whole.colors.push_back(100);
        whole.colors.push_back(7);
    }
    forGroups(whole, plainOptions(-1.0), 3, [&](SurfaceResult const & result) {
        ASSERT_EQ(result.normals.size(), 3 * result.mesh.vertices.size());
        ASSERT_EQ(result.colors.size(), result.normals.size());
        double least = 1.0;
        bool isColoured = true;
        for (std::size_t n = 0; n < result.mesh.vertices.size(); ++n) {
            REmath::Point3D_d const & place = result.mesh.vertices[n];
            double const length =
                std::sqrt(place.x() * place.x() + place.y() * place.y() + place.z() * place.z());
            double const along = (place.x() * result.normals[3 * n] + place.y() * result.normals[3 * n + 1] +
                                  place.z() * result.normals[3 * n + 2]) /
                                 length;
            least = std::min(least, along);
            bool const isClear = std::fabs(place.x()) > 3.0 * whole.leafCell();
            isColoured = isColoured && result.colors[3 * n + 1] == 100 && result.colors[3 * n + 2] == 7 &&
                         (!isClear || result.colors[3 * n] == (place.x() > 0.0 ? 200 : 20));
        }
        EXPECT_GT(least, 0.97);
        EXPECT_TRUE(isColoured);
    });
}

// Ranks without samples, without territory, and with a territory that nothing runs through.
TEST(SurfacePart, LeavesRanksWithoutAPart)
{
    WholeCloud const whole(sampledShape("sphere", 3000), 5);
    RankGroup const group(std::min(3, RankGroup::worldSize()));
    if (!group.isMember())
        return;
    Communicator const & ranks = group.ranks();
    SurfaceResult const all =
        extract(whole, ranks, partitionOf(whole, 2, ranks.size(), true), plainOptions(-1.0));
    EXPECT_EQ(all.trianglesByRank[0], static_cast<std::int64_t>(all.mesh.triangles.size()));
    EXPECT_TRUE(examine(all.mesh).isClosed());
    // More ranks than units.
    SurfaceResult const few = extract(whole, ranks, partitionOf(whole, 0, ranks.size()), plainOptions(-1.0));
    EXPECT_EQ(sortedTriangles(few.mesh), sortedTriangles(all.mesh));
}

TEST(SurfacePart, EndsOnAllRanksWhenNothingIsLeft)
{
    WholeCloud const whole(sampledShape("sphere", 3000), 5);
    RankGroup const group(std::min(3, RankGroup::worldSize()));
    if (!group.isMember())
        return;
    DistributedOptions options = plainOptions(-1.0);
    options.smallestComponent = 1.1; // more than all
    try {
        extract(whole, group.ranks(), partitionOf(whole, 3, group.ranks().size()), options);
        ADD_FAILURE();
    } catch (RankError const & error) {
        EXPECT_EQ(error.kind(), RankError::Kind::failed);
    }
}

// The sums over coarse lattices are rounded otherwise on other numbers of ranks: what differs is far below a
// thousandth of a cell. What all ranks decide together is what one process decides.
TEST(SurfacePart, RefinesAlikeOnAnyNumberOfRanks)
{
    for (auto const & [shape, noise] : {std::pair("block", 0.0), std::pair("genus3", 0.005)}) {
        SCOPED_TRACE(shape);
        WholeCloud const whole(sampledShape(shape, 30000, noise), 7);
        DistributedOptions options = plainOptions(4.0);
        options.refine = true;
        SurfaceResult expected;
        for (int const size : {1, 3, 8}) {
            if (size > RankGroup::worldSize())
                break;
            RankGroup const group(size);
            if (!group.isMember())
                continue;
            SurfaceResult result = extract(whole, group.ranks(), partitionOf(whole, 4, size), options);
            if (group.ranks().rank() != 0)
                continue;
            SCOPED_TRACE("ranks " + std::to_string(size));
            EXPECT_TRUE(examine(result.mesh).isClosed());
            EXPECT_EQ(examine(result.mesh).eulerNumber(), std::string(shape) == "block" ? 2 : -4);
            EXPECT_EQ(std::count(result.trianglesByRank.begin(), result.trianglesByRank.end(), 0), 0);
            if (size == 1) {
                expected = std::move(result);
                VolTr::CVolTriangulationParams params = whole.params;
                params.setAllComponents(true);
                params.setRefine(true);
                Mesh const alone = reconstruct(whole.samples, params, 1).mesh;
                // Half a cube at creases, which another lattice cuts elsewhere.
                EXPECT_LT(greatestDistance(alone, expected.mesh), 1.0 * whole.leafCell());
                continue;
            }
            EXPECT_EQ(result.mesh.triangles.size(), expected.mesh.triangles.size());
            EXPECT_EQ(result.mesh.vertices.size(), expected.mesh.vertices.size());
            EXPECT_LT(greatestDistance(result.mesh, expected.mesh), 1e-4 * whole.leafCell());
        }
    }
}

namespace
{

// Fails when the position reaches a place.
class FailingProgress : public CProgressCounter
{
public:
    explicit FailingProgress(double place) : m_place(place) {}

private:
    void onPosition(double overall) override
    {
        if (overall >= m_place)
            throw std::runtime_error("no more");
    }
    double m_place;
};

} // namespace

// Wherever one rank fails, all end with what it failed with.
TEST(SurfacePart, EndsOnAllRanksWhereverOneFails)
{
    WholeCloud const whole(sampledShape("sphere", 3000), 5);
    RankGroup const group(std::min(3, RankGroup::worldSize()));
    if (!group.isMember())
        return;
    Communicator const & ranks = group.ranks();
    DistributedOptions options = plainOptions(2.0);
    options.refine = true;
    for (double place = 0.0; place < 0.9; place += 0.06) {
        SCOPED_TRACE(place);
        int const failing = ranks.size() - 1;
        FailingProgress failure(ranks.rank() == failing ? place : 2.0);
        try {
            extract(whole, ranks, partitionOf(whole, 3, ranks.size()), options, &failure);
            ADD_FAILURE();
        } catch (RankError const & error) {
            EXPECT_EQ(error.rank(), failing);
            EXPECT_EQ(error.cause(), "no more");
        }
    }
    FailingProgress interrupted(2.0);
    if (ranks.rank() == 0)
        interrupted.interrupt();
    EXPECT_THROW(extract(whole, ranks, partitionOf(whole, 3, ranks.size()), options, &interrupted),
                 CUserIntrException);
}

// Territories of any shape, also none, that meet in any way.
TEST(SurfacePart, DoesNotDependOnTheTerritories)
{
    std::mt19937 random(5);
    auto const uniform = [&](double low, double high) {
        return static_cast<float>(low + (high - low) * static_cast<double>(random() % 100000) / 100000.0);
    };
    char const * const shapes[] = {"sphere", "torus", "block", "sheet", "bumpy-sphere", "thin-plate"};
    for (int round = 0; round < 24; ++round) {
        SCOPED_TRACE(round);
        std::vector<PointCloudSamples> clouds;
        std::vector<std::array<float, 4>> places;
        bool const isSparse = round % 4 == 3; // so that samples matter beyond the margin
        for (int pieces = 1 + static_cast<int>(random() % 3); pieces > 0; --pieces) {
            std::size_t const points = isSparse ? 150 : 1500 + random() % 2000;
            clouds.push_back(sampledShape(shapes[random() % 6], points, uniform(0.0, 0.01)));
            places.push_back({uniform(-1, 1), uniform(-1, 1), uniform(-1, 1), uniform(0.3, 1.0)});
        }
        WholeCloud const whole(joined(clouds, places), isSparse ? 7 : 5 + static_cast<int>(random() % 2));
        DistributedOptions options = plainOptions(isSparse            ? uniform(9.0, 40.0)
                                                  : random() % 3 == 0 ? -1.0
                                                                      : uniform(0.5, 5.0));
        options.refine = random() % 2 == 0;
        options.smallestComponent = random() % 2 == 0 ? 0.0 : 0.02;
        int const unitDepth = 1 + static_cast<int>(random() % 5);
        int const size = 2 + static_cast<int>(random() % 7);
        std::vector<std::uint64_t> firstKeys;
        for (int rank = 1; rank < size; ++rank)
            firstKeys.push_back(random() % ((std::uint64_t{1} << 3 * unitDepth) + 3));
        std::sort(firstKeys.begin(), firstKeys.end());
        if (size > RankGroup::worldSize())
            continue;
        RankGroup const one(1), several(size);
        if (!several.isMember())
            continue;
        SurfaceResult expected;
        if (one.isMember())
            expected = extract(whole, one.ranks(), Partition(unitDepth, {}), options);
        SurfaceResult const found = extract(whole, several.ranks(), Partition(unitDepth, firstKeys), options);
        if (!one.isMember())
            continue;
        EXPECT_EQ(found.mesh.vertices.size(), expected.mesh.vertices.size());
        EXPECT_EQ(found.mesh.triangles.size(), expected.mesh.triangles.size());
        EXPECT_EQ(found.report.componentsFound, expected.report.componentsFound);
        EXPECT_EQ(found.report.componentsKept, expected.report.componentsKept);
        EXPECT_EQ(found.report.isClosed, examine(found.mesh).boundaryEdges == 0);
        EXPECT_EQ(examine(found.mesh).unusedVertices, 0);
        if (options.refine)
            EXPECT_LT(greatestDistance(found.mesh, expected.mesh), 1e-3 * whole.leafCell());
        else
            EXPECT_TRUE(sortedTriangles(found.mesh) == sortedTriangles(expected.mesh));
    }
}

// Each rank has the nodes of the function around its own samples and its margin only: what lies farther off
// does not matter to the last bit, and refined to rounding.
TEST(SurfacePart, NeedsTheFunctionAroundItsTerritoryOnly)
{
    WholeCloud const whole(sampledShape("torus", 60000), 8);
    FunctionMaker const makeFunction = [&](VolTr::COctree const & octree, VolTr::Kernel const & kernel) {
        VolTr::BrickLattice const lattice(octree);
        std::vector<float> amplitudes;
        for (int const node : lattice.nodes()) {
            double place[3];
            octree.getNodePosition(node, place);
            double const wave =
                std::sin(9.0 * place[0]) + std::sin(8.0 * place[1]) + std::sin(7.0 * place[2]);
            double const distance = std::hypot(std::hypot(place[0], place[1]) - 1.0, place[2]) - 0.4;
            bool const isFine = octree.getNodeDepth(node) >= octree.getNodeDepthEnd() - 2;
            amplitudes.push_back(isFine ? static_cast<float>(0.01 * wave - distance) : 0.0f);
        }
        return VolTr::BrickFunction(lattice, octree, kernel.getSummand(0).getMultiplier(0), amplitudes);
    };
    int const size = RankGroup::worldSize();
    RankGroup const one(1), all(size);
    for (bool const isRefined : {false, true}) {
        DistributedOptions options = plainOptions(3.0);
        options.refine = isRefined;
        SurfaceResult expected;
        if (one.isMember())
            expected = extract(whole, one.ranks(), partitionOf(whole, 4, 1), options, nullptr, makeFunction);
        SurfaceResult const found =
            extract(whole, all.ranks(), partitionOf(whole, 4, size), options, nullptr, makeFunction);
        if (!one.isMember())
            continue;
        EXPECT_GT(expected.mesh.triangles.size(), std::size_t{10000});
        EXPECT_EQ(found.mesh.triangles.size(), expected.mesh.triangles.size());
        if (isRefined)
            EXPECT_LT(greatestDistance(found.mesh, expected.mesh), 1e-4 * whole.leafCell());
        else
            EXPECT_TRUE(sortedTriangles(found.mesh) == sortedTriangles(expected.mesh));
    }
}

// Against every unit of the box.
TEST(CubeOwners, FindsTheRanksOfABox)
{
    std::mt19937 random(3);
    for (int round = 0; round < 300; ++round) {
        int const depth = static_cast<int>(random() % 5);
        int const units = 1 << depth;
        std::vector<std::uint64_t> firstKeys;
        for (int rank = 0; rank < static_cast<int>(random() % 7); ++rank)
            firstKeys.push_back(random() % (static_cast<std::uint64_t>(units * units * units) + 2));
        std::sort(firstKeys.begin(), firstKeys.end());
        Partition const partition(depth, firstKeys);
        std::array<int, 3> low;
        std::array<int, 3> high;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = static_cast<int>(random() % static_cast<unsigned>(units));
            high[axis] = low[axis] + static_cast<int>(random() % static_cast<unsigned>(units - low[axis]));
        }
        std::vector<char> expected(static_cast<std::size_t>(partition.ranks()), 0), found(expected);
        std::vector<char> hasUnits(expected);
        for (std::uint64_t key = 0; key < static_cast<std::uint64_t>(units * units * units); ++key) {
            std::array<int, 3> const unit = Partition::unitOf(key);
            std::size_t const owner = static_cast<std::size_t>(partition.ownerOfKey(key));
            hasUnits[owner] = 1;
            bool isInside = true;
            for (std::size_t axis = 0; axis < 3; ++axis)
                isInside = isInside && low[axis] <= unit[axis] && unit[axis] <= high[axis];
            if (isInside)
                expected[owner] = 1;
        }
        forRanksIn(partition, low, high, [&](int first, int last) {
            for (int rank = first; rank <= last; ++rank)
                found[static_cast<std::size_t>(rank)] = hasUnits[static_cast<std::size_t>(rank)];
        });
        EXPECT_EQ(found, expected);
    }
}

// A belt without samples, wider than the margin, and units in the middle of it that ranks have for
// themselves: what supports the surface there are samples of others.
TEST(SurfacePart, IsSupportedBySamplesBeyondTheMargin)
{
    if (RankGroup::worldSize() < 8)
        return;
    PointCloudSamples const full = sampledShape("sphere", 40000);
    PointCloudSamples belted;
    for (std::size_t point = 0; point < full.points.size(); ++point) {
        if (std::fabs(full.points[point][2]) > 0.65f)
            belted.add(full.points[point], full.normals[point]);
    }
    WholeCloud const whole(belted, 7);
    int const unitDepth = 4;
    double const unit = whole.octree->getCellSize(unitDepth);
    Partition const keys(unitDepth, {});
    std::vector<std::uint64_t> firstKeys;
    double const places[3][3] = {{0.54, 0.54, 0.02}, {0.54, -0.54, 0.02}, {-0.54, 0.54, 0.02}};
    for (double const(&place)[3] : places) {
        std::array<int, 3> at;
        for (std::size_t axis = 0; axis < 3; ++axis)
            at[axis] = static_cast<int>((place[axis] - whole.octree->getBoxMin()[axis]) / unit);
        firstKeys.push_back(keys.keyOf(at));
        firstKeys.push_back(keys.keyOf(at) + 1);
    }
    std::sort(firstKeys.begin(), firstKeys.end());
    Partition const partition(unitDepth, firstKeys);
    RankGroup const one(1), several(partition.ranks());
    if (!several.isMember())
        return;
    for (double const distance : {26.0, 44.0}) {
        SurfaceResult expected;
        if (one.isMember())
            expected = extract(whole, one.ranks(), Partition(unitDepth, {}), plainOptions(distance));
        SurfaceResult const found = extract(whole, several.ranks(), partition, plainOptions(distance));
        if (!one.isMember())
            continue;
        EXPECT_TRUE(sortedTriangles(found.mesh) == sortedTriangles(expected.mesh));
        EXPECT_EQ(found.report.isClosed, distance > 40.0);
        // A rank in the middle of the belt has a part of what closes it.
        EXPECT_EQ(found.trianglesByRank[1] > 0, found.report.isClosed);
    }
}
