// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Polygoniser/CubeTables.h>
#include <QZmath/VolTriang/jbProcess.h>

#include <support/Frames.h>
#include <support/Mesh.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>

using qz_test::Mesh;
using qz_test::Topology;
using REmath::Point3D_d;

namespace
{

class Field : public jbProcess::Function
{
public:
    explicit Field(std::function<double(Point3D_d const &)> value) : m_value(std::move(value)) {}
    double operator()(Point3D_d const & point, int * flag) const override
    {
        ++m_calls;
        if (flag != nullptr)
            *flag = m_refuses && m_refuses(point) ? 1 : 0;
        return m_value(point);
    }
    std::function<bool(Point3D_d const &)> m_refuses;
    mutable long m_calls = 0;

private:
    std::function<double(Point3D_d const &)> m_value;
};

// Copies the mesh out as it grows, and checks that vertices are announced before their use.
class Collector : public jbProcess::TriangleProcessor
{
public:
    int operator()(int a, int b, int c, jbVertices vertices) const override
    {
        for (int const index : {a, b, c}) {
            if (index < 0 || index >= vertices.count)
                ADD_FAILURE() << "triangle over vertex " << index << " of " << vertices.count;
        }
        for (int n = static_cast<int>(m_mesh.vertices.size()); n < vertices.count; ++n)
            m_mesh.vertices.push_back(vertices.items[n].position);
        m_mesh.triangles.push_back({a, b, c});
        if (m_action)
            m_action();
        return static_cast<long>(m_mesh.triangles.size()) < m_limit ? 1 : 0;
    }
    mutable Mesh m_mesh;
    std::function<void()> m_action;
    long m_limit = std::numeric_limits<long>::max();
};

struct Result
{
    int status = 0;
    Mesh mesh;
};

Result walk(Field & field, double size, Point3D_d start, int bound = 1000)
{
    Collector collector;
    int bounds[3] = {bound, bound, bound};
    jbProcess process;
    int const status = process.polygonize(field, size, bounds, start, collector);
    return {status, std::move(collector.m_mesh)};
}

Field sphere(Point3D_d centre, double radius)
{
    return Field([=](Point3D_d const & p) { return radius - (p - centre).length(); });
}

Field torus(qz_test::Frame const & frame, double ring, double tube)
{
    return Field([=](Point3D_d const & p) {
        Point3D_d const q = frame.toLocal(p);
        return tube - std::hypot(std::hypot(q.x(), q.y()) - ring, q.z());
    });
}

void expectSameMesh(Mesh const & left, Mesh const & right)
{
    EXPECT_TRUE(left == right) << left.triangles.size() << " and " << right.triangles.size() << " triangles";
}

} // namespace

TEST(jbProcess, SpheresAreClosedAndAccurate)
{
    qz_sampling::Random random(11);
    for (int round = 0; round < 25; ++round) {
        double const radius = random.uniform(0.5, 3);
        double const size = radius / random.uniform(3, 25);
        Point3D_d const centre(random.uniform(-9, 9), random.uniform(-9, 9), random.uniform(-9, 9));
        Field field = sphere(centre, radius);
        Result const result = walk(field, size, centre + Point3D_d(0, radius, 0));
        ASSERT_EQ(result.status, 0);
        Topology const topology = examine(result.mesh);
        EXPECT_TRUE(topology.isClosed());
        EXPECT_EQ(topology.eulerNumber(), 2);
        EXPECT_EQ(topology.unusedVertices, 0);
        // Counter-clockwise as seen from the positive side, which is the inner one.
        double const volume = 4.0 / 3 * std::acos(-1.0) * radius * radius * radius;
        EXPECT_NEAR(-signedVolume(result.mesh), volume, volume * 0.5 * std::pow(size / radius, 2));
        for (Point3D_d const & vertex : result.mesh.vertices)
            ASSERT_NEAR((vertex - centre).length(), radius, std::sqrt(3.0) * size / 2048);
    }
}

