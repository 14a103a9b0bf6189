// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Bricks/BrickLattice.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace QzBackend
{
class LoopTeam;
}

namespace VolTr
{

class CSingleVarLimitedPolynom;

/// A sum of kernels over all nodes of an octree, laid out for evaluation:
///
///     f(p) = sum over depths d and nodes n of d of  amplitude(n) k(X - n.x) k(Y - n.y) k(Z - n.z),
///
/// where (X, Y, Z) is the point in cells of the depth, counted from the least corner of the octree's cube, n
/// the place of the node in the same measure and k a quadratic spline that reaches at most 1.5 cells. So 3
/// places per axis and depth matter for a point.
///
/// Terms are of single precision, sums over depths of double: values err by about 1e-7 of the greatest term.
/// Far from all nodes, at infinity and for NaN the value is 0. Every depth keeps its nodes in bricks of 8 x 8
/// rows of 10 places, 2.5 KB each; the last two places of a row repeat the begin of the row that follows, so
/// that the places of a point are pieces of rows.
///
/// Immutable; safe to use from many threads, each with a hint of its own. Nothing is allocated in an
/// evaluation, and all evaluations of a point give the same bits.
class QZMATH_SISTER_API BrickFunction
{
    using Float4 = float __attribute__((vector_size(16)));
    using Int4 = std::int32_t __attribute__((vector_size(16)));

public:
    /// Deepest nodes that a function can have.
    static constexpr int greatestDepth = 26;

    /// Where the last point lay. Points close to each other cost less with a hint that saw the one before; a
    /// hint serves one function at a time and must not outlive it.
    class Hint
    {
    public:
        Hint()
        {
            for (Place & place : m_places)
                place.start = place.brick = Int4{} + std::numeric_limits<int>::min();
        }

    private:
        friend class BrickFunction;
        struct Place
        {
            Float4 rows[3][3]; // the amplitudes of the places in reach; the fourth of a row is no such place
            Int4 start;        // the first of these places
            Int4 brick;        // where it lies
            float const * bricks[4]; // from there on at (0, 0), (0, 1), (1, 0), (1, 1) of x and y
        };
        std::array<Place, 32> m_places; // by level
    };

    /// Intermediate results of `evalGrid`, best kept over many calls of one thread.
    /// Serves one function at a time.
    class GridScratch
    {
    public:
        GridScratch();
        ~GridScratch();
        GridScratch(GridScratch const &) = delete;
        GridScratch & operator=(GridScratch const &) = delete;

    private:
        friend class BrickFunction;
        struct Box;
        std::vector<Box> m_boxes;
        std::vector<float> m_buffer;
        Hint m_hint;
    };

    /// Coordinates of a grid of 8 x 8 x 8 points, by axis.
    using GridCoords = std::array<std::array<double, 8>, 3>;

    /// \param lattice    bricks of `octree`; neither is needed afterwards
    /// \param kernel     k: three pieces of power 2 or less, even, continuous with its derivative, 0 beyond
    /// 1.5
    /// \param amplitudes in compact form, over all depths; entries after those are ignored
    /// \throws std::exception when the kernel or the number of amplitudes is otherwise, or nodes are deeper
    ///         than `greatestDepth`
    /// \param usesVectors may wider vector instructions serve where the processor has them? The values are
    /// the same.
    BrickFunction(BrickLattice const & lattice, COctree const & octree,
                  CSingleVarLimitedPolynom const & kernel, std::vector<float> const & amplitudes,
                  bool usesVectors = true);
    /// The same by the threads of a team, which asks for interruption between pieces of a few milliseconds.
    BrickFunction(BrickLattice const & lattice, COctree const & octree,
                  CSingleVarLimitedPolynom const & kernel, std::vector<float> const & amplitudes,
                  QzBackend::LoopTeam & team, bool usesVectors = true);

    /// Can a function have nodes as deep as `depth` and `kernel` as k?
    static bool canServe(int depth, CSingleVarLimitedPolynom const & kernel);

    /// Adds to the amplitude of the node at a place of a depth; nothing where no node stands. Not while
    /// others evaluate, and hints that were used before must not be used again.
    void addAmplitude(int depth, std::array<int, 3> const & place, float amplitude);
    /// Value of the sum of all kernels of a depth with the amplitude 1, on average over a cell.
    double kernelSum() const;

