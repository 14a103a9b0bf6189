// SPDX-License-Identifier: Apache-2.0
#include <support/Mesh.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>

using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;

namespace qz_test
{

namespace
{

Point3D_d const & corner(Mesh const & mesh, std::array<int, 3> const & triangle, int number)
{
    return mesh.vertices[static_cast<std::size_t>(triangle[static_cast<std::size_t>(number)])];
}

bool isSound(Mesh const & mesh, std::array<int, 3> const & triangle)
{
    int const vertices = static_cast<int>(mesh.vertices.size());
    return std::all_of(triangle.begin(), triangle.end(), [&](int v) { return v >= 0 && v < vertices; }) &&
           triangle[0] != triangle[1] && triangle[1] != triangle[2] && triangle[2] != triangle[0];
}

class DisjointSets
{
public:
    explicit DisjointSets(std::size_t size) : m_parent(size)
    {
        std::iota(m_parent.begin(), m_parent.end(), 0);
    }
    std::size_t find(std::size_t element)
    {
        while (m_parent[element] != element) {
            m_parent[element] = m_parent[m_parent[element]];
            element = m_parent[element];
        }
        return element;
    }
    void unite(std::size_t a, std::size_t b) { m_parent[find(a)] = find(b); }

private:
    std::vector<std::size_t> m_parent;
};

// One side of a triangle; `atLow` and `atHigh` are the triangle's corners at the two ends, as 3 * triangle +
// corner.
struct Side
{
    int low;
    int high;
    bool isForward;
    std::size_t atLow;
    std::size_t atHigh;
};

// The sides of all sound triangles, those of one edge together.
std::vector<Side> sortedSides(Mesh const & mesh)
{
    std::vector<Side> sides;
    sides.reserve(3 * mesh.triangles.size());
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        std::array<int, 3> const & triangle = mesh.triangles[t];
        if (!isSound(mesh, triangle))
            continue;
        for (std::size_t n = 0; n < 3; ++n) {
            std::size_t const next = (n + 1) % 3;
            if (triangle[n] < triangle[next])
                sides.push_back({triangle[n], triangle[next], true, 3 * t + n, 3 * t + next});
            else
                sides.push_back({triangle[next], triangle[n], false, 3 * t + next, 3 * t + n});
        }
    }
    std::sort(sides.begin(), sides.end(), [](Side const & a, Side const & b) {
        return a.low != b.low ? a.low < b.low : a.high < b.high;
    });
    return sides;
}

// Calls action(first, last) for the sides of each edge.
template <class Action>
void forEachEdge(std::vector<Side> const & sides, Action action)
{
    for (auto first = sides.begin(); first != sides.end();) {
        auto const last = std::find_if(first, sides.end(), [&](Side const & side) {
            return side.low != first->low || side.high != first->high;
        });
        action(first, last);
        first = last;
    }
}

} // namespace

bool operator==(Mesh const & left, Mesh const & right)
{
    return left.vertices == right.vertices && left.normals == right.normals &&
           left.triangles == right.triangles;
}

MeshTarget::~MeshTarget() = default;

void MeshTarget::onAddNewVertex(int index, double const * coords, double const * normal)
{
    if (index != static_cast<int>(m_mesh.vertices.size()))
        m_violation =
            "vertex " + std::to_string(index) + " came as number " + std::to_string(m_mesh.vertices.size());
    if (index + 1 != debugCurrentVertexNumber())
        m_violation = "vertex count does not match index " + std::to_string(index);
    m_mesh.vertices.emplace_back(coords);
    m_mesh.normals.emplace_back(normal);
}

void MeshTarget::onAddNewVertex(int, float const *, float const *)
{
    m_violation = "a vertex in single precision";
}

void MeshTarget::onAddNewTriangle(int a, int b, int c)
{
    int const vertices = static_cast<int>(m_mesh.vertices.size());
    for (int const vertex : {a, b, c}) {
        if (vertex < 0 || vertex >= vertices)
            m_violation = "triangle over unknown vertex " + std::to_string(vertex);
    }
    m_mesh.triangles.push_back({a, b, c});
}

Topology examine(Mesh const & mesh)
{
    Topology result;
    DisjointSets fans(3 * mesh.triangles.size());
    DisjointSets components(mesh.vertices.size());
    forEachEdge(sortedSides(mesh), [&](auto first, auto last) {
        ++result.edges;
        components.unite(static_cast<std::size_t>(first->low), static_cast<std::size_t>(first->high));
        auto const triangles = last - first;
        if (triangles == 1)
            ++result.boundaryEdges;
        else if (triangles > 2 || first->isForward == (first + 1)->isForward)
            ++result.badEdges;
        for (auto side = first + 1; side != last; ++side) {
            fans.unite(first->atLow, side->atLow);
            fans.unite(first->atHigh, side->atHigh);
        }
    });

    std::vector<int> fansAtVertex(mesh.vertices.size(), 0);
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        if (!isSound(mesh, mesh.triangles[t])) {
            ++result.brokenTriangles;
            continue;
        }
        ++result.triangles;
        for (std::size_t n = 0; n < 3; ++n) {
            if (fans.find(3 * t + n) == 3 * t + n)
                ++fansAtVertex[static_cast<std::size_t>(mesh.triangles[t][n])];
        }
    }
    for (std::size_t v = 0; v < mesh.vertices.size(); ++v) {
        if (fansAtVertex[v] == 0) {
            ++result.unusedVertices;
            continue;
        }
        ++result.usedVertices;
        result.badVertices += fansAtVertex[v] > 1 ? 1 : 0;
        result.components += components.find(v) == v ? 1 : 0;
    }
    return result;
}

double signedVolume(Mesh const & mesh)
{
    double sum = 0;
    for (std::array<int, 3> const & triangle : mesh.triangles)
        sum += dot(corner(mesh, triangle, 0), cross(corner(mesh, triangle, 1), corner(mesh, triangle, 2)));
    return sum / 6;
}

double area(Mesh const & mesh)
{
    double sum = 0;
    for (std::array<int, 3> const & triangle : mesh.triangles) {
        Point3D_d const & origin = corner(mesh, triangle, 0);
        sum += cross(corner(mesh, triangle, 1) - origin, corner(mesh, triangle, 2) - origin).length();
    }
    return sum / 2;
}

MeshDistance::MeshDistance(Mesh const & mesh)
{
    std::vector<Point3D> vertices;
    for (Point3D_d const & vertex : mesh.vertices)
        vertices.emplace_back(vertex.asArray());
    std::vector<std::int32_t> corners;
    for (std::array<int, 3> const & triangle : mesh.triangles)
        corners.insert(corners.end(), triangle.begin(), triangle.end());
    m_projector.emplace(static_cast<int>(vertices.size()), vertices.data(),
                        static_cast<int>(mesh.triangles.size()), corners.data());
}

double MeshDistance::operator()(Point3D_d const & point) const
{
    CMeshProjector::Foot const foot = m_projector->project(Point3D(point.asArray()));
    return foot.triangle < 0 ? std::numeric_limits<double>::infinity()
                             : (Point3D_d(foot.point.asArray()) - point).length();
}

} // namespace qz_test
