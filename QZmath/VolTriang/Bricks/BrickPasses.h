// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <cstdint>

namespace VolTr
{

/// Places of a brick along an axis, its rows of places along z, and all its places.
constexpr int brickEdge = 8;
constexpr int brickRows = brickEdge * brickEdge;
constexpr int brickPlaces = brickEdge * brickRows;

/// How many places of its own depth a kernel reaches to each side, and how many it meets in all.
constexpr int ownReach = 2;
constexpr int ownTaps = 2 * ownReach + 1;
/// Most places of a coarser depth that the places of a brick can meet along an axis, and that one can.
constexpr int coarseWidth = 8;
constexpr int coarseTaps = 5;
/// Up to so many places of the coarser depth, all places of the brick meet the same ones: from four depths
/// apart on, where the nodes stand at centres.
constexpr int narrowWidth = 3;

/// One factor of the coupling along an axis between the eight places of a brick and the places of a coarser
/// depth, in the forms that the passes want.
struct alignas(32) AxisFactor
{
    alignas(32) float byCoarse[coarseWidth][brickEdge]; ///< [coarse place][place]
    alignas(32) float byPlace[brickEdge][coarseWidth];  ///< the same transposed
    float taps[brickEdge][coarseTaps];                  ///< of each place, from `CoarseTable::firstTap` on
    alignas(32) float byTap[coarseTaps][brickEdge];     ///< the same transposed
};

/// What couples the places of a brick to those of a coarser depth, on one axis and for one position of the
/// brick between the coarse places.
struct CoarseTable
{
    int firstPlace = 0; ///< coarse place number 0, relative to the one at or below the brick's first place
    int width = 0;      ///< coarse places in reach, at most `coarseWidth`
    int taps = 0;       ///< `coarseTaps` or one less, the same for all tables of a difference of depth
    int firstTap[brickEdge] = {};
    /// Coarse place of each tap, by place; below `coarseWidth`.
    alignas(32) int tapPlaces[coarseTaps][brickEdge] = {};
    AxisFactor mass;
    AxisFactor stiffness;
    AxisFactor gradient; ///< product of the finer function's derivative with the coarser function
};

/// Places of a brick and of its neighbours within `ownReach` along an axis.
constexpr int haloEdge = brickEdge + 2 * ownReach;
/// Numbers in a row of a halo or of a coarse block, the unused ones at its end included.
constexpr int paddedRow = 16;

/// The rows of a brick that have nodes: bit `brickEdge * x + y` of `mask`, bit y of `lines[x]`, bit x of
/// `columns[y]`, and their bounding box.
struct BrickRows
{
    std::uint64_t mask;
    std::uint8_t lines[brickEdge];
    std::uint8_t xBegin;
    std::uint8_t xEnd;
    std::uint8_t yBegin;
    std::uint8_t yEnd;
    std::uint8_t columns[brickEdge];
};

/// A brick with its surroundings: row (x, y) starts at `(x * haloEdge + y) * paddedRow` and has its place z -
/// 2 first. Rows of zeros are not looked at: bit y of `used[x]` tells which others there are. The room at the
/// end is for whole vectors written at the end of the last row.
struct alignas(32) BrickHalo
{
    float values[haloEdge * haloEdge * paddedRow + brickEdge];
    std::uint16_t used[haloEdge];
};

/// The places of a coarser depth around a brick: row (x, y) starts at `(x * coarseWidth + y) * paddedRow`,
/// with its first place at `offset` from there. Bit `coarseWidth * x + y` of `used` tells that the row is not
/// all zeros.
struct alignas(32) CoarseBlock
{
    float values[coarseWidth * coarseWidth * paddedRow];
    std::uint64_t used;
    int offset;
};

/// One-variable factors of a term on the three axes, over the own depth.
struct OwnTerm
{
    float const * x;
    float const * y;
    float const * z;
};

/// A coarse table and one of its factors on each axis.
struct CoarseTerm
{
    CoarseTable const * tables[3];
    AxisFactor const * x;
    AxisFactor const * y;
    AxisFactor const * z;
};

/// The passes over one brick. Arrays of a brick are dense and aligned to 32 bytes; in rows without nodes
/// nothing is read or written, and in the others the places without a node may receive anything unless
/// stated. Everything is added up in a fixed order with fused multiplications, so every implementation gives
/// the same bits.
struct BrickPasses
{
    /// out = scale * (m m s + m s m + s m m) over the nodes of the own depth.
    void (*applyOwn)(BrickHalo const & halo, float const * mass, float const * stiffness, float scale,
                     BrickRows const & used, float * out);
    /// out += scale * (m m s + m s m + s m m) over the nodes of a coarser depth.
    void (*addCoarse)(CoarseBlock const & block, CoarseTable const * const * tables, float scale,
                      BrickRows const & used, float * out);
    /// What `addCoarse` does with a block, transposed: block = sum over the places of the brick, where places
    /// without a node have to hold 0. `block.used` tells which rows within the tables' widths are wanted, and
    /// afterwards which of them are not all zeros; these are written in full.
    void (*restrictToCoarse)(float const * brick, CoarseTable const * const * tables, float scale,
                             BrickRows const & used, CoarseBlock & block);
    /// Passes for one product of three factors instead of a sum of three products.
    void (*addOwnTerm)(BrickHalo const & halo, OwnTerm const & term, float scale, BrickRows const & used,
                       float * out);
    void (*addCoarseTerm)(CoarseBlock const & block, CoarseTerm const & term, float scale,
                          BrickRows const & used, float * out);
    void (*restrictTerm)(float const * brick, CoarseTerm const & term, float scale, BrickRows const & used,
                         CoarseBlock & block);

    // Between the compact and the dense form. `rows` holds the nodes of each row as bits; eight compact
    // values can be read from any row's first.

    /// Spreads compact values over a brick, with zeros between the nodes.
    void (*expand)(float const * compact, std::uint8_t const * rows, float * out);
    /// Gathers the values at the nodes.
    void (*compress)(float const * brick, std::uint8_t const * rows, float * compact);
    /// out = (compact - sums) * factor with zeros between the nodes; `sums` may be null for zeros.
    void (*solveUp)(float const * compact, float const * sums, float factor, std::uint8_t const * rows,
                    float * out);
    /// solved = (compact + own - shift * values - coupled) * factor with zeros between the nodes, and
    /// result = solved + values, compact. Null stands for zeros, and for a `solved` that is not wanted.
    void (*solveDown)(float const * compact, float const * own, float const * values, float const * coupled,
                      float shift, float factor, std::uint8_t const * rows, float * solved, float * result);
};

/// Number of nodes of a row.
struct RowCounts
{
    constexpr RowCounts()
    {
        for (int row = 0; row < 256; ++row) {
            for (int z = 0; z < brickEdge; ++z)
                of[row] = static_cast<std::uint8_t>(of[row] + (row >> z & 1));
        }
    }
    std::uint8_t of[256] = {};
};
constexpr RowCounts rowCounts;

/// For any processor.
BrickPasses const & plainBrickPasses();
/// For processors with AVX2 and FMA; null where this processor is none.
BrickPasses const * vectorBrickPasses();
/// The fastest ones that this processor can run.
QZMATH_SISTER_API BrickPasses const & bestBrickPasses();

} // namespace VolTr
