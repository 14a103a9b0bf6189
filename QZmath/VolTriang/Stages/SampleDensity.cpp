// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SampleDensity.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Basis/KernelEvaluator.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/OctreeIterators.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/NormalizeByLast.h>
#include <QZmath/VolTriang/Stages/SampleTurns.h>
#include <QZmath/VolTriang/Tree/TrilinearShare.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <limits>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

bool isInside(CParallelepiped const & box, double const * point)
{
    for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
        if (!(point[axis] >= box.getMin()[axis] && point[axis] <= box.getMax()[axis]))
            return false;
    }
    return true;
}

// Trilinear count of the samples in the eight cells of edge `edge` that meet in `node`. A sample on a face
// that cells share counts in each of them.
double countAroundNode(IInputSamples const & samples, COctree const & octree, double const * node,
                       double edge)
{
    double sum = 0.0;
    for (int corner = 0; corner < 8; ++corner) {
        CParallelepiped box;
        for (int axis = 0; axis < 3; ++axis) {
            bool const below = (corner >> axis & 1) != 0;
            box.setDimension(axis, below ? CInterval(node[axis] - edge, node[axis])
                                         : CInterval(node[axis], node[axis] + edge));
        }
        for (CSamplePointsIteratorInBox it(samples, octree, box, -1); !it.isFinished(); it.next()) {
            if (isInside(box, *it))
                sum += calcTrilinearWeight(*it, node, box);
        }
    }
    return sum;
}

// Coordinates closer to each other than this may change sides by rounding.
double roundingOf(COctree const & octree)
{
    double magnitude = 0.0;
    for (int axis = 0; axis < 3; ++axis)
        magnitude =
            std::max({magnitude, std::fabs(octree.getBoxMin()[axis]), std::fabs(octree.getBoxMax()[axis])});
    return 1e-13 * magnitude;
}

// The leaf cells by the cubes of nodes of a depth that they lie in. The cube at a place has that place, a
// node or none, as its least corner, and holds its leaf cells in the order of x, y, z.
class NodeCubes
{
public:
    struct Cube
    {
        CInt3 place;
        int begin; // in `cells`
        int end;
    };

    NodeCubes(COctree const & octree, int depth, LoopTeam & team)
        : cells(static_cast<std::size_t>(octree.getCellsNumberOnDeepestLevel()))
    {
        // Cells of one plane of cubes follow each other.
        std::vector<int> planes(1, 0); // positions at which they begin
        int const cellsNumber = octree.getCellsNumberOnDeepestLevel();
        auto const placeOf = [&](int position) {
            CTreeNode node;
            octree.makeCellNode(&node, depth, octree.getCellOffset(octree.getCellIndex().payload(position)),
                                0);
            return node.shift();
        };
        while (planes.back() < cellsNumber) {
            // Doubled steps, then halved ones, to the last cell of the plane.
            int const x = placeOf(planes.back()).x();
            int last = planes.back();
            int step = 1;
            for (; last + step < cellsNumber && placeOf(last + step).x() == x; step *= 2)
                last += step;
            for (; step > 0; step /= 2)
                last += last + step < cellsNumber && placeOf(last + step).x() == x ? step : 0;
            planes.push_back(last + 1);
        }
        m_planes.resize(planes.size() - 1);
        team.forEach(static_cast<int>(m_planes.size()), [&](int number) {
            std::size_t const plane = static_cast<std::size_t>(number);
            fillPlane(m_planes[plane], planes[plane], planes[plane + 1], placeOf);
        });
    }

    // The cubes of one x, by z and y from above; planes ascend in x.
    using Plane = std::vector<Cube>;
    std::vector<Plane> const & planes() const { return m_planes; }

    std::vector<int> cells; // positions in the octree's cell index, cube after cube

private:
    template <class PlaceOf>
    void fillPlane(Plane & plane, int first, int end, PlaceOf const & placeOf)
    {
        struct Cell
        {
            int z;
            int y;
            int position;
        };
        std::vector<Cell> sorted;
        sorted.reserve(static_cast<std::size_t>(end - first));
        for (int position = first; position < end; ++position) {
            CInt3 const place = placeOf(position);
            sorted.push_back({place.z(), place.y(), position});
        }
        std::sort(sorted.begin(), sorted.end(), [](Cell const & a, Cell const & b) {
            if (a.z != b.z)
                return a.z > b.z;
            return a.y != b.y ? a.y > b.y : a.position < b.position;
        });
        int const x = placeOf(first).x();
        for (std::size_t n = 0; n < sorted.size(); ++n) {
            int const slot = first + static_cast<int>(n);
            if (n == 0 || sorted[n].z != sorted[n - 1].z || sorted[n].y != sorted[n - 1].y)
                plane.push_back({CInt3(x, sorted[n].y, sorted[n].z), slot, slot});
            plane.back().end = slot + 1;
            cells[static_cast<std::size_t>(slot)] = sorted[n].position;
        }
    }

