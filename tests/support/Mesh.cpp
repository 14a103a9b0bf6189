// SPDX-License-Identifier: Apache-2.0
#include <support/Mesh.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

using REmath::Point3D_d;

namespace qz_test
{

namespace
{

double dot(Point3D_d const & a, Point3D_d const & b) { return a.x() * b.x() + a.y() * b.y() + a.z() * b.z(); }

Point3D_d cross(Point3D_d const & a, Point3D_d const & b)
{
    return {a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(), a.x() * b.y() - a.y() * b.x()};
}

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

double distanceToSegment(Point3D_d const & point, Point3D_d const & a, Point3D_d const & b)
{
    Point3D_d const along = b - a;
    double const squaredLength = dot(along, along);
    double const position =
        squaredLength > 0 ? std::clamp(dot(point - a, along) / squaredLength, 0.0, 1.0) : 0.0;
    return (point - (a + along * position)).length();
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

double distanceToTriangle(Point3D_d const & point, Point3D_d const & a, Point3D_d const & b,
                          Point3D_d const & c)
{
    Point3D_d const normal = cross(b - a, c - a);
    double const doubledArea = normal.length();
    auto const isLeftOf = [&](Point3D_d const & from, Point3D_d const & to) {
        return dot(cross(to - from, point - from), normal) >= 0;
    };
    if (doubledArea > 0 && isLeftOf(a, b) && isLeftOf(b, c) && isLeftOf(c, a))
        return std::abs(dot(point - a, normal)) / doubledArea;
    return std::min(
        {distanceToSegment(point, a, b), distanceToSegment(point, b, c), distanceToSegment(point, c, a)});
}

MeshDistance::MeshDistance(Mesh const & mesh) : m_mesh(mesh), m_triangles(mesh.triangles)
{
    build(0, 0, m_triangles.size());
}

void MeshDistance::build(std::size_t node, std::size_t first, std::size_t last)
{
    if (m_boxes.size() <= node)
        m_boxes.resize(node + 1);
    Box & box = m_boxes[node];
    box.low.fill(std::numeric_limits<double>::infinity());
    box.high.fill(-std::numeric_limits<double>::infinity());
    std::size_t longest = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t t = first; t < last; ++t) {
            for (int n = 0; n < 3; ++n) {
                double const coord = corner(m_mesh, m_triangles[t], n).asArray()[axis];
                box.low[axis] = std::min(box.low[axis], coord);
                box.high[axis] = std::max(box.high[axis], coord);
            }
        }
        if (box.high[axis] - box.low[axis] > box.high[longest] - box.low[longest])
            longest = axis;
    }
    if (last - first <= leafSize)
        return;
    auto const at = [&](std::size_t t) { return m_triangles.begin() + static_cast<std::ptrdiff_t>(t); };
    auto const place = [&](std::array<int, 3> const & triangle) {
        return corner(m_mesh, triangle, 0).asArray()[longest];
    };
    std::size_t const middle = first + (last - first) / 2;
    std::nth_element(at(first), at(middle), at(last),
                     [&](auto const & a, auto const & b) { return place(a) < place(b); });
    build(2 * node + 1, first, middle);
    build(2 * node + 2, middle, last);
}

double MeshDistance::distanceToBox(std::size_t node, Point3D_d const & point) const
{
    double sum = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double const coord = point.asArray()[axis];
        double const outside =
            std::max({m_boxes[node].low[axis] - coord, coord - m_boxes[node].high[axis], 0.0});
        sum += outside * outside;
    }
    return std::sqrt(sum);
}

void MeshDistance::search(std::size_t node, std::size_t first, std::size_t last, Point3D_d const & point,
                          double & best) const
{
    // Rounding must not keep the nearest triangle out.
    if (distanceToBox(node, point) * (1 - 1e-12) > best)
        return;
    if (last - first <= leafSize) {
        for (std::size_t t = first; t < last; ++t) {
            std::array<int, 3> const & triangle = m_triangles[t];
            best =
                std::min(best, distanceToTriangle(point, corner(m_mesh, triangle, 0),
                                                  corner(m_mesh, triangle, 1), corner(m_mesh, triangle, 2)));
        }
        return;
    }
    std::size_t const middle = first + (last - first) / 2;
    bool const isLeftNearer = distanceToBox(2 * node + 1, point) < distanceToBox(2 * node + 2, point);
    for (bool const goesLeft : {isLeftNearer, !isLeftNearer})
        goesLeft ? search(2 * node + 1, first, middle, point, best)
                 : search(2 * node + 2, middle, last, point, best);
}

double MeshDistance::operator()(Point3D_d const & point) const
{
    double best = std::numeric_limits<double>::infinity();
    if (!m_triangles.empty())
        search(0, 0, m_triangles.size(), point, best);
    return best;
}

} // namespace qz_test
