// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/BrickSystem.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>

#include <algorithm>
#include <cmath>
#include <cstring>

// Layout. A vector of the iteration is compact: one number a node, depth after depth from the coarsest,
// brick after brick. The passes work on dense bricks: `Level::values` is a vector spread over its places,
// `Level::sums` what coarser functions get from finer ones, or the other way round. Between two depths
// everything goes through a `CoarseBlock`, the places of the coarser depth around one fine brick:
// `gather` copies them out of up to eight coarse bricks, `scatter` adds them back. `BrickHalo` is the
// same for a brick's own depth.
//
// Invariant. Places without a node are 0 in `values`, always; all passes may read them. In `sums` they may
// hold anything, and what takes the sums drops them. Rows without any node are 0 in both and never touched.
//
// Order of a step. `sweepUp` goes from the finest depth to the coarsest: solve the depth's own unknowns with
// the sums that it has got by then, and restrict the result to the sums of all coarser depths. `sweepDown`
// goes back: gather what the coarser depths have become, apply the own couplings, solve, and leave the
// result in `sums`, where the finer depths gather it next. Within a depth the bricks are independent of each
// other, except for the sums that they restrict to: `restrictBricks` makes the blocks of a round of bricks
// on all threads, then adds them up depth by depth, each in the order of the bricks. With that, and with
// sums over pieces of fixed size, the bits do not depend on the threads.

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

// The diagonal of the sweep, in units of the matrix diagonal. Coarse functions are nearly sums of finer ones,
// so a sweep with 1 would correct the same error on every depth.
float const sweepDiagonal = 1.6f;

// Numbers that a piece of a sum has.
std::size_t const pieceSize = 8192;

// Numbers that one thread looks at before it asks for interruption.
std::size_t const nodesPerTurn = std::size_t{1} << 20;

// Bricks that are restricted before their blocks are added up.
int const bricksPerRound = 64;

int piecesOf(std::size_t size) { return static_cast<int>((size + pieceSize - 1) / pieceSize); }

// Calls body(begin, end) for the pieces of a vector, and adds up what it returns in the order of the pieces.
template <class Body>
double sumOverPieces(std::size_t size, LoopTeam & team, std::vector<double> & sums, Body const & body)
{
    int const pieces = piecesOf(size);
    sums.assign(static_cast<std::size_t>(pieces), 0.0);
    team.forEach(pieces, [&](int piece) {
        std::size_t const begin = static_cast<std::size_t>(piece) * pieceSize;
        sums[static_cast<std::size_t>(piece)] = body(begin, std::min(begin + pieceSize, size));
    });
    double total = 0.0;
    for (double sum : sums)
        total += sum;
    return total;
}

// Sum of term(index) in eight interleaved parts, which the processor adds side by side.
template <class Term>
double interleavedSum(std::size_t begin, std::size_t end, Term const & term)
{
    double parts[8] = {};
    std::size_t index = begin;
    for (; index + 8 <= end; index += 8) {
        for (std::size_t part = 0; part < 8; ++part)
            parts[part] += term(index + part);
    }
    double sum = 0.0;
    for (; index < end; ++index)
        sum += term(index);
    for (double part : parts)
        sum += part;
    return sum;
}

double dot(std::vector<float> const & a, std::vector<float> const & b, std::size_t begin, std::size_t end)
{
    return interleavedSum(begin, end,
                          [&](std::size_t index) { return static_cast<double>(a[index]) * b[index]; });
}

// Index of the lowest bit of a number that is not 0.
int lowestBit(std::uint64_t bits) { return __builtin_ctzll(bits); }

// The rows (x, y) of a block with x and y in a range.
std::uint64_t rowsWithin(int xBegin, int xEnd, int yBegin, int yEnd)
{
    std::uint64_t const line = (1U << yEnd) - (1U << yBegin);
    std::uint64_t const firsts = ~std::uint64_t{0} / 255; // bit 0 of each line
    return (line * firsts) << xBegin * coarseWidth & ~std::uint64_t{0} >> (coarseWidth - xEnd) * coarseWidth;
}

// The rows of a brick as rows of a block whose first place is at (x, y) of the brick, each from -8 to 7.
std::uint64_t shiftedRows(std::uint64_t rows, int x, int y)
{
    if (x <= -brickEdge || y <= -brickEdge)
        return 0;
    rows = x < 0 ? rows << -x * brickEdge : rows >> x * brickEdge;
    return y < 0 ? rows << -y & rowsWithin(0, brickEdge, -y, brickEdge)
                 : rows >> y & rowsWithin(0, brickEdge, 0, brickEdge - y);
}