    std::vector<Plane> m_planes;
};

// Gives the bits of `addDensityByNodes`: counts node by node in the order in which its walk adds, in tiles of
// nodes whose columns along z no other thread touches, and spreads cube by cube.
class DensityEstimator
{
public:
    DensityEstimator(IInputSamples const & samples, COctree const & octree, Basis const & basis, int depth,
                     LoopTeam & team)
        : m_samples(samples), m_octree(octree), m_basis(basis), m_depth(depth),
          m_nodes(octree.getNodeIndex(depth)), m_cubes(octree, depth, team), m_team(team),
          m_edge(octree.getCellSize(depth)), m_step(1 << (octree.getLeafCellDepth() - depth)),
          m_doubt(roundingOf(octree)),
          m_samplesEnd(octree.getSamplesEnd(octree.getCellsNumberOnDeepestLevel() - 1)),
          m_counts(static_cast<std::size_t>(m_nodes.size()), 0.0),
          m_isDoubtful(static_cast<std::size_t>(m_nodes.size()))
    {}

    void count(double until)
    {
        std::vector<Tile> const tiles = makeTiles();
        std::vector<std::uint8_t> isCrowded(tiles.size());
        m_team.forEach(
            static_cast<int>(tiles.size()),
            [&](int number) {
                std::size_t const tile = static_cast<std::size_t>(number);
                isCrowded[tile] = countTile(tiles[tile]) ? 0 : 1;
            },
            until);
        for (std::size_t tile = 0; tile < tiles.size(); ++tile) {
            if (isCrowded[tile] != 0)
                countCrowdedTile(tiles[tile]);
        }
        std::vector<int> doubtful;
        for (int position = 0; position < m_nodes.size(); ++position) {
            if (m_isDoubtful[static_cast<std::size_t>(position)].load(std::memory_order_relaxed) != 0)
                doubtful.push_back(position);
        }
        m_team.forEach(static_cast<int>(doubtful.size()), [&](int n) {
            int const position = doubtful[static_cast<std::size_t>(n)];
            double node[3];
            m_octree.getNodePosition(m_nodes.payload(position), node);
            m_counts[static_cast<std::size_t>(position)] = countAroundNode(m_samples, m_octree, node, m_edge);
        });
    }

    void spread(std::vector<float> & values)
    {
        CParallelepiped const & support = m_basis.getSamplePtr()->getCommonSupportRef();
        double reach = 0.0;
        for (int axis = 0; axis < 3; ++axis)
            reach = std::max({reach, -support.getMin()[axis], support.getMax()[axis]});
        // Nodes beside a cube that reach into it, on each side. No more exist than
        // the cube of the octree has.
        int const most = (1 << m_depth) + 2;
        m_reach = reach < most ? static_cast<int>(reach + 1e-6) + 1 : most;
        std::vector<SpreadScratch> scratch(static_cast<std::size_t>(m_team.threads()));
        for (SpreadScratch & own : scratch) {
            own.reaches.resize(static_cast<std::size_t>(2 * m_reach));
            for (std::vector<Lanes> & factors : own.factors)
                factors.resize(static_cast<std::size_t>(2 * m_reach));
        }
        std::vector<Piece> pieces;
        for (NodeCubes::Plane const & plane : m_cubes.planes()) {
            m_team.serve();
            for (NodeCubes::Cube const & cube : plane)
                cutForSpread(cube, pieces);
        }
        m_team.forEachOnSlot(
            static_cast<int>(pieces.size()),
            [&](int slot, int n) {
                spreadOverPiece(pieces[static_cast<std::size_t>(n)], values,
                                scratch[static_cast<std::size_t>(slot)]);
            },
            1.0);
    }

private:
    using Point = std::array<double, 3>;

