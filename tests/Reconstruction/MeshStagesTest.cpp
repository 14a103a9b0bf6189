// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/Attributes.h>
#include <QZmath/Reconstruction/Mesh/Components.h>
#include <QZmath/Reconstruction/Mesh/Fairing.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>
#include <QZmath/Reconstruction/Mesh/PointDistances.h>
#include <QZmath/Reconstruction/Mesh/Simplification.h>
#include <QZmath/Reconstruction/Mesh/Slivers.h>

#include "StageSupport.h"

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>
#include <support/SampledClouds.h>
#include <support/SphereMesh.h>

#include <gtest/gtest.h>

#include <random>

using namespace QZmath;
using namespace QZmath::Stages;
using qz_test::CoreRun;
using qz_test::isSame;
using qz_test::onTeam;
using qz_test::toTestMesh;

namespace
{

TriangleMesh moved(TriangleMesh mesh, float factor, float x)
{
    for (std::size_t n = 0; n < mesh.positions.size(); ++n)
        mesh.positions[n] = factor * mesh.positions[n] + (n % 3 == 0 ? x : 0);
    return mesh;
}

TriangleMesh joined(std::vector<TriangleMesh> const & parts)
{
    TriangleMesh all;
    for (TriangleMesh const & part : parts) {
        std::int32_t const first = static_cast<std::int32_t>(all.vertexCount());
        all.positions.insert(all.positions.end(), part.positions.begin(), part.positions.end());
        all.normals.insert(all.normals.end(), part.normals.begin(), part.normals.end());
        for (std::int32_t const corner : part.triangles)
            all.triangles.push_back(first + corner);
    }
    return all;
}

// The greatest distance of places all over one mesh from another.
double deviation(TriangleMesh const & from, TriangleMesh const & to)
{
    qz_test::Mesh const target = toTestMesh(to);
    qz_test::MeshDistance const distance(target);
    double greatest = 0;
    for (std::size_t t = 0; t < from.triangleCount(); ++t) {
        Triangle const face = triangleOf(from, t);
        for (Vec const & place : {face.a, face.centroid(), (face.a + face.b) * 0.5})
            greatest = std::max(greatest, distance({place[0], place[1], place[2]}));
    }
    return greatest;
}

BorderLoops bordersOf(TriangleMesh const & mesh)
{
    BorderLoops loops;
    onTeam(2, [&](QzBackend::LoopTeam & team) { loops = measureBorders(mesh, team); });
    return loops;
}

// The same bits for any number of threads.
template <class Stage>
TriangleMesh onAnyThreads(TriangleMesh const & mesh, Stage const & stage)
{
    std::vector<TriangleMesh> results;
    for (int const threads : {1, 2, 3, 8, 16}) {
        results.push_back(mesh);
        onTeam(threads, [&](QzBackend::LoopTeam & team) { stage(results.back(), team); });
    }
    for (TriangleMesh const & result : results)
        EXPECT_TRUE(isSame(results[0], result));
    return results[0];
}

} // namespace

TEST(Components, dropsSpecksAndWhatNoSampleSupports)
{
    TriangleMesh const sphere = qz_test::sphere(20, 40);
    TriangleMesh const mesh = joined({moved(qz_test::sphere(1, 4), 0.1f, -4), moved(sphere, 1, 0),
                                      moved(sphere, 0.5f, 3), moved(sphere, 1, 7), moved(sphere, 0.2f, 10)});
    std::vector<float> samples;
    for (std::size_t n = 0; n < mesh.positions.size(); ++n) {
        float const x = mesh.positions[n - n % 3];
        if (x < 5 && (n / 3) % (x < 1.5f ? 2 : 1) == 0)
            samples.push_back(mesh.positions[n]);
    }
    samples.insert(samples.end(), {10.2f, 0, 0}); // of the last sphere
    for (bool const keepAll : {true, false}) {
        ComponentRule rule;
        rule.keepAll = keepAll;
        rule.smallest = 0.005;
        rule.supportDistance = 0.05;
        ComponentFindings findings;
        TriangleMesh const result = onAnyThreads(mesh, [&](TriangleMesh & part, QzBackend::LoopTeam & team) {
            findings =
                keepComponents(part, SampleIndex(samples.data(), samples.size() / 3, team), rule, team);
        });
        EXPECT_EQ(findings.found, 5);
        EXPECT_EQ(findings.kept, keepAll ? 2 : 1);
        EXPECT_EQ(findings.dropped, keepAll ? 3 : 4);
        // The first of the two has half as many samples.
        EXPECT_TRUE(isSame(result, keepAll ? joined({moved(sphere, 1, 0), moved(sphere, 0.5f, 3)})
                                           : joined({moved(sphere, 0.5f, 3)})));
    }
}

