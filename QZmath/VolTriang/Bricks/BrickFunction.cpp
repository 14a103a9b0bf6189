// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/BrickFunction.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <cmath>
#include <cstring>

// Layout. The bricks of a level stand one after the other in `Level::rows`, each 64 rows along z of ten
// places, so that the three places around a point are one load of four from any start in a row.
// `Level::slots` finds a brick by its place. The brick of index 0 is empty and stands for all that do not
// exist, so a look-up always gives a brick.
//
// Invariant. The last two places of a row hold what the next brick along z has in its first two, or 0. So a
// brick exists where a node stands, and also where the brick behind it has nodes in its first two places. A
// fourth place that is loaded beyond them belongs to whatever comes next and meets a weight of 0;
// `loadMargin` keeps the last load inside the memory.
//
// Order. A point is split once into whole steps of the finest lattice and a rest; each level takes its
// window from them by a shift. A level is summed along y, then x, then z, in `float`, and the levels from
// the coarsest to the finest in `double`. The plain and the vector form of `eval`, with any hint, add in
// this order, hence the same bits. `evalGrid` makes the passes over a whole box, along x, y and z, and
// adds its levels in `float`.

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

int const rowStride = brickEdge + 2;
int const planeStride = brickEdge * rowStride;
int const brickStride = brickEdge * planeStride;
// Every brick may be read a place beyond its end, by loads of four places.
int const loadMargin = 4;

// Widths of the box of places that a grid may touch on a depth, and of its rows in the buffers.
int const greatestBoxWidth = 17;
int const boxRow = 20;
int const greatestBoxBricks = 3;

using Float4 = float __attribute__((vector_size(16)));
using Int4 = std::int32_t __attribute__((vector_size(16)));

inline Float4 load(float const * from)
{
    Float4 value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
inline void store(float * to, Float4 value) { std::memcpy(to, &value, sizeof value); }
inline Float4 all(float value) { return Float4{value, value, value, value}; }
inline Int4 allInts(int value) { return Int4{value, value, value, value}; }
inline Float4 magnitude(Float4 value)
{
    return reinterpret_cast<Float4>(reinterpret_cast<Int4>(value) & 0x7fffffff);
}
inline Float4 positivePart(Float4 value) { return value > 0.0f ? value : all(0.0f); }
inline bool areEqual(Int4 a, Int4 b)
{
    using Long2 = std::int64_t __attribute__((vector_size(16)));
    Long2 const difference = reinterpret_cast<Long2>(a ^ b);
    return (difference[0] | difference[1]) == 0;
}

int const bricksPerPiece = 256;

// Calls visit(brick) for 0 <= brick < count, by pieces of some bricks on the threads of a team.
template <class Visit>
void forPieces(LoopTeam & team, std::size_t count, Visit const & visit)
{
    int const pieces = static_cast<int>((count + bricksPerPiece - 1) / bricksPerPiece);
    team.forEach(pieces, [&](int piece) {
        std::size_t const begin = static_cast<std::size_t>(piece) * bricksPerPiece;
        std::size_t const end = std::min(count, begin + bricksPerPiece);
        for (std::size_t brick = begin; brick < end; ++brick)
            visit(brick);
    });
}

// The same on the calling thread, brick after brick; asks for interruption now and then.
template <class Visit>
void forAllInOrder(LoopTeam & team, std::size_t count, Visit const & visit)
{
    std::size_t const perTurn = std::size_t{1} << 16;
    for (std::size_t begin = 0; begin < count; begin += perTurn) {
        team.forEach(1, [&](int) {
            for (std::size_t brick = begin; brick < std::min(count, begin + perTurn); ++brick)
                visit(brick);
        });
    }
}

std::uint64_t hashOfBrick(int x, int y, int z) { return CLatticeHash::hashOf(CInt3(x, y, z), 0); }

// An even quadratic spline as a sum of two truncated powers of the distance from its middle: that needs no
// choice of a piece.
struct EvenSpline
{
    double innerKnot = 0.0;
    double outerKnot = 0.0;
    double innerFactor = 0.0;
    double outerFactor = 0.0;
    bool isGood = false;

    explicit EvenSpline(CSingleVarLimitedPolynom const & kernel)
    {
        if (kernel.piecesNumber() != 3 || kernel.maxPower() > 2)
            return;
        innerKnot = kernel.getKnot(2) + kernel.getArgShift();
        outerKnot = kernel.getRightBound();
        if (!(innerKnot > 0.0 && innerKnot <= 0.5 + 1e-9) || !(outerKnot <= 1.5 + 1e-9))
            return;
        CSingleVarPolynom const & outer = kernel.getPiece(2);
        double const middle = kernel.eval(0.0);
        outerFactor = outer.power() == 2 ? outer.getCoefficient(2) : 0.0;
        innerFactor = (middle - outerFactor * outerKnot * outerKnot) / (innerKnot * innerKnot);
        // Two such functions that agree here agree everywhere.
        isGood = std::isfinite(middle);
        for (int step = -12; step <= 12; ++step) {
            double const x = outerKnot * step * (1.0 / 12.5);
            double const outside = std::max(0.0, outerKnot - std::fabs(x));
            double const inside = std::max(0.0, innerKnot - std::fabs(x));
            double const value = outerFactor * outside * outside + innerFactor * inside * inside;
            isGood = isGood && std::fabs(value - kernel.eval(x)) <= 1e-9 * std::fabs(middle);
        }
    }
};

} // namespace

