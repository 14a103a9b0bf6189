// SPDX-License-Identifier: Apache-2.0
//
// Properties of whole reconstructions of clouds on analytic surfaces, whose distance, normals and topology
// are known.
#include <VolTriang/Runs.h>
#include <support/SurfaceScores.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <string>

using namespace VolTr;
using namespace qz_test;

namespace
{

struct Case
{
    std::string shape;
    int depth;
    std::size_t points;
};

void PrintTo(Case const & c, std::ostream * out) { *out << c.shape << " depth " << c.depth; }

std::string nameOf(testing::TestParamInfo<Case> const & info)
{
    return info.param.shape + std::to_string(info.param.depth);
}

class ClosedShape : public testing::TestWithParam<Case>
{};

} // namespace

TEST_P(ClosedShape, IsReconstructed)
{
    Case const & c = GetParam();
    auto const shape = qz_sampling::makeShape(c.shape);
    PointCloudSamples const samples = sampledShape(c.shape, c.points);
    CVolTriangulationParams params = paramsOf(c.depth);
    params.setEstimateResultNormals(true);
    Mesh const mesh = reconstruct(samples, params).mesh;
    Topology const topology = examine(mesh);
    EXPECT_TRUE(topology.isClosed());
    EXPECT_EQ(topology.components, 1);
    EXPECT_EQ(topology.unusedVertices, 0);
    EXPECT_EQ(topology.eulerNumber(), shape->eulerNumber());
    EXPECT_GT(signedVolume(mesh), 0.0);
    EXPECT_LT(vertexDistances(mesh, *shape).rms, 0.25 * leafCell(samples, c.depth));
    // At depth 5 a cell is a fifth of the torus's tube: the gradient is that of a visibly smoothed surface.
    EXPECT_LT(normalAngles(mesh, *shape).rms, c.depth > 5 ? 3.0 : 6.0);
}

// The deep ones take minutes of a direct solve each.
#ifdef QZ_SLOW_TESTS
INSTANTIATE_TEST_SUITE_P(Deep, ClosedShape,
                         testing::Values(Case{"sphere", 7, 100000}, Case{"torus", 7, 100000},
                                         Case{"genus3", 7, 100000}, Case{"sphere", 8, 100000},
                                         Case{"torus", 8, 100000}, Case{"genus3", 8, 100000}),
                         nameOf);
#else
INSTANTIATE_TEST_SUITE_P(Depths, ClosedShape,
                         testing::Values(Case{"sphere", 5, 100000}, Case{"torus", 5, 100000},
                                         Case{"genus3", 5, 100000}, Case{"sphere", 6, 100000},
                                         Case{"torus", 6, 100000}, Case{"genus3", 6, 100000}),
                         nameOf);

TEST(ReconstructionQuality, OpenSheetEndsAtItsBorder)
{
    auto const shape = qz_sampling::makeShape("sheet");
    PointCloudSamples const samples = sampledShape("sheet", 40000);
    CVolTriangulationParams params = paramsOf(6);
    params.setClosed(false);
    Mesh const mesh = reconstruct(samples, params).mesh;
    Topology const topology = examine(mesh);
    EXPECT_TRUE(topology.isManifold());
    EXPECT_GT(topology.boundaryEdges, 0);
    double const edge = 2 * leafCell(samples, 6);

    double farthest = 0.0;
    for (REmath::Point3D_d const & vertex : mesh.vertices) {
        double nearest = 1e30;
        for (auto const & point : samples.points) {
            double const dx = point[0] - vertex.x();
            if (std::fabs(dx) > 5.0 * edge)
                continue;
            nearest = std::min(nearest, std::hypot(dx, point[1] - vertex.y(), point[2] - vertex.z()));
        }
        farthest = std::max(farthest, nearest);
    }
    EXPECT_LT(farthest, 5.0 * edge);
    // The inner part follows the sheet.
    int innerVertices = 0;
    for (REmath::Point3D_d const & vertex : mesh.vertices) {
        bool const isInner = std::fabs(vertex.x()) < 1.0 && std::fabs(vertex.y()) < 1.0 &&
                             shape->distanceToBorder(vertex) > 4.0 * edge;
        innerVertices += isInner ? 1 : 0;
        EXPECT_TRUE(!isInner || std::fabs(shape->signedDistance(vertex)) < edge);
    }
    // A strip of four edges at the border, and what the surface reaches beyond it, leave four ninths.
    EXPECT_GT(innerVertices, static_cast<int>(mesh.vertices.size()) / 3);
}

TEST(ReconstructionQuality, DensityJumpCostsLittleInTheDenseHalf)
{
    auto const shape = qz_sampling::makeShape("sphere");
    CVolTriangulationParams params = paramsOf(6);
    auto const denseHalfError = [&](double ratio) {
        PointCloudSamples const samples = sampledShape("sphere", 60000, 0.0, ratio);
        Mesh mesh = reconstruct(samples, params).mesh;
        EXPECT_TRUE(examine(mesh).isClosed());
        mesh.triangles.clear();
        mesh.normals.clear();
        mesh.vertices.erase(std::remove_if(mesh.vertices.begin(), mesh.vertices.end(),
                                           [](REmath::Point3D_d const & vertex) { return vertex.x() < 0.1; }),
                            mesh.vertices.end());
        return vertexDistances(mesh, *shape).rms;
    };
    EXPECT_LT(denseHalfError(10.0), 2.0 * denseHalfError(1.0));
}

TEST(ReconstructionQuality, NoiseIsSmoothed)
{
    auto const shape = qz_sampling::makeShape("torus");
    double const noise = 0.004;
    PointCloudSamples const samples = sampledShape("torus", 100000, noise);
    CVolTriangulationParams params = paramsOf(6);
    Mesh const mesh = reconstruct(samples, params).mesh;
    EXPECT_TRUE(examine(mesh).isClosed());
    EXPECT_LT(vertexDistances(mesh, *shape).rms, 0.5 * noise * 2.8);
}

#endif
