// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <Distributed/DealtPoints.h>
#include <Distributed/RankFolder.h>
#include <gtest/gtest.h>
#include <support/SampledClouds.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace
{

using namespace QZmath::Distributed;
using Place = std::array<double, 3>;

// Finds the nearest of many places, up to the edge of a cell.
class NearPlaces
{
public:
    NearPlaces(std::vector<Place> const & places, double cell) : m_cell(cell)
    {
        for (Place const & place : places)
            m_cells[indexOf(place, 0, 0, 0)].push_back(place);
    }
    double distance(Place const & place) const
    {
        double least = m_cell;
        for (long step = 0; step < 27; ++step) {
            auto const found = m_cells.find(indexOf(place, step / 9 - 1, step / 3 % 3 - 1, step % 3 - 1));
            if (found == m_cells.end())
                continue;
            for (Place const & other : found->second)
                least = std::min(least,
                                 std::hypot(other[0] - place[0], other[1] - place[1], other[2] - place[2]));
        }
        return least;
    }

private:
    using Index = std::array<long, 3>;
    Index indexOf(Place const & place, long x, long y, long z) const
    {
        return {std::lround(std::floor(place[0] / m_cell)) + x,
                std::lround(std::floor(place[1] / m_cell)) + y,
                std::lround(std::floor(place[2] / m_cell)) + z};
    }

    double m_cell;
    std::map<Index, std::vector<Place>> m_cells;
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

    // The greatest distance of a vertex near samples from the nearest one of another mesh, and the share of
    // all vertices that are a twentieth of a cell off.
    std::array<double, 2> distancesTo(WholeMesh const & other, PointCloudSamples const & cloud,
                                      double cell) const
    {
        NearPlaces const vertexAt(other.vertices, cell);
        std::vector<Place> points;
        for (std::array<float, 3> const & point : cloud.points)
            points.push_back({point[0], point[1], point[2]});
        NearPlaces const sampleAt(points, cell);
        std::array<double, 2> result = {0.0, 0.0};
        for (Place const & place : vertices) {
            double const distance = vertexAt.distance(place);
            result[1] += distance > 0.05 * cell ? 1.0 / static_cast<double>(vertices.size()) : 0.0;
            if (sampleAt.distance(place) < cell)
                result[0] = std::max(result[0], distance);
        }
        return result;
    }
};

#ifdef __SANITIZE_ADDRESS__
unsigned const clouds = 25; // each takes ten times as long
#else
unsigned const clouds = 200;
#endif

PointCloudSamples randomCloud(std::mt19937 & random)
{
    char const * const shapes[] = {"sphere", "torus", "sheet", "genus3", "plate", "box", "slope"};
    char const * const shape = shapes[random() % 7];
    // Some fill their leaf cells, so that the ranks take a narrow margin.
    std::size_t const points = random() % 10 == 0 ? 20000 : 20 + random() % 1500;
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
    for (unsigned seed = 1; seed <= clouds; ++seed) {
        std::mt19937 random(seed);
        PointCloudSamples const cloud = randomCloud(random);
        DistributedOptions options;
        options.depth = 3 + static_cast<int>(random() % 4);
        options.trimDistance = random() % 3 == 0 ? -1.0 : 0.5 + static_cast<double>(random() % 8);
        options.refine = random() % 2 == 0;
        options.vertexNormals = random() % 2 == 0;
        options.smallestComponent = random() % 2 == 0 ? 0.0 : 0.05;
        options.threads = 1;
        auto const run = [&](Communicator const & group, MeshPart & mesh, DistributedReport & report) {
            qz_test::DealtPoints const own(cloud, group.rank(), group.size(), seed);
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
        std::optional<WholeMesh> mesh;
        if (failure.empty())
            mesh.emplace(ranks, part);
        meshes += mesh.has_value();
        // Each rank compares some.
        if (static_cast<int>(seed) % ranks.size() != ranks.rank())
            continue;
        EXPECT_EQ(failure, run(self, alone, aloneReport)) << seed;
        if (!mesh)
            continue;
        WholeMesh const expected(self, alone);
        EXPECT_EQ(mesh->vertices.size(), expected.vertices.size()) << seed;
        EXPECT_EQ(mesh->triangles.size(), expected.triangles.size()) << seed;
        EXPECT_EQ(report.isClosed, aloneReport.isClosed) << seed;
        EXPECT_EQ(report.componentsKept, aloneReport.componentsKept) << seed;
        // Far from samples the function is so flat that its last bits move the level set.
        for (auto const & distances : {mesh->distancesTo(expected, cloud, report.leafCell),
                                       expected.distancesTo(*mesh, cloud, report.leafCell)}) {
            EXPECT_LT(distances[0], 1e-3 * report.leafCell) << seed;
            EXPECT_LT(distances[1], 1e-3) << seed;
        }
    }
    EXPECT_GT(4 * meshes, 3 * static_cast<int>(clouds));
}

// A run is stopped on one rank, and goes on from what it left on another number of ranks: from the samples
// alone, and from the solution. Damaged files are refused.
TEST(DistributedReconstruction, GoesOnFromACheckpoint)
{
    Communicator const ranks(MPI_COMM_WORLD);
    Communicator const self(MPI_COMM_SELF);
    qz_test::RankFolder const made(ranks);
    std::string const folder = made.path("checkpoint");
    PointCloudSamples const cloud = qz_test::sampledShape("genus3", 3000);
    DistributedOptions options;
    options.depth = 6;
    options.threads = 1;
    qz_test::DealtPoints const own(cloud, ranks.rank(), ranks.size(), 5);
    MeshPart whole;
    reconstructDistributed(ranks.get(), own.view(), options, whole);
    WholeMesh const expected(ranks, whole);

    struct StopsAtOnce : CProgressCounter
    {
        void onPosition(double position) override
        {
            if (position > 0.4)
                interrupt();
        }
    } stopping;
    options.checkpoint = folder;
    MeshPart part;
    bool const isLast = ranks.rank() + 1 == ranks.size();
    EXPECT_THROW(
        reconstructDistributed(ranks.get(), own.view(), options, part, nullptr, isLast ? &stopping : nullptr),
        CUserIntrException);
    auto const resume = [&](Communicator const & group) {
        DistributedOptions from;
        from.resume = folder;
        from.threads = 1;
        DistributedReport report;
        reconstructDistributed(group.get(), QZmath::PointCloudView(), from, part, &report);
        WholeMesh const mesh(group, part);
        EXPECT_EQ(mesh.triangles.size(), expected.triangles.size());
        EXPECT_LT(mesh.distancesTo(expected, cloud, report.leafCell)[0], 1e-3 * report.leafCell);
        return report.iterations;
    };
    EXPECT_GT(resume(self), 0); // only the samples were there
    MPI_Barrier(ranks.get());
    reconstructDistributed(ranks.get(), own.view(), options, part);
    EXPECT_EQ(resume(self), 0);
    EXPECT_EQ(resume(ranks), 0);

    MPI_Barrier(ranks.get());
    if (ranks.rank() == 0) {
        std::fstream file(folder + "/solution-00000.bin", std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(5000);
        file.put('x');
    }
    MPI_Barrier(ranks.get());
    EXPECT_THROW(resume(ranks), RankError);
    MPI_Barrier(ranks.get());
}

// What was seen from the air needs no normals: the mesh is that of the true ones.
TEST(DistributedReconstruction, MakesNormalsTowardsAViewpoint)
{
    Communicator const ranks(MPI_COMM_WORLD);
    PointCloudSamples const cloud = qz_test::sampledShape("sheet", 6000);
    qz_test::DealtPoints const own(cloud, ranks.rank(), ranks.size(), 5);
    DistributedOptions options;
    options.depth = 6;
    options.threads = 1;
    DistributedReport report;
    MeshPart part;
    reconstructDistributed(ranks.get(), own.view(), options, part, &report);
    WholeMesh const expected(ranks, part);
    QZmath::PointCloudView bare = own.view();
    bare.normals = nullptr;
    EXPECT_THROW(reconstructDistributed(ranks.get(), bare, options, part), RankError);
    options.viewpoint = {0.0, 0.0, 100.0};
    options.hasViewpoint = true;
    reconstructDistributed(ranks.get(), bare, options, part);
    WholeMesh const mesh(ranks, part);
    EXPECT_NEAR(static_cast<double>(mesh.triangles.size()), static_cast<double>(expected.triangles.size()),
                0.03 * static_cast<double>(expected.triangles.size()));
    EXPECT_LT(mesh.distancesTo(expected, cloud, report.leafCell)[0], 0.9 * report.leafCell);
    qz_test::DealtPoints const some(cloud, 0, 1, 5);
    EXPECT_THROW(reconstructDistributed(ranks.get(), ranks.rank() == 0 ? some.view() : bare, options, part),
                 RankError);
}
