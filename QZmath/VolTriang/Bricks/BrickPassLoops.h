// SPDX-License-Identifier: Apache-2.0
#pragma once

// The passes, written once over a vector of eight floats `V` that the including source file defines before,
// in an unnamed namespace: load, store, arithmetic, and the ways between a row and its compact values. They
// use no inline function of a header, which would be shared with source files for other processors.

#include <QZmath/VolTriang/Bricks/BrickPasses.h>

namespace VolTr
{

namespace
{

// The lines of a block's rows with that x.
inline unsigned linesAt(std::uint64_t rows, int x)
{
    return static_cast<unsigned>(rows >> x * coarseWidth) & ((1U << coarseWidth) - 1);
}

// z pass over a row of the halo: two one-variable factors at once.
inline void convolveRow(float const * row, float const * first, float const * second, V & a, V & b)
{
    V value = load(row);
    a = mul(value, broadcast(first[0]));
    b = mul(value, broadcast(second[0]));
    for (int tap = 1; tap < ownTaps; ++tap) {
        value = loadUnaligned(row + tap);
        a = fma(value, broadcast(first[tap]), a);
        b = fma(value, broadcast(second[tap]), b);
    }
}

void applyOwn(BrickHalo const & halo, float const * mass, float const * stiffness, float scale,
              BrickRows const & used, float * out)
{
    float scaledMass[ownTaps];
    float scaledStiffness[ownTaps];
    for (int tap = 0; tap < ownTaps; ++tap) {
        scaledMass[tap] = mass[tap] * scale;
        scaledStiffness[tap] = stiffness[tap] * scale;
    }
    V plain[haloEdge][brickEdge]; // m m along z and y
    V mixed[haloEdge][brickEdge]; // m s + s m
    for (int x = used.xBegin; x < used.xEnd + 2 * ownReach; ++x) {
        V m[haloEdge];
        V s[haloEdge];
        for (int y = used.yBegin; y < used.yEnd + 2 * ownReach; ++y) {
            if ((halo.used[x] >> y & 1) != 0)
                convolveRow(halo.values + (x * haloEdge + y) * paddedRow, scaledMass, scaledStiffness, m[y],
                            s[y]);
            else
                m[y] = s[y] = zero();
        }
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            V a = mul(m[y], broadcast(mass[0]));
            V b = mul(m[y], broadcast(stiffness[0]));
            b = fma(s[y], broadcast(mass[0]), b);
            for (int tap = 1; tap < ownTaps; ++tap) {
                a = fma(m[y + tap], broadcast(mass[tap]), a);
                b = fma(m[y + tap], broadcast(stiffness[tap]), b);
                b = fma(s[y + tap], broadcast(mass[tap]), b);
            }
            plain[x][y] = a;
            mixed[x][y] = b;
        }
    }
    for (int x = used.xBegin; x < used.xEnd; ++x) {
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((used.lines[x] >> y & 1) == 0)
                continue;
            V sum = mul(plain[x][y], broadcast(stiffness[0]));
            V other = mul(mixed[x][y], broadcast(mass[0]));
            for (int tap = 1; tap < ownTaps; ++tap) {
                sum = fma(plain[x + tap][y], broadcast(stiffness[tap]), sum);
                other = fma(mixed[x + tap][y], broadcast(mass[tap]), other);
            }
            store(out + (x * brickEdge + y) * brickEdge, add(sum, other));
        }
    }
}

