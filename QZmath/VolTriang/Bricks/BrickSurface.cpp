// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/BrickSurface.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>

#include <algorithm>
#include <cmath>
#include <utility>

// Layout. A brick keeps its 8 x 8 x 8 corners as bits: one for the sign, one for each edge that the surface
// crosses, by direction and plane of x. Crossed edges of a brick are numbered by direction, plane and bit,
// so `rank` and a count of the bits before give an edge's number without a table; `m_edges` has one entry
// for each, the brick's from `firstEdge` on. Edges towards a brick that was not known when the bits were
// made are in `m_otherEdges`.
//
// Invariant. An edge belongs to the brick of its lexicographically smaller corner. Its entry only ever
// goes from `unsolved` to a place between the corners, and from there to the index of its vertex. Bits
// and ranks of a brick never change once they are made, so bricks that the walk adds later leave the
// numbers of the others alone.
//
// Order. `prepare`: values and signs of all bricks, then their crossings, which need the signs of the
// neighbours, then the first edges by adding up, then the places of the vertices, for which the values of
// the neighbours along the edge give the guess. Every loop writes to its own brick only, so threads take
// bricks as they come. The walk, on one thread, alone gives vertices their indices, in the order in which it
// asks for them. What it visited waits in a list; when that is long, the walk stands still, and threads make
// the positions of the new vertices and look up the corners of the triangles, each for a part of the list.

namespace VolTr
{

using QzBackend::LoopTeam;

using namespace CubeCut;

namespace
{

// Bricks that a thread takes at a time.
int const batchBricks = 16;
std::size_t const bricksPerTurn = 1 << 12; // on one thread
// With cubes much smaller than the deepest cells most bricks around a node hold no surface.
double const mostCubesPerCell = 2.5;

// A vertex is at most this part of the edge away from the crossing.
double const accuracy = 0.98 / 2048;
double const edgeParts = 1 << 30;

std::uint64_t const allPlaces = ~UINT64_C(0);

// Cubes that wait, and those of them whose triangles are made together.
std::size_t const mostVisited = 1 << 13;
std::size_t const mostNewBricks = 32; // that the walk evaluates meanwhile
int const cubesPerPart = 64;
static_assert(cubesPerPart * 12 <= TriangleRun::mostInPart); // two triangles in each of six tetrahedra

int popCount(std::uint64_t bits)
{
    bits -= bits >> 1 & UINT64_C(0x5555555555555555);
    bits = (bits & UINT64_C(0x3333333333333333)) + (bits >> 2 & UINT64_C(0x3333333333333333));
    bits = (bits + (bits >> 4)) & UINT64_C(0x0f0f0f0f0f0f0f0f);
    return static_cast<int>(bits * UINT64_C(0x0101010101010101) >> 56);
}

// Are all corners of a cube in its own brick?
bool isInside(int local)
{
    int const last = brickEdge - 1;
    return local >> 6 != last && (local >> 3 & 7) != last && (local & 7) != last;
}

int neighbourIndex(int dx, int dy, int dz) { return 9 * (dx + 1) + 3 * (dy + 1) + dz + 1; }

// Values along a line, at -1, 0, 1 and 2 edges; those at 0 and 1 differ in sign, the outer two may be NaN.
struct EdgeValues
{
    double before;
    double first;
    double second;
    double after;
};

// Expects the crossing where the polynomial through the values has it.
struct CrossingGuess
{
    double place;
    double slope;