    // Nodes in columns along z.
    struct Tile
    {
        int lowX, lowY; // up to lowX + tileEdge, lowY + tileEdge steps
    };
    static constexpr int tileEdge = 8;
    static constexpr int samplesAhead = 12; // that are fetched while one is at hand
    // More of them in a tile are not one thread's alone.
    static std::int64_t const crowdedSamples = 1 << 18;
    static constexpr int samplesPerSpread = 1 << 14; // that one body spreads over

    // A number of nodes along each axis.
    CInt3 steps(int number) const { return CInt3(number * m_step, number * m_step, number * m_step); }

    std::vector<Tile> makeTiles() const
    {
        int const edge = tileEdge * m_step;
        auto const tileOf = [&](int coord) { return coord & ~(edge - 1); };
        std::vector<Tile> tiles;
        auto const order = [](Tile const & a, Tile const & b) {
            return a.lowX != b.lowX ? a.lowX < b.lowX : a.lowY < b.lowY;
        };
        for (NodeCubes::Plane const & plane : m_cubes.planes()) {
            m_team.serve();
            for (NodeCubes::Cube const & cube : plane) {
                for (int corner = 0; corner < 4; ++corner) {
                    Tile const tile = {tileOf(cube.place.x() + (corner & 1) * m_step),
                                       tileOf(cube.place.y() + (corner >> 1) * m_step)};
                    if (tiles.empty() || order(tiles.back(), tile) || order(tile, tiles.back()))
                        tiles.push_back(tile);
                }
            }
        }
        std::sort(tiles.begin(), tiles.end(), order);
        tiles.erase(std::unique(tiles.begin(), tiles.end(),
                                [&](Tile const & a, Tile const & b) { return !order(a, b); }),
                    tiles.end());
        return tiles;
    }

    // Samples of a cube.
    struct Piece
    {
        NodeCubes::Cube const * cube;
        int firstCell;   // in the cells of all cubes
        int firstSample; // of that cell
        int samples;
    };

    int samplesOf(NodeCubes::Cube const & cube) const
    {
        std::ptrdiff_t samples = 0;
        for (int n = cube.begin; n < cube.end; ++n) {
            int const cell = m_cubes.cells[static_cast<std::size_t>(n)];
            samples += m_octree.getSamplesEnd(cell) - m_octree.getSamplesBegin(cell);
        }
        return static_cast<int>(samples);
    }

    void cutForSpread(NodeCubes::Cube const & cube, std::vector<Piece> & pieces) const
    {
        int left = samplesOf(cube);
        if (left <= samplesPerSpread) {
            pieces.push_back({&cube, cube.begin, 0, left});
            return;
        }
        int own = 0; // of the piece at the end
        for (int n = cube.begin; n < cube.end; ++n) {
            int const cell = m_cubes.cells[static_cast<std::size_t>(n)];
            int const inCell =
                static_cast<int>(m_octree.getSamplesEnd(cell) - m_octree.getSamplesBegin(cell));
            for (int taken = 0; taken < inCell;) {
                if (own == 0)
                    pieces.push_back({&cube, n, taken, std::min(left, samplesPerSpread)});
                int const next = std::min(inCell - taken, pieces.back().samples - own);
                taken += next;
                left -= next;
                own += next;
                own = own == pieces.back().samples ? 0 : own;
            }
        }
    }

    // Samples of neighbouring cells may lie anywhere in memory.
    void fetchAhead(int const * sample) const
    {
        if (m_samplesEnd - sample > samplesAhead)
            __builtin_prefetch(m_samples.getSampleCoords3(sample[samplesAhead]));
    }

    // Calls visit(sample, point) for the samples of a piece.
    template <class Visitor>
    void visitSamples(Piece const & piece, Visitor visit) const
    {
        int left = piece.samples;
        int skipped = piece.firstSample;
        for (int n = piece.firstCell; left > 0; ++n) {
            int const cell = m_cubes.cells[static_cast<std::size_t>(n)];
            int const * it = m_octree.getSamplesBegin(cell) + skipped;
            int const * const end = it + std::min<std::ptrdiff_t>(left, m_octree.getSamplesEnd(cell) - it);
            left -= static_cast<int>(end - it);
            skipped = 0;
            for (; it != end; ++it) {
                fetchAhead(it);
                float const * coords = m_samples.getSampleCoords3(*it);
                visit(*it, Point{coords[0], coords[1], coords[2]});
            }
        }
    }