void addOwnTerm(BrickHalo const & halo, OwnTerm const & term, float scale, BrickRows const & used,
                float * out)
{
    float scaled[ownTaps];
    for (int tap = 0; tap < ownTaps; ++tap)
        scaled[tap] = term.z[tap] * scale;
    V lines[haloEdge][brickEdge];
    for (int x = used.xBegin; x < used.xEnd + 2 * ownReach; ++x) {
        V values[haloEdge];
        for (int y = used.yBegin; y < used.yEnd + 2 * ownReach; ++y) {
            values[y] = zero();
            float const * const row = halo.values + (x * haloEdge + y) * paddedRow;
            for (int tap = 0; tap < ownTaps && (halo.used[x] >> y & 1) != 0; ++tap)
                values[y] = fma(loadUnaligned(row + tap), broadcast(scaled[tap]), values[y]);
        }
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            lines[x][y] = zero();
            for (int tap = 0; tap < ownTaps; ++tap)
                lines[x][y] = fma(values[y + tap], broadcast(term.y[tap]), lines[x][y]);
        }
    }
    for (int x = used.xBegin; x < used.xEnd; ++x) {
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((used.lines[x] >> y & 1) == 0)
                continue;
            float * const target = out + (x * brickEdge + y) * brickEdge;
            V sum = load(target);
            for (int tap = 0; tap < ownTaps; ++tap)
                sum = fma(lines[x + tap][y], broadcast(term.x[tap]), sum);
            store(target, sum);
        }
    }
}

// What a row of a block gives to the places of a brick along z, with two factors at once. `Count` is how many
// coarse places each of them meets, at most; narrow tables have them in common.
template <int Count>
inline void spreadRow(float const * row, CoarseTable const & table, V const * mass, V const * stiffness,
                      V & m, V & s)
{
    m = s = zero();
    V const values = loadUnaligned(row);
    for (int tap = 0; tap < Count; ++tap) {
        V const value = Count == narrowWidth ? broadcast(row[tap]) : permute(values, table.tapPlaces[tap]);
        m = fma(value, mass[tap], m);
        s = fma(value, stiffness[tap], s);
    }
}

template <int Count>
void addCoarseTaps(CoarseBlock const & block, CoarseTable const * const * tables, float scale,
                   BrickRows const & used, float * out)
{
    constexpr bool isNarrow = Count == narrowWidth;
    CoarseTable const & tableX = *tables[0];
    CoarseTable const & tableY = *tables[1];
    CoarseTable const & tableZ = *tables[2];
    auto const firstOf = [](CoarseTable const & table, int place) {
        return isNarrow ? 0 : table.firstTap[place];
    };
    auto const weightsOf = [](AxisFactor const & factor, int place) {
        return isNarrow ? factor.byPlace[place] : factor.taps[place];
    };
    V massZ[Count];
    V stiffnessZ[Count];
    for (int tap = 0; tap < Count; ++tap) {
        AxisFactor const & m = tableZ.mass;
        AxisFactor const & s = tableZ.stiffness;
        massZ[tap] = mul(load(isNarrow ? m.byCoarse[tap] : m.byTap[tap]), broadcast(scale));
        stiffnessZ[tap] = mul(load(isNarrow ? s.byCoarse[tap] : s.byTap[tap]), broadcast(scale));
    }
    V plain[coarseWidth][brickEdge];
    V mixed[coarseWidth][brickEdge];
    int const xBegin = firstOf(tableX, used.xBegin);
    int const xEnd = firstOf(tableX, used.xEnd - 1) + Count;
    int const yBegin = firstOf(tableY, used.yBegin);
    int const yEnd = firstOf(tableY, used.yEnd - 1) + Count;
    for (int x = xBegin; x < xEnd; ++x) {
        unsigned const lines = linesAt(block.used, x);
        if (lines == 0) {
            for (int y = used.yBegin; y < used.yEnd; ++y)
                plain[x][y] = mixed[x][y] = zero();
            continue;
        }
        V m[coarseWidth];
        V s[coarseWidth];
        for (int y = yBegin; y < yEnd; ++y) {
            if ((lines >> y & 1) != 0)
                spreadRow<Count>(block.values + (x * coarseWidth + y) * paddedRow + block.offset, tableZ,
                                 massZ, stiffnessZ, m[y], s[y]);
            else
                m[y] = s[y] = zero();
        }
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            int const first = firstOf(tableY, y);
            float const * const masses = weightsOf(tableY.mass, y);
            float const * const stiffnesses = weightsOf(tableY.stiffness, y);
            V a = zero();
            V b = zero();
            for (int tap = 0; tap < Count; ++tap) {
                V const mass = broadcast(masses[tap]);
                a = fma(m[first + tap], mass, a);
                b = fma(s[first + tap], mass, b);
                b = fma(m[first + tap], broadcast(stiffnesses[tap]), b);
            }
            plain[x][y] = a;
            mixed[x][y] = b;
        }
    }
    for (int x = used.xBegin; x < used.xEnd; ++x) {
        int const first = firstOf(tableX, x);
        V mass[Count];
        V stiffness[Count];
        for (int tap = 0; tap < Count; ++tap) {
            mass[tap] = broadcast(weightsOf(tableX.mass, x)[tap]);
            stiffness[tap] = broadcast(weightsOf(tableX.stiffness, x)[tap]);
        }
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((used.lines[x] >> y & 1) == 0)
                continue;
            float * const target = out + (x * brickEdge + y) * brickEdge;
            V sum = load(target);
            V other = zero();
            for (int tap = 0; tap < Count; ++tap) {
                sum = fma(plain[first + tap][y], stiffness[tap], sum);
                other = fma(mixed[first + tap][y], mass[tap], other);
            }
            store(target, add(sum, other));
        }
    }
}