    explicit CrossingGuess(EdgeValues const & values)
    {
        slope = values.second - values.first;
        place = -values.first / slope;
        double const c2 = 0.5 * (values.before + values.second) - values.first;
        double const c3 = (values.after - values.before) * (1.0 / 6.0) + (values.first - values.second) * 0.5;
        double const c1 = slope - c2 - c3;
        double t = place;
        double tangent = slope;
        for (int round = 0; round < 2; ++round) {
            double const value = ((c3 * t + c2) * t + c1) * t + values.first;
            tangent = (3.0 * c3 * t + 2.0 * c2) * t + c1;
            t -= value / tangent;
        }
        // False for NaN, which outer values that are not known bring in.
        if (t > 0.0 && t < 1.0 && tangent * slope > 0.0) {
            place = t;
            slope = tangent;
        }
    }
};

// The place of a crossing between 0 and 1, within `accuracy`. Two probes beside the expected crossing, one on
// each side, mostly close it in; if four have not, the interval is halved. With `isContinuous` the place is
// where the line through the last two probes crosses, so that it hardly changes with the last bits of the
// function.
template <class Function>
double findCrossing(EdgeValues const & values, Function const & valueAt, bool isContinuous)
{
    int const greatestProbes = 4;
    double const margin = 0.8 * accuracy;
    double const width = 1.99 * accuracy;
    CrossingGuess const expected(values);
    double guess = expected.place;
    double slope = expected.slope;
    double low = 0.0;
    double high = 1.0;
    double lowValue = values.first;
    double highValue = values.second;
    for (int probes = 0;; ++probes) {
        if (!(guess > low && guess < high))
            guess = low - lowValue * (high - low) / (highValue - lowValue);
        if (high - low <= 2.0 * accuracy && isContinuous)
            return low - lowValue * (high - low) / (highValue - lowValue);
        if (high - low <= 2.0 * accuracy)
            return std::max(high - accuracy, std::min(low + accuracy, guess));
        double probe = 0.5 * (low + high);
        if (probes < greatestProbes && guess > low && guess < high) {
            // On the farther side of the crossing; near enough to the other end to finish, if possible.
            if (guess - low < high - guess)
                probe = low + width > guess + 0.2 * accuracy ? std::min(guess + margin, low + width)
                                                             : guess + margin;
            else
                probe = high - width < guess - 0.2 * accuracy ? std::max(guess - margin, high - width)
                                                              : guess - margin;
            probe = probe > low && probe < high ? probe : 0.5 * (low + high);
        }
        double const value = valueAt(probe);
        // The slope between this probe and the nearest one is better than that of the curve before.
        if (probes > 0) {
            bool const isLowNearer = probe - low < high - probe;
            double const better =
                isLowNearer ? (value - lowValue) / (probe - low) : (highValue - value) / (high - probe);
            slope = better * slope > 0.0 ? better : slope;
        }
        guess = probe - value / slope;
        if ((value > 0.0) == (values.first > 0.0)) {
            low = probe;
            lowValue = value;
        } else {
            high = probe;
            highValue = value;
        }
    }
}

} // namespace

BrickSurface::BrickSurface(BrickFunction const & function, double isoValue, double const * start, double edge,
                           int const * bounds, std::function<bool(double const *)> isRefused)
    : m_function(function), m_isoValue(isoValue), m_edge(edge), m_isRefused(std::move(isRefused))
{
    for (int axis = 0; axis < 3; ++axis) {
        m_start[axis] = start[axis];
        m_bounds[axis] = bounds[axis];
        // With cubes as large as the deepest cells, a brick then covers just the places of a brick of nodes.
        double const index = (start[axis] - function.nodeCoord(0, axis)) / edge + 0.5;
        m_align[axis] = std::fabs(index) < 1e9
                            ? static_cast<int>(std::lround(index) - brickEdge + 1) & (brickEdge - 1)
                            : 0;
    }
}

int BrickSurface::findBrick(std::array<int, 3> const & first) const
{
    return m_table.find(CLatticeHash::hashOf(CInt3(first[0], first[1], first[2]), 0),
                        [&](int brick) { return m_bricks[static_cast<std::size_t>(brick)].first == first; });
}

// A brick that is not there yet, without values.
int BrickSurface::addBrick(std::array<int, 3> const & first)
{
    auto const hash = [&](std::array<int, 3> const & place) {
        return CLatticeHash::hashOf(CInt3(place[0], place[1], place[2]), 0);
    };
    int const index = static_cast<int>(m_bricks.size());
    m_bricks.emplaceBack();
    if (m_isRefused)
        m_refusals.emplaceBack();
    Brick & brick = m_bricks.back();
    brick.first = first;
    for (int dx = -1; dx <= 1; ++dx) {
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dz = -1; dz <= 1; ++dz) {
                int const neighbour = dx == 0 && dy == 0 && dz == 0
                                          ? index
                                          : findBrick({first[0] + brickEdge * dx, first[1] + brickEdge * dy,
                                                       first[2] + brickEdge * dz});
                brick.neighbours[static_cast<std::size_t>(neighbourIndex(dx, dy, dz))] = neighbour;
                if (neighbour >= 0)
                    m_bricks[static_cast<std::size_t>(neighbour)]
                        .neighbours[static_cast<std::size_t>(neighbourIndex(-dx, -dy, -dz))] = index;
            }
        }
    }
    m_table.insert(hash(first), index,
                   [&](int other) { return hash(m_bricks[static_cast<std::size_t>(other)].first); });
    return index;
}