    // The nodes of a tile add up the cubes around them by z, y and x, from above.
    std::vector<NodeCubes::Cube const *> cubesAround(Tile const & tile) const
    {
        int const edge = tileEdge * m_step;
        auto const isInRange = [&](int coord, int low) {
            return coord >= low - m_step && coord < low + edge;
        };
        std::vector<NodeCubes::Cube const *> cubes;
        auto plane = std::lower_bound(
            m_cubes.planes().begin(), m_cubes.planes().end(), tile.lowX - m_step,
            [](NodeCubes::Plane const & cubesOfX, int x) { return cubesOfX.front().place.x() < x; });
        for (; plane != m_cubes.planes().end() && isInRange(plane->front().place.x(), tile.lowX); ++plane) {
            for (NodeCubes::Cube const & cube : *plane) {
                if (isInRange(cube.place.y(), tile.lowY))
                    cubes.push_back(&cube);
            }
        }
        std::sort(cubes.begin(), cubes.end(), [](NodeCubes::Cube const * a, NodeCubes::Cube const * b) {
            if (a->place.z() != b->place.z())
                return a->place.z() > b->place.z();
            return a->place.y() != b->place.y() ? a->place.y() > b->place.y() : a->place.x() > b->place.x();
        });
        return cubes;
    }

    // False, with nothing done, for a tile that is crowded.
    bool countTile(Tile const & tile)
    {
        std::vector<NodeCubes::Cube const *> const cubes = cubesAround(tile);
        std::int64_t samplesNumber = 0;
        for (NodeCubes::Cube const * cube : cubes)
            samplesNumber += samplesOf(*cube);
        if (samplesNumber > crowdedSamples)
            return false;
        for (NodeCubes::Cube const * cube : cubes)
            countCube(*cube, tile);
        return true;
    }

    void countCrowdedTile(Tile const & tile)
    {
        std::vector<NodeCubes::Cube const *> const cubes = cubesAround(tile);
        std::vector<Corners> corners;
        corners.reserve(cubes.size());
        for (NodeCubes::Cube const * cube : cubes)
            corners.push_back(cornersOf(*cube, tile));
        std::vector<std::uint8_t> isDoubtful(cubes.size());
        struct Term
        {
            std::array<double, 8> shares;
            bool isDoubtful;
        };
        auto turns = makeSampleTurns<Term>(
            m_team,
            [&](int, int cube, int const * samples, int count, Term * terms) {
                for (int n = 0; n < count; ++n) {
                    fetchAhead(samples + n);
                    float const * coords = m_samples.getSampleCoords3(samples[n]);
                    terms[n].isDoubtful = sharesOf(Point{coords[0], coords[1], coords[2]},
                                                   corners[static_cast<std::size_t>(cube)], terms[n].shares);
                }
            },
            [&](int number, Term const * terms, int count) {
                std::size_t const cube = static_cast<std::size_t>(number);
                std::array<double, 8> sums = sumsAt(corners[cube]);
                bool isAnyDoubtful = false;
                for (int n = 0; n < count; ++n) {
                    for (std::size_t corner = 0; corner < 8; ++corner)
                        sums[corner] += terms[n].shares[corner];
                    isAnyDoubtful |= terms[n].isDoubtful;
                }
                keepSums(corners[cube], sums);
                if (isAnyDoubtful)
                    isDoubtful[cube] = 1;
            });
        for (std::size_t cube = 0; cube < cubes.size(); ++cube) {
            for (int n = cubes[cube]->begin; n < cubes[cube]->end; ++n) {
                int const cell = m_cubes.cells[static_cast<std::size_t>(n)];
                turns.add(static_cast<int>(cube), m_octree.getSamplesBegin(cell),
                          m_octree.getSamplesEnd(cell));
            }
        }
        turns.finish();
        for (std::size_t cube = 0; cube < cubes.size(); ++cube) {
            if (isDoubtful[cube] != 0)
                markDoubtful(*cubes[cube]);
        }
    }

    // Where a cube and its corners lie.
    struct Corners
    {
        Point ends[2]; // of the cube, from below: as nodes
        Point widths[2];
        std::array<std::size_t, 8> positions; // in the counts; behind them for one of another tile
    };

