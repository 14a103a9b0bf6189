// SPDX-License-Identifier: Apache-2.0
#include <support/Frames.h>
#include <support/Mesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

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

} // namespace

TEST(MeshScores, EachFaultCountsUnderItsNameOnly)
{
    // Components, boundary edges, bad edges, bad vertices, broken triangles, unused vertices.
    using Counts = std::array<int, 6>;
    struct Case
    {
        char const * fault;
        std::function<void(Mesh &)> make;
        Counts counts;
    };
    auto const copied = [](int shared) {
        return [shared](Mesh & m) { appendCopy(m, tetrahedron(), shared); };
    };
    auto const added = [](std::array<int, 3> const & triangle) {
        return [triangle](Mesh & mesh) { mesh.triangles.push_back(triangle); };
    };
    Case const cases[] = {
        {"none", [](Mesh &) {}, {1, 0, 0, 0, 0, 0}},
        {"two bodies", copied(0), {2, 0, 0, 0, 0, 0}},
        {"a common vertex", copied(1), {1, 0, 0, 1, 0, 0}},
        {"a common edge", copied(2), {1, 0, 1, 0, 0, 0}},
        {"open", [](Mesh & mesh) { mesh.triangles.pop_back(); }, {1, 3, 0, 0, 0, 0}},
        {"a turned triangle",
         [](Mesh & mesh) { std::swap(mesh.triangles[0][0], mesh.triangles[0][1]); },
         {1, 0, 3, 0, 0, 0}},
        {"a double triangle", added({0, 2, 1}), {1, 0, 3, 0, 0, 0}},
        {"equal corners", added({0, 0, 1}), {1, 0, 0, 0, 1, 0}},
        {"an unknown corner", added({0, 1, 4}), {1, 0, 0, 0, 1, 0}},
        {"a stray vertex", [](Mesh & mesh) { mesh.vertices.emplace_back(); }, {1, 0, 0, 0, 0, 1}},
    };
    for (Case const & one : cases) {
        SCOPED_TRACE(one.fault);
        Mesh mesh = tetrahedron();
        one.make(mesh);
        Topology const found = examine(mesh);
        Counts const counts = {found.components,  found.boundaryEdges,   found.badEdges,
                               found.badVertices, found.brokenTriangles, found.unusedVertices};
        EXPECT_EQ(counts, one.counts);
        EXPECT_EQ(found.isClosed(), counts[1] + counts[2] + counts[3] + counts[4] == 0);
        EXPECT_TRUE(!found.isClosed() || found.eulerNumber() == 2 * found.components);
    }
    EXPECT_NEAR(signedVolume(tetrahedron()), 1.0 / 6, 1e-15);
    EXPECT_NEAR(area(tetrahedron()), 1.5 + std::sqrt(3.0) / 2, 1e-15);
}

TEST(MeshScores, TreeDistanceAgreesWithAllTriangles)
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
