// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Reconstruction.h>

#include <Reconstruction/StageSupport.h>

#include <QZsys/Exceptions.h>

#include <apps/sampling/SampleShapes.h>
#include <support/MeasureMemory.h>
#include <support/Recorders.h>
#include <support/SampledClouds.h>
#include <support/SurfaceScores.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

// Whole calls: what a user hands in, and what a user gets.

using namespace QZmath;
using qz_test::examine;
using qz_test::Topology;
using qz_test::toTestMesh;
using testing::HasSubstr;

namespace
{

using Kind = ReconstructionError::Kind;

// A cloud with its arrays.
struct Points
{
    std::vector<float> positions, normals;
    std::vector<double> positions64;
    std::vector<std::uint8_t> colors;

    PointCloudView view() const
    {
        PointCloudView cloud;
        cloud.size = (positions64.empty() ? positions.size() : positions64.size()) / 3;
        cloud.positions = positions64.empty() ? positions.data() : nullptr;
        cloud.positions64 = positions64.empty() ? nullptr : positions64.data();
        cloud.normals = normals.empty() ? nullptr : normals.data();
        cloud.colors = colors.empty() ? nullptr : colors.data();
        return cloud;
    }
    void add(PointCloudSamples const & samples, std::array<float, 3> const & shift = {}, float size = 1,
             float side = 1, std::function<bool(std::array<float, 3> const &)> const & isSeen = nullptr)
    {
        for (std::size_t n = 0; n < samples.points.size(); ++n) {
            if (isSeen && !isSeen(samples.points[n]))
                continue;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                positions.push_back(size * samples.points[n][axis] + shift[axis]);
                normals.push_back(side * samples.normals[n][axis]);
            }
        }
    }
};

Points pointsOn(std::string const & shape, std::size_t count, double noise = 0.0)
{
    Points points;
    points.add(qz_test::sampledShape(shape, count, noise));
    return points;
}

struct Result
{
    TriangleMesh mesh;
    ReconstructionReport report;
    Topology topology;
};

Result run(Points const & points, ReconstructionOptions const & options = {})
{
    Result result;
    result.mesh = reconstruct(points.view(), options, &result.report);
    result.topology = examine(toTestMesh(result.mesh));
    EXPECT_TRUE(result.topology.isManifold());
    EXPECT_EQ(result.topology.unusedVertices, 0);
    EXPECT_EQ(result.report.isClosed, result.topology.isClosed());
    EXPECT_EQ(result.report.componentsKept, result.topology.components);
    EXPECT_EQ(result.report.triangles, result.topology.triangles);
    EXPECT_EQ(result.mesh.normals.size(), options.vertexNormals ? result.mesh.positions.size() : 0u);
    return result;
}

