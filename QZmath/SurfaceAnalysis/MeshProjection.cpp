// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/MeshProjection.h>

#include <QZmath/SurfaceAnalysis/Distances.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <cmath>
#include <limits>

using REmath::Point3D;
using REmath::Detail::index;

namespace
{

int const trianglesInLeaf = 4;
int const pointsInBlock = 64;

bool isFinite(float const * point)
{
    return std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2]);
}

} // namespace

CMeshProjector::CMeshProjector(int vertexCount, Point3D const * vertices, int triangleCount,
                               std::int32_t const * corners)
{
    m_triangles.reserve(index(std::max(triangleCount, 0)));
    for (int number = 0; number < triangleCount; ++number) {
        Triangle triangle{};
        triangle.number = number;
        bool isSound = true;
        for (int corner = 0; corner < 3 && isSound; ++corner) {
            std::int32_t const vertex = corners[3 * std::int64_t{number} + corner];
            isSound = vertex >= 0 && vertex < vertexCount && isFinite(vertices[vertex].asArray());
            if (isSound)
                std::copy_n(vertices[vertex].asArray(), 3, triangle.corners[corner]);
        }
        if (isSound)
            m_triangles.push_back(triangle);
    }
    if (m_triangles.empty())
        return;
    int const size = static_cast<int>(m_triangles.size());
    m_leafCount = 1;
    while (m_leafCount < size / trianglesInLeaf)
        m_leafCount *= 2;
    m_boxes.resize(2 * index(m_leafCount));
    m_leafBegins.resize(index(m_leafCount) + 1, size);
    split(1, 0, size);
}

// Gives the triangles from `first` up to `last` to the leaves below a node.
void CMeshProjector::split(int node, int first, int last)
{
    Box & box = m_boxes[index(node)];
    std::fill_n(box.low, 3, std::numeric_limits<float>::infinity());
    std::fill_n(box.high, 3, -std::numeric_limits<float>::infinity());
    for (int k = first; k < last; ++k) {
        for (auto const & corner : m_triangles[index(k)].corners) {
            for (int axis = 0; axis < 3; ++axis) {
                box.low[axis] = std::min(box.low[axis], corner[axis]);
                box.high[axis] = std::max(box.high[axis], corner[axis]);
            }
        }
    }
    if (node >= m_leafCount) {
        m_leafBegins[index(node - m_leafCount)] = first;
        return;
    }
    int axis = 0;
    for (int other = 1; other < 3; ++other) {
        if (box.high[other] - box.low[other] > box.high[axis] - box.low[axis])
            axis = other;
    }
    auto const place = [axis](Triangle const & triangle) {
        return static_cast<double>(triangle.corners[0][axis]) +
               static_cast<double>(triangle.corners[1][axis]) +
               static_cast<double>(triangle.corners[2][axis]);
    };
    int const middle = first + (last - first) / 2;
    std::nth_element(m_triangles.begin() + first, m_triangles.begin() + middle, m_triangles.begin() + last,
                     [&](Triangle const & one, Triangle const & other) {
                         double const left = place(one), right = place(other);
                         return left < right || (left == right && one.number < other.number);
                     });
    split(2 * node, first, middle);
    split(2 * node + 1, middle, last);
}

double CMeshProjector::squaredDistance(Box const & box, float const * point)
{
    double sum = 0;
    for (int axis = 0; axis < 3; ++axis) {
        double const at = static_cast<double>(point[axis]);
        double const apart = std::max(
            {static_cast<double>(box.low[axis]) - at, at - static_cast<double>(box.high[axis]), 0.0});
        sum += apart * apart;
    }
    return sum;
}

CMeshProjector::Foot CMeshProjector::project(Point3D const & point) const
{
    Foot best;
    float const * const from = point.asArray();
    if (m_triangles.empty() || !isFinite(from))
        return best;
    // Distances of triangles are rounded to `float`, so boxes count as nearer than they are by as much.
    double const rounding = 1 - 1e-6;
    double nearest = std::numeric_limits<double>::infinity();
    struct Waiting
    {
        int node;
        double squaredDistance;
    };
    Waiting waiting[32]; // one a level of a tree of at most 2^30 leaves
    int count = 0;
    waiting[count++] = {1, squaredDistance(m_boxes[1], from)};
    while (count > 0) {
        Waiting const next = waiting[--count];
        if (next.squaredDistance * rounding > nearest)
            continue;
        int node = next.node;
        while (node < m_leafCount) {
            double const left = squaredDistance(m_boxes[index(2 * node)], from);
            double const right = squaredDistance(m_boxes[index(2 * node + 1)], from);
            waiting[count++] = right < left ? Waiting{2 * node, left} : Waiting{2 * node + 1, right};
            node = 2 * node + (right < left);
        }
        int const leaf = node - m_leafCount;
        for (int k = m_leafBegins[index(leaf)]; k < m_leafBegins[index(leaf + 1)]; ++k) {
            Triangle const & triangle = m_triangles[index(k)];
            float const * corners[3] = {triangle.corners[0], triangle.corners[1], triangle.corners[2]};
            int where = 0;
            float foot[3];
            float const apart = distancePointTriangle2(from, corners, where, foot);
            double const squared = static_cast<double>(apart);
            if (squared < nearest || (squared == nearest && triangle.number < best.triangle)) {
                nearest = squared;
                best.point = Point3D(foot);
                best.triangle = triangle.number;
                best.squaredDistance = apart;
            }
        }
    }
    return best;
}

void CMeshProjector::project(int n, Point3D const * points, Foot * feet, CProgressCounter * progress) const
{
    int const blocks = n / pointsInBlock + (n % pointsInBlock > 0);
    int const threads = std::clamp(blocks, 1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    QzBackend::LoopTeam::run(threads, progress, [&](QzBackend::LoopTeam & team) {
        auto const projectBlock = [&](int block) {
            int const begin = block * pointsInBlock;
            for (int i = begin; i < begin + std::min(pointsInBlock, n - begin); ++i)
                feet[i] = project(points[i]);
        };
        team.forEach(blocks, projectBlock, 1);
    });
}