BrickRows usedRowsOf(std::uint8_t const * rows)
{
    BrickRows used = {0, {}, brickEdge, 0, brickEdge, 0, {}};
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] == 0)
            continue;
        std::uint8_t const x = static_cast<std::uint8_t>(row / brickEdge);
        std::uint8_t const y = static_cast<std::uint8_t>(row % brickEdge);
        used.mask |= std::uint64_t{1} << row;
        used.lines[x] = static_cast<std::uint8_t>(used.lines[x] | 1U << y);
        used.columns[y] = static_cast<std::uint8_t>(used.columns[y] | 1U << x);
        used.xBegin = std::min(used.xBegin, x);
        used.xEnd = std::max(used.xEnd, static_cast<std::uint8_t>(x + 1));
        used.yBegin = std::min(used.yBegin, y);
        used.yEnd = std::max(used.yEnd, static_cast<std::uint8_t>(y + 1));
    }
    return used;
}

// Where the bricks lie that have depths far above them, on any axis; by difference of depth.
std::vector<std::vector<int>> farBricksOf(BrickLattice const & lattice)
{
    std::vector<std::vector<int>> result;
    for (int delta = BrickTables::maxDelta + 1; delta < lattice.endDepth() - lattice.firstDepth(); ++delta) {
        std::vector<int> numbers;
        for (int depth = lattice.firstDepth() + delta; depth < lattice.endDepth(); ++depth) {
            for (std::array<int, 3> const & brick : lattice.level(depth).bricks)
                numbers.insert(numbers.end(), brick.begin(), brick.end());
            std::sort(numbers.begin(), numbers.end());
            numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        }
        result.push_back(std::move(numbers));
    }
    return result;
}

} // namespace

BrickSystem::BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                         BrickPasses const & passes, LoopTeam & team)
    : m_lattice(lattice), m_passes(passes),
      m_tables(kernel, lattice.isCentred(), lattice.endDepth() - lattice.firstDepth() - 1), m_blocks(1),
      m_size(lattice.nodesNumber())
{
    build(team);
}

BrickSystem::BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                         BrickPasses const & passes)
    : m_lattice(lattice), m_passes(passes),
      m_tables(kernel, lattice.isCentred(), lattice.endDepth() - lattice.firstDepth() - 1), m_blocks(1),
      m_size(lattice.nodesNumber())
{
    LoopTeam::run(1, nullptr, [&](LoopTeam & team) { build(team); });
}

BrickSystem::BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                         BrickPasses const & passes, BrickShare & share, LoopTeam & team)
    : m_lattice(lattice), m_passes(passes), m_share(&share),
      m_tables(kernel, lattice.isCentred(), lattice.endDepth() - lattice.firstDepth() - 1,
               farBricksOf(lattice)),
      m_blocks(1), m_size(lattice.nodesNumber())
{
    build(team);
}

BrickShare::~BrickShare() = default;

void BrickSystem::build(LoopTeam & team)
{
    int const depths = m_lattice.endDepth() - m_lattice.firstDepth();
    m_levels.resize(static_cast<std::size_t>(depths));
    // Both functions carry the square root of their diagonal element, in units of the coarser cell: 1 and
    // 2^(5/2) a depth.
    for (int delta = 0; delta < depths; ++delta)
        m_couplingScales.push_back(static_cast<float>(m_tables.ownScale() * std::exp2(-2.5 * delta)));
    for (int index = 0; index < depths; ++index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        level.bricks = &m_lattice.level(m_lattice.firstDepth() + index);
        level.coarserDepths = index;
        std::size_t const bricks = static_cast<std::size_t>(level.bricks->bricksNumber());
        QzBackend::assignLarge(team, level.values, bricks * brickRows);
        if (index + 1 < depths)
            QzBackend::assignLarge(team, level.sums, bricks * brickRows);
        QzBackend::assignLarge(team, level.usedRows, bricks);
        QzBackend::assignLarge(team, level.coarseBricks, bricks * static_cast<std::size_t>(index) * 8);
        team.forEach(static_cast<int>(bricks), [&](int brick) { buildBrick(level, brick); });
    }
}

// Looks up what couples to a brick; the coarser levels must be there.
void BrickSystem::buildBrick(Level & level, int brick) const
{
    level.usedRows[static_cast<std::size_t>(brick)] = usedRowsOf(level.bricks->rowsOf(brick));
    std::array<int, 3> const & place = level.bricks->bricks[static_cast<std::size_t>(brick)];
    for (int delta = 1; delta <= level.coarserDepths; ++delta) {
        int first[3];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            int const base = (place[axis] * brickEdge) >> delta;
            first[axis] = (base + m_tables.coarse(delta, place[axis]).firstPlace) >> 3;
        }
        BrickLevel const & coarse = m_lattice.level(level.bricks->depth - delta);
        int * const found = level.coarseBricks.data() + level.placeOf(brick, delta);
        for (int corner = 0; corner < 8; ++corner)
            found[corner] =
                coarse.find(first[0] + (corner >> 2), first[1] + (corner >> 1 & 1), first[2] + (corner & 1));
    }
}

