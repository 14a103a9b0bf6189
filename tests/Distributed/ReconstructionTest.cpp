// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>
#include <support/SampledClouds.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace
{

using namespace QZmath::Distributed;
using Place = std::array<double, 3>;

// Points with normals that belong to a rank.
struct OwnPoints
{
    std::vector<float> positions, normals;

    // Deals each point out by a throw of dice that all ranks see alike.
    OwnPoints(PointCloudSamples const & cloud, int rank, int ranks, unsigned seed)
    {
        std::mt19937 random(seed);
        bool const toOne = random() % 8 == 0;
        for (std::size_t n = 0; n < cloud.points.size(); ++n) {
            if ((toOne ? ranks - 1 : static_cast<int>(random() % static_cast<unsigned>(ranks))) != rank)
                continue;
            positions.insert(positions.end(), cloud.points[n].begin(), cloud.points[n].end());
            normals.insert(normals.end(), cloud.normals[n].begin(), cloud.normals[n].end());
        }
    }
    QZmath::PointCloudView view() const
    {
        QZmath::PointCloudView cloud;
        cloud.size = positions.size() / 3;
        cloud.positions = positions.data();
        cloud.normals = normals.data();
        return cloud;
    }
};

// The mesh of all ranks, on each.
struct WholeMesh
{
    std::vector<Place> vertices;
    std::vector<std::int64_t> triangles;

    WholeMesh(Communicator const & ranks, MeshPart const & part)
    {
        std::vector<float> const positions = ranks.gatherToAll(part.positions);
        triangles = ranks.gatherToAll(part.triangles);
        for (std::size_t n = 0; n < positions.size(); n += 3)
            vertices.push_back({positions[n], positions[n + 1], positions[n + 2]});
        EXPECT_EQ(static_cast<std::int64_t>(vertices.size()), part.vertices);
        EXPECT_EQ(static_cast<std::int64_t>(triangles.size()), 3 * part.triangleCount);
        EXPECT_TRUE(std::all_of(triangles.begin(), triangles.end(), [&](std::int64_t vertex) {
            return vertex >= 0 && vertex < static_cast<std::int64_t>(vertices.size());
        }));
    }

    // The greatest distance of a vertex of this mesh from the nearest one of another.
    double distanceTo(WholeMesh const & other, double cell) const
    {
        std::map<std::array<long, 3>, std::vector<Place>> near;
        auto const cellOf = [cell](Place const & place, std::array<long, 3> const & step) {
            std::array<long, 3> index;
            for (std::size_t axis = 0; axis < 3; ++axis)
                index[axis] = std::lround(std::floor(place[axis] / cell)) + step[axis];
            return index;
        };
        for (Place const & place : other.vertices)
            near[cellOf(place, {0, 0, 0})].push_back(place);
        double greatest = 0.0;
        for (Place const & place : vertices) {
            double least = cell;
            for (long x = -1; x <= 1; ++x)
                for (long y = -1; y <= 1; ++y)
                    for (long z = -1; z <= 1; ++z) {
                        auto const found = near.find(cellOf(place, {x, y, z}));
                        if (found == near.end())
                            continue;
                        for (Place const & candidate : found->second)
                            least =
                                std::min(least, std::hypot(candidate[0] - place[0], candidate[1] - place[1],
                                                           candidate[2] - place[2]));
                    }
            greatest = std::max(greatest, least);
        }
        return greatest;
    }
};

PointCloudSamples randomCloud(std::mt19937 & random)
{
    char const * const shapes[] = {"sphere", "torus", "sheet", "genus3", "plate", "box", "slope"};
    char const * const shape = shapes[random() % 7];
    std::size_t const points = 20 + random() % 3000;
    PointCloudSamples cloud =
        qz_test::cloudOf(shape, points, {random() % 3 == 0 ? 0.01 : 0.0, random() % 3 == 0 ? 20.0 : 1.0});
    if (random() % 4 == 0) { // a second piece, overlapping or apart
        float const shift = static_cast<float>(random() % 40) * 0.1f;
        PointCloudSamples const piece = qz_test::spiralSphere(static_cast<int>(points / 4 + 4));
        for (std::size_t n = 0; n < piece.points.size(); ++n)
            cloud.add({piece.points[n][0] + shift, piece.points[n][1], piece.points[n][2]}, piece.normals[n]);
    }
    return cloud;
}

} // namespace

// However the points are dealt out, and among how many ranks, the mesh is that of one.
TEST(DistributedReconstruction, OfRandomCloudsIsThatOfOneRank)
{
    Communicator const ranks(MPI_COMM_WORLD);
    Communicator const self(MPI_COMM_SELF);
    int meshes = 0;
    double worst = 0.0;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        PointCloudSamples const cloud = randomCloud(random);
        DistributedOptions options;
        options.depth = 3 + static_cast<int>(random() % 5);
        options.trimDistance = random() % 3 == 0 ? -1.0 : 0.5 + static_cast<double>(random() % 8);
        options.refine = random() % 2 == 0;
        options.vertexNormals = random() % 2 == 0;
        options.smallestComponent = random() % 2 == 0 ? 0.0 : 0.05;
        options.threads = 1;
        auto const run = [&](Communicator const & group, MeshPart & mesh, DistributedReport & report) {
            OwnPoints const own(cloud, group.rank(), group.size(), seed);
            try {
                reconstructDistributed(group.get(), own.view(), options, mesh, &report);
            } catch (RankError const & error) {
                return error.cause();
            }
            return std::string();
        };
        MeshPart part, alone;
        DistributedReport report, aloneReport;
        std::string const failure = run(ranks, part, report);
        ASSERT_EQ(failure, run(self, alone, aloneReport)) << seed;
        if (!failure.empty())
            continue;
        ++meshes;
        WholeMesh const mesh(ranks, part), expected(self, alone);
        EXPECT_EQ(mesh.vertices.size(), expected.vertices.size()) << seed;
        EXPECT_EQ(mesh.triangles.size(), expected.triangles.size()) << seed;
        EXPECT_EQ(report.isClosed, aloneReport.isClosed) << seed;
        EXPECT_EQ(report.componentsKept, aloneReport.componentsKept) << seed;
        double const distance =
            std::max(mesh.distanceTo(expected, report.leafCell), expected.distanceTo(mesh, report.leafCell)) /
            report.leafCell;
        worst = std::max(worst, distance);
        EXPECT_LT(distance, 1e-3) << seed << " trim " << options.trimDistance << " depth " << options.depth << " refine " << options.refine << " points " << cloud.points.size();
    }
    EXPECT_GT(meshes, 150);
    if (ranks.rank() == 0)
        std::printf("%d meshes, at most %.1e leaf cells apart\n", meshes, worst);
}