// Signs without any smoothness: the mesh is a manifold by the way the tetrahedra fit, whatever the function.
TEST(jbProcess, NoiseGivesClosedManifolds)
{
    int large = 0;
    for (int seed = 0; seed < 20; ++seed) {
        double const size = 0.25;
        Field field([=](Point3D_d const & p) {
            if (p.length() > 1.6)
                return -1.0;
            double value = 0;
            for (int wave = 1; wave < 9; ++wave)
                value += std::sin(wave * 3.1 * p.x() + seed) * std::cos(wave * 2.7 * p.y() - seed * wave) *
                         std::sin(wave * 3.7 * p.z() + wave);
            return value;
        });
        Result const result = walk(field, size, {0, 0, 0});
        // A start in a feature smaller than a cube gives nothing.
        if (result.mesh.triangles.empty())
            continue;
        EXPECT_EQ(result.status, 0);
        Topology const topology = examine(result.mesh);
        EXPECT_TRUE(topology.isClosed()) << "seed " << seed;
        large += topology.triangles > 1000 ? 1 : 0;
    }
    EXPECT_GE(large, 10);
}

// The walk against visiting all cubes: same number of everything, since both cut the same kind of lattice.
TEST(jbProcess, MarchingCubesFindsAllComponents)
{
    Field pair([](Point3D_d const & p) {
        return std::max(0.8 - (p - Point3D_d(1, 0, 0)).length(), 0.7 - (p + Point3D_d(1, 0, 0)).length());
    });
    Collector collector;
    jbProcess process;
    EXPECT_EQ(process.marchingcubes(pair, 0.1, {-2, -1, -1}, {2, 1, 1}, collector), 0);
    Topology const both = examine(collector.m_mesh);
    EXPECT_TRUE(both.isClosed());
    EXPECT_EQ(both.components, 2);
    EXPECT_EQ(both.eulerNumber(), 4);
    // 42 x 22 x 22 corners, all of which are evaluated once, and ten bisections for each vertex.
    EXPECT_EQ(pair.m_calls, 42L * 22 * 22 + 10L * both.usedVertices);

    Result const one = walk(pair, 0.1, {0.2, 0, 0});
    EXPECT_EQ(examine(one.mesh).components, 1);
    EXPECT_TRUE(examine(one.mesh).isClosed());
}

TEST(jbProcess, BoundsCutAPlaneToARectangle)
{
    Field plane([](Point3D_d const & p) { return p.z(); });
    Collector collector;
    int bounds[3] = {7, 3, 0};
    jbProcess process;
    EXPECT_EQ(process.polygonize(plane, 0.5, bounds, {0, 0, 0.1}, collector), 0);
    Topology const topology = examine(collector.m_mesh);
    EXPECT_TRUE(topology.isManifold());
    EXPECT_EQ(topology.eulerNumber(), 1);
    EXPECT_NEAR(area(collector.m_mesh), 15 * 7 * 0.25, 1e-9);
    EXPECT_GT(topology.boundaryEdges, 0);
}

TEST(jbProcess, RefusedPointsEndTheSurface)
{
    Field field = sphere({0, 0, 0}, 1);
    field.m_refuses = [](Point3D_d const & p) { return p.z() < -0.3; };
    double const size = 0.05;
    Result const result = walk(field, size, {0, 0, 1});
    Topology const topology = examine(result.mesh);
    EXPECT_TRUE(topology.isManifold());
    EXPECT_EQ(topology.eulerNumber(), 1);
    double lowest = 1;
    for (Point3D_d const & vertex : result.mesh.vertices)
        lowest = std::min(lowest, vertex.z());
    EXPECT_GE(lowest, -0.3);
    EXPECT_LT(lowest, -0.3 + size);
}

TEST(jbProcess, NoStart)
{
    Field positive([](Point3D_d const &) { return 1.0; });
    EXPECT_EQ(walk(positive, 1, {0, 0, 0}).status, 1);
    EXPECT_EQ(positive.m_calls, 10001);
    Field refused = sphere({0, 0, 0}, 1);
    refused.m_refuses = [](Point3D_d const &) { return true; };
    EXPECT_EQ(walk(refused, 0.1, {0, 0, 1}).status, 1);
    // The search widens by a factor of about 148, so it finds a surface that is 50 cubes away.
    Field distant = sphere({0, 0, 5}, 1);
    EXPECT_EQ(walk(distant, 0.1, {0, 0, 0}).status, 0);
}