// For eight coordinates on an axis: first place and three weights of each.
struct BrickFunction::AxisTable
{
    int low = 0; // places of the box
    int width = 0;
    int start[8];        // relative to `low`
    float weights[8][4]; // three of a coordinate; 0 far from all nodes
};

// The bricks around the box of places that the last grid touched on a depth.
struct BrickFunction::GridScratch::Box
{
    int low[3] = {std::numeric_limits<int>::min(), 0, 0};
    int high[3] = {0, 0, 0};
    bool isEmpty = true;
    float const * bricks[greatestBoxBricks][greatestBoxBricks][greatestBoxBricks];
};

BrickFunction::GridScratch::GridScratch() = default;
BrickFunction::GridScratch::~GridScratch() = default;

bool BrickFunction::canServe(int depth, CSingleVarLimitedPolynom const & kernel)
{
    return depth <= greatestDepth && EvenSpline(kernel).isGood;
}

BrickFunction::BrickFunction(BrickLattice const & lattice, COctree const & octree,
                             CSingleVarLimitedPolynom const & kernel, std::vector<float> const & amplitudes,
                             bool usesVectors)
    : m_usesVectors(usesVectors && hasVectors()), m_firstDepth(lattice.firstDepth())
{
    LoopTeam::run(1, nullptr, [&](LoopTeam & team) { make(lattice, octree, kernel, amplitudes, team); });
}

BrickFunction::BrickFunction(BrickLattice const & lattice, COctree const & octree,
                             CSingleVarLimitedPolynom const & kernel, std::vector<float> const & amplitudes,
                             LoopTeam & team, bool usesVectors)
    : m_usesVectors(usesVectors && hasVectors()), m_firstDepth(lattice.firstDepth())
{
    make(lattice, octree, kernel, amplitudes, team);
}

