// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace QzBackend
{
class LoopTeam;
template <class Value>
class RawArray;
} // namespace QzBackend

namespace VolTr
{

/// Eight sums at a node of a lattice: one register of the wider vector instructions.
struct alignas(32) Moments
{
    float of[8] = {};
};

/// A lattice of cubic cells over the whole space of a cloud: the cells of depth d are 2^-d of the cube.
/// Places count in cells from the cube's least corner, so a point at place u lies in the cell floor(u), and
/// the node of cell i stands at i + 1/2.
struct LatticeFrame
{
    LatticeFrame() = default;
    LatticeFrame(std::array<double, 3> const & leastCorner, double cellEdge)
        : origin(leastCorner), cell(cellEdge), perUnit(1.0 / cellEdge)
    {}

    std::array<double, 3> origin{};
    double cell = 1.0;
    double perUnit = 1.0; ///< 1 / cell

    /// False for a point too far out for the lattice, and for one that is not a number.
    bool placeOf(double const * point, double * place3) const
    {
        bool isInside = true;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            place3[axis] = (point[axis] - origin[axis]) * perUnit;
            isInside = isInside && place3[axis] > -greatestPlace && place3[axis] < greatestPlace;
        }
        return isInside;
    }

    static constexpr double greatestPlace = 1 << 29;
};

/// Sums of something over scattered points, weighted with a quadratic B-spline around every node of a
/// lattice:
///
///     M(node) = sum over points of B(u - node) m(point),      B the tensor product with three places an axis
///
/// Nodes live in bricks of 8 x 8 x 8; each of its 64 rows along z is kept from the first to the last node
/// that a point reaches. What depends on coordinates counts them from the least corner of the node's own
/// brick, in cells, so that `float` keeps the digits that matter (see `MomentPayload`).
///
/// Every sum is taken in an order that follows from the points alone, not from the number of threads.
/// Immutable once built; safe to read from many threads, each with a cursor of its own.
class QZMATH_SISTER_API MomentLattice
{
public:
    static constexpr int edge = 8; ///< places of a brick along an axis

    /// What the eight numbers stand for, which decides what happens to them in the frame of another brick.
    enum class Payload
    {
        plain,  ///< eight numbers without a place
        surface ///< w (1, n, n.p, p): weight, normal, normal times place, place
    };

    /// The three places around a point on each axis and their weights.
    struct Window
    {
        std::array<int, 3> brick;
        std::array<int, 3>
            cell;            ///< of the point, in the brick, 0 to 7; the places are one before to one after
        float weights[3][3]; ///< by axis

        explicit Window(double const * place3);
        /// Of a point in a known brick, by its place from that brick's least corner.
        Window(std::array<int, 3> const & brick, float const * local3);
        /// Sum of the squared weights of all 27 places: the share of a point in the sums at itself.
        float ownShare() const;
    };

    /// A point that is summed, in the frame of its brick.
    struct Entry
    {
        float local[3]; ///< place from the brick's least corner
        std::int32_t point;
    };

    /// Sums over `count` points.
    /// \param placeOf   place(point, double * place3), false for a point to leave out; called twice a point,
    ///                  from many threads
    /// \param momentsOf moments(entry, brick, Moments &) in the frame of a brick; from many threads
    void build(int count, Payload payload, std::function<bool(int, double *)> const & placeOf,
               std::function<void(Entry const &, std::array<int, 3> const &, Moments &)> const & momentsOf,
               QzBackend::LoopTeam & team);

    /// The sums over the same points on the lattice with cells twice as wide, from those of a finer one: the
    /// spline of a coarse node is a sum of splines of fine nodes.
    void buildFromFiner(MomentLattice const & finer, QzBackend::LoopTeam & team);

    /// A brick with all its nodes.
    struct Block
    {
        std::array<int, 3> place;
        std::array<Moments, 512> nodes;
    };
    using Filter = std::function<bool(std::array<int, 3> const &)>;
    /// \param isWanted of a brick
    /// \param hasNode  of a node by its cell: the others are zeros
    std::vector<Block> blocks(Filter const & isWanted, Filter const & hasNode) const;
    /// The sums over the points of several lattices, from all their blocks near some place, taken in the
    /// order of the blocks, and before them from the nodes of a lattice.
    /// \param first   may be null
    /// \param hasNode of `first`
    void buildFromBlocks(MomentLattice const * first, Filter const & hasNode,
                         std::vector<Block> const & blocks, Payload payload, QzBackend::LoopTeam & team);