// The bricks that hold the deepest nodes.
void BrickSurface::collectBricks(LoopTeam & team, BrickChoice const & isWanted)
{
    if (!(m_function.deepestCell() < mostCubesPerCell * std::fabs(m_edge)))
        return;
    std::size_t const expected = static_cast<std::size_t>(m_function.deepestBoxes());
    if (!isWanted)
        m_bricks.reserve(expected + expected / 16);
    for (int n = 0; n < m_function.deepestBoxes(); ++n) {
        if (static_cast<std::size_t>(n) % bricksPerTurn == 0)
            team.serve();
        double box[2][3];
        m_function.deepestBox(n, box[0], box[1]);
        std::array<int, 3> low;
        std::array<int, 3> high;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            double index[2];
            for (std::size_t end = 0; end < 2; ++end) {
                double const bound = m_bounds[axis] + 1.0;
                index[end] = (m_start[axis] - box[end][axis]) / m_edge + 0.5;
                index[end] = std::max(-bound, std::min(bound, index[end]));
            }
            low[axis] = static_cast<int>(std::lround(std::min(index[0], index[1])));
            high[axis] = static_cast<int>(std::lround(std::max(index[0], index[1])));
            low[axis] -= (low[axis] - m_align[axis]) & (brickEdge - 1);
        }
        std::array<int, 3> first;
        for (first[0] = low[0]; first[0] <= high[0]; first[0] += brickEdge) {
            for (first[1] = low[1]; first[1] <= high[1]; first[1] += brickEdge) {
                for (first[2] = low[2]; first[2] <= high[2]; first[2] += brickEdge) {
                    if (findBrick(first) < 0 && (!isWanted || isWanted(first)))
                        addBrick(first);
                }
            }
        }
    }
}

void BrickSurface::evaluate(Brick & brick, float * values, BrickFunction::GridScratch & scratch) const
{
    BrickFunction::GridCoords coords;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t n = 0; n < brickEdge; ++n)
            coords[axis][n] = coordAt(brick.first[axis] + static_cast<int>(n), static_cast<int>(axis));
    }
    m_function.evalGrid(coords, values, scratch);
    for (int x = 0; x < brickEdge; ++x) {
        std::uint64_t signs = 0;
        for (int n = 0; n < brickRows; ++n)
            signs |= static_cast<std::uint64_t>(values[brickRows * x + n] - m_isoValue > 0.0) << n;
        brick.signs[x] = signs;
    }
}

// A plane of bits over y and z, with those beside it.
struct BrickSurface::SignPlanes
{
    std::uint64_t planes[3][3];

    // The plane whose bit (y, z) is bit (y + dy, z + dz) of this one.
    std::uint64_t shifted(int dy, int dz) const
    {
        std::uint64_t const middle = alongZ(1, dz);
        if (dy == 0)
            return middle;
        return dy > 0 ? middle >> 8 | alongZ(2, dz) << 56 : middle << 8 | alongZ(0, dz) >> 56;
    }

private:
    std::uint64_t alongZ(int y, int dz) const
    {
        if (dz == 0)
            return planes[y][1];
        return dz > 0 ? (planes[y][1] >> 1 & UINT64_C(0x7f7f7f7f7f7f7f7f)) |
                            (planes[y][2] << 7 & UINT64_C(0x8080808080808080))
                      : (planes[y][1] << 1 & UINT64_C(0xfefefefefefefefe)) |
                            (planes[y][0] >> 7 & UINT64_C(0x0101010101010101));
    }
};