    Corners cornersOf(NodeCubes::Cube const & cube, Tile const & tile) const
    {
        Corners corners;
        m_octree.cellCoordsToReal(corners.ends[0].data(), cube.place);
        m_octree.cellCoordsToReal(corners.ends[1].data(), cube.place + steps(1));
        for (std::size_t axis = 0; axis < 3; ++axis) {
            double const low = corners.ends[0][axis];
            double const high = corners.ends[1][axis];
            corners.widths[0][axis] = low + m_edge - low;
            corners.widths[1][axis] = high - (high - m_edge);
        }
        int const edge = tileEdge * m_step;
        for (unsigned corner = 0; corner < 8; ++corner) {
            CInt3 const place = cube.place + CInt3(static_cast<int>(corner & 1) * m_step,
                                                   static_cast<int>(corner >> 1 & 1) * m_step,
                                                   static_cast<int>(corner >> 2 & 1) * m_step);
            bool const isOwn = place.x() >= tile.lowX && place.x() < tile.lowX + edge &&
                               place.y() >= tile.lowY && place.y() < tile.lowY + edge;
            corners.positions[corner] =
                isOwn ? static_cast<std::size_t>(m_nodes.find(place)) : m_counts.size();
        }
        return corners;
    }

    std::array<double, 8> sumsAt(Corners const & corners) const
    {
        std::array<double, 8> sums = {};
        for (std::size_t corner = 0; corner < 8; ++corner) {
            if (corners.positions[corner] != m_counts.size())
                sums[corner] = m_counts[corners.positions[corner]];
        }
        return sums;
    }

    void keepSums(Corners const & corners, std::array<double, 8> const & sums)
    {
        for (std::size_t corner = 0; corner < 8; ++corner) {
            if (corners.positions[corner] != m_counts.size())
                m_counts[corners.positions[corner]] = sums[corner];
        }
    }

