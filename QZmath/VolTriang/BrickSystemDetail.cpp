// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/BrickSystemDetail.h>

#include <QZmath/VolTriang/WorkTeamDetail.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace VolTr
{

namespace
{

// The diagonal of the sweep, in units of the matrix diagonal. Coarse functions are nearly sums of finer ones,
// so a sweep with 1 would correct the same error on every depth.
float const sweepDiagonal = 1.6f;

// Numbers that a piece of a sum has.
std::size_t const pieceSize = 8192;

// Bricks that are restricted before their blocks are added up.
int const bricksPerRound = 64;

int piecesOf(std::size_t size) { return static_cast<int>((size + pieceSize - 1) / pieceSize); }

// Calls body(begin, end) for the pieces of a vector, and adds up what it returns in the order of the pieces.
template <class Body>
double sumOverPieces(std::size_t size, WorkTeam & team, std::vector<double> & sums, Body const & body)
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

} // namespace

BrickSystem::BrickSystem(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel,
                         BrickPasses const & passes)
    : m_lattice(lattice), m_passes(passes),
      m_tables(kernel, lattice.isCentred(), lattice.endDepth() - lattice.firstDepth() - 1), m_blocks(1),
      m_size(lattice.nodes().size())
{
    int const depths = lattice.endDepth() - lattice.firstDepth();
    m_levels.resize(static_cast<std::size_t>(depths));
    for (int index = 0; index < depths; ++index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        level.bricks = &lattice.level(lattice.firstDepth() + index);
        level.coarserDepths = index;
        std::size_t const bricks = static_cast<std::size_t>(level.bricks->bricksNumber());
        level.values.resize(bricks * brickRows);
        if (index + 1 < depths)
            level.sums.resize(bricks * brickRows);
        level.coarseBricks.reserve(bricks * static_cast<std::size_t>(index) * 8);
        for (std::array<int, 3> const & place : level.bricks->bricks) {
            for (int delta = 1; delta <= index; ++delta) {
                int first[3];
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    int const base = (place[axis] * brickEdge) >> delta;
                    first[axis] = (base + m_tables.coarse(delta, place[axis]).firstPlace) >> 3;
                }
                BrickLevel const & coarse = *m_levels[static_cast<std::size_t>(index - delta)].bricks;
                for (int corner = 0; corner < 8; ++corner)
                    level.coarseBricks.push_back(coarse.find(
                        first[0] + (corner >> 2), first[1] + (corner >> 1 & 1), first[2] + (corner & 1)));
            }
        }
    }
}

bool BrickSystem::canServe(BrickLattice const & lattice, CSingleVarLimitedPolynom const & kernel)
{
    double const reach = std::max(-kernel.getLeftBound(), kernel.getRightBound());
    return lattice.endDepth() - lattice.firstDepth() - 1 <= BrickTables::maxDelta &&
           reach <= BrickTables::maxReach;
}

double BrickSystem::amplitudeOfUnknown(int depth) const
{
    return std::exp2(-0.5 * (m_lattice.endDepth() - 1 - depth));
}

BrickSystem::Vector BrickSystem::emptyVector() const { return Vector(m_size + brickEdge, 0.0f); }

