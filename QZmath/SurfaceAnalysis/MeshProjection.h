// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <cstdint>
#include <vector>

class CProgressCounter;

/// The nearest points on a triangle mesh, for whole clouds.
///
/// Holds the triangles in a balanced tree of boxes, four to a leaf. Making it takes O(n log n) for n
/// triangles, and about 70 bytes each; a query visits few leaves, O(log n) where the point is near the mesh
/// compared with its distance from other parts. Far away, where all parts are about equally near, it can be
/// all of them. Queries change nothing and can run in any thread.
///
/// Triangles with a corner that is not finite, or that is no vertex, are left out; so is what overflows: give
/// coordinates whose squares `float` holds. Degenerate triangles are the segments or points that they are.
class QZMATH_API CMeshProjector
{
public:
    /// Copies what it needs. `corners` are three indices of vertices for each triangle.
    CMeshProjector(int vertexCount, REmath::Point3D const * vertices, int triangleCount,
                   std::int32_t const * corners);

    struct Foot
    {
        REmath::Point3D point; ///< on the mesh, rounded once
        int triangle = -1;     ///< of equally near ones the first; -1 when there is none
        float squaredDistance = 0;
    };

    /// The nearest point; without a triangle for a point that is not finite and on a mesh without triangles.
    Foot project(REmath::Point3D const & point) const;

    /// The same of `n` points on the threads of `CVescaThreadingTasksHelper`, with the same bits for any
    /// number of them. `progress` can be null and is worked from the calling thread.
    void project(int n, REmath::Point3D const * points, Foot * feet,
                 CProgressCounter * progress = nullptr) const;

private:
    struct Box
    {
        float low[3], high[3];
    };
    struct Triangle
    {
        float corners[3][3];
        int number;
    };

    void split(int node, int first, int last);
    static double squaredDistance(Box const & box, float const * point);

    int m_leafCount = 0; ///< a power of 2; the children of node i are 2 i and 2 i + 1, the root is 1
    std::vector<Box> m_boxes;
    std::vector<int> m_leafBegins;
    std::vector<Triangle> m_triangles; ///< in the order of the leaves
};