TEST(jbProcess, SinkStopsAtOnce)
{
    Field field = sphere({0, 0, 0}, 1);
    Collector collector;
    collector.m_limit = 77;
    int bounds[3] = {100, 100, 100};
    jbProcess process;
    EXPECT_EQ(process.polygonize(field, 0.1, bounds, {0, 0, 1}, collector), 2);
    EXPECT_EQ(collector.m_mesh.triangles.size(), 77U);
    EXPECT_EQ(process.cubes, nullptr);
    EXPECT_EQ(process.vertices.items, nullptr);
    // The exhaustive form goes on; only the second triangle of a pair is dropped.
    Collector stubborn;
    stubborn.m_limit = 0;
    EXPECT_EQ(process.marchingcubes(field, 0.1, Point3D_d(-1.1), Point3D_d(1.1), stubborn), 0);
    EXPECT_GT(stubborn.m_mesh.triangles.size(), 1000U);
    EXPECT_FALSE(examine(stubborn.m_mesh).isClosed());
}

TEST(jbProcess, ExceptionsPassAndTheObjectServesAgain)
{
    Field good = sphere({0, 0, 0}, 1);
    Mesh const expected = walk(good, 0.1, {0, 0, 1}).mesh;
    jbProcess process;
    int bounds[3] = {100, 100, 100};
    for (long const moment : {1L, 5L, 20L, 500L, 5000L}) {
        auto const failing = [&] {
            return Field([moment, calls = 0L](Point3D_d const & p) mutable {
                return ++calls == moment ? throw std::runtime_error("function") : 1 - p.length();
            });
        };
        Collector collector;
        Field inWalk = failing(), inBox = failing();
        EXPECT_THROW(process.polygonize(inWalk, 0.1, bounds, {0, 0, 1}, collector), std::runtime_error);
        EXPECT_THROW(process.marchingcubes(inBox, 0.1, Point3D_d(-2), Point3D_d(2), collector),
                     std::runtime_error);
        Collector throwing;
        throwing.m_action = [&] {
            if (static_cast<long>(throwing.m_mesh.triangles.size()) == moment)
                throw std::logic_error("sink");
        };
        if (moment < 1000) {
            EXPECT_THROW(process.polygonize(good, 0.1, bounds, {0, 0, 1}, throwing), std::logic_error);
        }
        Collector after;
        EXPECT_EQ(process.polygonize(good, 0.1, bounds, {0, 0, 1}, after), 0);
        expectSameMesh(after.m_mesh, expected);
    }
}

TEST(jbProcess, SameBitsAgainAndConcurrently)
{
    qz_sampling::Random random(5);
    qz_test::Frame const frame = qz_test::randomFrame(random, 1);
    Field field = torus(frame, 1, 0.4);
    Mesh const expected = walk(field, 0.07, frame.toWorld({1, 0, 0})).mesh;
    std::vector<Mesh> meshes(4);
    std::vector<std::thread> threads;
    for (Mesh & mesh : meshes) {
        threads.emplace_back([&] {
            Field own = torus(frame, 1, 0.4);
            mesh = walk(own, 0.07, frame.toWorld({1, 0, 0})).mesh;
        });
    }
    for (std::thread & thread : threads)
        thread.join();
    for (Mesh const & mesh : meshes)
        expectSameMesh(mesh, expected);
}