// Both functions carry the square root of their diagonal element, in units of the coarser cell: 1 and 2^(5/2)
// a depth.
float BrickSystem::couplingScale(int delta) const
{
    return static_cast<float>(m_tables.ownScale() * std::exp2(-2.5 * delta));
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

void BrickSystem::gather(CoarseFrame const & frame, Level const & coarse, Dense const & values,
                         CoarseBlock & block) const
{
    block.offset = frame.offset[2];
    bool const needsUpper = frame.offset[2] + frame.tables[2]->width > brickEdge;
    int const widthX = frame.tables[0]->width;
    int const widthY = frame.tables[1]->width;
    for (int x = 0; x < widthX; ++x) {
        int const placeX = frame.offset[0] + x;
        unsigned used = 0;
        for (int y = 0; y < widthY; ++y) {
            int const placeY = frame.offset[1] + y;
            int const * const pair = frame.bricks + 4 * (placeX >> 3) + 2 * (placeY >> 3);
            int const row = (placeX & 7) * brickEdge + (placeY & 7);
            bool const hasLower = pair[0] >= 0 && coarse.bricks->rowsOf(pair[0])[row] != 0;
            bool const hasUpper = needsUpper && pair[1] >= 0 && coarse.bricks->rowsOf(pair[1])[row] != 0;
            if (!hasLower && !hasUpper)
                continue;
            used |= 1U << y;
            float * const target = block.values + (x * coarseWidth + y) * paddedRow;
            static Row const zeros = {};
            Row const & lower = hasLower ? values[static_cast<std::size_t>(pair[0] * brickRows + row)] : zeros;
            Row const & upper = hasUpper ? values[static_cast<std::size_t>(pair[1] * brickRows + row)] : zeros;
            std::memcpy(target, lower.of, sizeof(lower.of));
            std::memcpy(target + brickEdge, upper.of, sizeof(upper.of));
        }
        block.used[x] = static_cast<std::uint8_t>(used);
    }
}

void BrickSystem::scatter(CoarseFrame const & frame, CoarseBlock const & block, Level & coarse) const
{
    for (int x = 0; x < frame.tables[0]->width; ++x) {
        int const placeX = frame.offset[0] + x;
        for (int y = 0; y < frame.tables[1]->width; ++y) {
            if ((block.used[x] >> y & 1) == 0)
                continue;
            int const placeY = frame.offset[1] + y;
            int const * const pair = frame.bricks + 4 * (placeX >> 3) + 2 * (placeY >> 3);
            int const row = (placeX & 7) * brickEdge + (placeY & 7);
            float const * const source = block.values + (x * coarseWidth + y) * paddedRow;
            for (int half = 0; half < 2; ++half) {
                if (pair[half] < 0 || coarse.bricks->rowsOf(pair[half])[row] == 0)
                    continue;
                Row & target = coarse.sums[static_cast<std::size_t>(pair[half] * brickRows + row)];
                for (int z = 0; z < brickEdge; ++z)
                    target.of[z] += source[half * brickEdge + z];
            }
        }
    }
}

void BrickSystem::gatherHalo(Level const & level, int brick, BrickHalo & halo) const
{
    int const * const neighbours = level.bricks->neighboursOf(brick);
    for (int x = 0; x < haloEdge; ++x) {
        int const placeX = x - ownReach;
        int const * const plane = neighbours + 9 * ((placeX >> 3) + 1);
        unsigned used = 0;
        for (int y = 0; y < haloEdge; ++y) {
            int const placeY = y - ownReach;
            int const * const line = plane + 3 * ((placeY >> 3) + 1);
            int const row = (placeX & 7) * brickEdge + (placeY & 7);
            float * const target = halo.values + (x * haloEdge + y) * paddedRow;
            float const * sources[3];
            bool isUsed = false;
            for (int n = 0; n < 3; ++n) {
                bool const has = line[n] >= 0 && level.bricks->rowsOf(line[n])[row] != 0;
                sources[n] =
                    has ? level.values[static_cast<std::size_t>(line[n] * brickRows + row)].of : nullptr;
                isUsed = isUsed || has;
            }
            if (!isUsed)
                continue;
            used |= 1U << y;
            static float const zeros[brickEdge] = {};
            std::memcpy(target, (sources[0] != nullptr ? sources[0] : zeros) + brickEdge - ownReach,
                        ownReach * sizeof(float));
            std::memcpy(target + ownReach, sources[1] != nullptr ? sources[1] : zeros,
                        brickEdge * sizeof(float));
            std::memcpy(target + ownReach + brickEdge, sources[2] != nullptr ? sources[2] : zeros,
                        ownReach * sizeof(float));
        }
        halo.used[x] = static_cast<std::uint16_t>(used);
    }
}

void BrickSystem::expand(BrickLevel const & bricks, int brick, Vector const & compact, float * out) const
{
    float const * values = compact.data() + bricks.firstNode[static_cast<std::size_t>(brick)];
    std::uint8_t const * const rows = bricks.rowsOf(brick);
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] != 0)
            m_passes.expandRow(values, rows[row], out + row * brickEdge);
        values += __builtin_popcount(rows[row]);
    }
}

void BrickSystem::clearSums()
{
    for (Level & level : m_levels)
        std::fill(level.sums.begin(), level.sums.end(), Row{});
}

