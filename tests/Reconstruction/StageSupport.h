// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Mesh/SampleIndex.h>
#include <QZmath/VolTriang/VolumetricTriangulator.h>

#include <support/Mesh.h>
#include <support/PointCloudSamples.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <vector>

namespace qz_test
{

inline Mesh toTestMesh(QZmath::TriangleMesh const & mesh)
{
    Mesh result;
    for (std::size_t v = 0; v < mesh.vertexCount(); ++v)
        result.vertices.emplace_back(&mesh.positions[3 * v]);
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t)
        result.triangles.push_back(
            {mesh.triangles[3 * t], mesh.triangles[3 * t + 1], mesh.triangles[3 * t + 2]});
    return result;
}

/// All data of a mesh, to compare bit by bit.
inline bool isSame(QZmath::TriangleMesh const & a, QZmath::TriangleMesh const & b)
{
    return a.positions == b.positions && a.normals == b.normals && a.colors == b.colors &&
           a.density == b.density && a.triangles == b.triangles;
}

/// A cloud and the surface that the core makes of it, closed, refined and with normals.
struct CoreRun
{
    PointCloudSamples samples;
    std::vector<float> positions, normals;
    double leafCell = 0;
    QZmath::TriangleMesh mesh;

    CoreRun(PointCloudSamples const & all, int depth,
            std::function<bool(std::array<float, 3> const &)> const & isSeen)
    {
        std::array<float, 3> low{1e30f, 1e30f, 1e30f}, high{-1e30f, -1e30f, -1e30f};
        for (std::size_t n = 0; n < all.points.size(); ++n) {
            if (!isSeen(all.points[n]))
                continue;
            samples.add(all.points[n], all.normals[n]);
            positions.insert(positions.end(), all.points[n].begin(), all.points[n].end());
            normals.insert(normals.end(), all.normals[n].begin(), all.normals[n].end());
            for (std::size_t axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], all.points[n][axis]);
                high[axis] = std::max(high[axis], all.points[n][axis]);
            }
        }
        for (std::size_t axis = 0; axis < 3; ++axis)
            leafCell = std::max(leafCell, std::ldexp(double(high[axis]) - low[axis], -depth));
        VolTr::CVolTriangulationParams params;
        params.setOctreeDepth(depth);
        params.setAccelerated(true);
        params.setRefine(true);
        params.setEstimateResultNormals(true);
        MeshTarget target;
        VolTr::CVolumetricTriangulator(&target, &samples, &params, nullptr).run();
        auto const add = [](std::vector<float> & values, REmath::Point3D_d const & from) {
            for (double const value : {from.x(), from.y(), from.z()})
                values.push_back(static_cast<float>(value));
        };
        for (REmath::Point3D_d const & vertex : target.mesh().vertices)
            add(mesh.positions, vertex);
        for (REmath::Point3D_d const & normal : target.mesh().normals)
            add(mesh.normals, normal);
        for (std::array<int, 3> const & triangle : target.mesh().triangles)
            mesh.triangles.insert(mesh.triangles.end(), triangle.begin(), triangle.end());
    }

    explicit CoreRun(PointCloudSamples const & all, int depth)
        : CoreRun(all, depth, [](std::array<float, 3> const &) { return true; })
    {}
};

/// A flat mesh of `cells` x `cells` squares of edge 1 at z = 0, each of two triangles, from the origin on.
inline QZmath::TriangleMesh flatGrid(int cells)
{
    QZmath::TriangleMesh mesh;
    for (int y = 0; y <= cells; ++y) {
        for (int x = 0; x <= cells; ++x) {
            mesh.positions.insert(mesh.positions.end(), {float(x), float(y), 0.0f});
            mesh.normals.insert(mesh.normals.end(), {0.0f, 0.0f, 1.0f});
        }
    }
    for (int y = 0; y < cells; ++y) {
        for (int x = 0; x < cells; ++x) {
            int const a = y * (cells + 1) + x;
            int const b = a + cells + 1;
            mesh.triangles.insert(mesh.triangles.end(), {a, a + 1, b + 1, a, b + 1, b});
        }
    }
    return mesh;
}

/// Runs a job on a team of so many threads.
inline void onTeam(int threads, std::function<void(QzBackend::LoopTeam &)> const & job)
{
    QzBackend::LoopTeam::run(threads, nullptr, job);
}

} // namespace qz_test