// Nothing may crash, hang or leave the bounds, whatever comes out.
TEST(jbProcess, HostileInput)
{
    double const nan = std::numeric_limits<double>::quiet_NaN();
    double const infinite = std::numeric_limits<double>::infinity();
    std::vector<std::function<double(Point3D_d const &)>> const functions = {
        [](Point3D_d const & p) { return 1 - p.length(); },
        [=](Point3D_d const & p) { return p.x() > 0.5 ? nan : 1 - p.length(); },
        [=](Point3D_d const &) { return nan; },
        [=](Point3D_d const & p) { return p.z() > 0 ? infinite : -infinite; },
        [](Point3D_d const &) { return 0.0; },
        [calls = 0](Point3D_d const &) mutable { return ++calls % 3 == 0 ? 1.0 : -1.0; },
    };
    for (auto const & function : functions) {
        for (double const size : {0.2, 0.0, -0.2, nan, infinite, 1e-300, 1e300}) {
            for (int const bound : {-5, 0, 4}) {
                Field field(function);
                Result const result = walk(field, size, {0, 0, 1}, bound);
                EXPECT_EQ(examine(result.mesh).brokenTriangles, 0);
            }
            if (size == 1e-300)
                continue;
            Field field(function);
            Collector collector;
            jbProcess process;
            EXPECT_EQ(process.marchingcubes(field, size, Point3D_d(-1), Point3D_d(1), collector), 0);
            EXPECT_EQ(process.marchingcubes(field, size, Point3D_d(nan), Point3D_d(1), collector), 0);
            EXPECT_EQ(process.marchingcubes(field, size, Point3D_d(1), Point3D_d(-1), collector), 0);
        }
    }
    Field field = sphere({0, 0, 0}, 1);
    Collector collector;
    jbProcess process;
    EXPECT_THROW(process.marchingcubes(field, 1e-9, Point3D_d(-1), Point3D_d(1), collector), std::bad_alloc);
}

TEST(jbProcess, AVanishingValueIsNegativeForTrianglesAndPositiveForTheBisection)
{
    Field plane([](Point3D_d const & p) { return p.x(); });
    jbProcess process;
    process.function = &plane;
    EXPECT_NEAR(process.converge({0, 0, 0}, {2, 0, 0}, 0).x(), 2, 1.0 / 1024);
    EXPECT_NEAR(process.converge({-1, 0, 0}, {1, 0, 0}, -1).x(), 0, 1.0 / 1024);
}

// The public steps, whose look-ups go other ways than those of `polygonize`.
TEST(jbProcess, SingleStepsMakeTheSameMesh)
{
    qz_sampling::Random random(21);
    qz_test::Frame const frame = qz_test::randomFrame(random, 2);
    Field field = torus(frame, 1, 0.4);
    Point3D_d const hole = frame.toWorld({0, 1.2, 0});
    field.m_refuses = [=](Point3D_d const & p) { return (p - hole).length() < 0.4; };
    Point3D_d const startPoint = frame.toWorld({1.4, 0, 0});
    int bounds[3] = {26, 1000, 17};
    Collector collector;
    jbProcess process;
    process.function = &field;
    process.triangleProcessor = &collector;
    process.size = 0.06;
    std::copy(bounds, bounds + 3, process.bounds);
    jbTest const inside = process.find(1, startPoint);
    jbTest const outside = process.find(0, startPoint);
    ASSERT_EQ(inside.ok + outside.ok, 2);
    process.start = process.converge(inside.point, outside.point, inside.value);
    jbCubes first;
    for (int n = 0; n < 8; ++n)
        first.cube.corners[n] = process.setcorner(n / 4, n / 2 % 2, n % 2);
    process.setcenter(0, 0, 0);
    for (process.cubes = &first; process.cubes != nullptr;) {
        jbCube cube = process.cubes->cube;
        for (int const(&corner)[4] : CubeCut::tetrahedra)
            process.dotet(&cube, corner[0], corner[1], corner[2], corner[3]);
        process.cubes = process.cubes->next;
        for (int face = 0; face < 6; ++face) {
            auto const & [step, corner] = CubeCut::faces[face];
            process.testface(cube.i + step[0], cube.j + step[1], cube.k + step[2], &cube, face, corner[0],
                             corner[1], corner[2], corner[3]);
        }
    }
    process.freeprocess();
    Collector walked;
    EXPECT_EQ(jbProcess().polygonize(field, 0.06, bounds, startPoint, walked), 0);
    EXPECT_GT(walked.m_mesh.triangles.size(), 1000U);
    EXPECT_GT(examine(walked.m_mesh).boundaryEdges, 0);
    expectSameMesh(walked.m_mesh, collector.m_mesh);
}