void BrickSurface::findCrossings(Brick & brick) const
{
    std::uint32_t count = 0;
    std::uint64_t crossed[brickEdge][edgeDirections];
    for (int x = 0; x <= brickEdge; ++x) {
        SignPlanes signs;
        SignPlanes known;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dz = -1; dz <= 1; ++dz) {
                int const neighbour =
                    brick.neighbours[static_cast<std::size_t>(neighbourIndex(x / brickEdge, dy, dz))];
                signs.planes[dy + 1][dz + 1] =
                    neighbour < 0 ? 0
                                  : m_bricks[static_cast<std::size_t>(neighbour)].signs[x & (brickEdge - 1)];
                known.planes[dy + 1][dz + 1] = neighbour < 0 ? 0 : allPlaces;
            }
        }
        for (int direction = 0; direction < edgeDirections; ++direction) {
            int const(&toward)[3] = edgeSteps[direction];
            int const from = x - toward[0];
            if (from >= 0 && from < brickEdge)
                crossed[from][direction] = (brick.signs[from] ^ signs.shifted(toward[1], toward[2])) &
                                           known.shifted(toward[1], toward[2]);
        }
    }
    for (int direction = 0; direction < edgeDirections; ++direction) {
        for (int x = 0; x < brickEdge; ++x) {
            brick.isCrossed[direction][x] = crossed[x][direction];
            brick.rank[direction][x] = static_cast<std::uint16_t>(count);
            count += static_cast<std::uint32_t>(popCount(crossed[x][direction]));
        }
    }
    brick.edges = count;
}

void BrickSurface::positionOf(Place corner, double * out3) const
{
    std::array<int, 3> const & first = m_bricks[static_cast<std::size_t>(corner.brick)].first;
    out3[0] = coordAt(first[0] + (corner.local >> 6), 0);
    out3[1] = coordAt(first[1] + (corner.local >> 3 & 7), 1);
    out3[2] = coordAt(first[2] + (corner.local & 7), 2);
}

// The function along an edge of the lattice.
struct BrickSurface::Evaluator
{
    BrickSurface const & surface;
    BrickFunction::Hint & hint;
    double from[3];
    double along[3];

    Evaluator(BrickSurface const & owner, BrickFunction::Hint & near, Place first, int direction)
        : surface(owner), hint(near)
    {
        surface.positionOf(first, from);
        std::array<int, 3> const & brick = surface.m_bricks[static_cast<std::size_t>(first.brick)].first;
        int const local[3] = {first.local >> 6, first.local >> 3 & 7, first.local & 7};
        for (std::size_t axis = 0; axis < 3; ++axis)
            along[axis] = surface.coordAt(brick[axis] + local[axis] + edgeSteps[direction][axis],
                                          static_cast<int>(axis)) -
                          from[axis];
    }

    void positionAt(double place, double * out3) const
    {
        for (int axis = 0; axis < 3; ++axis)
            out3[axis] = from[axis] + along[axis] * place;
    }

    double operator()(double place) const
    {
        double point[3];
        positionAt(place, point);
        return surface.m_function.eval(point, hint) - surface.m_isoValue;
    }
};

void BrickSurface::solveEdges(int index, std::vector<float> const & values)
{
    Brick const & brick = m_bricks[static_cast<std::size_t>(index)];
    BrickFunction::Hint hint;
    auto const valueAt = [&](int const * place) {
        int const neighbour = brick.neighbours[static_cast<std::size_t>(
            neighbourIndex(place[0] >> 3, place[1] >> 3, place[2] >> 3))];
        if (neighbour < 0)
            return std::nan("");
        int const local = (place[0] & 7) * brickRows + (place[1] & 7) * brickEdge + (place[2] & 7);
        return values[static_cast<std::size_t>(neighbour) * brickPlaces + static_cast<std::size_t>(local)] -
               m_isoValue;
    };
    std::int32_t * edge = m_edges.data() + brick.firstEdge;
    for (int direction = 0; direction < edgeDirections; ++direction) {
        int const(&toward)[3] = edgeSteps[direction];
        for (int x = 0; x < brickEdge; ++x) {
            std::uint64_t rest = brick.isCrossed[direction][x];
            for (int n = 0; rest != 0; ++n, rest >>= 1) {
                if ((rest & 1) == 0)
                    continue;
                int const place[3] = {x, n >> 3, n & 7};
                double line[4];
                for (int step = -1; step <= 2; ++step) {
                    int const corner[3] = {place[0] + step * toward[0], place[1] + step * toward[1],
                                           place[2] + step * toward[2]};
                    line[step + 1] = valueAt(corner);
                }
                Evaluator const evaluator(*this, hint, {index, x * brickRows + n}, direction);
                double const t =
                    findCrossing({line[0], line[1], line[2], line[3]}, evaluator, m_hasContinuousCrossings);
                *edge++ = -2 - static_cast<std::int32_t>(t * edgeParts);
            }
        }
    }
}