void BrickFunction::make(BrickLattice const & lattice, COctree const & octree,
                         CSingleVarLimitedPolynom const & kernel, std::vector<float> const & amplitudes,
                         LoopTeam & team)
{
    EvenSpline const spline(kernel);
    int const deepest = lattice.endDepth() - 1;
    if (!spline.isGood || deepest > greatestDepth || amplitudes.size() < lattice.nodesNumber())
        throw CVescaTextException("Function in bricks: kernel, depth or amplitudes do not fit");
    int const finer = lattice.isCentred() ? 0 : 1;
    m_step = octree.getCellSize(deepest + finer);
    std::copy(octree.getBoxMin(), octree.getBoxMin() + 3, m_origin);
    // Nodes lie at most a cell beyond the cube.
    m_lowest = -3.0 * std::ldexp(1.0, deepest + finer - lattice.firstDepth());
    m_highest = std::ldexp(1.0, deepest + finer) - m_lowest;
    m_knots = {static_cast<float>(spline.innerKnot), static_cast<float>(spline.outerKnot),
               static_cast<float>(spline.innerFactor), static_cast<float>(spline.outerFactor)};
    for (int depth = lattice.firstDepth(); depth <= deepest; ++depth) {
        m_levels.emplace_back();
        Level & level = m_levels.back();
        int const shift = deepest + finer - depth;
        level.shift = allInts(shift);
        level.cellMask = allInts((1 << shift) - 1);
        level.half = allInts(lattice.isCentred() ? 0 : 1 << (shift - 1));
        level.scale = all(std::ldexp(1.0f, -shift));
        level.perUnit = 1.0 / octree.getCellSize(depth);
        makeLevel(lattice.level(depth), amplitudes.data(), team, level);
    }
    m_deepestCell = octree.getCellSize(deepest);
    m_deepestShift = lattice.isCentred() ? 0.5 : 0.0;
    makeDeepestBoxes(lattice.level(deepest), team);
}

void BrickFunction::makeDeepestBoxes(BrickLevel const & deepest, LoopTeam & team)
{
    m_deepestBoxes.resize(deepest.bricks.size());
    forPieces(team, deepest.bricks.size(), [&](std::size_t brick) {
        Box & box = m_deepestBoxes[brick];
        box = {{brickEdge, brickEdge, brickEdge}, {-1, -1, -1}};
        std::uint8_t const * const rows = deepest.rowsOf(static_cast<int>(brick));
        for (int n = 0; n < brickPlaces; ++n) {
            if ((rows[n >> 3] >> (n & 7) & 1) == 0)
                continue;
            std::array<int, 3> const place = {n >> 6, n >> 3 & 7, n & 7};
            for (std::size_t axis = 0; axis < 3; ++axis) {
                box.low[axis] = std::min(box.low[axis], place[axis]);
                box.high[axis] = std::max(box.high[axis], place[axis]);
            }
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            int const first = brickEdge * deepest.bricks[brick][axis];
            box.low[axis] += first;
            box.high[axis] += first;
        }
    });
}

void BrickFunction::deepestBox(int box, double * low3, double * high3) const
{
    Box const & nodes = m_deepestBoxes[static_cast<std::size_t>(box)];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        low3[axis] = nodeCoord(nodes.low[axis], static_cast<int>(axis));
        high3[axis] = nodeCoord(nodes.high[axis], static_cast<int>(axis));
    }
}

int BrickFunction::Level::brickIndex(int x, int y, int z) const
{
    std::size_t const mask = slots.size() - 1;
    for (std::size_t slot = hashOfBrick(x, y, z) & mask;; slot = (slot + 1) & mask) {
        int const brick = slots[slot];
        if (brick < 0)
            return 0;
        std::array<int, 3> const & place = bricks[static_cast<std::size_t>(brick)];
        if (place[0] == x && place[1] == y && place[2] == z)
            return brick;
    }
}

float const * BrickFunction::Level::brickAt(int x, int y, int z) const
{
    return rows.get() + static_cast<std::size_t>(brickIndex(x, y, z)) * static_cast<std::size_t>(brickStride);
}

