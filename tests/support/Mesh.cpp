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

std::vector<int> boundaryVertices(Mesh const & mesh)
{
    std::vector<int> vertices;
    forEachEdge(sortedSides(mesh), [&](auto first, auto last) {
        if (last - first == 1) {
            vertices.push_back(first->low);
            vertices.push_back(first->high);
        }
    });
    std::sort(vertices.begin(), vertices.end());
    vertices.erase(std::unique(vertices.begin(), vertices.end()), vertices.end());
    return vertices;
}

std::vector<int> edgeDistances(Mesh const & mesh, std::vector<int> const & sources)
{
    std::vector<std::vector<int>> neighbours(mesh.vertices.size());
    forEachEdge(sortedSides(mesh), [&](auto first, auto) {
        neighbours[static_cast<std::size_t>(first->low)].push_back(first->high);
        neighbours[static_cast<std::size_t>(first->high)].push_back(first->low);
    });
    std::vector<int> distances(mesh.vertices.size(), -1);
    std::vector<int> queue = sources;
    for (int const source : sources)
        distances[static_cast<std::size_t>(source)] = 0;
    for (std::size_t head = 0; head < queue.size(); ++head) {
        int const distance = distances[static_cast<std::size_t>(queue[head])];
        for (int const neighbour : neighbours[static_cast<std::size_t>(queue[head])]) {
            if (distances[static_cast<std::size_t>(neighbour)] < 0) {
                distances[static_cast<std::size_t>(neighbour)] = distance + 1;
                queue.push_back(neighbour);
            }
        }
    }
    return distances;
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

MeshDistance::MeshDistance(Mesh const & mesh) : m_mesh(mesh)
{
    double const infinite = std::numeric_limits<double>::infinity();
    m_low = Point3D_d(infinite);
    Point3D_d high(-infinite);
    for (std::array<int, 3> const & triangle : mesh.triangles) {
        for (int n = 0; n < 3; ++n) {
            Point3D_d const & vertex = corner(mesh, triangle, n);
            m_low = {std::min(m_low.x(), vertex.x()), std::min(m_low.y(), vertex.y()),
                     std::min(m_low.z(), vertex.z())};
            high = {std::max(high.x(), vertex.x()), std::max(high.y(), vertex.y()),
                    std::max(high.z(), vertex.z())};
        }
    }
    if (mesh.triangles.empty())
        m_low = high = Point3D_d(0);

    // Cells about as wide as two triangles, and not many more cells than triangles.
    Point3D_d const extent = high - m_low;
    double const triangleNumber = static_cast<double>(std::max<std::size_t>(1, mesh.triangles.size()));
    double const longest = std::max({extent.x(), extent.y(), extent.z()});
    m_cellSize = std::max(2 * std::sqrt(area(mesh) / triangleNumber), longest / 1024);
    if (!(m_cellSize > 0))
        m_cellSize = 1;
    double cellNumber = 0;
    do {
        cellNumber = 1;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            m_cellNumber[axis] = static_cast<int>(extent.asArray()[axis] / m_cellSize) + 1;
            cellNumber *= m_cellNumber[axis];
        }
        m_cellSize *= cellNumber > 32 * triangleNumber ? 1.25 : 1;
    } while (cellNumber > 32 * triangleNumber);

    auto const forEachCell = [&](std::array<int, 3> const & triangle, auto action) {
        std::array<int, 3> first = cellOf(corner(mesh, triangle, 0));
        std::array<int, 3> last = first;
        for (int n = 1; n < 3; ++n) {
            std::array<int, 3> const cell = cellOf(corner(mesh, triangle, n));
            for (std::size_t axis = 0; axis < 3; ++axis) {
                first[axis] = std::min(first[axis], cell[axis]);
                last[axis] = std::max(last[axis], cell[axis]);
            }
        }
        for (int z = first[2]; z <= last[2]; ++z) {
            for (int y = first[1]; y <= last[1]; ++y) {
                for (int x = first[0]; x <= last[0]; ++x)
                    action(cellIndex({x, y, z}));
            }
        }
    };
    std::size_t const cells = cellIndex({m_cellNumber[0] - 1, m_cellNumber[1] - 1, m_cellNumber[2] - 1}) + 1;
    m_cellStart.assign(cells + 1, 0);
    for (std::array<int, 3> const & triangle : mesh.triangles)
        forEachCell(triangle, [&](std::size_t cell) { ++m_cellStart[cell + 1]; });
    std::partial_sum(m_cellStart.begin(), m_cellStart.end(), m_cellStart.begin());
    m_cellTriangles.resize(m_cellStart.back());
    std::vector<std::size_t> next(m_cellStart.begin(), m_cellStart.end() - 1);
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
        forEachCell(mesh.triangles[t],
                    [&](std::size_t cell) { m_cellTriangles[next[cell]++] = static_cast<int>(t); });
}

std::array<int, 3> MeshDistance::cellOf(Point3D_d const & point) const
{
    std::array<int, 3> cell{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double const position = (point.asArray()[axis] - m_low.asArray()[axis]) / m_cellSize;
        cell[axis] = static_cast<int>(std::clamp(position, 0.0, m_cellNumber[axis] - 1.0));
    }
    return cell;
}

std::size_t MeshDistance::cellIndex(std::array<int, 3> const & cell) const
{
    auto const row = static_cast<std::size_t>(cell[2]) * static_cast<std::size_t>(m_cellNumber[1]) +
                     static_cast<std::size_t>(cell[1]);
    return row * static_cast<std::size_t>(m_cellNumber[0]) + static_cast<std::size_t>(cell[0]);
}

double MeshDistance::operator()(Point3D_d const & point) const
{
    double best = std::numeric_limits<double>::infinity();
    std::array<int, 3> const centre = cellOf(point);
    int const rings = *std::max_element(m_cellNumber.begin(), m_cellNumber.end());
    // Cells of ring r + 1 are at least r cells away from the point, or from its projection on the box.
    for (int ring = 0; ring < rings && best > (ring - 1) * m_cellSize; ++ring) {
        std::array<int, 3> first{};
        std::array<int, 3> last{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            first[axis] = std::max(0, centre[axis] - ring);
            last[axis] = std::min(m_cellNumber[axis] - 1, centre[axis] + ring);
        }
        for (int z = first[2]; z <= last[2]; ++z) {
            for (int y = first[1]; y <= last[1]; ++y) {
                bool const isRim = std::abs(z - centre[2]) == ring || std::abs(y - centre[1]) == ring;
                int const step = isRim || ring == 0 ? 1 : 2 * ring;
                for (int x = isRim ? first[0] : centre[0] - ring; x <= last[0]; x += step) {
                    if (x < 0)
                        continue;
                    std::size_t const cell = cellIndex({x, y, z});
                    for (std::size_t entry = m_cellStart[cell]; entry < m_cellStart[cell + 1]; ++entry) {
                        auto const & triangle =
                            m_mesh.triangles[static_cast<std::size_t>(m_cellTriangles[entry])];
                        best = std::min(best, distanceToTriangle(point, corner(m_mesh, triangle, 0),
                                                                 corner(m_mesh, triangle, 1),
                                                                 corner(m_mesh, triangle, 2)));
                    }
                }
            }
        }
    }
    return best;
}

double median(std::vector<double> & values)
{
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace qz_test