TEST(Colours, areMeansOfLightOnTheSameSide)
{
    // Two sides of a thin wall: on the upper one black and white samples in turn from x = 10 on, red below
    // that; the lower one is green. The last sample is far from all others.
    std::vector<float> positions, normals;
    std::vector<std::uint8_t> colors;
    auto const add = [&](float x, float y, float z, std::array<std::uint8_t, 3> const & color) {
        positions.insert(positions.end(), {2 * x, 2 * y, 2 * z});
        normals.insert(normals.end(), {0, 0, z > 0 ? 1.0f : -1.0f});
        colors.insert(colors.end(), color.begin(), color.end());
    };
    for (int x = 0; x < 40; ++x) {
        for (int y = 0; y < 40; ++y) {
            std::uint8_t const light = (x + y) % 2 ? 255 : 0;
            add(0.5f * float(x), 0.5f * float(y), 0.1f,
                x < 20 ? std::array<std::uint8_t, 3>{200, 10, 30} : std::array{light, light, light});
            add(0.5f * float(x), 0.5f * float(y), -0.1f, {0, 255, 0});
        }
    }
    add(60, 10, 0.1f, {1, 2, 3});
    TriangleMesh mesh;
    mesh.positions = {8, 20, 0.2f, 30.2f, 20.1f, 0.2f, 30, 20, -0.2f, 100, 20, 0.2f};
    mesh.normals = {0, 0, 1, 0, 0, 1, 0, 0, -1, 0, 0, 1};
    auto const colour = [&](TriangleMesh & part, QzBackend::LoopTeam & team) {
        SampleIndex const index(positions.data(), positions.size() / 3, team);
        colourVertices(part, index, colors.data(), normals.data(), 2, team);
    };
    TriangleMesh const result = onAnyThreads(mesh, colour);
    ASSERT_EQ(result.colors.size(), 12u);
    auto const colorOf = [&](std::size_t v) {
        return std::array{result.colors[3 * v], result.colors[3 * v + 1], result.colors[3 * v + 2]};
    };
    EXPECT_EQ(colorOf(0), (std::array<std::uint8_t, 3>{200, 10, 30}));
    for (int const value : colorOf(1))
        EXPECT_NEAR(value, 188, 4); // half the light of white
    EXPECT_EQ(colorOf(2), (std::array<std::uint8_t, 3>{0, 255, 0}));
    EXPECT_EQ(colorOf(3), (std::array<std::uint8_t, 3>{1, 2, 3}));
}

TEST(Density, isThatOfThePlaneAndFallsAwayFromIt)
{
    std::mt19937 random(4);
    std::uniform_real_distribution<float> place(0, 60);
    std::vector<float> positions;
    for (int n = 0; n < 60 * 60 * 3; ++n)
        positions.insert(positions.end(), {place(random), place(random), 0.0f});
    TriangleMesh mesh = qz_test::flatGrid(80);
    for (float & coord : mesh.positions)
        coord -= coord != 0 ? 10.0f : 0;
    TriangleMesh const result = onAnyThreads(mesh, [&](TriangleMesh & part, QzBackend::LoopTeam & team) {
        SampleIndex const index(positions.data(), positions.size() / 3, team);
        measureDensity(part, index, nullptr, 1, team);
    });
    double sum = 0, squares = 0;
    int count = 0;
    for (std::size_t v = 0; v < result.vertexCount(); ++v) {
        double const x = result.positions[3 * v], y = result.positions[3 * v + 1];
        double const density = result.density[v];
        if (std::min({x, y, 60 - x, 60 - y}) > 6) {
            sum += density;
            squares += (density / 3 - 1) * (density / 3 - 1);
            ++count;
        }
        if (x > 65) {
            EXPECT_LT(density, 0.06);
        }
    }
    EXPECT_NEAR(sum / count, 3, 0.1);
    EXPECT_LT(std::sqrt(squares / count), 0.115); // 0.126 of the nearest disc alone

    // Many samples on one spot are many, not infinitely many.
    std::vector<float> const spot(3 * 1000, 1.0f);
    onTeam(2, [&](QzBackend::LoopTeam & team) {
        measureDensity(mesh, SampleIndex(spot.data(), 1000, team), nullptr, 1, team);
    });
    for (float const density : mesh.density)
        EXPECT_TRUE(std::isfinite(density) && density > 0);
}