void BrickFunction::addAmplitude(int depth, std::array<int, 3> const & place, float amplitude)
{
    Level & level = m_levels[static_cast<std::size_t>(depth - m_firstDepth)];
    int const x = place[0] >> 3;
    int const y = place[1] >> 3;
    int const z = place[2] >> 3;
    std::size_t const row =
        static_cast<std::size_t>((place[0] & 7) * planeStride + (place[1] & 7) * rowStride);
    auto const add = [&](int brick, int at) {
        if (brick > 0)
            level.rows[static_cast<std::size_t>(brick) * static_cast<std::size_t>(brickStride) + row +
                       static_cast<std::size_t>(at)] += amplitude;
    };
    add(level.brickIndex(x, y, z), place[2] & 7);
    if ((place[2] & 7) < 2) // the end of the row before repeats it
        add(level.brickIndex(x, y, z - 1), (place[2] & 7) + brickEdge);
}

double BrickFunction::kernelSum() const
{
    auto const integral = [](double knot, double factor) { return 2.0 / 3.0 * factor * knot * knot * knot; };
    double const sum =
        integral(m_knots.outer, m_knots.outerFactor) + integral(m_knots.inner, m_knots.innerFactor);
    return sum * sum * sum;
}

void BrickFunction::makeLevel(BrickLevel const & source, float const * amplitudes, LoopTeam & team,
                              Level & level)
{
    // A brick without nodes is needed where the end of its rows repeats nodes of the next one.
    std::size_t const own = source.bricks.size();
    std::vector<std::uint8_t> isRepeated(own);
    forPieces(team, own, [&](std::size_t brick) {
        std::uint8_t const * const rows = source.rowsOf(static_cast<int>(brick));
        isRepeated[brick] =
            std::any_of(rows, rows + brickRows, [](std::uint8_t row) { return (row & 3) != 0; }) ? 1 : 0;
    });
    level.bricks.push_back({std::numeric_limits<int>::min(), 0, 0});
    level.bricks.insert(level.bricks.end(), source.bricks.begin(), source.bricks.end());
    std::vector<std::size_t> before(own); // the brick that precedes each along z
    forAllInOrder(team, own, [&](std::size_t brick) {
        int const neighbour = source.neighboursOf(static_cast<int>(brick))[9 * 1 + 3 * 1 + 0];
        before[brick] = neighbour >= 0 ? static_cast<std::size_t>(neighbour) + 1 : 0;
        if (neighbour < 0 && isRepeated[brick] != 0) {
            std::array<int, 3> place = source.bricks[brick];
            --place[2];
            before[brick] = level.bricks.size();
            level.bricks.push_back(place);
        }
    });
    level.bricks.shrink_to_fit();
    std::size_t slots = 4;
    while (slots < 2 * level.bricks.size())
        slots *= 2;
    level.slots.assign(slots, -1);
    forAllInOrder(team, level.bricks.size(), [&](std::size_t brick) {
        if (brick == 0)
            return;
        std::array<int, 3> const & place = level.bricks[brick];
        std::size_t slot = hashOfBrick(place[0], place[1], place[2]) & (slots - 1);
        while (level.slots[slot] >= 0)
            slot = (slot + 1) & (slots - 1);
        level.slots[slot] = static_cast<int>(brick);
    });
    // Left as it comes: pages of memory are made where they are first written to, by all threads.
    std::size_t const stride = static_cast<std::size_t>(brickStride);
    std::size_t const numbers = level.bricks.size() * stride + loadMargin;
    level.rows.reset(new float[numbers]);
    QzBackend::adviseLargePages(level.rows.get(), numbers * sizeof(float));
    forPieces(team, level.bricks.size(),
              [&](std::size_t brick) { std::fill_n(level.rows.get() + brick * stride, stride, 0.0f); });
    std::fill_n(level.rows.get() + level.bricks.size() * stride, loadMargin, 0.0f);
    // Each brick has one before it, whose ends of rows no other one repeats in.
    forPieces(team, own, [&](std::size_t brick) {
        std::uint8_t const * const masks = source.rowsOf(static_cast<int>(brick));
        float const * amplitude = amplitudes + source.firstNode[brick];
        float * const dense = level.rows.get() + (brick + 1) * stride;
        float * const denseBefore = level.rows.get() + before[brick] * stride + brickEdge;
        for (int row = 0; row < brickRows; ++row) {
            for (int z = 0; z < brickEdge; ++z) {
                if ((masks[row] >> z & 1) == 0)
                    continue;
                dense[row * rowStride + z] = *amplitude;
                if (z < 2)
                    denseBefore[row * rowStride + z] = *amplitude;
                ++amplitude;
            }
        }
    });
}