// How many coarse places a place of the brick meets along each axis.
inline int tapsOf(CoarseTable const * const * tables)
{
    if (tables[0]->width <= narrowWidth && tables[1]->width <= narrowWidth && tables[2]->width <= narrowWidth)
        return narrowWidth;
    for (int axis = 0; axis < 3; ++axis) {
        if (tables[axis]->taps == coarseTaps)
            return coarseTaps;
    }
    return coarseTaps - 1;
}

void addCoarse(CoarseBlock const & block, CoarseTable const * const * tables, float scale,
               BrickRows const & used, float * out)
{
    int const taps = tapsOf(tables);
    if (taps == narrowWidth)
        addCoarseTaps<narrowWidth>(block, tables, scale, used, out);
    else if (taps == coarseTaps)
        addCoarseTaps<coarseTaps>(block, tables, scale, used, out);
    else
        addCoarseTaps<coarseTaps - 1>(block, tables, scale, used, out);
}

void addCoarseTerm(CoarseBlock const & block, CoarseTerm const & term, float scale, BrickRows const & used,
                   float * out)
{
    int const tapsX = term.tables[0]->taps;
    int const tapsY = term.tables[1]->taps;
    V lines[coarseWidth][brickEdge];
    for (int x = 0; x < coarseWidth; ++x) {
        V values[coarseWidth];
        for (int y = 0; y < coarseWidth; ++y) {
            values[y] = zero();
            if ((linesAt(block.used, x) >> y & 1) == 0)
                continue;
            float const * const row = block.values + (x * coarseWidth + y) * paddedRow + block.offset;
            for (int c = 0; c < term.tables[2]->width; ++c)
                values[y] = fma(broadcast(row[c] * scale), load(term.z->byCoarse[c]), values[y]);
        }
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            lines[x][y] = zero();
            int const first = term.tables[1]->firstTap[y];
            for (int tap = 0; tap < tapsY; ++tap)
                lines[x][y] = fma(values[first + tap], broadcast(term.y->taps[y][tap]), lines[x][y]);
        }
    }
    for (int x = used.xBegin; x < used.xEnd; ++x) {
        int const first = term.tables[0]->firstTap[x];
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((used.lines[x] >> y & 1) == 0)
                continue;
            float * const target = out + (x * brickEdge + y) * brickEdge;
            V sum = load(target);
            for (int tap = 0; tap < tapsX; ++tap)
                sum = fma(lines[first + tap][y], broadcast(term.x->taps[x][tap]), sum);
            store(target, sum);
        }
    }
}