// Calls restrictBrick(brick, delta, block) for all bricks of a level and all coarser depths, and adds the
// blocks to the sums there in the order of the bricks.
template <class Restrict>
void BrickSystem::restrictBricks(int level, WorkTeam & team, Restrict const & restrictBrick)
{
    Level const & fine = m_levels[static_cast<std::size_t>(level)];
    int const bricks = fine.bricks->bricksNumber();
    int const deltas = fine.coarserDepths;
    if (team.threads() == 1 || bricks < 4) {
        for (int brick = 0; brick < bricks; ++brick) {
            for (int delta = 1; delta <= deltas; ++delta) {
                restrictBrick(brick, delta, m_blocks[0]);
                scatter(coarseFrame(level, brick, delta), m_blocks[0],
                        m_levels[static_cast<std::size_t>(level - delta)]);
            }
        }
        return;
    }
    m_blocks.resize(std::max(m_blocks.size(), static_cast<std::size_t>(bricksPerRound * deltas)));
    auto const blockOf = [&](int brick, int delta) -> CoarseBlock & {
        return m_blocks[static_cast<std::size_t>(brick % bricksPerRound * deltas + delta - 1)];
    };
    for (int first = 0; first < bricks; first += bricksPerRound) {
        int const count = std::min(bricksPerRound, bricks - first);
        team.forEach(count, [&](int index) {
            for (int delta = 1; delta <= deltas; ++delta)
                restrictBrick(first + index, delta, blockOf(first + index, delta));
        });
        team.forEach(deltas, [&](int index) {
            int const delta = index + 1;
            for (int brick = first; brick < first + count; ++brick)
                scatter(coarseFrame(level, brick, delta), blockOf(brick, delta),
                        m_levels[static_cast<std::size_t>(level - delta)]);
        });
    }
}

// values = (w + U)^-1 vector
void BrickSystem::sweepUp(Vector const & vector, WorkTeam & team)
{
    clearSums();
    float const inverse = 1.0f / sweepDiagonal;
    for (int index = static_cast<int>(m_levels.size()) - 1; index >= 0; --index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        auto const solveBrick = [&](int brick) {
            Row * const values = &level.values[static_cast<std::size_t>(brick) * brickRows];
            expand(*level.bricks, brick, vector, values->of);
            std::uint8_t const * const rows = level.bricks->rowsOf(brick);
            for (int row = 0; row < brickRows; ++row) {
                if (rows[row] == 0)
                    continue;
                for (int z = 0; z < brickEdge; ++z) {
                    float const coupled =
                        level.sums.empty()
                            ? 0.0f
                            : level.sums[static_cast<std::size_t>(brick * brickRows + row)].of[z];
                    bool const isNode = (rows[row] >> z & 1) != 0;
                    values[row].of[z] = isNode ? (values[row].of[z] - coupled) * inverse : 0.0f;
                }
            }
        };
        team.forEach(level.bricks->bricksNumber(), solveBrick);
        restrictBricks(index, team, [&](int brick, int delta, CoarseBlock & block) {
            CoarseFrame const frame = coarseFrame(index, brick, delta);
            block.offset = frame.offset[2];
            m_passes.restrictToCoarse(level.values[static_cast<std::size_t>(brick) * brickRows].of,
                                      frame.tables, couplingScale(delta), level.bricks->rowsOf(brick), block);
        });
    }
}

// With t the values: sums = (w + L)^-1 (vector + (A - 2 w) t) and result = t + sums; without the own
// couplings t counts as 0.
void BrickSystem::sweepDown(Vector const & vector, bool withOwn, Vector & result, WorkTeam & team)
{
    for (int index = 0; index < static_cast<int>(m_levels.size()); ++index) {
        team.forEach(m_levels[static_cast<std::size_t>(index)].bricks->bricksNumber(),
                     [&](int brick) { downBrick(index, brick, vector, withOwn, result); });
    }
}

void BrickSystem::downBrick(int index, int brick, Vector const & vector, bool withOwn, Vector & result)
{
    Level & level = m_levels[static_cast<std::size_t>(index)];
    std::uint8_t const * const rows = level.bricks->rowsOf(brick);
    std::size_t const firstRow = static_cast<std::size_t>(brick) * brickRows;
    Row given[brickRows];
    Row coupled[brickRows];
    Row own[brickRows];
    for (Row & row : coupled)
        row = Row{};
    expand(*level.bricks, brick, vector, given[0].of);
    for (int delta = 1; delta <= level.coarserDepths; ++delta) {
        CoarseBlock block;
        Level const & coarse = m_levels[static_cast<std::size_t>(index - delta)];
        CoarseFrame const frame = coarseFrame(index, brick, delta);
        gather(frame, coarse, coarse.sums, block);
        m_passes.addCoarse(block, frame.tables, couplingScale(delta), rows, coupled[0].of);
    }
    if (withOwn) {
        BrickHalo halo;
        gatherHalo(level, brick, halo);
        m_passes.applyOwn(halo, m_tables.ownMass(), m_tables.ownStiffness(),
                          static_cast<float>(m_tables.ownScale()), rows, own[0].of);
    }
    float const inverse = 1.0f / sweepDiagonal;
    float * compact = result.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)];
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] == 0)
            continue;
        Row solved;
        Row sum;
        for (int z = 0; z < brickEdge; ++z) {
            float const value = withOwn ? level.values[firstRow + static_cast<std::size_t>(row)].of[z] : 0.0f;
            float const ownPart = withOwn ? own[row].of[z] - 2.0f * sweepDiagonal * value : 0.0f;
            bool const isNode = (rows[row] >> z & 1) != 0;
            solved.of[z] = isNode ? ((given[row].of[z] + ownPart) - coupled[row].of[z]) * inverse : 0.0f;
            sum.of[z] = solved.of[z] + value;
        }
        if (!level.sums.empty())
            level.sums[firstRow + static_cast<std::size_t>(row)] = solved;
        m_passes.compressRow(sum.of, rows[row], compact);
        compact += __builtin_popcount(rows[row]);
    }
}