// Splits a point into whole steps of the lattice and the rest. False where no node reaches, and for NaN.
inline bool BrickFunction::toSteps(double const * point, Int4 & step, Float4 & rest) const
{
    bool isNear = true;
    for (int axis = 0; axis < 3; ++axis) {
        double const place = (point[axis] - m_origin[axis]) / m_step;
        isNear = isNear && place > m_lowest && place < m_highest;
        // The shifted number is positive, so that it is rounded down; both fit into `int`.
        double const whole = isNear ? static_cast<int>(place - m_lowest) + m_lowest : 0.0;
        step[axis] = static_cast<int>(whole);
        rest[axis] = static_cast<float>(place - whole);
    }
    step[3] = 0;
    rest[3] = 0.0f;
    return isNear;
}

inline BrickFunction::Window BrickFunction::Level::around(Int4 step, Float4 rest) const
{
    Int4 const place = step + half;
    Int4 const inCell = place & cellMask;
    return {(place >> shift[0]) - 1, (__builtin_convertvector(inCell, Float4) + rest) * scale + 0.5f};
}

// Out of line: the rarer case.
__attribute__((noinline)) void BrickFunction::Level::enter(Int4 start, Hint::Place & place) const
{
    Int4 const brick = start >> 3;
    if (!areEqual(brick, place.brick)) {
        place.brick = brick;
        for (int n = 0; n < 4; ++n)
            place.bricks[n] = brickAt(brick[0] + (n >> 1), brick[1] + (n & 1), brick[2]);
    }
    place.start = start;
    Int4 const local = start & 7;
    for (int x = 0; x < 3; ++x) {
        int const localX = local[0] + x;
        float const * const * const pair = place.bricks + ((localX >> 3) << 1);
        int const shiftX = (localX & 7) * planeStride + local[2];
        for (int y = 0; y < 3; ++y) {
            int const localY = local[1] + y;
            place.rows[x][y] = load(pair[localY >> 3] + shiftX + (localY & 7) * rowStride);
        }
    }
}

// Weights of the three places around a point and their derivatives, for all axes at once: entry n belongs to
// place n. Only the middle place can be within the inner knot.
struct BrickFunction::Spline
{
    Float4 innerKnot;
    Float4 outerKnot;
    Float4 innerFactor;
    Float4 outerFactor;

    explicit Spline(BrickFunction const & function)
        : innerKnot(all(function.m_knots.inner)), outerKnot(all(function.m_knots.outer)),
          innerFactor(all(function.m_knots.innerFactor)), outerFactor(all(function.m_knots.outerFactor))
    {}

    void weights(Float4 offset, Float4 * out) const
    {
        Float4 const before = positivePart(outerKnot - offset);
        Float4 const after = positivePart(outerKnot - (2.0f - offset));
        Float4 const distance = magnitude(offset - 1.0f);
        Float4 const outside = positivePart(outerKnot - distance);
        Float4 const inside = positivePart(innerKnot - distance);
        out[0] = outerFactor * before * before;
        out[1] = outerFactor * outside * outside + innerFactor * inside * inside;
        out[2] = outerFactor * after * after;
    }

    void slopes(Float4 offset, Float4 * out) const
    {
        Float4 const middle = offset - 1.0f;
        Float4 const distance = magnitude(middle);
        Float4 const outside = positivePart(outerKnot - distance);
        Float4 const inside = positivePart(innerKnot - distance);
        Float4 const fall = -2.0f * (outerFactor * outside + innerFactor * inside);
        out[0] = -2.0f * outerFactor * positivePart(outerKnot - offset);
        out[1] = middle < 0.0f ? -fall : fall;
        out[2] = 2.0f * outerFactor * positivePart(outerKnot - (2.0f - offset));
    }
};