inline void storeRow(CoarseBlock & block, int x, int y, V values)
{
    storeShifted(block.values + (x * coarseWidth + y) * paddedRow, values, block.offset);
}

// The last of the transposed passes: from the places of a row to the coarse ones.
inline V gatherAlongZ(float const * first, AxisFactor const & firstFactor, V sum)
{
    for (int z = 0; z < brickEdge; ++z)
        sum = fma(broadcast(first[z]), load(firstFactor.byPlace[z]), sum);
    return sum;
}

template <int Taps>
void restrictTaps(float const * brick, CoarseTable const * const * tables, float scale,
                  BrickRows const & used, CoarseBlock & block)
{
    CoarseTable const & tableX = *tables[0];
    CoarseTable const & tableY = *tables[1];
    CoarseTable const & tableZ = *tables[2];
    V stiff[coarseWidth][brickEdge]; // s along x
    V plain[coarseWidth][brickEdge]; // m along x
    for (int c = 0; c < coarseWidth; ++c) {
        for (int y = used.yBegin; y < used.yEnd; ++y)
            stiff[c][y] = plain[c][y] = zero();
    }
    std::uint8_t touched[coarseWidth] = {};
    for (int x = used.xBegin; x < used.xEnd; ++x) {
        int const first = tableX.firstTap[x];
        V mass[Taps];
        V stiffness[Taps];
        for (int tap = 0; tap < Taps; ++tap) {
            mass[tap] = broadcast(tableX.mass.taps[x][tap] * scale);
            stiffness[tap] = broadcast(tableX.stiffness.taps[x][tap] * scale);
            touched[first + tap] = static_cast<std::uint8_t>(touched[first + tap] | used.lines[x]);
        }
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((used.lines[x] >> y & 1) == 0)
                continue;
            V const value = load(brick + (x * brickEdge + y) * brickEdge);
            for (int tap = 0; tap < Taps; ++tap) {
                stiff[first + tap][y] = fma(value, stiffness[tap], stiff[first + tap][y]);
                plain[first + tap][y] = fma(value, mass[tap], plain[first + tap][y]);
            }
        }
    }
    std::uint64_t const wanted = block.used;
    block.used = 0;
    for (int x = 0; x < tableX.width; ++x) {
        if (touched[x] == 0 || linesAt(wanted, x) == 0)
            continue;
        V byMass[coarseWidth];
        V byStiffness[coarseWidth];
        for (int c = 0; c < coarseWidth; ++c)
            byMass[c] = byStiffness[c] = zero();
        unsigned usedLines = 0;
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((touched[x] >> y & 1) == 0)
                continue;
            int const first = tableY.firstTap[y];
            for (int tap = 0; tap < Taps; ++tap) {
                V const mass = broadcast(tableY.mass.taps[y][tap]);
                byMass[first + tap] = fma(stiff[x][y], mass, byMass[first + tap]);
                byMass[first + tap] =
                    fma(plain[x][y], broadcast(tableY.stiffness.taps[y][tap]), byMass[first + tap]);
                byStiffness[first + tap] = fma(plain[x][y], mass, byStiffness[first + tap]);
                usedLines |= 1U << (first + tap);
            }
        }
        usedLines &= linesAt(wanted, x);
        block.used |= static_cast<std::uint64_t>(usedLines) << x * coarseWidth;
        for (int y = 0; y < tableY.width; ++y) {
            if ((usedLines >> y & 1) == 0)
                continue;
            alignas(32) float m[brickEdge];
            alignas(32) float s[brickEdge];
            store(m, byMass[y]);
            store(s, byStiffness[y]);
            storeRow(block, x, y, gatherAlongZ(s, tableZ.stiffness, gatherAlongZ(m, tableZ.mass, zero())));
        }
    }
}