ReconstructionError errorOf(Points const & points, ReconstructionOptions const & options = {})
{
    try {
        reconstruct(points.view(), options);
    } catch (ReconstructionError const & error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return {Kind::failed, ""};
}

qz_test::DistanceScore scoreOf(Result const & result, char const * shape)
{
    return vertexDistances(toTestMesh(result.mesh), *qz_sampling::makeShape(shape));
}

TEST(Reconstruction, CellsSuitTheSamples)
{
    for (auto const & [shape, eulerNumber] : {std::pair<char const *, int>{"sphere", 2}, {"genus3", -4}}) {
        for (std::size_t const count : {2000u, 40000u}) {
            Result const result = run(pointsOn(shape, count));
            EXPECT_TRUE(result.topology.isClosed()) << shape << count;
            EXPECT_EQ(result.topology.eulerNumber(), eulerNumber) << shape << count;
            EXPECT_GT(result.report.leafCell, 0.44 * result.report.spacing);
            EXPECT_LT(result.report.leafCell, 0.91 * result.report.spacing);
            EXPECT_LT(result.topology.triangles, 12 * static_cast<int>(count));
            EXPECT_LT(scoreOf(result, shape).rms, 0.05 * result.report.leafCell + 1e-3 * (count < 5000));
            EXPECT_THAT(result.report.warnings, testing::IsEmpty());
            EXPECT_EQ(result.report.samplesFarFromMesh, 0u);
            EXPECT_GT(result.report.anglesBefore.belowOne, 0.0001);
            EXPECT_LT(result.report.anglesAfter.belowOne, 0.15 * result.report.anglesBefore.belowOne);
        }
    }
    // Twice the same points are the same cloud.
    Points twice = pointsOn("genus3", 20000);
    Result const once = run(twice);
    twice.add(qz_test::sampledShape("genus3", 20000));
    Result const again = run(twice);
    EXPECT_EQ(again.report.repeatedRemoved, 20000u);
    EXPECT_TRUE(qz_test::isSame(again.mesh, once.mesh));
    Points const noisy = pointsOn("sphere", 100000, 0.02); // far more than the spacing
    EXPECT_GT(run(noisy).report.leafCell, 0.7 * 0.04);
}

TEST(Reconstruction, AllObjectsComeAndSpecksGo)
{
    auto const ball = qz_test::sampledShape("sphere", 6000);
    Points ring;
    for (int n = 0; n < 10; ++n)
        ring.add(ball, {std::cos(0.628f * float(n)) * 5, std::sin(0.628f * float(n)) * 5, 0.0f});
    Result result = run(ring);
    EXPECT_TRUE(result.topology.isClosed());
    EXPECT_EQ(result.topology.components, 10);
    EXPECT_EQ(result.topology.eulerNumber(), 20);

    Points hollow; // two walls
    hollow.add(ball);
    hollow.add(ball, {}, 0.6f, -1);
    result = run(hollow);
    EXPECT_TRUE(result.topology.isClosed());
    EXPECT_EQ(result.topology.components, 2);
    double const volume = 4.0 / 3.0 * std::acos(-1.0) * (1 - 0.6 * 0.6 * 0.6);
    EXPECT_NEAR(qz_test::signedVolume(toTestMesh(result.mesh)), volume, 0.01 * volume);

    Points two;
    two.add(ball);
    two.add(qz_test::sampledShape("sphere", 2000), {3, 0, 0}, 0.3f);
    EXPECT_EQ(run(two).topology.components, 2);
    ReconstructionOptions largest;
    largest.allComponents = false;
    largest.depth = 7;
    result = run(two, largest);
    EXPECT_EQ(result.topology.components, 1);
    EXPECT_THAT(result.report.warnings, testing::Contains(HasSubstr("farther than two cells")));
}

TEST(Reconstruction, GapsAreClosedAndOpenScansStayOpen)
{
    auto const ball = qz_test::sampledShape("sphere", 15000);
    auto const above = [](float z) {
        return [z](std::array<float, 3> const & point) { return point[2] > z; };
    };
    struct Case
    {
        float lowest;
        bool isClosed;
    };
    // Without 5 % and without half of the sphere.
    for (Case const & one : {Case{-0.9f, true}, Case{0.0f, false}}) {
        Points cap;
        cap.add(ball, {}, 1, 1, above(one.lowest));
        Result const result = run(cap);
        EXPECT_EQ(result.topology.isClosed(), one.isClosed);
        EXPECT_EQ(result.topology.eulerNumber(), one.isClosed ? 2 : 1);
        EXPECT_EQ(result.report.boundariesLeft, one.isClosed ? 0 : 1);
        EXPECT_EQ(result.report.holesClosed, one.isClosed ? 1 : 0);
        EXPECT_EQ(result.report.gapsFaired, one.isClosed ? 1 : 0);
        EXPECT_EQ(result.report.gapsLeftRough, 0);
        double const area = 2 * std::acos(-1.0) * (1 - double(one.lowest));
        EXPECT_NEAR(result.report.supportedArea, area, 0.05 * area);
        for (Boundary const boundary : {Boundary::open, Boundary::closed}) {
            ReconstructionOptions options;
            options.boundary = boundary;
            EXPECT_EQ(run(cap, options).topology.isClosed(), boundary == Boundary::closed);
        }
    }
    Result const sheet = run(pointsOn("sheet", 15000));
    EXPECT_EQ(sheet.topology.eulerNumber(), 1);
    EXPECT_EQ(sheet.report.boundariesLeft, 1);
    double const area = qz_sampling::makeShape("sheet")->area();
    EXPECT_NEAR(area, qz_test::area(toTestMesh(sheet.mesh)), 0.05 * area);
    EXPECT_LT(sheet.topology.triangles, 150000);
    // A closed run follows it to where the octree ends, which closes nothing.
    ReconstructionOptions closed;
    closed.boundary = Boundary::closed;
    closed.depth = 6;
    Result const endless = run(pointsOn("sheet", 15000), closed);
    EXPECT_TRUE(endless.report.endsAtLimit);
    EXPECT_EQ(endless.report.holesClosed + endless.report.gapsFaired + endless.report.gapsLeftRough, 0);
    EXPECT_THAT(endless.report.warnings,
                testing::ElementsAre(HasSubstr("the surface is not closed: it runs out")));
    EXPECT_LT(endless.topology.triangles, 50000);
}

TEST(Reconstruction, PlaceAndScaleChangeNoTriangle)
{
    Points near = pointsOn("genus3", 20000);
    for (float & coord : near.positions) // to what `double` can hold far out
        coord = std::ldexp(std::round(std::ldexp(coord, 20)), -20);
    Result const expected = run(near);
    EXPECT_EQ(expected.mesh.origin, (std::array<double, 3>{}));
    auto const moved = [&](double size, std::array<double, 3> const & place) {
        Points points;
        points.normals = near.normals;
        for (std::size_t n = 0; n < near.positions.size(); ++n)
            points.positions64.push_back(size * static_cast<double>(near.positions[n]) + place[n % 3]);
        return run(points);
    };
    std::array<double, 3> const city = {500000, 5400000, 304};
    Result const far = moved(1.0, city);
    EXPECT_EQ(far.mesh.triangles, expected.mesh.triangles);
    double greatest = 0.0;
    for (std::size_t n = 0; n < near.positions.size() && n < far.mesh.positions.size(); ++n)
        greatest = std::max(greatest, std::abs(far.mesh.origin[n % 3] + double(far.mesh.positions[n]) -
                                               city[n % 3] - double(expected.mesh.positions[n])));
    EXPECT_LT(greatest, 1e-6);
    for (int const exponent : {-99, -20, 20, 98}) {
        Result const scaled = moved(std::ldexp(1.0, exponent), {});
        EXPECT_EQ(scaled.mesh.triangles, expected.mesh.triangles) << exponent;
        EXPECT_EQ(scaled.mesh.normals, expected.mesh.normals) << exponent;
        EXPECT_NEAR(scaled.report.spacing, std::ldexp(expected.report.spacing, exponent),
                    std::ldexp(1e-6, exponent));
    }
}

TEST(Reconstruction, FlawedNormalsAreMendedOrTold)
{
    Points const good = pointsOn("genus3", 12000);
    double const exact = scoreOf(run(good), "genus3").rms;
    Points points = good;
    for (float & component : points.normals)
        component *= 7.5f; // lengths say nothing
    EXPECT_NEAR(scoreOf(run(points), "genus3").rms, exact, 0.1 * exact);

    for (float & component : points.normals)
        component = -component;
    Result result = run(points);
    EXPECT_TRUE(result.report.turnedInsideOut);
    EXPECT_GT(qz_test::signedVolume(toTestMesh(result.mesh)), 0.0);
    EXPECT_THAT(result.report.warnings, testing::Contains(HasSubstr("--input-normals given")));
    ReconstructionOptions options;
    options.normals = Normals::asGiven;
    EXPECT_LT(qz_test::signedVolume(toTestMesh(run(points, options).mesh)), 0.0);

    points = good;
    for (std::size_t n = 0; n < points.normals.size(); n += 3 * 4)
        for (std::size_t axis = 0; axis < 3; ++axis)
            points.normals[n + axis] = 0.0f;
    result = run(points);
    EXPECT_EQ(result.report.normalsReplaced, 3000u);
    EXPECT_LT(scoreOf(result, "genus3").rms, 1.5 * exact);

    points = good;
    for (std::size_t n = 0; n < points.normals.size(); n += 3 * 3)
        for (std::size_t axis = 0; axis < 3; ++axis)
            points.normals[n + axis] *= -1.0f;
    result = run(points);
    EXPECT_THAT(result.report.warnings, testing::Contains(HasSubstr("--input-normals reorient")));
    options.normals = Normals::reorient;
    EXPECT_LT(scoreOf(run(points, options), "genus3").rms, 1.1 * exact);

    points.normals.clear();
    result = run(points);
    EXPECT_TRUE(result.report.normalsEstimated);
    EXPECT_EQ(result.report.guessedOrientation, 0u);
    EXPECT_LT(scoreOf(result, "genus3").rms, 3 * exact);
}

TEST(Reconstruction, OutliersLeaveNoTrace)
{
    Points points = pointsOn("genus3", 40000);
    Result const clean = run(points);
    REmath::Point3D_d const half = qz_sampling::makeShape("genus3")->halfExtent();
    qz_sampling::Random random(5);
    for (int n = 0; n < 2000; ++n) {
        for (double const side : {half.x(), half.y(), half.z()})
            points.positions.push_back(static_cast<float>(random.uniform(-1, 1) * side));
        for (int axis = 0; axis < 3; ++axis)
            points.normals.push_back(static_cast<float>(random.uniform(-1, 1)));
    }
    ReconstructionOptions options;
    options.outlierRemoval = 3;
    options.depth = clean.report.octreeDepth;
    Result const result = run(points, options);
    EXPECT_GT(result.report.outliersRemoved, 1700u);
    EXPECT_LT(result.report.outliersRemoved, 2100u);
    EXPECT_EQ(result.topology.components, 1);
    EXPECT_EQ(result.topology.eulerNumber(), -4);
    // The surface of the clean cloud, within a tenth of a cell nearly everywhere.
    qz_test::Mesh const reference = toTestMesh(clean.mesh);
    qz_test::MeshDistance const distance(reference);
    qz_test::Mesh const made = toTestMesh(result.mesh);
    std::size_t moved = 0;
    for (REmath::Point3D_d const & vertex : made.vertices)
        moved += distance(vertex) > 0.1 * result.report.leafCell;
    EXPECT_LT(moved, made.vertices.size() / 100);
}

TEST(Reconstruction, VerticesHaveColoursAndDensities)
{
    Points points = pointsOn("sphere", 10000);
    for (std::size_t n = 0; n < points.positions.size(); n += 3) {
        bool const isUpper = points.positions[n + 2] > 0;
        points.colors.insert(points.colors.end(),
                             {std::uint8_t(isUpper ? 250 : 10), 100, std::uint8_t(isUpper ? 0 : 255)});
    }
    ReconstructionOptions options;
    options.vertexDensity = true;
    options.simplifyError = 0.1;
    Result const result = run(points, options);
    ASSERT_EQ(result.mesh.colors.size(), result.mesh.positions.size());
    ASSERT_EQ(result.mesh.density.size(), result.mesh.vertexCount());
    EXPECT_LT(result.mesh.triangleCount(), result.report.trianglesBeforeSimplification / 3);
    double const expected = 10000 / (4 * std::acos(-1.0));
    double mean = 0;
    for (std::size_t v = 0; v < result.mesh.vertexCount(); ++v) {
        float const z = result.mesh.positions[3 * v + 2];
        mean += double(result.mesh.density[v]) / double(result.mesh.vertexCount());
        if (std::abs(z) < 0.25f)
            continue;
        EXPECT_EQ(result.mesh.colors[3 * v], z > 0 ? 250 : 10);
        EXPECT_EQ(result.mesh.colors[3 * v + 1], 100);
    }
    EXPECT_NEAR(mean, expected, 0.1 * expected);
}

TEST(Reconstruction, BitsDoNotDependOnThreadsAndInterruptionsEndIt)
{
    Points points = pointsOn("sheet", 4000, 0.001);
    points.add(qz_test::sampledShape("torus", 4000), {0, 0, 4});
    points.colors.assign(points.positions.size(), 77);
    ReconstructionOptions options;
    options.outlierRemoval = 4;
    options.simplifyError = 0.05;
    options.vertexDensity = true;
    options.threads = 1;
    Result const first = run(points, options);
    for (int const threads : {2, 3, 8, 16}) {
        options.threads = threads;
        EXPECT_TRUE(qz_test::isSame(run(points, options).mesh, first.mesh)) << threads;
    }

    for (double const at : {-1.0, 0.02, 0.1, 0.3, 0.79, 0.85, 0.95}) {
        qz_test::ProgressRecorder progress;
        progress.interruptBeyond = at;
        ReconstructionReport report;
        EXPECT_THROW(reconstruct(points.view(), options, &report, &progress), CUserIntrException) << at;
        EXPECT_TRUE(progress.isMonotone());
        EXPECT_FALSE(report.phases.empty());
    }
}

TEST(Reconstruction, WhatMakesNoSurfaceIsRefusedByName)
{
    float const infinity = std::numeric_limits<float>::infinity();
    struct Case
    {
        std::vector<float> positions, normals;
        char const * sentence;
    };
    std::vector<float> const flat = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
    std::vector<float> line;
    for (int n = 0; n < 300; ++n)
        line.insert(line.end(), {0.1f * float(n), 0.2f * float(n), 1.0f});
    std::vector<float> const up = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, infinity};
    Case const cases[] = {
        {{}, {}, "no points"},
        {{1, 2, 3, 1, NAN, 3, infinity, 2, 3}, {}, "not finite at 2 points, the first at index 1"},
        {{1, 2, 3, 1, 2, 2e30f}, {}, "beyond 1e30 at 1 point, the first at index 1"},
        {flat, up, "normals that are not finite at 1 point, the first at index 3"},
        {{1, 2, 3}, {0, 0, 1}, "1 point in one place"},
        {std::vector<float>(300, 5.0f), {}, "100 points in one place"},
        {line, {}, "300 points of the cloud lie on a line"},
        {{0, 0, 0, 1e-35f, 0, 0, 0, 1e-35f, 0, 0, 0, 1e-35f}, {}, "smaller than 1e-30"},
    };
    for (Case const & one : cases) {
        Points points;
        points.positions = one.positions;
        points.normals = one.normals;
        ReconstructionError const error = errorOf(points);
        EXPECT_EQ(error.kind(), Kind::input);
        EXPECT_THAT(error.what(), HasSubstr(one.sentence));
    }
    ReconstructionOptions options;
    options.depth = 30;
    EXPECT_EQ(errorOf(pointsOn("sphere", 100), options).kind(), Kind::options);
    options = {};
    options.memoryLimit = 1000000;
    EXPECT_EQ(errorOf(pointsOn("sphere", 20000), options).kind(), Kind::memory);
    PointCloudView both;
    both.size = 1;
    EXPECT_THROW(reconstruct(both), ReconstructionError);
}