bool BrickSystem::canServe(int depthsNumber, CSingleVarLimitedPolynom const & kernel)
{
    // The kernel's scale is a `float`, so 1.5 cells may come out a little more.
    double const reach = std::max(-kernel.getLeftBound(), kernel.getRightBound());
    return depthsNumber <= BrickTables::maxDelta + 1 && reach <= BrickTables::maxReach * (1.0 + 1e-6);
}

double BrickSystem::amplitudeOfUnknown(int depth) const
{
    return std::exp2(-0.5 * (m_lattice.endDepth() - 1 - depth));
}

BrickSystem::Vector BrickSystem::emptyVector(LoopTeam & team) const
{
    Vector vector;
    QzBackend::assignLarge(team, vector, m_size + brickEdge, 0.0f);
    return vector;
}

BrickSystem::CoarseFrame BrickSystem::coarseFrame(int level, int brick, int delta) const
{
    Level const & fine = m_levels[static_cast<std::size_t>(level)];
    std::array<int, 3> const & place = fine.bricks->bricks[static_cast<std::size_t>(brick)];
    CoarseFrame frame;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        frame.tables[axis] = &m_tables.coarse(delta, place[axis]);
        frame.offset[axis] = (((place[axis] * brickEdge) >> delta) + frame.tables[axis]->firstPlace) & 7;
    }
    frame.bricks = fine.coarseBricksOf(brick, delta);
    return frame;
}

BrickSystem::Row const BrickSystem::st_zeros[brickRows] = {};

// The rows of a block of coarse places that have nodes, in the lower (0) or the upper (1) bricks along z.
std::uint64_t BrickSystem::rowsOf(CoarseFrame const & frame, Level const & coarse, int half) const
{
    if (half > 0 && frame.offset[2] + frame.tables[2]->width <= brickEdge)
        return 0;
    std::uint64_t rows = 0;
    for (int side = 0; side < 4; ++side) {
        int const brick = frame.bricks[2 * side + half];
        if (brick >= 0)
            rows |= shiftedRows(coarse.usedRows[static_cast<std::size_t>(brick)].mask,
                                frame.offset[0] - (side >> 1) * brickEdge,
                                frame.offset[1] - (side & 1) * brickEdge);
    }
    return rows & rowsWithin(0, frame.tables[0]->width, 0, frame.tables[1]->width);
}

// The place in its brick, and in which of the four, of a row of a block.
struct BrickSystem::RowPlace
{
    RowPlace(CoarseFrame const & frame, int row)
    {
        int const x = frame.offset[0] + row / coarseWidth;
        int const y = frame.offset[1] + row % coarseWidth;
        side = static_cast<std::size_t>(2 * (x >> 3) + (y >> 3));
        ownRow = static_cast<std::size_t>((x & 7) * brickEdge + (y & 7));
    }

    std::size_t side;
    std::size_t ownRow;
};

void BrickSystem::gather(CoarseFrame const & frame, BrickRows const & used, Level const & coarse,
                         Dense const & values, CoarseBlock & block) const
{
    block.offset = frame.offset[2];
    int const xBegin = frame.tables[0]->firstTap[used.xBegin];
    int const xEnd =
        std::min(frame.tables[0]->firstTap[used.xEnd - 1] + frame.tables[0]->taps, frame.tables[0]->width);
    int const yBegin = frame.tables[1]->firstTap[used.yBegin];
    int const yEnd =
        std::min(frame.tables[1]->firstTap[used.yEnd - 1] + frame.tables[1]->taps, frame.tables[1]->width);
    block.used =
        (rowsOf(frame, coarse, 0) | rowsOf(frame, coarse, 1)) & rowsWithin(xBegin, xEnd, yBegin, yEnd);
    bool const needsUpper = frame.offset[2] + frame.tables[2]->width > brickEdge;
    Row const * lower[4];
    Row const * upper[4];
    for (int side = 0; side < 4; ++side) {
        int const low = frame.bricks[2 * side];
        int const high = needsUpper ? frame.bricks[2 * side + 1] : BrickLevel::noBrick;
        lower[side] = low >= 0 ? &values[static_cast<std::size_t>(low) * brickRows] : st_zeros;
        upper[side] = high >= 0 ? &values[static_cast<std::size_t>(high) * brickRows] : st_zeros;
    }
    for (std::uint64_t left = block.used; left != 0; left &= left - 1) {
        int const row = lowestBit(left);
        RowPlace const place(frame, row);
        float * const target = block.values + row * paddedRow;
        std::memcpy(target, lower[place.side][place.ownRow].of, sizeof(Row));
        std::memcpy(target + brickEdge, upper[place.side][place.ownRow].of, sizeof(Row));
    }
}