    // `calcTrilinearWeight` of a sample for each corner. True when rounding decides in which cubes it counts.
    bool sharesOf(Point const & point, Corners const & corners, std::array<double, 8> & shares) const
    {
        bool isDoubtful = false;
        double ofAxis[3][2];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            isDoubtful = isDoubtful || !(point[axis] > corners.ends[0][axis] + m_doubt &&
                                         point[axis] < corners.ends[1][axis] - m_doubt);
            for (std::size_t end = 0; end < 2; ++end)
                ofAxis[axis][end] =
                    trilinearShare(point[axis], corners.ends[end][axis], corners.widths[end][axis]);
        }
        for (std::size_t corner = 0; corner < 8; ++corner)
            shares[corner] = ofAxis[0][corner & 1] * ofAxis[1][corner >> 1 & 1] * ofAxis[2][corner >> 2];
        return isDoubtful;
    }

    // Adds the shares of the samples to those corners that are in the tile.
    void countCube(NodeCubes::Cube const & cube, Tile const & tile)
    {
        Corners const corners = cornersOf(cube, tile);
        std::array<double, 8> sums = sumsAt(corners);
        bool isDoubtful = false;
        visitSamples({&cube, cube.begin, 0, samplesOf(cube)}, [&](int, Point const & point) {
            std::array<double, 8> shares;
            isDoubtful = sharesOf(point, corners, shares) || isDoubtful;
            for (std::size_t corner = 0; corner < 8; ++corner)
                sums[corner] += shares[corner];
        });
        keepSums(corners, sums);
        if (isDoubtful)
            markDoubtful(cube);
    }

    void markDoubtful(NodeCubes::Cube const & cube)
    {
        for (CLatticeBoxCursor it(&m_nodes, cube.place + steps(-1), cube.place + steps(2)); !it.isFinished();
             it.next())
            m_isDoubtful[static_cast<std::size_t>(it.position())].store(1, std::memory_order_relaxed);
    }

    // What a place along each axis reaches.
    struct NodeReach
    {
        Point center;
        Point low;
        Point high;
    };
    // Places are steps from the first node that may reach into the cube.
    struct Reaching
    {
        std::size_t z;
        double count;
    };
    struct ReachingRow
    {
        std::size_t x, y;
        std::size_t end; // in the nodes
    };

    // Samples that take their sums side by side, each in its own order.
    static constexpr std::size_t lanes = 8;
    struct Batch
    {
        std::size_t size = 0;
        int samples[lanes];
        Point points[lanes] = {};
    };
    using Lanes = std::array<double, lanes>;

    struct SpreadScratch
    {
        std::vector<Reaching> reaching;
        std::vector<ReachingRow> rows;
        std::vector<NodeReach> reaches;
        std::vector<Lanes> factors[3]; // by place along the axis
    };

    void spreadOverPiece(Piece const & piece, std::vector<float> & values, SpreadScratch & scratch) const
    {
        NodeCubes::Cube const & cube = *piece.cube;
        CInt3 const first = cube.place + steps(1 - m_reach);
        scratch.reaching.clear();
        scratch.rows.clear();
        auto const stepsFrom = [&](int coord, int from) {
            return static_cast<std::size_t>((coord - from) / m_step);
        };
        for (CLatticeBoxCursor it(&m_nodes, first, cube.place + steps(m_reach)); !it.isFinished();
             it.next()) {
            double const count = m_counts[static_cast<std::size_t>(it.position())];
            CInt3 const place = it.place();
            if (count == 0.0)
                continue;
            std::size_t const x = stepsFrom(place.x(), first.x());
            std::size_t const y = stepsFrom(place.y(), first.y());
            if (scratch.rows.empty() || scratch.rows.back().x != x || scratch.rows.back().y != y)
                scratch.rows.push_back({x, y, 0});
            scratch.reaching.push_back({stepsFrom(place.z(), first.z()), count});
            scratch.rows.back().end = scratch.reaching.size();
        }
        if (scratch.reaching.empty())
            return;
        CCSFunc3Tmpl<Kernel> const function = m_basis.makeFunctionByIndex(m_nodes.payload(0));
        double const scale = 0.0 - function.getArgumentScale();
        double const cellSize = 1.0 / function.getArgumentScale();
        double const normalization = function.getNormalizationScale();
        CParallelepiped const & support = m_basis.getSamplePtr()->getCommonSupportRef();
        for (int n = 0; n < 2 * m_reach; ++n) {
            NodeReach & reach = scratch.reaches[static_cast<std::size_t>(n)];
            m_octree.cellCoordsToReal(reach.center.data(), first + steps(n));
            for (std::size_t axis = 0; axis < 3; ++axis) {
                reach.low[axis] = support.getMin()[axis] * cellSize + reach.center[axis];
                reach.high[axis] = support.getMax()[axis] * cellSize + reach.center[axis];
            }
        }
        Batch batch;
        visitSamples(piece, [&](int sample, Point const & point) {
            __builtin_prefetch(&values[static_cast<std::size_t>(sample)], 1);
            batch.samples[batch.size] = sample;
            batch.points[batch.size] = point;
            if (++batch.size == lanes) {
                spreadOverBatch(batch, scale, normalization, values, scratch);
                batch.size = 0;
            }
        });
        if (batch.size > 0)
            spreadOverBatch(batch, scale, normalization, values, scratch);
    }

    // Nodes that do not reach a sample add 0 to it.
    void spreadOverBatch(Batch const & batch, double scale, double normalization, std::vector<float> & values,
                         SpreadScratch & scratch) const
    {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            for (std::size_t n = 0; n < scratch.reaches.size(); ++n) {
                NodeReach const & reach = scratch.reaches[n];
                Lanes & factors = scratch.factors[axis][n];
                for (std::size_t lane = 0; lane < batch.size; ++lane) {
                    double const coord = batch.points[lane][axis];
                    // Chosen afterwards, since nobody foresees which it is.
                    double const factor =
                        m_evaluator.evalFactor(0, axis, (reach.center[axis] - coord) * scale);
                    bool const isReached = coord >= reach.low[axis] && coord <= reach.high[axis];
                    factors[lane] = isReached ? factor : 0.0;
                }
            }
        }
        float sums[lanes];
        for (std::size_t lane = 0; lane < lanes; ++lane)
            sums[lane] = lane < batch.size ? values[static_cast<std::size_t>(batch.samples[lane])] : 0.0f;
        Reaching const * node = scratch.reaching.data();
        for (ReachingRow const & row : scratch.rows) {
            Lanes const & alongX = scratch.factors[0][row.x];
            Lanes const & alongY = scratch.factors[1][row.y];
            double ofRow[lanes];
            for (std::size_t lane = 0; lane < lanes; ++lane)
                ofRow[lane] = alongX[lane] * alongY[lane];
            for (Reaching const * const end = scratch.reaching.data() + row.end; node != end; ++node) {
                Lanes const & alongZ = scratch.factors[2][node->z];
                double const count = node->count;
                for (std::size_t lane = 0; lane < lanes; ++lane)
                    sums[lane] += static_cast<float>(ofRow[lane] * alongZ[lane] * normalization * count);
            }
        }
        for (std::size_t lane = 0; lane < batch.size; ++lane)
            values[static_cast<std::size_t>(batch.samples[lane])] = sums[lane];
    }

    IInputSamples const & m_samples;
    COctree const & m_octree;
    Basis const & m_basis;
    int const m_depth;
    CLatticeIndex const & m_nodes;
    NodeCubes const m_cubes;
    LoopTeam & m_team;
    double const m_edge;
    int const m_step;
    double const m_doubt;
    int const * const m_samplesEnd;                      // of the last cell
    std::vector<double> m_counts;                        // by position in `m_nodes`
    std::vector<std::atomic<std::uint8_t>> m_isDoubtful; // near samples that rounding may move across a face
    CKernelEvaluator<Kernel> const m_evaluator{*m_basis.getSamplePtr()};
    int m_reach = 0;
};

} // namespace