BrickSystem::Vector BrickSystem::product(Vector const & vector, WorkTeam & team)
{
    clearSums();
    Vector result = emptyVector();
    for (int index = static_cast<int>(m_levels.size()) - 1; index >= 0; --index) {
        Level & level = m_levels[static_cast<std::size_t>(index)];
        team.forEach(level.bricks->bricksNumber(), [&](int brick) {
            expand(*level.bricks, brick, vector,
                   level.values[static_cast<std::size_t>(brick) * brickRows].of);
        });
        restrictBricks(index, team, [&](int brick, int delta, CoarseBlock & block) {
            CoarseFrame const frame = coarseFrame(index, brick, delta);
            block.offset = frame.offset[2];
            m_passes.restrictToCoarse(level.values[static_cast<std::size_t>(brick) * brickRows].of,
                                      frame.tables, couplingScale(delta), level.bricks->rowsOf(brick), block);
        });
    }
    for (int index = 0; index < static_cast<int>(m_levels.size()); ++index) {
        Level const & level = m_levels[static_cast<std::size_t>(index)];
        team.forEach(level.bricks->bricksNumber(), [&](int brick) {
            std::uint8_t const * const rows = level.bricks->rowsOf(brick);
            Row sums[brickRows];
            BrickHalo halo;
            gatherHalo(level, brick, halo);
            m_passes.applyOwn(halo, m_tables.ownMass(), m_tables.ownStiffness(),
                              static_cast<float>(m_tables.ownScale()), rows, sums[0].of);
            for (int delta = 1; delta <= level.coarserDepths; ++delta) {
                CoarseBlock block;
                Level const & coarse = m_levels[static_cast<std::size_t>(index - delta)];
                CoarseFrame const frame = coarseFrame(index, brick, delta);
                gather(frame, coarse, coarse.values, block);
                m_passes.addCoarse(block, frame.tables, couplingScale(delta), rows, sums[0].of);
            }
            float * compact = result.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)];
            for (int row = 0; row < brickRows; ++row) {
                if (rows[row] == 0)
                    continue;
                for (int z = 0; z < brickEdge && !level.sums.empty(); ++z)
                    sums[row].of[z] += level.sums[static_cast<std::size_t>(brick * brickRows + row)].of[z];
                m_passes.compressRow(sums[row].of, rows[row], compact);
                compact += __builtin_popcount(rows[row]);
            }
        });
    }
    return result;
}