void BrickSystem::scatter(CoarseFrame const & frame, CoarseBlock const & block, Level & coarse) const
{
    for (int half = 0; half < 2; ++half) {
        Row * sums[4];
        for (int side = 0; side < 4; ++side) {
            int const brick = frame.bricks[2 * side + half];
            sums[side] = brick >= 0 ? &coarse.sums[static_cast<std::size_t>(brick) * brickRows] : nullptr;
        }
        for (std::uint64_t left = block.used & rowsOf(frame, coarse, half); left != 0; left &= left - 1) {
            int const row = lowestBit(left);
            RowPlace const place(frame, row);
            float const * const source = block.values + row * paddedRow + half * brickEdge;
            Row sum = sums[place.side][place.ownRow]; // apart from the block, as vectors want it
            for (int z = 0; z < brickEdge; ++z)
                sum.of[z] += source[z];
            sums[place.side][place.ownRow] = sum;
        }
    }
}

void BrickSystem::gatherHalo(Level const & level, int brick, BrickHalo & halo) const
{
    int const * const neighbours = level.bricks->neighboursOf(brick);
    BrickRows const & box = level.usedRows[static_cast<std::size_t>(brick)];
    std::fill(std::begin(halo.used), std::end(halo.used), std::uint16_t{0});
    unsigned const wanted = (1U << (box.yEnd + 2 * ownReach)) - (1U << box.yBegin);
    for (int x = box.xBegin; x < box.xEnd + 2 * ownReach; ++x) {
        int const placeX = x - ownReach;
        int const ownX = placeX & 7;
        int const * const bricks = neighbours + 9 * ((placeX >> 3) + 1);
        Row const * rows[9]; // of the bricks around, by y and z
        unsigned lines = 0;  // from the place y = -8 on
        for (int side = 0; side < 9; ++side) {
            int const neighbour = bricks[side];
            std::size_t const firstRow =
                static_cast<std::size_t>(neighbour) * brickRows + static_cast<std::size_t>(ownX) * brickEdge;
            rows[side] = neighbour >= 0 ? &level.values[firstRow] : st_zeros;
            if (neighbour >= 0)
                lines |=
                    static_cast<unsigned>(level.usedRows[static_cast<std::size_t>(neighbour)].lines[ownX])
                    << side / 3 * brickEdge;
        }
        unsigned const used = lines >> (brickEdge - ownReach) & wanted;
        halo.used[x] = static_cast<std::uint16_t>(used);
        for (unsigned left = used; left != 0; left &= left - 1) {
            int const y = lowestBit(left);
            int const placeY = y + brickEdge - ownReach;
            Row const * const * const line = rows + 3 * (placeY >> 3);
            int const ownY = placeY & 7;
            float * const target = halo.values + (x * haloEdge + y) * paddedRow;
            std::memcpy(target, line[0][ownY].of + brickEdge - ownReach, ownReach * sizeof(float));
            std::memcpy(target + ownReach, line[1][ownY].of, sizeof(Row));
            std::memcpy(target + ownReach + brickEdge, line[2][ownY].of, ownReach * sizeof(float));
        }
    }
}

void BrickSystem::expandBrick(int index, int brick, Vector const & vector)
{
    Level & level = m_levels[static_cast<std::size_t>(index)];
    m_passes.expand(vector.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)],
                    level.bricks->rowsOf(brick),
                    level.values[static_cast<std::size_t>(brick) * brickRows].of);
}

void BrickSystem::clearSums(LoopTeam & team)
{
    for (Level & level : m_levels) {
        if (level.sums.empty())
            continue;
        team.forEach(level.bricks->bricksNumber(), [&](int brick) {
            std::fill_n(level.sums.begin() + static_cast<std::ptrdiff_t>(brick) * brickRows, brickRows,
                        Row{});
        });
    }
}

// Bricks of a level in an order: those of a list, or without one all.
struct BrickSystem::BrickList
{
    int size;
    int const * bricks = nullptr;

    explicit BrickList(int all) : size(all) {}
    explicit BrickList(std::vector<int> const & list)
        : size(static_cast<int>(list.size())), bricks(list.data())
    {}
    int operator[](int index) const { return bricks != nullptr ? bricks[index] : index; }
};