namespace
{

// The weights of one axis as the entries of a row; the last entry is 0.
inline Float4 alongRow(Float4 const * weights, int axis)
{
    return Float4{weights[0][axis], weights[1][axis], weights[2][axis], 0.0f};
}

struct Sum
{
    using Double2 = double __attribute__((vector_size(16)));
    using Float2 = float __attribute__((vector_size(8)));
    Double2 low{};
    Double2 high{};

    void add(Float4 value)
    {
        low += Double2{value[0], value[1]};
        high += Double2{value[2], value[3]};
    }
    double total() const
    {
        Double2 const both = low + high;
        return both[0] + both[1];
    }
};

} // namespace

double BrickFunction::eval(double const * point, Hint & hint) const
{
    Int4 step;
    Float4 rest;
    if (!toSteps(point, step, rest))
        return 0.0;
    return m_usesVectors ? sumVectors(m_levels.data(), static_cast<int>(m_levels.size()), m_knots, step, rest,
                                      hint.m_places.data())
                         : sumPlain(step, rest, hint);
}

double BrickFunction::sumPlain(Int4 step, Float4 rest, Hint & hint) const
{
    Spline const spline(*this);
    Sum sum;
    Hint::Place * place = hint.m_places.data();
    for (Level const & level : m_levels) {
        Hint::Place & near = *place++;
        Window const window = level.around(step, rest);
        if (!areEqual(window.start, near.start))
            level.enter(window.start, near);
        Float4 weights[3];
        spline.weights(window.offset, weights);
        Float4 planes[3];
        for (int x = 0; x < 3; ++x) {
            Float4 const * const rows = near.rows[x];
            planes[x] =
                (all(weights[0][1]) * rows[0] + all(weights[1][1]) * rows[1] + all(weights[2][1]) * rows[2]) *
                all(weights[x][0]);
        }
        sum.add((planes[0] + planes[1] + planes[2]) * alongRow(weights, 2));
    }
    return sum.total();
}

void BrickFunction::gradient(double const * point, double * out3, Hint & hint) const
{
    out3[0] = out3[1] = out3[2] = 0.0;
    Int4 step;
    Float4 rest;
    if (!toSteps(point, step, rest))
        return;
    Spline const spline(*this);
    Hint::Place * place = hint.m_places.data();
    for (Level const & level : m_levels) {
        Hint::Place & near = *place++;
        Window const window = level.around(step, rest);
        if (!areEqual(window.start, near.start))
            level.enter(window.start, near);
        Float4 weights[3];
        Float4 slopes[3];
        spline.weights(window.offset, weights);
        spline.slopes(window.offset, slopes);
        Float4 alongX = all(0.0f);
        Float4 alongY = all(0.0f);
        Float4 values = all(0.0f);
        for (int x = 0; x < 3; ++x) {
            Float4 const * const rows = near.rows[x];
            Float4 const value =
                all(weights[0][1]) * rows[0] + all(weights[1][1]) * rows[1] + all(weights[2][1]) * rows[2];
            Float4 const slope =
                all(slopes[0][1]) * rows[0] + all(slopes[1][1]) * rows[1] + all(slopes[2][1]) * rows[2];
            alongX += value * all(slopes[x][0]);
            alongY += slope * all(weights[x][0]);
            values += value * all(weights[x][0]);
        }
        Float4 const weightsZ = alongRow(weights, 2);
        Float4 const parts[3] = {alongX * weightsZ, alongY * weightsZ, values * alongRow(slopes, 2)};
        for (int axis = 0; axis < 3; ++axis) {
            Sum sum;
            sum.add(parts[axis]);
            out3[axis] += sum.total() * level.perUnit;
        }
    }
}