    /// Value at a point in model coordinates.
    double eval(double const * point) const
    {
        Hint hint;
        return eval(point, hint);
    }
    double eval(double const * point, Hint & hint) const;

    /// Partial derivatives at a point, per model unit.
    void gradient(double const * point, double * out3) const
    {
        Hint hint;
        gradient(point, out3, hint);
    }
    void gradient(double const * point, double * out3, Hint & hint) const;

    /// Values at the points of a grid, `out[64 x + 8 y + z]` at (coords[0][x], coords[1][y], coords[2][z]).
    /// They differ from those of `eval` by rounding only. Fast where neighbouring points are at most two
    /// cells of the deepest depth apart; coarser grids are evaluated point by point.
    void evalGrid(GridCoords const & coords, float * out, GridScratch & scratch) const;

    /// The deepest nodes, in boxes of at most 8 places along an axis.
    int deepestBoxes() const { return static_cast<int>(m_deepestBoxes.size()); }
    /// Least and greatest coordinates of the nodes of a box.
    void deepestBox(int box, double * low3, double * high3) const;
    /// Distance of neighbouring nodes of the deepest depth.
    double deepestCell() const { return m_deepestCell; }
    /// Coordinate of a place of the deepest depth on an axis, in the model.
    double nodeCoord(int place, int axis) const
    {
        return m_origin[axis] + (place + m_deepestShift) * m_deepestCell;
    }

private:
    // Where the places around a point begin on each axis, and how far after them the point lies, 0.5 to 1.5.
    struct Window
    {
        Int4 start;
        Float4 offset;
    };
    struct Level
    {
        // A cell of the depth is 2^shift lattice steps of the function. Each entry alike.
        Int4 shift;
        Int4 cellMask;  // 2^shift - 1
        Int4 half;      // what rounding to a node adds to the lattice coordinate
        Float4 scale;   // 2^-shift
        double perUnit; // cells of the depth in a model unit
        std::vector<std::array<int, 3>> bricks;
        std::vector<int> slots;
        std::unique_ptr<float[]> rows;

        Window around(Int4 step, Float4 rest) const;
        int brickIndex(int x, int y, int z) const; // the empty brick 0 where there is none
        float const * brickAt(int x, int y, int z) const;
        void enter(Int4 start, Hint::Place & place) const;
    };
    struct Spline;
    struct AxisTable;
    struct Knots
    {
        float inner;
        float outer;
        float innerFactor;
        float outerFactor;
    };

    void make(BrickLattice const & lattice, COctree const & octree, CSingleVarLimitedPolynom const & kernel,
              std::vector<float> const & amplitudes, QzBackend::LoopTeam & team);
    static void makeLevel(BrickLevel const & source, float const * amplitudes, QzBackend::LoopTeam & team,
                          Level & level);
    void makeDeepestBoxes(BrickLevel const & deepest, QzBackend::LoopTeam & team);
    double sumPlain(Int4 step, Float4 rest, Hint & hint) const;
    // The same bits, two levels at a time.
    static bool hasVectors();
    static double sumVectors(Level const * levels, int levelsNumber, Knots const & knots, Int4 step,
                             Float4 rest, Hint::Place * places);
    bool toSteps(double const * point, Int4 & step, Float4 & rest) const;
    bool makeAxisTable(Level const & level, Int4 const * steps, Float4 const * rests, bool const * isNear,
                       AxisTable & table) const;
    void addLevelOnGrid(Level const & level, GridScratch::Box & box, AxisTable const * tables, float * buffer,
                        float * out) const;

    // The lattice of the function: the cells of the deepest nodes, or half of them where nodes stand at
    // corners, so that the borders between the reaches of nodes lie on it.
    double m_origin[3];
    double m_step;
    double m_lowest; // steps beyond which no node reaches
    double m_highest;
    Knots m_knots;
    bool m_usesVectors;
    double m_deepestCell;
    double m_deepestShift;       // of the deepest nodes from the corners of cells, in cells
    std::vector<Level> m_levels; // from the coarsest
    int m_firstDepth;
    struct Box
    {
        std::array<int, 3> low;
        std::array<int, 3> high;
    };
    std::vector<Box> m_deepestBoxes;
};

} // namespace VolTr