template <class Body>
void BrickSystem::forOwnBricks(int level, LoopTeam & team, Body const & body) const
{
    auto const run = [&](BrickList const & list) {
        team.forEach(list.size, [&](int index) { body(list[index]); });
    };
    if (!isShared(level)) {
        run(BrickList(m_levels[static_cast<std::size_t>(level)].bricks->bricksNumber()));
        return;
    }
    run(BrickList(m_share->part(level).shared));
    run(BrickList(m_share->part(level).inner));
}

// Calls makeValues(brick) and then restrictBrick(brick, frame, delta, block) for all coarser depths, for
// bricks of a level, and adds the blocks to the sums there in the order of the bricks.
template <class Make, class Restrict>
void BrickSystem::restrictBricks(int level, BrickList const & list, LoopTeam & team, Make const & makeValues,
                                 Restrict const & restrictBrick)
{
    Level const & fine = m_levels[static_cast<std::size_t>(level)];
    int const bricks = list.size;
    int const deltas = fine.coarserDepths;
    auto const makeBlock = [&](int brick, int delta, CoarseBlock & block) {
        CoarseFrame const frame = coarseFrame(level, brick, delta);
        block.offset = frame.offset[2];
        Level const & coarse = m_levels[static_cast<std::size_t>(level - delta)];
        block.used = rowsOf(frame, coarse, 0) | rowsOf(frame, coarse, 1);
        restrictBrick(brick, frame, delta, block);
    };
    auto const addBlock = [&](int brick, int delta, CoarseBlock const & block) {
        scatter(coarseFrame(level, brick, delta), block, m_levels[static_cast<std::size_t>(level - delta)]);
    };
    if (team.threads() == 1) {
        team.forEach(bricks, [&](int index) {
            int const brick = list[index];
            makeValues(brick);
            for (int delta = 1; delta <= deltas; ++delta) {
                makeBlock(brick, delta, m_blocks[0]);
                addBlock(brick, delta, m_blocks[0]);
            }
        });
        return;
    }
    m_blocks.resize(std::max(m_blocks.size(), static_cast<std::size_t>(bricksPerRound * deltas)));
    auto const blockOf = [&](int index, int delta) -> CoarseBlock & {
        return m_blocks[static_cast<std::size_t>(index % bricksPerRound * deltas + delta - 1)];
    };
    for (int first = 0; first < bricks; first += bricksPerRound) {
        int const end = std::min(first + bricksPerRound, bricks);
        team.forEach(end - first, [&](int index) {
            int const brick = list[first + index];
            makeValues(brick);
            for (int delta = 1; delta <= deltas; ++delta)
                makeBlock(brick, delta, blockOf(first + index, delta));
        });
        team.forEach(deltas, [&](int delta) {
            for (int index = first; index < end; ++index)
                addBlock(list[index], delta + 1, blockOf(index, delta + 1));
        });
    }
}

// The same for the bricks of a level that this process has to do, from the finest level to the coarsest: what
// others restricted to them comes before they are made.
template <class Make, class Restrict>
void BrickSystem::restrictLevel(int index, LoopTeam & team, Make const & makeValues,
                                Restrict const & restrictBrick)
{
    Level & level = m_levels[static_cast<std::size_t>(index)];
    bool const hasSums = index + 1 < static_cast<int>(m_levels.size());
    if (m_share == nullptr || m_share->part(index).isReplicated) {
        bool const isFinestReplicated =
            m_share != nullptr &&
            (index + 1 == static_cast<int>(m_levels.size()) || !m_share->part(index + 1).isReplicated);
        if (isFinestReplicated && hasSums) {
            std::vector<float *> sums;
            for (int coarse = 0; coarse <= index; ++coarse)
                sums.push_back(numbersOf(m_levels[static_cast<std::size_t>(coarse)].sums));
            m_share->sumReplicated(sums);
        }
        restrictBricks(index, BrickList(level.bricks->bricksNumber()), team, makeValues, restrictBrick);
        return;
    }
    BrickShare::Part const & part = m_share->part(index);
    if (hasSums)
        m_share->beginCollect(index, numbersOf(level.sums));
    restrictBricks(index, BrickList(part.inner), team, makeValues, restrictBrick);
    if (hasSums)
        m_share->endCollect(index, numbersOf(level.sums));
    restrictBricks(index, BrickList(part.shared), team, makeValues, restrictBrick);
}

// Makes the values of a level, brick by brick, and adds their couplings to the sums of all coarser depths.
template <class Make>
void BrickSystem::restrictValues(int index, LoopTeam & team, Make const & makeValues)
{
    Level const & level = m_levels[static_cast<std::size_t>(index)];
    restrictLevel(
        index, team, makeValues, [&](int brick, CoarseFrame const & frame, int delta, CoarseBlock & block) {
            m_passes.restrictToCoarse(level.values[static_cast<std::size_t>(brick) * brickRows].of,
                                      frame.tables, m_couplingScales[static_cast<std::size_t>(delta)],
                                      level.usedRows[static_cast<std::size_t>(brick)], block);
        });
}

