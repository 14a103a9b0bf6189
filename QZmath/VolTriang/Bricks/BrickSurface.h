// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/GrowingArray.h>
#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Polygoniser/CubePlan.h>
#include <QZmath/VolTriang/Polygoniser/CubeTables.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

/// The cubes that cut the level set of a `BrickFunction` into triangles, for a walk over them: their corners,
/// and the vertices on their edges. A walk gets what it would from `jbProcess` at the same start point of the
/// lattice, but for the place of a vertex on its edge, which is found in another way.
///
/// The lattice is cut into bricks of 8 x 8 x 8 corners. `prepare` evaluates the bricks around the deepest
/// nodes, keeps the signs of their corners, and finds the vertices of all crossed edges, on many threads; so
/// the walk looks nearly everything up, on one thread. Bricks that it enters beyond those are evaluated when
/// it gets there. The walk only numbers the vertices of the cubes that it visits; positions and triangles are
/// made of many cubes at a time, by the sink and on its threads. What a corner, an edge or a vertex is does
/// not depend on the number of threads.
///
/// A vertex lies on its edge within 1/2048 of the edge's length of a crossing of the function.
///
/// Memory: about 900 bytes a brick and 4 bytes a crossed edge, 2 KB a brick more inside `prepare`, and 2 MB
/// for what waits to be passed on.
class QZMATH_SISTER_API BrickSurface
{
    // A corner, or the cube on its upper side.
    struct Place
    {
        int brick;
        int local;
    };

public:
    /// \param start     point of the surface at which corner (1/2, 1/2, 1/2) of the lattice stands
    /// \param edge      of the cubes, finite and not 0; indices grow against the axes
    /// \param bounds    greatest magnitude of a cube's index by axis, below 2^30 + 1
    /// \param isRefused empty, or tells which points must not be a cube's corner; called on any thread
    BrickSurface(BrickFunction const & function, double isoValue, double const * start, double edge,
                 int const * bounds, std::function<bool(double const *)> isRefused);

    /// Edge of the bricks, in corners.
    static constexpr int brickCorners = brickEdge;
    /// Is a brick wanted? By the index of its first corner.
    using BrickChoice = std::function<bool(std::array<int, 3> const &)>;

    /// Before anything else. Vertices move by little when the last bits of the function change, by less than
    /// a hundredth of what they may be off otherwise.
    void makeCrossingsContinuous() { m_hasContinuousCrossings = true; }

    /// Optional. The position of the team goes from 0 to 1.
    /// \param isWanted limits the bricks around the deepest nodes to some of them; may be empty. A vertex is
    ///                 the same to the bit whenever those among them within two edges of its own are wanted.
    void prepare(QzBackend::LoopTeam & team, BrickChoice const & isWanted = {});
    /// How many edges that the surface crosses are known so far.
    std::size_t solvedEdges() const { return m_edges.size(); }

    /// A cube, by its corner of least index.
    using Cube = Place;

    Cube at(std::array<int, 3> const & index);
    Cube across(Cube cube, CubeCut::Face const & face);
    /// Makes the corners of a cube known, before `signsOf`. May all of them be used?
    bool complete(Cube cube);
    std::array<int, 3> indexOf(Cube cube) const;
    /// Bit n is set when corner n is positive.
    int signsOf(Cube cube) const;
    /// True when the cube was not seen before.
    bool markSeen(Cube cube);
    /// Was the cube across a face seen? False where its brick is not known.
    bool isSeenAcross(Cube cube, CubeCut::Face const & face) const;
    /// Was the cube seen, or is it not crossed and are all those around it that are? False where not all of
    /// that is known. From any threads, while nothing changes.
    bool isSettled(std::array<int, 3> const & index) const;
    /// Numbers the vertices of a cube that are new, and keeps the cube for `passOn`; passes on by itself when
    /// there are many.
    void addTriangles(Cube cube, CubePlan const & plan, TriangleSink & sink);
    /// The number of the vertex on an edge of a cube whose triangles were added.
    int vertexOf(Cube cube, CubePlan::Edge const & edge) const;
    void passOn(TriangleSink & sink);

private:
    static constexpr int unsolved = -1;

    // Cubes that were visited and their new vertices, not passed on yet.
    struct VisitedCube
    {
        Place place;
        CubePlan const * plan;
        int firstVertex;   // that the mesh had when it was visited
        int firstTriangle; // of those that wait
    };
    struct NewVertex
    {
        Place first;
        std::int32_t direction;
        std::int32_t place; // as in `m_edges` before it had a number
    };
    class Run;