// \return false when the box of places is too wide; its width is 0 when no coordinate is near a node
bool BrickFunction::makeAxisTable(Level const & level, Int4 const * steps, Float4 const * rests,
                                  bool const * isNear, AxisTable & table) const
{
    Spline const spline(*this);
    int low = std::numeric_limits<int>::max();
    int high = std::numeric_limits<int>::min();
    // Four coordinates stand where a point has its axes.
    for (int half = 0; half < 2; ++half) {
        Window const window = level.around(steps[half], rests[half]);
        Float4 weights[3];
        spline.weights(window.offset, weights);
        for (int n = 0; n < 4; ++n) {
            int const place = 4 * half + n;
            table.start[place] = window.start[n];
            for (int entry = 0; entry < 3; ++entry)
                table.weights[place][entry] = isNear[place] ? weights[entry][n] : 0.0f;
            if (isNear[place]) {
                low = std::min(low, window.start[n]);
                high = std::max(high, window.start[n] + 2);
            }
        }
    }
    table.low = low;
    table.width = low <= high ? high - low + 1 : 0;
    for (int place = 0; place < 8; ++place)
        table.start[place] = isNear[place] ? table.start[place] - low : 0;
    return table.width <= greatestBoxWidth;
}

void BrickFunction::evalGrid(GridCoords const & coords, float * out, GridScratch & scratch) const
{
    scratch.m_boxes.resize(m_levels.size());
    scratch.m_buffer.resize(greatestBoxWidth * greatestBoxWidth * boxRow +
                            brickEdge * greatestBoxWidth * boxRow + brickRows * boxRow);
    Int4 steps[3][2];
    Float4 rests[3][2];
    bool isNear[3][8];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t n = 0; n < 8; ++n) {
            double const point[3] = {axis == 0 ? coords[0][n] : m_origin[0],
                                     axis == 1 ? coords[1][n] : m_origin[1],
                                     axis == 2 ? coords[2][n] : m_origin[2]};
            Int4 step;
            Float4 rest;
            isNear[axis][n] = toSteps(point, step, rest);
            steps[axis][n >> 2][n & 3] = step[axis];
            rests[axis][n >> 2][n & 3] = rest[axis];
        }
    }
    std::fill(out, out + brickPlaces, 0.0f);
    for (std::size_t index = 0; index < m_levels.size(); ++index) {
        Level const & level = m_levels[index];
        AxisTable tables[3];
        bool isCovered = true;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            if (!makeAxisTable(level, steps[axis], rests[axis], isNear[axis], tables[axis]))
                isCovered = false;
            else if (tables[axis].width == 0)
                return; // all coordinates of an axis are far away, on every depth
        }
        if (!isCovered) {
            for (std::size_t n = 0; n < static_cast<std::size_t>(brickPlaces); ++n) {
                double const point[3] = {coords[0][n >> 6], coords[1][n >> 3 & 7], coords[2][n & 7]};
                out[n] = static_cast<float>(eval(point, scratch.m_hint));
            }
            return;
        }
        addLevelOnGrid(level, scratch.m_boxes[index], tables, scratch.m_buffer.data(), out);
    }
}