// values = (w + U)^-1 vector
void BrickSystem::sweepUp(Vector const & vector, LoopTeam & team)
{
    clearSums(team);
    for (int index = static_cast<int>(m_levels.size()) - 1; index >= 0; --index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        restrictValues(index, team, [&](int brick) {
            std::size_t const firstRow = static_cast<std::size_t>(brick) * brickRows;
            m_passes.solveUp(vector.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)],
                             level.sums.empty() ? nullptr : level.sums[firstRow].of, 1.0f / sweepDiagonal,
                             level.bricks->rowsOf(brick), level.values[firstRow].of);
        });
        // They arrive until the sweep downwards needs them.
        if (isShared(index))
            m_share->beginSpread(index, numbersOf(level.values));
    }
}

// With t the values: sums = (w + L)^-1 (vector + (A - 2 w) t) and result = t + sums; without the own
// couplings t counts as 0.
void BrickSystem::sweepDown(Vector const & vector, bool withOwn, Vector & result, LoopTeam & team)
{
    for (int index = 0; index < static_cast<int>(m_levels.size()); ++index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        auto const sweep = [&](BrickList const & list) {
            team.forEach(list.size, [&](int n) { downBrick(index, list[n], vector, withOwn, result); });
        };
        if (!isShared(index)) {
            sweep(BrickList(level.bricks->bricksNumber()));
            continue;
        }
        BrickShare::Part const & part = m_share->part(index);
        bool const hasSums = index + 1 < static_cast<int>(m_levels.size());
        if (withOwn)
            m_share->endSpread(index, numbersOf(level.values));
        // What was collected there would stay at places without a node.
        for (int const brick : part.foreign) {
            if (hasSums)
                std::fill_n(level.sums.begin() + static_cast<std::ptrdiff_t>(brick) * brickRows, brickRows,
                            Row{});
        }
        sweep(BrickList(part.shared));
        if (hasSums)
            m_share->beginSpread(index, numbersOf(level.sums));
        sweep(BrickList(part.inner));
        if (hasSums)
            m_share->endSpread(index, numbersOf(level.sums));
    }
}

void BrickSystem::downBrick(int index, int brick, Vector const & vector, bool withOwn, Vector & result)
{
    Level & level = m_levels[static_cast<std::size_t>(index)];
    BrickRows const & used = level.usedRows[static_cast<std::size_t>(brick)];
    std::size_t const firstRow = static_cast<std::size_t>(brick) * brickRows;
    std::size_t const firstNode = level.bricks->firstNode[static_cast<std::size_t>(brick)];
    Row coupled[brickRows] = {};
    Row own[brickRows];
    CoarseBlock block;
    for (int delta = 1; delta <= level.coarserDepths; ++delta) {
        Level const & coarse = m_levels[static_cast<std::size_t>(index - delta)];
        CoarseFrame const frame = coarseFrame(index, brick, delta);
        gather(frame, used, coarse, coarse.sums, block);
        m_passes.addCoarse(block, frame.tables, m_couplingScales[static_cast<std::size_t>(delta)], used,
                           coupled[0].of);
    }
    if (withOwn) {
        BrickHalo halo;
        gatherHalo(level, brick, halo);
        m_passes.applyOwn(halo, m_tables.ownMass(), m_tables.ownStiffness(), m_couplingScales[0], used,
                          own[0].of);
    }
    m_passes.solveDown(vector.data() + firstNode, withOwn ? own[0].of : nullptr,
                       withOwn ? level.values[firstRow].of : nullptr, coupled[0].of, 2.0f * sweepDiagonal,
                       1.0f / sweepDiagonal, level.bricks->rowsOf(brick),
                       level.sums.empty() ? nullptr : level.sums[firstRow].of, result.data() + firstNode);
}