TEST(Reconstruction, OddCloudsGiveASmallMeshOrASentence)
{
    std::vector<Points> clouds(5);
    clouds[0] = pointsOn("sphere", 100);
    clouds[1] = pointsOn("sphere", 3000); // and one point ten sizes away
    clouds[1].positions.insert(clouds[1].positions.end(), {20, 0, 0});
    clouds[1].normals.insert(clouds[1].normals.end(), {0, 0, 1});
    for (int copy = 0; copy < 50; ++copy)
        clouds[2].add(qz_test::sampledShape("sphere", 200)); // each place fifty times
    clouds[3].add(qz_test::cloudOf("box", 4000));            // no surface at all
    clouds[4].positions = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (Points const & points : clouds) {
        for (bool const hasNormals : {true, false}) {
            Points cloud = points;
            if (!hasNormals)
                cloud.normals.clear();
            try {
                ReconstructionReport report;
                TriangleMesh const mesh = reconstruct(cloud.view(), {}, &report);
                EXPECT_LT(mesh.triangleCount(), 40 * points.positions.size() / 3 + 2000);
                EXPECT_TRUE(examine(toTestMesh(mesh)).isManifold());
            } catch (ReconstructionError const & error) {
                EXPECT_NE(error.kind(), Kind::options);
                EXPECT_STRNE(error.what(), "");
            }
        }
    }
}

TEST(Reconstruction, TheEstimateIsWhatACallTakes)
{
    struct Case
    {
        char const * shape;
        std::size_t points;
        int depth;
    };
    for (auto const & [shape, count, depth] :
         {Case{"sphere", 60000, 0}, {"sheet", 60000, 0}, {"torus", 2000, 9}}) {
        Points const points = pointsOn(shape, count);
        ReconstructionOptions options;
        options.depth = depth;
        ReconstructionEstimate const estimate = estimateReconstruction(points.view(), options);
        ReconstructionReport report;
        TriangleMesh mesh;
        double const taken =
            double(qz_test::peakBytesOf([&] { mesh = reconstruct(points.view(), options, &report); }));
        EXPECT_EQ(estimate.depth, report.octreeDepth);
        EXPECT_EQ(estimate.nodes, report.nodes);
        EXPECT_NEAR(double(estimate.triangles), double(mesh.triangleCount()),
                    0.5 * double(mesh.triangleCount()));
        double const tolerance = qz_test::isMemoryMeasured ? 0.34 * taken : 1e18;
        EXPECT_NEAR(double(estimate.memory), taken, tolerance) << shape;
    }
}

} // namespace