TEST(Slivers, areGoneAndTheSurfaceIsWhereItWas)
{
    auto const ball = [](std::array<float, 3> const & p) { return p[0] + p[1] < 5; };
    for (char const * shape : {"sphere", "genus3", "block"}) {
        CoreRun const run(qz_test::sampledShape(shape, 20000), 6, ball);
        std::size_t removed = 0;
        AngleDistribution before, after;
        TriangleMesh const result =
            onAnyThreads(run.mesh, [&](TriangleMesh & mesh, QzBackend::LoopTeam & team) {
                before = measureAngles(mesh, team);
                removed = removeSlivers(mesh, run.leafCell, team);
                after = measureAngles(mesh, team);
            });
        auto const was = examine(toTestMesh(run.mesh)), is = examine(toTestMesh(result));
        EXPECT_TRUE(is.isClosed());
        EXPECT_EQ(is.eulerNumber(), was.eulerNumber());
        EXPECT_GT(removed, 10u);
        EXPECT_LT(after.belowOne, 0.03 * before.belowOne) << shape << " from " << before.belowOne;
        EXPECT_GT(after.least, before.least);
        EXPECT_LE(after.belowFive, before.belowFive);
        EXPECT_EQ(result.normals.size(), result.positions.size());
        EXPECT_LT(std::max(deviation(run.mesh, result), deviation(result, run.mesh)), 0.015 * run.leafCell);
    }
}

TEST(Slivers, goFromRimsOnlyAlongThem)
{
    // A grid with points that are doubled next to each other, inside and at its border.
    TriangleMesh mesh = qz_test::flatGrid(20);
    for (std::size_t v = 0; v < mesh.vertexCount(); ++v) {
        float & x = mesh.positions[3 * v];
        if (static_cast<int>(x) % 3 == 1)
            x += 0.995f;
    }
    AngleDistribution after;
    TriangleMesh const result = onAnyThreads(mesh, [&](TriangleMesh & part, QzBackend::LoopTeam & team) {
        removeSlivers(part, 1, team);
        after = measureAngles(part, team);
    });
    EXPECT_GT(after.least, 5);
    EXPECT_TRUE(examine(toTestMesh(result)).isManifold());
    EXPECT_EQ(examine(toTestMesh(result)).eulerNumber(), 1);
    EXPECT_NEAR(area(toTestMesh(result)), area(toTestMesh(mesh)), 1e-3);
    EXPECT_NEAR(bordersOf(result).length, bordersOf(mesh).length, 1e-3);
}

TEST(Simplification, keepsWithinTheError)
{
    struct Case
    {
        char const * shape;
        int depth;
        double error, greatestShare;
    };
    for (Case const & c : {Case{"sphere", 7, 0.05, 0.15}, Case{"block", 6, 0.1, 0.09},
                           Case{"genus3", 6, 0.2, 0.15}, Case{"thin-plate", 6, 0.1, 0.15}}) {
        CoreRun const run(qz_test::sampledShape(c.shape, 30000), c.depth);
        double const error = c.error * run.leafCell;
        TriangleMesh const result =
            onAnyThreads(run.mesh, [&](TriangleMesh & mesh, QzBackend::LoopTeam & team) {
                removeSlivers(mesh, run.leafCell, team);
                simplify(mesh, error, team);
            });
        auto const was = examine(toTestMesh(run.mesh)), is = examine(toTestMesh(result));
        EXPECT_TRUE(is.isClosed()) << c.shape;
        EXPECT_EQ(is.eulerNumber(), was.eulerNumber());
        EXPECT_LT(is.triangles, c.greatestShare * was.triangles) << c.shape;
        // Slivers may have moved the surface by a hundredth of a cell before.
        EXPECT_LT(deviation(run.mesh, result), error + 0.01 * run.leafCell) << c.shape;
        EXPECT_LT(deviation(result, run.mesh), 1.5 * error + 0.01 * run.leafCell) << c.shape;
        EXPECT_NEAR(signedVolume(toTestMesh(result)), signedVolume(toTestMesh(run.mesh)),
                    error * area(toTestMesh(run.mesh)));
    }
}