// Asks for the corners of the cubes that the surface enters; those in other bricks wait for the walk.
void BrickSurface::findRefusals(int index)
{
    Brick const & brick = m_bricks[static_cast<std::size_t>(index)];
    Refusals & refusals = m_refusals[static_cast<std::size_t>(index)];
    std::uint64_t corners[brickEdge] = {};
    for (int x = 0; x + 1 < brickEdge; ++x) {
        std::uint64_t const cubesInside = UINT64_C(0x007f7f7f7f7f7f7f);
        std::uint64_t any = brick.signs[x] | brick.signs[x + 1];
        std::uint64_t every = brick.signs[x] & brick.signs[x + 1];
        any |= any >> 1;
        any |= any >> 8;
        every &= every >> 1;
        every &= every >> 8;
        std::uint64_t near = any & ~every & cubesInside;
        near |= near << 1;
        near |= near << 8;
        corners[x] |= near;
        corners[x + 1] |= near;
    }
    for (int x = 0; x < brickEdge; ++x) {
        refusals.isKnown[x] = corners[x];
        for (int n = 0; n < brickRows; ++n) {
            if ((corners[x] >> n & 1) == 0)
                continue;
            double point[3];
            positionOf({index, x * brickRows + n}, point);
            if (m_isRefused(point))
                refusals.isRefused[x] |= UINT64_C(1) << n;
        }
    }
}

void BrickSurface::prepare(LoopTeam & team, BrickChoice const & isWanted)
{
    collectBricks(team, isWanted);
    int const count = static_cast<int>(m_bricks.size());
    int const batches = (count + batchBricks - 1) / batchBricks;
    // Calls body(first, end) for ranges of bricks, while the position moves on to `until`.
    auto const forBatches = [&](double until, auto const & body) {
        team.forEach(
            batches,
            [&](int batch) { body(batch * batchBricks, std::min(count, (batch + 1) * batchBricks)); }, until);
    };
    std::vector<float> values;
    QzBackend::assignLarge(team, values, static_cast<std::size_t>(count) * brickPlaces);
    forBatches(0.2, [&](int first, int end) {
        BrickFunction::GridScratch scratch;
        for (int brick = first; brick < end; ++brick)
            evaluate(m_bricks[static_cast<std::size_t>(brick)],
                     values.data() + static_cast<std::size_t>(brick) * brickPlaces, scratch);
    });
    forBatches(0.25, [&](int first, int end) {
        for (int brick = first; brick < end; ++brick)
            findCrossings(m_bricks[static_cast<std::size_t>(brick)]);
    });
    std::size_t edges = 0;
    for (std::size_t n = 0; n < m_bricks.size(); ++n) {
        if (n % bricksPerTurn == 0)
            team.serve();
        m_bricks[n].firstEdge = static_cast<std::uint32_t>(edges);
        edges += m_bricks[n].edges;
    }
    QzBackend::resizeLarge(team, m_edges, edges, unsolved);
    forBatches(1.0, [&](int first, int end) {
        for (int brick = first; brick < end; ++brick) {
            solveEdges(brick, values);
            if (m_isRefused)
                findRefusals(brick);
        }
    });
}

int BrickSurface::enterBrick(std::array<int, 3> const & first)
{
    int const index = addBrick(first);
    float values[brickPlaces];
    Brick & brick = m_bricks[static_cast<std::size_t>(index)];
    evaluate(brick, values, m_scratch);
    findCrossings(brick);
    brick.firstEdge = static_cast<std::uint32_t>(m_edges.size());
    m_edges.resize(m_edges.size() + brick.edges, unsolved);
    return index;
}

// The place some steps of -1 to 1 farther; its brick is negative where none is known.
BrickSurface::Place BrickSurface::step(Place place, int dx, int dy, int dz) const
{
    int const x = (place.local >> 6) + dx;
    int const y = (place.local >> 3 & 7) + dy;
    int const z = (place.local & 7) + dz;
    int const local = (x & 7) * brickRows + (y & 7) * brickEdge + (z & 7);
    if (((x | y | z) & ~7) == 0)
        return {place.brick, local};
    return {m_bricks[static_cast<std::size_t>(place.brick)]
                .neighbours[static_cast<std::size_t>(neighbourIndex(x >> 3, y >> 3, z >> 3))],
            local};
}

