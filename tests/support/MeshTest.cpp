// SPDX-License-Identifier: Apache-2.0
#include <support/Frames.h>
#include <support/Mesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using qz_test::distanceToTriangle;
using qz_test::Mesh;
using qz_test::Topology;
using REmath::Point3D_d;

namespace
{

Mesh tetrahedron()
{
    Mesh mesh;
    mesh.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    mesh.triangles = {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {2, 0, 3}};
    return mesh;
}

// A second copy, with `shared` of its first vertices identified with those of the first copy.
void appendCopy(Mesh & mesh, Mesh const & copy, int shared)
{
    int const offset = static_cast<int>(mesh.vertices.size()) - shared;
    mesh.vertices.insert(mesh.vertices.end(), copy.vertices.begin() + shared, copy.vertices.end());
    for (std::array<int, 3> triangle : copy.triangles) {
        for (int & vertex : triangle)
            vertex = vertex < shared ? vertex : vertex + offset;
        mesh.triangles.push_back(triangle);
    }
}

// Ring of n x m quadrangles closed in both directions.
Mesh gridTorus(int n, int m)
{
    Mesh mesh;
    mesh.vertices.resize(static_cast<std::size_t>(n * m));
    auto const at = [&](int i, int j) { return i % n * m + j % m; };
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < m; ++j) {
            mesh.triangles.push_back({at(i, j), at(i + 1, j), at(i + 1, j + 1)});
            mesh.triangles.push_back({at(i, j), at(i + 1, j + 1), at(i, j + 1)});
        }
    }
    return mesh;
}

} // namespace

TEST(MeshScores, ClosedMeshes)
{
    Topology const simple = examine(tetrahedron());
    EXPECT_TRUE(simple.isClosed());
    EXPECT_EQ(simple.eulerNumber(), 2);
    EXPECT_EQ(simple.components, 1);
    EXPECT_NEAR(signedVolume(tetrahedron()), 1.0 / 6, 1e-15);
    EXPECT_NEAR(area(tetrahedron()), 1.5 + std::sqrt(3.0) / 2, 1e-15);

    Topology const torus = examine(gridTorus(5, 4));
    EXPECT_TRUE(torus.isClosed());
    EXPECT_EQ(torus.eulerNumber(), 0);

    Mesh two = tetrahedron();
    appendCopy(two, gridTorus(4, 4), 0);
    EXPECT_TRUE(examine(two).isClosed());
    EXPECT_EQ(examine(two).components, 2);
}

TEST(MeshScores, FaultsAreNamed)
{
    Mesh open = tetrahedron();
    open.triangles.pop_back();
    EXPECT_FALSE(examine(open).isClosed());
    EXPECT_TRUE(examine(open).isManifold());
    EXPECT_EQ(examine(open).boundaryEdges, 3);
    EXPECT_EQ(boundaryVertices(open), (std::vector<int>{0, 2, 3}));

    Mesh flipped = tetrahedron();
    std::swap(flipped.triangles[0][0], flipped.triangles[0][1]);
    EXPECT_EQ(examine(flipped).badEdges, 3);

    Mesh kissing = tetrahedron();
    appendCopy(kissing, tetrahedron(), 1);
    EXPECT_EQ(examine(kissing).badVertices, 1);
    EXPECT_EQ(examine(kissing).components, 1);
    EXPECT_FALSE(examine(kissing).isClosed());

    Mesh hinged = tetrahedron();
    appendCopy(hinged, tetrahedron(), 2);
    EXPECT_EQ(examine(hinged).badEdges, 1);

    Mesh doubled = tetrahedron();
    doubled.triangles.push_back(doubled.triangles[0]);
    EXPECT_EQ(examine(doubled).badEdges, 3);

    Mesh broken = tetrahedron();
    broken.triangles.push_back({0, 0, 1});
    broken.triangles.push_back({0, 1, 4});
    broken.vertices.insert(broken.vertices.end(), 1, Point3D_d());
    broken.triangles.push_back({0, 1, 5});
    EXPECT_EQ(examine(broken).brokenTriangles, 2);
    EXPECT_FALSE(examine(broken).isClosed());
}

TEST(MeshScores, EdgeDistances)
{
    std::vector<int> const distances = edgeDistances(gridTorus(6, 6), {0});
    // Along a row: 0 1 2 3 2 1.
    EXPECT_EQ(std::vector<int>(distances.begin(), distances.begin() + 6),
              (std::vector<int>{0, 1, 2, 3, 2, 1}));
    EXPECT_EQ(edgeDistances(tetrahedron(), {})[2], -1);
}

TEST(MeshScores, GridDistanceAgreesWithAllTriangles)
{
    qz_sampling::Random random(3);
    for (int round = 0; round < 6; ++round) {
        Mesh mesh;
        qz_test::Frame const frame = qz_test::randomFrame(random, 5);
        int const triangles = round == 0 ? 1 : 300;
        for (int t = 0; t < triangles; ++t) {
            Point3D_d const centre(random.uniform(-3, 3), random.uniform(-1, 1), random.uniform(0, 0.1));
            int const first = static_cast<int>(mesh.vertices.size());
            for (int n = 0; n < 3; ++n) {
                Point3D_d const offset(random.uniform(), random.uniform(), random.uniform());
                // Some triangles are degenerate to a segment or a point.
                double const spread = t % 7 == 0 && n > t % 2 ? 0 : 0.3;
                mesh.vertices.push_back(frame.toWorld(centre + offset * spread));
            }
            mesh.triangles.push_back({first, first + 1, first + 2});
        }
        qz_test::MeshDistance const distance(mesh);
        for (int query = 0; query < 200; ++query) {
            Point3D_d const local(random.uniform(-5, 5), random.uniform(-2, 2), random.uniform(-1, 1));
            Point3D_d const point = frame.toWorld(local);
            double nearest = 1e300;
            for (auto const & t : mesh.triangles) {
                auto const vertex = [&](std::size_t n) {
                    return mesh.vertices[static_cast<std::size_t>(t[n])];
                };
                nearest = std::min(nearest, distanceToTriangle(point, vertex(0), vertex(1), vertex(2)));
            }
            EXPECT_EQ(distance(point), nearest);
            EXPECT_NEAR((frame.toLocal(point) - local).length(), 0, 1e-14);
        }
    }
    EXPECT_TRUE(std::isinf(qz_test::MeshDistance(Mesh())(Point3D_d(1))));
}

TEST(MeshScores, DistanceToTriangleInItsRegions)
{
    Point3D_d const a(0, 0, 0);
    Point3D_d const b(4, 0, 0);
    Point3D_d const c(0, 3, 0);
    EXPECT_DOUBLE_EQ(distanceToTriangle({1, 1, -2}, a, b, c), 2);
    EXPECT_DOUBLE_EQ(distanceToTriangle({-3, -4, 0}, a, b, c), 5);
    EXPECT_DOUBLE_EQ(distanceToTriangle({2, -1, 1}, a, b, c), std::sqrt(2.0));
    EXPECT_DOUBLE_EQ(distanceToTriangle({2 + 3, 1.5 + 4, 0}, a, b, c), 5);
}