BrickSystem::Vector BrickSystem::product(Vector const & vector, LoopTeam & team)
{
    clearSums(team);
    Vector result = emptyVector(team);
    for (int index = static_cast<int>(m_levels.size()) - 1; index >= 0; --index)
        restrictValues(index, team, [&](int brick) { expandBrick(index, brick, vector); });
    for (int index = 0; index < static_cast<int>(m_levels.size()); ++index) {
        Level const & level = m_levels[static_cast<std::size_t>(index)];
        team.forEach(level.bricks->bricksNumber(), [&](int brick) {
            BrickRows const & used = level.usedRows[static_cast<std::size_t>(brick)];
            std::size_t const firstRow = static_cast<std::size_t>(brick) * brickRows;
            Row sums[brickRows] = {};
            BrickHalo halo;
            CoarseBlock block;
            gatherHalo(level, brick, halo);
            m_passes.applyOwn(halo, m_tables.ownMass(), m_tables.ownStiffness(), m_couplingScales[0], used,
                              sums[0].of);
            for (int delta = 1; delta <= level.coarserDepths; ++delta) {
                Level const & coarse = m_levels[static_cast<std::size_t>(index - delta)];
                CoarseFrame const frame = coarseFrame(index, brick, delta);
                gather(frame, used, coarse, coarse.values, block);
                m_passes.addCoarse(block, frame.tables, m_couplingScales[static_cast<std::size_t>(delta)],
                                   used, sums[0].of);
            }
            for (std::size_t row = 0; row < brickRows && !level.sums.empty(); ++row) {
                for (std::size_t z = 0; z < brickEdge; ++z)
                    sums[row].of[z] += level.sums[firstRow + row].of[z];
            }
            m_passes.compress(sums[0].of, level.bricks->rowsOf(brick),
                              result.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)]);
        });
    }
    return result;
}

BrickSystem::Vector BrickSystem::rightPart(std::array<Vector, 3> const & field, LoopTeam & team)
{
    Vector right = emptyVector(team);
    int const depths = static_cast<int>(m_levels.size());
    // Samples are splatted on few depths.
    std::vector<bool> hasField(m_levels.size(), false);
    for (std::size_t index = 0; index < m_levels.size(); ++index) {
        hasField[index] = m_share != nullptr; // of other processes
        BrickLevel const & bricks = *m_levels[index].bricks;
        for (Vector const & component : field) {
            for (std::size_t begin = bricks.firstNode.front();
                 begin < bricks.firstNode.back() && !hasField[index]; begin += nodesPerTurn) {
                team.serve();
                float const * const first = component.data() + begin;
                hasField[index] =
                    std::any_of(first, first + std::min(nodesPerTurn, bricks.firstNode.back() - begin),
                                [](float value) { return value != 0.0f; });
            }
        }
    }
    // In cells of the deepest depth: the test function carries the power 5/2 of its cell, and the product the
    // power -4 of the coarser one's.
    auto const scaleOf = [&](int testIndex, int coarserIndex) {
        return static_cast<float>(
            std::exp2(2.5 * (depths - 1 - testIndex) - 4.0 * (depths - 1 - coarserIndex)));
    };
    for (std::size_t axis = 0; axis < 3; ++axis) {
        clearSums(team);
        Vector const & component = field[axis];
        float const * own[3] = {m_tables.ownMass(), m_tables.ownMass(), m_tables.ownMass()};
        own[axis] = m_tables.ownGradient();
        OwnTerm const ownTerm = {own[0], own[1], own[2]};
        auto const coarseTerm = [axis](CoarseFrame const & frame) {
            AxisFactor const * factors[3];
            for (std::size_t n = 0; n < 3; ++n)
                factors[n] = n == axis ? &frame.tables[n]->gradient : &frame.tables[n]->mass;
            return CoarseTerm{
                {frame.tables[0], frame.tables[1], frame.tables[2]}, factors[0], factors[1], factors[2]};
        };
        for (int index = depths - 1; index >= 0; --index) {
            Level & level = m_levels[static_cast<std::size_t>(index)];
            if (!hasField[static_cast<std::size_t>(index)])
                continue;
            if (isShared(index))
                team.forEach(level.bricks->bricksNumber(),
                             [&](int brick) { expandBrick(index, brick, component); });
            restrictLevel(
                index, team, [&](int brick) { expandBrick(index, brick, component); },
                [&](int brick, CoarseFrame const & frame, int delta, CoarseBlock & block) {
                    m_passes.restrictTerm(level.values[static_cast<std::size_t>(brick) * brickRows].of,
                                          coarseTerm(frame), scaleOf(index - delta, index - delta),
                                          level.usedRows[static_cast<std::size_t>(brick)], block);
                });
        }
        for (int index = 0; index < depths; ++index) {
            Level const & level = m_levels[static_cast<std::size_t>(index)];
            forOwnBricks(index, team, [&](int brick) {
                BrickRows const & used = level.usedRows[static_cast<std::size_t>(brick)];
                std::uint8_t const * const rows = level.bricks->rowsOf(brick);
                std::size_t const firstRow = static_cast<std::size_t>(brick) * brickRows;
                float * const compact =
                    right.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)];
                Row sums[brickRows] = {};
                Row before[brickRows];
                if (!level.sums.empty())
                    std::copy(&level.sums[firstRow], &level.sums[firstRow] + brickRows, sums);
                if (hasField[static_cast<std::size_t>(index)]) {
                    BrickHalo halo;
                    gatherHalo(level, brick, halo);
                    m_passes.addOwnTerm(halo, ownTerm, scaleOf(index, index), used, sums[0].of);
                }
                CoarseBlock block;
                for (int delta = 1; delta <= level.coarserDepths; ++delta) {
                    if (!hasField[static_cast<std::size_t>(index - delta)])
                        continue;
                    Level const & coarse = m_levels[static_cast<std::size_t>(index - delta)];
                    CoarseFrame const frame = coarseFrame(index, brick, delta);
                    gather(frame, used, coarse, coarse.values, block);
                    // Here the coarser function is the one with the derivative; by parts it is the finer
                    // one's with the other sign.
                    m_passes.addCoarseTerm(block, coarseTerm(frame), -scaleOf(index, index - delta), used,
                                           sums[0].of);
                }
                m_passes.expand(compact, rows, before[0].of);
                for (int row = 0; row < brickRows; ++row) {
                    for (int z = 0; z < brickEdge && rows[row] != 0; ++z)
                        sums[row].of[z] = before[row].of[z] - sums[row].of[z];
                }
                m_passes.compress(sums[0].of, rows, compact);
            });
        }
    }
    return right;
}