// Where all places of the brick meet the same coarse places, their sums stay in registers.
void restrictNarrow(float const * brick, CoarseTable const * const * tables, float scale,
                    BrickRows const & used, CoarseBlock & block)
{
    CoarseTable const & tableX = *tables[0];
    CoarseTable const & tableY = *tables[1];
    CoarseTable const & tableZ = *tables[2];
    alignas(32) float massX[narrowWidth][brickEdge];
    alignas(32) float stiffnessX[narrowWidth][brickEdge];
    for (int c = 0; c < narrowWidth; ++c) {
        store(massX[c], mul(load(tableX.mass.byCoarse[c]), broadcast(scale)));
        store(stiffnessX[c], mul(load(tableX.stiffness.byCoarse[c]), broadcast(scale)));
    }
    V stiff[narrowWidth][brickEdge]; // s along x
    V plain[narrowWidth][brickEdge]; // m along x
    for (int y = used.yBegin; y < used.yEnd; ++y) {
        V s[narrowWidth];
        V m[narrowWidth];
        for (int c = 0; c < narrowWidth; ++c)
            s[c] = m[c] = zero();
        for (unsigned left = used.columns[y]; left != 0; left &= left - 1) {
            int const x = __builtin_ctz(left);
            V const value = load(brick + (x * brickEdge + y) * brickEdge);
            for (int c = 0; c < narrowWidth; ++c) {
                s[c] = fma(value, broadcast(stiffnessX[c][x]), s[c]);
                m[c] = fma(value, broadcast(massX[c][x]), m[c]);
            }
        }
        for (int c = 0; c < narrowWidth; ++c) {
            stiff[c][y] = s[c];
            plain[c][y] = m[c];
        }
    }
    for (int x = 0; x < tableX.width; ++x) {
        if (linesAt(block.used, x) == 0)
            continue;
        V byMass[narrowWidth];
        V byStiffness[narrowWidth];
        for (int c = 0; c < narrowWidth; ++c)
            byMass[c] = byStiffness[c] = zero();
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            V const s = stiff[x][y];
            V const m = plain[x][y];
            for (int c = 0; c < narrowWidth; ++c) {
                V const mass = broadcast(tableY.mass.byCoarse[c][y]);
                byMass[c] = fma(s, mass, byMass[c]);
                byMass[c] = fma(m, broadcast(tableY.stiffness.byCoarse[c][y]), byMass[c]);
                byStiffness[c] = fma(m, mass, byStiffness[c]);
            }
        }
        alignas(32) float masses[narrowWidth][brickEdge];
        alignas(32) float stiffnesses[narrowWidth][brickEdge];
        V sums[narrowWidth];
        for (int c = 0; c < narrowWidth; ++c) {
            store(masses[c], byMass[c]);
            store(stiffnesses[c], byStiffness[c]);
            sums[c] = zero();
        }
        for (int z = 0; z < brickEdge; ++z) {
            V const weights = load(tableZ.mass.byPlace[z]);
            for (int c = 0; c < narrowWidth; ++c)
                sums[c] = fma(broadcast(masses[c][z]), weights, sums[c]);
        }
        for (int z = 0; z < brickEdge; ++z) {
            V const weights = load(tableZ.stiffness.byPlace[z]);
            for (int c = 0; c < narrowWidth; ++c)
                sums[c] = fma(broadcast(stiffnesses[c][z]), weights, sums[c]);
        }
        for (int y = 0; y < tableY.width; ++y)
            storeRow(block, x, y, sums[y]);
    }
}

void restrictToCoarse(float const * brick, CoarseTable const * const * tables, float scale,
                      BrickRows const & used, CoarseBlock & block)
{
    int const taps = tapsOf(tables);
    if (taps == narrowWidth)
        restrictNarrow(brick, tables, scale, used, block);
    else if (taps == coarseTaps)
        restrictTaps<coarseTaps>(brick, tables, scale, used, block);
    else
        restrictTaps<coarseTaps - 1>(brick, tables, scale, used, block);
}