void BrickFunction::addLevelOnGrid(Level const & level, GridScratch::Box & box, AxisTable const * tables,
                                   float * buffer, float * out) const
{
    int low[3];
    int high[3];
    for (int axis = 0; axis < 3; ++axis) {
        low[axis] = tables[axis].low >> 3;
        high[axis] = (tables[axis].low + tables[axis].width - 1) >> 3;
    }
    if (!std::equal(low, low + 3, box.low) || !std::equal(high, high + 3, box.high)) {
        std::copy(low, low + 3, box.low);
        std::copy(high, high + 3, box.high);
        box.isEmpty = true;
        for (int x = low[0]; x <= high[0]; ++x) {
            for (int y = low[1]; y <= high[1]; ++y) {
                for (int z = low[2]; z <= high[2]; ++z) {
                    float const * const brick = level.brickAt(x, y, z);
                    box.bricks[x - low[0]][y - low[1]][z - low[2]] = brick;
                    box.isEmpty = box.isEmpty && brick == level.rows.get();
                }
            }
        }
    }
    if (box.isEmpty)
        return;

    // The nodes of the box, rows along z in multiples of four places.
    int const widthX = tables[0].width;
    int const widthY = tables[1].width;
    int const widthZ = tables[2].width;
    int const fours = (widthZ + 3) / 4;
    int const row = 4 * fours;
    float * const nodes = buffer;
    float * const planes = nodes + greatestBoxWidth * greatestBoxWidth * boxRow; // after the pass along x
    float * const lines = planes + brickEdge * greatestBoxWidth * boxRow;        // after the pass along y
    for (int x = 0; x < widthX; ++x) {
        int const placeX = tables[0].low + x;
        for (int y = 0; y < widthY; ++y) {
            int const placeY = tables[1].low + y;
            float * const to = nodes + (x * widthY + y) * row;
            float const * const * const bricks = box.bricks[(placeX >> 3) - low[0]][(placeY >> 3) - low[1]];
            int const shift = (placeX & 7) * planeStride + (placeY & 7) * rowStride;
            // Copies reach past the end by up to four places, which come next or are not used.
            for (int z = 0; z < widthZ;) {
                int const placeZ = tables[2].low + z;
                int const local = placeZ & 7;
                int const count = std::min(widthZ - z, rowStride - local);
                float const * const from = bricks[(placeZ >> 3) - low[2]] + shift + local;
                for (int n = 0; n < count; n += 4)
                    store(to + z + n, load(from + n));
                z += count;
            }
        }
    }
    for (int x = 0; x < brickEdge; ++x) {
        float const * const weights = tables[0].weights[x];
        Float4 const w0 = all(weights[0]);
        Float4 const w1 = all(weights[1]);
        Float4 const w2 = all(weights[2]);
        int const step = widthY * row;
        float const * from = nodes + tables[0].start[x] * step;
        float * to = planes + x * step;
        for (int n = 0; n < widthY * fours; ++n, from += 4, to += 4)
            store(to, w0 * load(from) + w1 * load(from + step) + w2 * load(from + 2 * step));
    }
    for (int x = 0; x < brickEdge; ++x) {
        for (int y = 0; y < brickEdge; ++y) {
            float const * const weights = tables[1].weights[y];
            Float4 const w0 = all(weights[0]);
            Float4 const w1 = all(weights[1]);
            Float4 const w2 = all(weights[2]);
            float const * from = planes + (x * widthY + tables[1].start[y]) * row;
            float * to = lines + (x * brickEdge + y) * row;
            for (int n = 0; n < fours; ++n, from += 4, to += 4)
                store(to, w0 * load(from) + w1 * load(from + row) + w2 * load(from + 2 * row));
        }
    }
    // Along z all eight points of a row at once: each place adds its weights on them.
    float weightsZ[greatestBoxWidth + 3][8] = {};
    for (int z = 0; z < brickEdge; ++z) {
        for (int n = 0; n < 3; ++n)
            weightsZ[tables[2].start[z] + n][z] += tables[2].weights[z][n];
    }
    for (int n = 0; n < brickRows; ++n) {
        float const * const from = lines + n * row;
        Float4 low4 = all(from[0]) * load(weightsZ[0]);
        Float4 high4 = all(from[0]) * load(weightsZ[0] + 4);
        for (int z = 1; z < widthZ; ++z) {
            low4 += all(from[z]) * load(weightsZ[z]);
            high4 += all(from[z]) * load(weightsZ[z] + 4);
        }
        float * const to = out + n * brickEdge;
        store(to, load(to) + low4);
        store(to + 4, load(to + 4) + high4);
    }
}

} // namespace VolTr