// The place some steps farther, in a brick that is made where it is missing.
BrickSurface::Place BrickSurface::enter(Place place, int dx, int dy, int dz)
{
    Place result = step(place, dx, dy, dz);
    if (result.brick < 0) {
        std::array<int, 3> first = m_bricks[static_cast<std::size_t>(place.brick)].first;
        first[0] += brickEdge * (((place.local >> 6) + dx) >> 3);
        first[1] += brickEdge * (((place.local >> 3 & 7) + dy) >> 3);
        first[2] += brickEdge * (((place.local & 7) + dz) >> 3);
        result.brick = enterBrick(first);
    }
    return result;
}

bool BrickSurface::isPositive(Place corner) const
{
    return (m_bricks[static_cast<std::size_t>(corner.brick)].signs[corner.local >> 6] >>
                (corner.local & (brickRows - 1)) &
            1) != 0;
}

bool BrickSurface::isRefused(Place corner)
{
    std::uint64_t const bit = UINT64_C(1) << (corner.local & (brickRows - 1));
    Refusals & refusals = m_refusals[static_cast<std::size_t>(corner.brick)];
    int const x = corner.local >> 6;
    if ((refusals.isKnown[x] & bit) == 0) {
        double point[3];
        positionOf(corner, point);
        refusals.isKnown[x] |= bit;
        if (m_isRefused(point))
            refusals.isRefused[x] |= bit;
    }
    return (refusals.isRefused[x] & bit) != 0;
}

BrickSurface::Cube BrickSurface::at(std::array<int, 3> const & index)
{
    std::array<int, 3> first;
    for (std::size_t axis = 0; axis < 3; ++axis)
        first[axis] = index[axis] - ((index[axis] - m_align[axis]) & (brickEdge - 1));
    Cube cube = {findBrick(first), 0};
    if (cube.brick < 0)
        cube.brick = enterBrick(first);
    for (std::size_t axis = 0; axis < 3; ++axis)
        cube.local = brickEdge * cube.local + index[axis] - first[axis];
    return cube;
}

BrickSurface::Cube BrickSurface::across(Cube cube, Face const & face)
{
    return enter(cube, face.step[0], face.step[1], face.step[2]);
}

bool BrickSurface::complete(Cube cube)
{
    if (!m_isRefused && isKnown(cube))
        return true;
    bool isUsable = true;
    for (int n = 0; n < 8; ++n) {
        Place const corner = enter(cube, n >> 2 & 1, n >> 1 & 1, n & 1);
        isUsable = isUsable && (!m_isRefused || !isRefused(corner));
    }
    return isUsable;
}

std::array<int, 3> BrickSurface::indexOf(Cube cube) const
{
    std::array<int, 3> const & first = m_bricks[static_cast<std::size_t>(cube.brick)].first;
    return {first[0] + (cube.local >> 6), first[1] + (cube.local >> 3 & 7), first[2] + (cube.local & 7)};
}

int BrickSurface::signsOf(Cube cube) const
{
    if (isInside(cube.local)) {
        std::uint64_t const * const planes =
            m_bricks[static_cast<std::size_t>(cube.brick)].signs + (cube.local >> 6);
        int const bit = cube.local & (brickRows - 1);
        auto const fourOf = [bit](std::uint64_t plane) {
            unsigned const near = static_cast<unsigned>(plane >> bit) & 0x303U;
            return static_cast<int>((near & 3U) | near >> 6);
        };
        return fourOf(planes[0]) | fourOf(planes[1]) << 4;
    }
    int signs = 0;
    for (int n = 0; n < 8; ++n)
        signs |= (isPositive(step(cube, n >> 2 & 1, n >> 1 & 1, n & 1)) ? 1 : 0) << n;
    return signs;
}

bool BrickSurface::markSeen(Cube cube)
{
    std::uint64_t & plane = m_bricks[static_cast<std::size_t>(cube.brick)].isSeen[cube.local >> 6];
    std::uint64_t const bit = UINT64_C(1) << (cube.local & (brickRows - 1));
    bool const isNew = (plane & bit) == 0;
    plane |= bit;
    return isNew;
}