    bool isEmpty() const { return m_places.empty(); }
    int bricksNumber() const { return static_cast<int>(m_places.size()); }
    /// The sums of the node of a cell; zeros where no point reaches.
    Moments nodeAt(std::array<int, 3> const & cell) const;

    /// Replaces the sums of every node. `change(Moments &)` may not depend on the brick.
    template <class Change>
    void changeNodes(Change const & change)
    {
        for (std::vector<Moments> & chunk : m_chunks) {
            for (Moments & node : chunk)
                change(node);
        }
    }

private:
    struct Row
    {
        std::uint16_t start = 0; // among the brick's, of the node at `begin`
        std::uint8_t begin = 0;
        std::uint8_t end = 0;
    };
    struct Brick
    {
        std::uint32_t chunk = 0;
        std::uint32_t firstNode = 0; // in the chunk
        std::array<Row, 64> rows;
    };
    Moments const * nodesOf(Brick const & brick) const
    {
        return m_chunks[brick.chunk].data() + brick.firstNode;
    }

public:
    /// Reads a lattice around points; fast for points that follow each other in the same brick.
    class Cursor
    {
    public:
        /// The sums at a point: sum over its 27 nodes of B M, in the frame of the window's brick.
        void sum(MomentLattice const & lattice, Window const & window, Moments & out);

        /// The 27 nodes around a point, node (x, y, z) under 9 x + 3 y + z; null where no point reaches.
        void nodes(MomentLattice const & lattice, Window const & window, Moments const * (&out)[27]);

    private:
        // The part of a window that lies in one brick: the places low to high - 1 of 0..2 an axis.
        struct Box
        {
            MomentLattice const & lattice;
            int brick;
            std::array<int, 3> offset; // of the brick from the window's
            std::array<int, 3> first;  // place in the brick of the window's place 0
            std::array<int, 3> low;
            std::array<int, 3> high;

            // The nodes of a row from the place `begin` of the window on; begin and end become those that
            // exist.
            Moments const * rowNodes(int x, int y, int & begin, int & end) const
            {
                Brick const & at = lattice.m_bricks[static_cast<std::size_t>(brick)];
                Row const & row = at.rows[static_cast<std::size_t>(edge * (first[0] + x) + first[1] + y)];
                begin = std::max(begin, row.begin - first[2]);
                end = std::min(end, row.end - first[2]);
                if (begin >= end)
                    return nullptr;
                return lattice.nodesOf(at) + row.start +
                       static_cast<std::size_t>(begin + first[2] - row.begin);
            }
        };

        template <class Visit>
        void forBoxes(MomentLattice const & lattice, Window const & window, Visit const & visit);
        int brickAt(MomentLattice const & lattice, int n);

        static constexpr int unknown = -2;
        MomentLattice const * m_lattice = nullptr;
        std::array<int, 3> m_brick{};
        std::array<int, 27>
            m_around; // indices of the bricks around; -1 where there is none, `unknown` before
    };

private:
    using Dense = std::vector<Moments>; // one for each place of a brick

    int find(std::array<int, 3> const & place) const;
    int findOrAdd(std::array<int, 3> const & place);
    void addReachedBricks(QzBackend::RawArray<Entry> const & entries,
                          std::vector<std::uint32_t> const & firstEntry, QzBackend::LoopTeam & team);
    template <class Visit>
    void forNodes(int brick, Filter const & hasNode, Visit const & visit) const;
    void keep(Dense const & dense, std::size_t brick, std::uint32_t chunk);
    // How far the filling of a brick has come, and what more it may do in this turn.
    struct FillState
    {
        int left;
        int neighbour;       // of 27
        std::size_t entries; // done of the neighbour's
    };
    // False when the turn was over before the brick was full.
    using BrickFilling = std::function<bool(int brick, Dense &, FillState &)>;
    void fillBricks(BrickFilling const & fillBrick, QzBackend::LoopTeam & team);
    void fillCrowdedBricks(std::vector<int> const & bricks, BrickFilling const & fillBrick,
                           QzBackend::LoopTeam & team);
    static void addEntry(Window const & window, std::array<int, 3> const & offset, Moments const & moments,
                         Dense & dense);
    static void rebase(Moments & moments, std::array<int, 3> const & shift);

    Payload m_payload = Payload::plain;
    std::vector<std::array<int, 3>> m_places; // of the bricks
    CLatticeHash m_table;
    std::vector<Brick> m_bricks;
    std::vector<std::vector<Moments>> m_chunks;
};

} // namespace VolTr