void restrictTerm(float const * brick, CoarseTerm const & term, float scale, BrickRows const & used,
                  CoarseBlock & block)
{
    CoarseTable const & tableX = *term.tables[0];
    CoarseTable const & tableY = *term.tables[1];
    V lines[coarseWidth][brickEdge];
    for (int c = 0; c < coarseWidth; ++c) {
        for (int y = 0; y < brickEdge; ++y)
            lines[c][y] = zero();
    }
    for (int x = used.xBegin; x < used.xEnd; ++x) {
        int const first = tableX.firstTap[x];
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            if ((used.lines[x] >> y & 1) == 0)
                continue;
            V const value = load(brick + (x * brickEdge + y) * brickEdge);
            for (int tap = 0; tap < tableX.taps; ++tap)
                lines[first + tap][y] =
                    fma(value, broadcast(term.x->taps[x][tap] * scale), lines[first + tap][y]);
        }
    }
    for (int x = 0; x < tableX.width; ++x) {
        V values[coarseWidth];
        for (int c = 0; c < coarseWidth; ++c)
            values[c] = zero();
        for (int y = used.yBegin; y < used.yEnd; ++y) {
            int const first = tableY.firstTap[y];
            for (int tap = 0; tap < tableY.taps; ++tap)
                values[first + tap] = fma(lines[x][y], broadcast(term.y->taps[y][tap]), values[first + tap]);
        }
        for (int y = 0; y < tableY.width; ++y) {
            if ((linesAt(block.used, x) >> y & 1) == 0)
                continue;
            alignas(32) float row[brickEdge];
            store(row, values[y]);
            storeRow(block, x, y, gatherAlongZ(row, *term.z, zero()));
        }
    }
}

void expand(float const * compact, std::uint8_t const * rows, float * out)
{
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] == 0)
            continue;
        store(out + row * brickEdge, expandRow(compact, rows[row]));
        compact += rowCounts.of[rows[row]];
    }
}

void compress(float const * brick, std::uint8_t const * rows, float * compact)
{
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] == 0)
            continue;
        compressRow(load(brick + row * brickEdge), rows[row], compact);
        compact += rowCounts.of[rows[row]];
    }
}

void solveUp(float const * compact, float const * sums, float factor, std::uint8_t const * rows, float * out)
{
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] == 0)
            continue;
        V value = expandRow(compact, rows[row]);
        if (sums != nullptr)
            value = sub(value, load(sums + row * brickEdge));
        store(out + row * brickEdge, keepNodes(mul(value, broadcast(factor)), rows[row]));
        compact += rowCounts.of[rows[row]];
    }
}

void solveDown(float const * compact, float const * own, float const * values, float const * coupled,
               float shift, float factor, std::uint8_t const * rows, float * solved, float * result)
{
    for (int row = 0; row < brickRows; ++row) {
        if (rows[row] == 0)
            continue;
        int const place = row * brickEdge;
        V sum = expandRow(compact, rows[row]);
        V const value = values != nullptr ? load(values + place) : zero();
        if (own != nullptr)
            sum = add(sum, fma(value, broadcast(0.0f - shift), load(own + place)));
        sum = mul(sub(sum, load(coupled + place)), broadcast(factor));
        if (solved != nullptr)
            store(solved + place, keepNodes(sum, rows[row]));
        compressRow(add(sum, value), rows[row], result);
        compact += rowCounts.of[rows[row]];
        result += rowCounts.of[rows[row]];
    }
}

constexpr BrickPasses passes = {applyOwn,     addCoarse, restrictToCoarse, addOwnTerm, addCoarseTerm,
                                restrictTerm, expand,    compress,         solveUp,    solveDown};

} // namespace

} // namespace VolTr