bool BrickSurface::isSeen(Cube cube) const
{
    return (m_bricks[static_cast<std::size_t>(cube.brick)].isSeen[cube.local >> 6] >>
                (cube.local & (brickRows - 1)) &
            1) != 0;
}

bool BrickSurface::isSeenAcross(Cube cube, Face const & face) const
{
    Place const next = step(cube, face.step[0], face.step[1], face.step[2]);
    return next.brick >= 0 && isSeen(next);
}

// Are the bricks of all corners of a cube there?
bool BrickSurface::isKnown(Place cube) const
{
    if (cube.brick < 0)
        return false;
    for (int n = 1; n < 8 && !isInside(cube.local); ++n) {
        if (step(cube, n >> 2 & 1, n >> 1 & 1, n & 1).brick < 0)
            return false;
    }
    return true;
}

bool BrickSurface::isSettled(std::array<int, 3> const & index) const
{
    std::array<int, 3> first;
    Cube cube = {0, 0};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        first[axis] = index[axis] - ((index[axis] - m_align[axis]) & (brickEdge - 1));
        cube.local = brickEdge * cube.local + index[axis] - first[axis];
    }
    cube.brick = findBrick(first);
    if (cube.brick < 0)
        return false;
    if (isSeen(cube))
        return true;
    auto const isCrossed = [this](Cube which) {
        int const signs = signsOf(which);
        return signs != 0 && signs != 255;
    };
    if (!isKnown(cube) || isCrossed(cube))
        return false;
    for (Face const & face : faces) {
        Cube const beside = step(cube, face.step[0], face.step[1], face.step[2]);
        if (!isKnown(beside) || (isCrossed(beside) && !isSeen(beside)))
            return false;
    }
    return true;
}

// The place of an edge in `m_edges`; false where it is in `m_otherEdges`.
bool BrickSurface::findRank(Place first, int direction, std::size_t & rank) const
{
    Brick const & brick = m_bricks[static_cast<std::size_t>(first.brick)];
    std::uint64_t const plane = brick.isCrossed[direction][first.local >> 6];
    int const bit = first.local & (brickRows - 1);
    if ((plane >> bit & 1) == 0)
        return false;
    rank = brick.firstEdge + std::size_t{brick.rank[direction][first.local >> 6]} +
           static_cast<std::size_t>(popCount(plane & ((UINT64_C(1) << bit) - 1)));
    return true;
}

// Where a key is, or where it will be.
std::size_t BrickSurface::LateEdges::Table::slotOf(std::uint64_t key) const
{
    std::size_t const mask = slots.size() - 1;
    std::size_t slot = hashOf(key) >> 20 & mask;
    while (slots[slot].key != key && slots[slot].key != noKey)
        slot = (slot + 1) & mask;
    return slot;
}

std::int32_t & BrickSurface::LateEdges::at(std::uint64_t key)
{
    Table & table = m_tables[tableOf(key)];
    if (4 * (table.count + 1) > 3 * table.slots.size()) {
        std::vector<Slot> const before = std::move(table.slots);
        table.slots.assign(std::max<std::size_t>(2 * before.size(), 16), {noKey, unsolved});
        for (Slot const & slot : before) {
            if (slot.key != noKey)
                table.slots[table.slotOf(slot.key)] = slot;
        }
    }
    Slot & slot = table.slots[table.slotOf(key)];
    if (slot.key == noKey) {
        slot.key = key;
        ++table.count;
    }
    return slot.number;
}

std::int32_t BrickSurface::LateEdges::find(std::uint64_t key) const
{
    Table const & table = m_tables[tableOf(key)];
    return table.slots[table.slotOf(key)].number;
}

std::uint64_t BrickSurface::keyOf(Place first, int direction)
{
    return static_cast<std::uint64_t>(first.brick) << 12 | static_cast<std::uint64_t>(first.local) << 3 |
           static_cast<std::uint64_t>(direction);
}

std::int32_t & BrickSurface::edgeAt(Place first, int direction)
{
    std::size_t rank;
    if (findRank(first, direction, rank))
        return m_edges[rank];
    return m_otherEdges.at(keyOf(first, direction));
}