BrickSystem::Solution BrickSystem::solve(Vector const & right, double tolerance, int maxIterations,
                                         LoopTeam & team)
{
    Solution solution;
    Vector residual = transformedRight(right, team);
    Vector direction = emptyVector(team);
    auto const forPieces = [&](auto const & body) {
        team.forEach(piecesOf(m_size), [&](int piece) {
            std::size_t const begin = static_cast<std::size_t>(piece) * pieceSize;
            body(begin, std::min(begin + pieceSize, m_size));
        });
    };
    forPieces([&](std::size_t begin, std::size_t end) {
        std::copy(residual.data() + begin, residual.data() + end, direction.data() + begin);
    });
    Vector image = emptyVector(team);
    Vector unknown = emptyVector(team);
    std::vector<double> sums;
    double const start = sumOverPieces(m_size, team, sums, [&](std::size_t begin, std::size_t end) {
        return dot(residual, residual, begin, end);
    });
    double squared = start;
    solution.hasConverged = squared == 0.0;
    solution.relativeResidual = solution.hasConverged ? 0.0 : 1.0;
    while (!solution.hasConverged && solution.iterations < maxIterations) {
        transformedProduct(direction, image, team);
        double const energy = sumOverPieces(m_size, team, sums, [&](std::size_t begin, std::size_t end) {
            return dot(direction, image, begin, end);
        });
        // Also refuses NaN.
        if (!(energy > 0.0))
            break;
        float const step = static_cast<float>(squared / energy);
        double const next = sumOverPieces(m_size, team, sums, [&](std::size_t begin, std::size_t end) {
            for (std::size_t index = begin; index < end; ++index) {
                unknown[index] += step * direction[index];
                residual[index] -= step * image[index];
            }
            return dot(residual, residual, begin, end);
        });
        ++solution.iterations;
        solution.relativeResidual = std::sqrt(next / start);
        if (solution.relativeResidual <= tolerance) {
            solution.hasConverged = true;
            break;
        }
        float const conjugation = static_cast<float>(next / squared);
        squared = next;
        forPieces([&](std::size_t begin, std::size_t end) {
            for (std::size_t index = begin; index < end; ++index)
                direction[index] = residual[index] + conjugation * direction[index];
        });
        team.setPosition(std::log(std::max(solution.relativeResidual, tolerance)) /
                         std::log(std::min(tolerance, 0.5)));
    }
    if (solution.hasConverged) {
        toSolution(unknown, team);
        solution.values = std::move(unknown);
    }
    return solution;
}

BrickSystem::Vector BrickSystem::transformedRight(Vector const & right, LoopTeam & team)
{
    Vector result = emptyVector(team);
    sweepDown(right, false, result, team);
    return result;
}

void BrickSystem::transformedProduct(Vector const & vector, Vector & image, LoopTeam & team)
{
    sweepUp(vector, team);
    sweepDown(vector, true, image, team);
}

void BrickSystem::toSolution(Vector & vector, LoopTeam & team)
{
    sweepUp(vector, team);
    for (int index = 0; index < static_cast<int>(m_levels.size()); ++index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        if (isShared(index))
            m_share->endSpread(index, numbersOf(level.values));
        forOwnBricks(index, team, [&](int brick) {
            m_passes.compress(level.values[static_cast<std::size_t>(brick) * brickRows].of,
                              level.bricks->rowsOf(brick),
                              vector.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)]);
        });
    }
}

} // namespace VolTr