TEST(Simplification, shortensStraightRimsAndKeepsOthers)
{
    TriangleMesh mesh = qz_test::flatGrid(30);
    for (std::size_t v = 0; v < mesh.vertexCount(); ++v) { // the upper side runs in waves
        float & y = mesh.positions[3 * v + 1];
        y += 0.3f * (y / 30) * std::sin(mesh.positions[3 * v]);
    }
    TriangleMesh const result = onAnyThreads(
        mesh, [&](TriangleMesh & part, QzBackend::LoopTeam & team) { simplify(part, 0.05, team); });
    EXPECT_TRUE(examine(toTestMesh(result)).isManifold());
    EXPECT_EQ(bordersOf(result).count, 1);
    EXPECT_NEAR(bordersOf(result).length, bordersOf(mesh).length, 0.05);
    EXPECT_NEAR(area(toTestMesh(result)), area(toTestMesh(mesh)), 0.05);
    int waves = 0;
    for (std::size_t v = 0; v < result.vertexCount(); ++v)
        waves += result.positions[3 * v + 1] > 29.6f;
    EXPECT_GE(waves, 29);
    EXPECT_LT(result.vertexCount(), 50u);

    TriangleMesh const cube =
        onAnyThreads(qz_test::flatGrid(60),
                     [&](TriangleMesh & part, QzBackend::LoopTeam & team) { simplify(part, 0.01, team); });
    EXPECT_LT(cube.triangleCount(), 20u);
    EXPECT_NEAR(area(toTestMesh(cube)), 3600, 1e-3);
}

TEST(PointDistances, areThoseToTriangles)
{
    std::mt19937 random(6);
    std::uniform_real_distribution<float> unit(-1.5f, 1.5f);
    for (int const cells : {1, 3, 12}) {
        TriangleMesh const mesh = qz_test::sphere(cells, 4 * cells);
        qz_test::Mesh const target = toTestMesh(mesh);
        qz_test::MeshDistance const distance(target);
        std::vector<float> points;
        std::size_t far = 0;
        for (int n = 0; n < 3000; ++n) {
            points.insert(points.end(), {unit(random), unit(random), unit(random)});
            far += distance({points[3 * std::size_t(n)], points[3 * std::size_t(n) + 1],
                             points[3 * std::size_t(n) + 2]}) > 0.2;
        }
        for (int const threads : {1, 3})
            onTeam(threads, [&](QzBackend::LoopTeam & team) {
                SampleIndex const index(points.data(), points.size() / 3, team);
                EXPECT_EQ(samplesFarFromMesh(index, mesh, 0.2, team), far);
                EXPECT_EQ(samplesFarFromMesh(index, TriangleMesh(), 0.2, team), 3000u);
            });
    }
}

// Every stage can be left at once, and takes a mesh without triangles.
TEST(MeshStages, canBeInterruptedAndTakeEmptyMeshes)
{
    std::vector<float> const samples = {0, 0, 1, 1, 0, 0};
    std::vector<std::uint8_t> const colors = {1, 2, 3, 4, 5, 6};
    using Stage = std::function<void(TriangleMesh &, SampleIndex const &, QzBackend::LoopTeam &)>;
    std::vector<Stage> const stages = {
        [](auto & mesh, auto & index, auto & team) {
            keepComponents(mesh, index, {false, 0, 1}, team, 1);
        },
        [](auto & mesh, auto &, auto & team) { removeSlivers(mesh, 1, team, 1); },
        [](auto & mesh, auto &, auto & team) { simplify(mesh, 1e-3, team, 1); },
        [&](auto & mesh, auto & index, auto & team) {
            colourVertices(mesh, index, colors.data(), nullptr, 1, team, 1);
        },
        [](auto & mesh, auto & index, auto & team) { measureDensity(mesh, index, nullptr, 1, team, 1); },
        [](auto & mesh, auto & index, auto & team) {
            FairingRule rule;
            rule.trimDistance = 0.3;
            fairPatches(mesh, index, rule, team, 0, 1);
        },
        [](auto & mesh, auto & index, auto & team) { samplesFarFromMesh(index, mesh, 0.1, team, 1); }};
    TriangleMesh const sphere = qz_test::sphere(60, 120);
    for (Stage const & stage : stages) {
        onTeam(2, [&](QzBackend::LoopTeam & team) {
            TriangleMesh empty;
            stage(empty, SampleIndex(samples.data(), 2, team), team);
            EXPECT_EQ(empty.vertexCount(), 0u);
        });
        CProgressCounter progress;
        auto const run = [&](bool isInterrupted) {
            QzBackend::LoopTeam::run(2, &progress, [&](QzBackend::LoopTeam & team) {
                TriangleMesh mesh = joined({sphere, moved(sphere, 1, 4)});
                SampleIndex const index(samples.data(), 2, team);
                if (isInterrupted)
                    progress.interrupt();
                stage(mesh, index, team);
            });
        };
        EXPECT_THROW(run(true), CUserIntrException);
        EXPECT_NO_THROW(run(false));
    }
}