BrickSystem::Vector BrickSystem::rightPart(std::array<Vector, 3> const & field, WorkTeam & team)
{
    Vector right = emptyVector();
    int const depths = static_cast<int>(m_levels.size());
    // Samples are splatted on few depths.
    std::vector<bool> hasField(m_levels.size(), false);
    for (std::size_t index = 0; index < m_levels.size(); ++index) {
        BrickLevel const & bricks = *m_levels[index].bricks;
        for (Vector const & component : field) {
            hasField[index] = hasField[index] || std::any_of(component.begin() + bricks.firstNode.front(),
                                                             component.begin() + bricks.firstNode.back(),
                                                             [](float value) { return value != 0.0f; });
        }
    }
    // In cells of the deepest depth: the test function carries the power 5/2 of its cell, and the product the
    // power -4 of the coarser one's.
    auto const scaleOf = [&](int testIndex, int coarserIndex) {
        return static_cast<float>(
            std::exp2(2.5 * (depths - 1 - testIndex) - 4.0 * (depths - 1 - coarserIndex)));
    };
    for (std::size_t axis = 0; axis < 3; ++axis) {
        clearSums();
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
            team.forEach(level.bricks->bricksNumber(), [&](int brick) {
                expand(*level.bricks, brick, component,
                       level.values[static_cast<std::size_t>(brick) * brickRows].of);
            });
            restrictBricks(index, team, [&](int brick, int delta, CoarseBlock & block) {
                CoarseFrame const frame = coarseFrame(index, brick, delta);
                block.offset = frame.offset[2];
                m_passes.restrictTerm(level.values[static_cast<std::size_t>(brick) * brickRows].of,
                                      coarseTerm(frame), scaleOf(index - delta, index - delta),
                                      level.bricks->rowsOf(brick), block);
            });
        }
        for (int index = 0; index < depths; ++index) {
            Level const & level = m_levels[static_cast<std::size_t>(index)];
            team.forEach(level.bricks->bricksNumber(), [&](int brick) {
                std::uint8_t const * const rows = level.bricks->rowsOf(brick);
                Row sums[brickRows];
                for (int row = 0; row < brickRows; ++row)
                    sums[row] = level.sums.empty()
                                    ? Row{}
                                    : level.sums[static_cast<std::size_t>(brick * brickRows + row)];
                if (hasField[static_cast<std::size_t>(index)]) {
                    BrickHalo halo;
                    gatherHalo(level, brick, halo);
                    m_passes.addOwnTerm(halo, ownTerm, scaleOf(index, index), rows, sums[0].of);
                }
                for (int delta = 1; delta <= level.coarserDepths; ++delta) {
                    if (!hasField[static_cast<std::size_t>(index - delta)])
                        continue;
                    CoarseBlock block;
                    Level const & coarse = m_levels[static_cast<std::size_t>(index - delta)];
                    CoarseFrame const frame = coarseFrame(index, brick, delta);
                    gather(frame, coarse, coarse.values, block);
                    // Here the coarser function is the one with the derivative; by parts it is the finer
                    // one's with the other sign.
                    m_passes.addCoarseTerm(block, coarseTerm(frame), -scaleOf(index, index - delta), rows,
                                           sums[0].of);
                }
                float * compact = right.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)];
                for (int row = 0; row < brickRows; ++row) {
                    if (rows[row] == 0)
                        continue;
                    alignas(32) float before[brickEdge];
                    m_passes.expandRow(compact, rows[row], before);
                    for (int z = 0; z < brickEdge; ++z)
                        sums[row].of[z] = before[z] - sums[row].of[z];
                    m_passes.compressRow(sums[row].of, rows[row], compact);
                    compact += __builtin_popcount(rows[row]);
                }
            });
        }
    }
    return right;
}

BrickSystem::Solution BrickSystem::solve(Vector const & right, double tolerance, int maxIterations,
                                         WorkTeam & team)
{
    Solution solution;
    Vector residual = emptyVector();
    sweepDown(right, false, residual, team);
    Vector direction = residual;
    Vector image = emptyVector();
    Vector unknown = emptyVector();
    std::vector<double> sums;
    double const start = sumOverPieces(m_size, team, sums, [&](std::size_t begin, std::size_t end) {
        return dot(residual, residual, begin, end);
    });
    double squared = start;
    solution.hasConverged = squared == 0.0;
    solution.relativeResidual = solution.hasConverged ? 0.0 : 1.0;
    while (!solution.hasConverged && solution.iterations < maxIterations) {
        sweepUp(direction, team);
        sweepDown(direction, true, image, team);
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
        team.forEach(piecesOf(m_size), [&](int piece) {
            std::size_t const begin = static_cast<std::size_t>(piece) * pieceSize;
            std::size_t const end = std::min(begin + pieceSize, m_size);
            for (std::size_t index = begin; index < end; ++index)
                direction[index] = residual[index] + conjugation * direction[index];
        });
        team.setPosition(std::log(std::max(solution.relativeResidual, tolerance)) /
                         std::log(std::min(tolerance, 0.5)));
    }
    if (solution.hasConverged) {
        sweepUp(unknown, team);
        solution.values = std::move(unknown);
        for (Level const & level : m_levels) {
            team.forEach(level.bricks->bricksNumber(), [&](int brick) {
                float * compact =
                    solution.values.data() + level.bricks->firstNode[static_cast<std::size_t>(brick)];
                std::uint8_t const * const rows = level.bricks->rowsOf(brick);
                for (int row = 0; row < brickRows; ++row) {
                    if (rows[row] != 0)
                        m_passes.compressRow(
                            level.values[static_cast<std::size_t>(brick * brickRows + row)].of, rows[row],
                            compact);
                    compact += __builtin_popcount(rows[row]);
                }
            });
        }
    }
    return solution;
}

} // namespace VolTr