    // Crossed edges belong to the brick of their lexicographically smaller corner.
    struct Brick
    {
        std::array<int, 3> first;        // index of the first corner
        std::array<int, 27> neighbours;  // as those of `BrickLevel`
        std::uint64_t signs[brickEdge];  // by plane x: bit 8 y + z is set where the value is positive
        std::uint64_t isSeen[brickEdge]; // cubes by their corner of least index
        std::uint64_t isCrossed[CubeCut::edgeDirections][brickEdge]; // edges towards bricks known so far
        std::uint16_t rank[CubeCut::edgeDirections][brickEdge];      // edges of the brick before the plane
        std::uint32_t edges;                                         // how many
        std::uint32_t firstEdge;
    };
    struct Refusals
    {
        std::uint64_t isKnown[brickEdge];
        std::uint64_t isRefused[brickEdge];
    };
    // Numbers of edges by their keys. In many small tables, of which each grows by itself: a growing large
    // one would keep an interruption waiting.
    class LateEdges
    {
    public:
        /// `unsolved` where the key is new. Good until the next key.
        std::int32_t & at(std::uint64_t key);
        /// Of a key that is there.
        std::int32_t find(std::uint64_t key) const;

    private:
        struct Slot
        {
            std::uint64_t key;
            std::int32_t number;
        };
        struct Table
        {
            std::vector<Slot> slots; // a power of two of them, `noKey` where free
            std::size_t count = 0;
            std::size_t slotOf(std::uint64_t key) const;
        };
        static constexpr std::uint64_t noKey = ~UINT64_C(0);
        static constexpr int tableBits = 8;
        static std::uint64_t hashOf(std::uint64_t key) { return key * UINT64_C(0x9E3779B97F4A7C15); }
        static std::size_t tableOf(std::uint64_t key) { return hashOf(key) >> (64 - tableBits); }

        std::array<Table, std::size_t{1} << tableBits> m_tables;
    };
    struct SignPlanes;
    struct Evaluator;

    void collectBricks(QzBackend::LoopTeam & team, BrickChoice const & isWanted);
    int findBrick(std::array<int, 3> const & first) const;
    int addBrick(std::array<int, 3> const & first);
    void evaluate(Brick & brick, float * values, BrickFunction::GridScratch & scratch) const;
    void findCrossings(Brick & brick) const;
    void solveEdges(int brick, std::vector<float> const & values);
    void findRefusals(int brick);
    int enterBrick(std::array<int, 3> const & first);
    Place step(Place place, int dx, int dy, int dz) const;
    Place enter(Place place, int dx, int dy, int dz);
    bool isKnown(Place cube) const;
    bool isSeen(Cube cube) const;
    bool findRank(Place first, int direction, std::size_t & rank) const;
    static std::uint64_t keyOf(Place first, int direction);
    std::int32_t & edgeAt(Place first, int direction);
    Place firstOf(Cube cube, CubePlan::Edge const & edge) const;
    bool isPositive(Place corner) const;
    bool isRefused(Place corner);
    double coordAt(int index, int axis) const { return m_start[axis] - (index - 0.5) * m_edge; }
    void positionOf(Place corner, double * out3) const;

    BrickFunction const & m_function;
    double const m_isoValue;
    double m_start[3];
    double const m_edge;
    int m_bounds[3];
    int m_align[3]; // first corner of brick 0
    std::function<bool(double const *)> const m_isRefused;
    bool m_hasContinuousCrossings = false;
    QzBackend::GrowingArray<Brick> m_bricks;
    QzBackend::GrowingArray<Refusals> m_refusals; // by brick, empty where nothing is refused
    CLatticeHash m_table;
    // Of a crossed edge: the index of its vertex, `unsolved`, or -2 - t 2^30 for a vertex at t of the way
    // from its smaller corner that was not asked for yet.
    QzBackend::GrowingArray<std::int32_t> m_edges;
    LateEdges m_otherEdges; // between bricks that met late
    int m_vertices = 0;
    std::vector<VisitedCube> m_visited;
    std::vector<NewVertex> m_newVertices;
    int m_newTriangles = 0;
    std::size_t m_bricksPassedOn = 0; // known when the visited cubes were passed on
    BrickFunction::GridScratch m_scratch;
};

} // namespace VolTr