// The place of the smaller end of an edge of a cube.
BrickSurface::Place BrickSurface::firstOf(Cube cube, CubePlan::Edge const & edge) const
{
    int const x = edge.first >> 2 & 1;
    int const y = edge.first >> 1 & 1;
    int const z = edge.first & 1;
    return isInside(cube.local) ? Place{cube.brick, cube.local + x * brickRows + y * brickEdge + z}
                                : step(cube, x, y, z);
}

int BrickSurface::vertexOf(Cube cube, CubePlan::Edge const & edge) const
{
    Place const first = firstOf(cube, edge);
    std::size_t rank;
    if (findRank(first, edge.direction, rank))
        return m_edges[rank];
    return m_otherEdges.find(keyOf(first, edge.direction));
}

void BrickSurface::addTriangles(Cube cube, CubePlan const & plan, TriangleSink & sink)
{
    m_visited.push_back({cube, &plan, m_vertices, m_newTriangles});
    m_newTriangles += static_cast<int>(plan.operations.size() - plan.edges.size());
    for (CubePlan::Edge const & edge : plan.edges) {
        Place const first = firstOf(cube, edge);
        std::int32_t & entry = edgeAt(first, edge.direction);
        if (entry >= 0)
            continue;
        m_newVertices.push_back({first, edge.direction, entry});
        entry = m_vertices++;
    }
    if (m_visited.size() == mostVisited || m_bricks.size() - m_bricksPassedOn >= mostNewBricks)
        passOn(sink);
}

// What waits to be passed on.
class BrickSurface::Run final : public TriangleRun
{
public:
    explicit Run(BrickSurface const & surface) : m_surface(surface) {}

    int vertices() const override { return static_cast<int>(m_surface.m_newVertices.size()); }
    int triangles() const override { return m_surface.m_newTriangles; }
    int parts() const override { return (cubes() + cubesPerPart - 1) / cubesPerPart; }
    int firstOf(int part) const override
    {
        return part == parts() ? triangles() : cubeAt(part).firstTriangle;
    }

    void makeVertices(int first, int end, double * positions) const override
    {
        BrickFunction::Hint hint;
        for (int vertex = first; vertex < end; ++vertex, positions += 3) {
            NewVertex const & made = m_surface.m_newVertices[static_cast<std::size_t>(vertex)];
            Evaluator const evaluator(m_surface, hint, made.first, made.direction);
            double place;
            if (made.place == unsolved) {
                double const nan = std::nan("");
                place = findCrossing({nan, evaluator(0.0), evaluator(1.0), nan}, evaluator,
                                     m_surface.m_hasContinuousCrossings);
            } else {
                place = (-2 - made.place) / edgeParts;
            }
            evaluator.positionAt(place, positions);
        }
    }

    void makeTriangles(int part, Triangle * out) const override
    {
        int const end = std::min(cubes(), (part + 1) * cubesPerPart);
        for (int n = part * cubesPerPart; n < end; ++n) {
            VisitedCube const & cube = m_surface.m_visited[static_cast<std::size_t>(n)];
            int corners[CubePlan::greatestEdges];
            int before = cube.firstVertex;
            for (CubePlan::Operation const & operation : cube.plan->operations) {
                std::int8_t const(&edges)[3] = operation.edges;
                if (edges[1] >= 0) {
                    *out++ = {{corners[edges[0]], corners[edges[1]], corners[edges[2]]}, before};
                    continue;
                }
                int const vertex =
                    m_surface.vertexOf(cube.place, cube.plan->edges[static_cast<std::size_t>(edges[0])]);
                corners[edges[0]] = vertex;
                before = std::max(before, vertex + 1);
            }
        }
    }

private:
    int cubes() const { return static_cast<int>(m_surface.m_visited.size()); }
    VisitedCube const & cubeAt(int part) const
    {
        return m_surface.m_visited[static_cast<std::size_t>(part * cubesPerPart)];
    }

    BrickSurface const & m_surface;
};

void BrickSurface::passOn(TriangleSink & sink)
{
    sink.addRun(Run(*this));
    m_visited.clear();
    m_newVertices.clear();
    m_newTriangles = 0;
    m_bricksPassedOn = m_bricks.size();
}

} // namespace VolTr