void addDensityByNodes(IInputSamples const & samples, COctree const & octree, Basis const & basis, int depth,
                       std::vector<float> & values)
{
    double const edge = octree.getCellSize(depth);
    for (COctreeInBoxNodeIterator it(&octree, octree.getNodesBoundaryBox(), depth); !it.isFinished();
         it.next()) {
        int const node = it.currentNodeIndex();
        double position[3];
        octree.getNodePosition(node, position);
        double const count = countAroundNode(samples, octree, position, edge);
        if (count == 0.0)
            continue;
        CParallelepiped const support = getScaledFunctionCommonSupport(basis.makeFunctionByIndex(node));
        for (CSamplePointsIteratorInBox sample(samples, octree, support, -1); !sample.isFinished();
             sample.next()) {
            if (isInside(support, *sample))
                values[static_cast<std::size_t>(sample.currentSampleIndex())] +=
                    static_cast<float>(basis.evalBasisValue(node, *sample) * count);
        }
    }
}

std::vector<float> countAroundSamples(IInputSamples const & samples, COctree const & octree,
                                      Basis const & basis, int estimationDepth, int threads,
                                      CProgressCounter * progress)
{
    std::vector<float> values;
    LoopTeam::run(threads, progress, [&](LoopTeam & team) {
        QzBackend::assignLarge(team, values, static_cast<std::size_t>(samples.pointsNumber()), 0.0f);
    });
    if (octree.getUnit() > 10.0 * roundingOf(octree)) {
        LoopTeam::run(threads, progress, [&](LoopTeam & team) {
            DensityEstimator estimator(samples, octree, basis, estimationDepth, team);
            estimator.count(0.5);
            estimator.spread(values);
        });
    } else {
        // All samples coincide, so far from the origin that rounding moves them out of their cells.
        addDensityByNodes(samples, octree, basis, estimationDepth, values);
    }
    return values;
}

SampleDensity estimateSampleDensity(IInputSamples const & samples, COctree const & octree,
                                    Basis const & basis, int estimationDepth, int threads,
                                    CProgressCounter * progress, VsUt::IDebugLog * log)
{
    SampleDensity density;
    std::vector<float> & values = density.weights;
    values = countAroundSamples(samples, octree, basis, estimationDepth, threads, progress);
    float const factor = magnitudeOfLast(values);
    logValues(log, "Weights normalized by factor", factor);

    float minimum = values.empty() ? 0.0f : FLT_MAX;
    float maximum = 0.0f;
    std::size_t const perTurn = std::size_t{1} << 20;
    auto const finish = [&](std::size_t begin, std::size_t end) {
        normalize(values.data() + begin, values.data() + end, factor);
        float sum = density.averageDensity;
        float least = minimum, greatest = maximum;
        for (std::size_t n = begin; n < end; ++n) {
            float & value = values[n];
            sum += value;
            least = value < least ? value : least;
            greatest = value > greatest ? value : greatest;
            if (value > 0.0f)
                value = 1.0f / value;
        }
        density.averageDensity = sum;
        minimum = least;
        maximum = greatest;
    };
    LoopTeam::run(threads, progress, [&](LoopTeam & team) {
        for (std::size_t begin = 0; begin < values.size(); begin += perTurn) {
            team.setPosition(1.0);
            finish(begin, std::min(values.size(), begin + perTurn));
        }
    });
    if (!values.empty())
        density.averageDensity /= static_cast<float>(values.size());
    logValues(log, "Average density", density.averageDensity);
    logValues(log, "Minimal density", minimum);
    logValues(log, "Maximal density", maximum);
    return density;
}

} // namespace VolTr
