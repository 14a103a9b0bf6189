// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Mesh/ThinPlate.h>

#include <QZmath/Backend/DirectSolver.h>
#include <QZmath/Reconstruction/Mesh/MeshTopology.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace QZmath::Stages
{

namespace
{

double const greatestCotangent = 20; // of about 3 degrees; below that it is mostly rounding
double const leastArea = 0.01;       // of a vertex, as a share of the mean

double const sharpCosine = 0.26; // of 75 degrees
int const ringsOffRim = 4;       // beyond which the rim, which is jagged, does not show in normals
int const rimRounds = 8;         // over which they are averaged along it
double const tenseRadii = 5;     // that the tension reaches: what bends decays by a factor of e in each
double const leastPull = 0.05;   // of an edge under tension; a cotangent below 0 would push

Triangle faceOf(std::vector<Vec> const & places, std::array<std::int32_t, 3> const & corners)
{
    return {places[at(corners[0])], places[at(corners[1])], places[at(corners[2])]};
}

} // namespace

struct ThinPlate::Weights
{
    std::vector<double> ofNeighbours; // as m_neighbours
    std::vector<double> sums, areas;  // of free and balanced vertices
};

// The upper triangle of a matrix over the free vertices, row by row, and three right parts, one behind the
// other.
struct ThinPlate::System
{
    std::vector<int> starts{0};
    std::vector<int> columns;
    std::vector<double> values;
    std::vector<double> right;
};

// Builds a system row by row.
class ThinPlate::Assembly
{
public:
    explicit Assembly(std::int32_t size) : m_size(at(size)), m_sums(m_size, 0.0), m_isTouched(m_size, 0)
    {
        m_system.right.assign(3 * m_size, 0.0);
    }

    /// Elements below the diagonal and beyond the free vertices are left out.
    void add(std::size_t column, double value)
    {
        if (column < m_row || column >= m_size)
            return;
        if (!m_isTouched[column]) {
            m_isTouched[column] = 1;
            m_touched.push_back(static_cast<int>(column));
        }
        m_sums[column] += value;
    }
    void addRight(Vec const & value)
    {
        for (std::size_t axis = 0; axis < 3; ++axis)
            m_system.right[axis * m_size + m_row] += value[axis];
    }
    void endRow()
    {
        std::sort(m_touched.begin(), m_touched.end());
        for (int const column : m_touched) {
            m_system.columns.push_back(column);
            m_system.values.push_back(std::exchange(m_sums[at(column)], 0.0));
            m_isTouched[at(column)] = 0;
        }
        m_touched.clear();
        m_system.starts.push_back(static_cast<int>(m_system.columns.size()));
        ++m_row;
    }
    System takeSystem() { return std::move(m_system); }

private:
    std::size_t const m_size;
    System m_system;
    std::size_t m_row = 0;
    std::vector<double> m_sums; // of the row at work
    std::vector<std::uint8_t> m_isTouched;
    std::vector<int> m_touched;
};

ThinPlate::~ThinPlate() = default;

ThinPlate::ThinPlate(PlatePatch const & patch, CProgressCounter * progress) : m_patch(patch)
{
    std::size_t const count = at(patch.free + patch.balanced);
    std::size_t const itemsPerTurn = 1 << 14; // before an interruption is asked for
    auto const serve = [&](std::size_t item) {
        if (progress != nullptr && item % itemsPerTurn == 0)
            progress->SetPosFloat(0.0);
    };
    // Calls visit(row, neighbour) for the edges of all triangles, most of them twice.
    auto const forEdges = [&](auto const & visit) {
        for (std::size_t triangle = 0; triangle < patch.triangles.size(); ++triangle) {
            serve(triangle);
            for (std::size_t k = 0; k < 3; ++k) {
                std::int32_t const a = patch.triangles[triangle][k];
                std::int32_t const b = patch.triangles[triangle][(k + 1) % 3];
                if (at(a) < count)
                    visit(at(a), b);
                if (at(b) < count)
                    visit(at(b), a);
            }
        }
    };
    // Where the rows begin, then, as they are filled, where they end.
    std::vector<std::int32_t> ends(count + 1, 0);
    forEdges([&](std::size_t row, std::int32_t) { ++ends[row + 1]; });
    for (std::size_t row = 0; row < count; ++row)
        ends[row + 1] += ends[row];
    m_neighbours.resize(at(ends[count]));
    forEdges([&](std::size_t row, std::int32_t neighbour) { m_neighbours[at(ends[row]++)] = neighbour; });
    m_starts.assign(1, 0);
    m_starts.reserve(count + 1);
    auto last = m_neighbours.begin();
    std::int32_t begin = 0;
    for (std::size_t row = 0; row < count; ++row) {
        serve(row);
        auto const first = m_neighbours.begin() + begin;
        auto const end = m_neighbours.begin() + ends[row];
        begin = ends[row];
        std::sort(first, end);
        auto const rowEnd = std::unique(first, end);
        last = last == first ? rowEnd : std::move(first, rowEnd, last);
        m_starts.push_back(static_cast<std::int32_t>(last - m_neighbours.begin()));
    }
    m_neighbours.erase(last, m_neighbours.end());
}

ThinPlate::Weights ThinPlate::weigh(std::vector<Vec> const & places) const
{
    Weights result;
    result.ofNeighbours.assign(m_neighbours.size(), 0.0);
    result.sums.assign(rows(), 0.0);
    result.areas.assign(rows(), 0.0);
    double area = 0;
    for (std::array<std::int32_t, 3> const & corners : m_patch.triangles) {
        double const twice = faceOf(places, corners).areaNormal().length();
        for (std::size_t k = 0; k < 3; ++k) {
            std::int32_t const ends[2] = {corners[(k + 1) % 3], corners[(k + 2) % 3]};
            double const along = dot(places[at(ends[0])] - places[at(corners[k])],
                                     places[at(ends[1])] - places[at(corners[k])]);
            double const cotangent = std::abs(along) < greatestCotangent * twice
                                         ? along / twice
                                         : std::copysign(greatestCotangent, along);
            for (std::size_t end = 0; end < 2; ++end) {
                if (at(ends[end]) >= rows())
                    continue;
                auto const first = m_neighbours.begin() + m_starts[at(ends[end])];
                auto const last = m_neighbours.begin() + m_starts[at(ends[end]) + 1];
                auto const found = std::lower_bound(first, last, ends[1 - end]) - m_neighbours.begin();
                result.ofNeighbours[static_cast<std::size_t>(found)] += 0.5 * cotangent;
            }
            if (at(corners[k]) < rows())
                result.areas[at(corners[k])] += twice / 6;
        }
        area += 0.5 * twice;
    }
    double const least = leastArea * area / static_cast<double>(places.size());
    for (std::size_t row = 0; row < rows(); ++row) {
        forEachNeighbour(row,
                         [&](std::size_t, std::size_t n) { result.sums[row] += result.ofNeighbours[n]; });
        result.areas[row] = std::max(result.areas[row], least);
    }
    return result;
}

// The normals some rings off the rim, for each balanced vertex: on the side of the free vertices or on the
// other.
std::vector<Vec> ThinPlate::normalsOffRim(std::vector<Vec> const & places, bool isInside) const
{
    std::vector<std::array<std::int32_t, 3>> triangles;
    for (std::array<std::int32_t, 3> const & corners : m_patch.triangles) {
        if ((std::min({corners[0], corners[1], corners[2]}) < m_patch.free) == isInside)
            triangles.push_back(corners);
    }
    // Rings from the rim on.
    std::vector<int> rings(places.size(), -1);
    std::fill(rings.begin() + m_patch.free, rings.begin() + static_cast<std::ptrdiff_t>(rows()), 0);
    for (int ring = 0; ring < ringsOffRim; ++ring) {
        for (std::array<std::int32_t, 3> const & corners : triangles) {
            bool const isNext = std::any_of(corners.begin(), corners.end(),
                                            [&](std::int32_t v) { return rings[at(v)] == ring; });
            for (std::int32_t const corner : corners) {
                if (isNext && rings[at(corner)] < 0)
                    rings[at(corner)] = ring + 1;
            }
        }
    }
    std::vector<Vec> normals(places.size());
    for (std::array<std::int32_t, 3> const & corners : triangles) {
        for (std::int32_t const corner : corners)
            normals[at(corner)] = normals[at(corner)] + faceOf(places, corners).areaNormal();
    }
    // Each ring takes over those of the next one, as far as there is one.
    std::vector<Vec> next(places.size());
    for (int ring = ringsOffRim - 1; ring >= 0; --ring) {
        std::fill(next.begin(), next.end(), Vec());
        for (std::array<std::int32_t, 3> const & corners : triangles) {
            for (std::int32_t const corner : corners) {
                for (std::int32_t const other : corners) {
                    if (rings[at(corner)] == ring && rings[at(other)] == ring + 1)
                        next[at(corner)] = next[at(corner)] + normals[at(other)];
                }
            }
        }
        for (std::size_t v = 0; v < places.size(); ++v) {
            if (next[v].squared() > 0)
                normals[v] = next[v];
        }
    }
    normals.resize(rows());
    // Along the rim.
    for (int round = 0; round < rimRounds; ++round) {
        next.assign(normals.begin(), normals.end());
        for (std::size_t v = at(m_patch.free); v < rows(); ++v) {
            forEachNeighbour(v, [&](std::size_t other, std::size_t) {
                if (other >= at(m_patch.free) && other < rows())
                    next[v] = next[v] + normals[other];
            });
        }
        normals.swap(next);
    }
    return normals;
}

// The balanced vertices where the surface and the membrane make a sharp corner.
std::vector<std::uint8_t> ThinPlate::findSharpRim(std::vector<Vec> const & places) const
{
    std::vector<Vec> const inner = normalsOffRim(places, true);
    std::vector<Vec> const outer = normalsOffRim(places, false);
    std::vector<std::uint8_t> isSharp(rows(), 0);
    for (std::size_t v = at(m_patch.free); v < rows(); ++v)
        isSharp[v] = dot(inner[v], outer[v]) < sharpCosine * inner[v].length() * outer[v].length();
    return isSharp;
}

// Those and what is near to them.
std::vector<std::uint8_t> ThinPlate::findTense(std::vector<Vec> const & places, double radius) const
{
    std::vector<std::uint8_t> isTense = findSharpRim(places);
    double const reach = tenseRadii * radius;
    std::vector<std::pair<std::size_t, std::size_t>>
        open; // vertices, and those of the rim that they are near
    for (std::size_t v = 0; v < isTense.size(); ++v) {
        if (isTense[v])
            open.push_back({v, v});
    }
    for (std::size_t n = 0; n < open.size(); ++n) {
        std::size_t const start = open[n].second;
        forEachNeighbour(open[n].first, [&](std::size_t other, std::size_t) {
            if (other >= at(m_patch.free) || isTense[other] ||
                (places[other] - places[start]).squared() > reach * reach)
                return;
            isTense[other] = 1;
            open.push_back({other, start});
        });
    }
    return isTense;
}

bool ThinPlate::stretch(std::vector<Vec> & places, CProgressCounter * progress)
{
    Assembly assembly(m_patch.free);
    for (std::size_t row = 0; row < at(m_patch.free); ++row) {
        forEachNeighbour(row, [&](std::size_t other, std::size_t) {
            assembly.add(row, 1.0);
            assembly.add(other, -1.0);
            if (other >= at(m_patch.free))
                assembly.addRight(places[other]);
            // Zeros, for the structure of the plate: the order of elimination is found only once.
            if (other < rows())
                forEachNeighbour(other, [&](std::size_t next, std::size_t) { assembly.add(next, 0.0); });
        });
        assembly.endRow();
    }
    return solve(assembly.takeSystem(), places, progress);
}

bool ThinPlate::bend(std::vector<Vec> & places, double radius, CProgressCounter * progress)
{
    std::size_t const free = at(m_patch.free);
    Weights const weights = weigh(places);
    std::vector<std::uint8_t> const isTense =
        radius > 0 ? findTense(places, radius) : std::vector<std::uint8_t>(rows(), 0);
    double const tension = radius > 0 ? 1 / (radius * radius) : 0.0;
    // What the held vertices give to each Laplacian over the area.
    std::vector<Vec> held(rows());
    for (std::size_t v = 0; v < rows(); ++v) {
        if (v >= free)
            held[v] = places[v] * -weights.sums[v];
        forEachNeighbour(v, [&](std::size_t other, std::size_t n) {
            if (other >= free)
                held[v] = held[v] + places[other] * weights.ofNeighbours[n];
        });
        held[v] = held[v] * (1 / weights.areas[v]);
    }
    Assembly assembly(m_patch.free);
    for (std::size_t row = 0; row < free; ++row) {
        // The Laplacian of a vertex, of which this one has the given share.
        auto const addLaplacian = [&](std::size_t vertex, double share) {
            double const factor = share / weights.areas[vertex];
            assembly.add(vertex, -factor * weights.sums[vertex]);
            forEachNeighbour(vertex, [&](std::size_t other, std::size_t n) {
                assembly.add(other, factor * weights.ofNeighbours[n]);
            });
            assembly.addRight(held[vertex] * -share);
        };
        addLaplacian(row, -weights.sums[row]);
        forEachNeighbour(row, [&](std::size_t other, std::size_t n) {
            if (other < rows())
                addLaplacian(other, weights.ofNeighbours[n]);
            if (!isTense[row] || (other < rows() && !isTense[other]))
                return;
            double const pull = tension * std::max(weights.ofNeighbours[n], leastPull);
            assembly.add(row, pull);
            assembly.add(other, -pull);
            if (other >= free)
                assembly.addRight(places[other] * pull);
        });
        assembly.endRow();
    }
    return solve(assembly.takeSystem(), places, progress);
}

bool ThinPlate::solve(System && system, std::vector<Vec> & places, CProgressCounter * progress)
{
    using Solver = QzBackend::CDirectSolver;
    if (m_solver == nullptr) {
        m_structure = std::make_unique<System>(std::move(system));
        m_solver = std::make_unique<Solver>(Solver::Structure::symmetricUpper,
                                            Solver::Definiteness::positiveDefinite);
        CPrgCntSubPhase const phase(progress, 0.0, 0.6, 0, true);
        if (!m_solver->defineStructure(m_patch.free, m_structure->starts.data(), m_structure->columns.data(),
                                       static_cast<int>(m_structure->columns.size()), 0) ||
            !m_solver->reorder(progress))
            return false;
    } else {
        m_structure->values.swap(system.values);
        m_structure->right.swap(system.right);
    }
    {
        CPrgCntSubPhase const phase(progress, 0.6, 0.4, 0, true);
        if (!m_solver->factor(m_structure->values.data(), progress))
            return false;
    }
    std::vector<double> solution(m_structure->right.size());
    if (!m_solver->solve(m_structure->right.data(), 3, solution.data()))
        return false;
    std::size_t const free = at(m_patch.free);
    for (std::size_t v = 0; v < free; ++v)
        places[v] = {{solution[v], solution[free + v], solution[2 * free + v]}};
    return true;
}

} // namespace QZmath::Stages
