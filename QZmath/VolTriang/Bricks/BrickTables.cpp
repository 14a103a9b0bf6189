// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Bricks/BrickTables.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

namespace
{

struct Integrals
{
    double mass;
    double stiffness;
    double gradient;
};

// The integrals of a kernel with copies of itself, 2^delta times narrower.
class KernelProducts
{
public:
    explicit KernelProducts(CSingleVarLimitedPolynom const & kernel) : m_kernel(kernel)
    {
        m_kernel.makeDerivative(&m_derivative);
    }

    Integrals at(int delta, double x)
    {
        if (delta > BrickTables::maxDelta)
            return atFine(delta, x);
        double const scale = std::ldexp(1.0, delta);
        CSingleVarLimitedPolynom fine = placed(m_kernel, scale, x);
        CSingleVarLimitedPolynom fineDerivative = placed(m_derivative, scale, x);
        return {scale * integrate(m_kernel, fine), scale * scale * integrate(m_derivative, fineDerivative),
                scale * scale * integrate(m_kernel, fineDerivative)};
    }

private:
    // The same in cells of the finer depth, counted from its node, where powers of the scale do not cancel.
    // Between their knots the products are polynomials of power 4, for which three points are enough.
    Integrals atFine(int delta, double x)
    {
        double const step = std::ldexp(1.0, -delta);
        std::vector<double> knots;
        double const low = m_kernel.getLeftBound(), high = m_kernel.getRightBound();
        for (int n = 0; n <= m_kernel.piecesNumber(); ++n) {
            double const knot =
                n < m_kernel.piecesNumber() ? m_kernel.getKnot(n) + m_kernel.getArgShift() : high;
            knots.push_back(knot);
            knots.push_back(std::clamp((knot - x) / step, low, high));
        }
        std::sort(knots.begin(), knots.end());
        double const abscissae[3] = {-std::sqrt(0.6), 0.0, std::sqrt(0.6)};
        double const weights[3] = {5.0 / 9.0, 8.0 / 9.0, 5.0 / 9.0};
        Integrals sums = {0.0, 0.0, 0.0};
        for (std::size_t n = 1; n < knots.size(); ++n) {
            double const half = 0.5 * (knots[n] - knots[n - 1]);
            for (std::size_t point = 0; point < 3 && half > 0.0; ++point) {
                double const fine = knots[n - 1] + half * (1.0 + abscissae[point]);
                double const coarse = x + step * fine;
                double const weight = weights[point] * half;
                sums.mass += weight * m_kernel.eval(fine) * m_kernel.eval(coarse);
                sums.stiffness += weight * m_derivative.eval(fine) * m_derivative.eval(coarse) / step;
                sums.gradient += weight * m_derivative.eval(fine) * m_kernel.eval(coarse) / step;
            }
        }
        return sums;
    }

    // t -> function(scale (t - x))
    static CSingleVarLimitedPolynom placed(CSingleVarLimitedPolynom const & function, double scale, double x)
    {
        CSingleVarLimitedPolynom result = function;
        result.scaleArgument(scale);
        result.substituteArgPlusConst(-x);
        return result;
    }

    double integrate(CSingleVarLimitedPolynom const & a, CSingleVarLimitedPolynom const & b)
    {
        a.multiply(&m_product, b);
        return m_product.integrateWithBuffer(&m_buffer);
    }

    CSingleVarLimitedPolynom m_kernel;
    CSingleVarLimitedPolynom m_derivative;
    CSingleVarLimitedPolynom m_product;
    CSingleVarPolynom m_buffer;
};

void fillFactor(AxisFactor & factor, CoarseTable const & table,
                double const (&values)[brickEdge][coarseWidth])
{
    for (int place = 0; place < brickEdge; ++place) {
        for (int coarse = 0; coarse < coarseWidth; ++coarse) {
            factor.byPlace[place][coarse] = static_cast<float>(values[place][coarse]);
            factor.byCoarse[coarse][place] = factor.byPlace[place][coarse];
        }
        for (int tap = 0; tap < coarseTaps; ++tap) {
            int const coarse = table.firstTap[place] + tap;
            factor.taps[place][tap] =
                tap < table.taps && coarse < coarseWidth ? factor.byPlace[place][coarse] : 0.0f;
            factor.byTap[tap][place] = factor.taps[place][tap];
        }
    }
}

// \param position of the brick's first place, in places from the nearest coarse place below
CoarseTable makeTable(KernelProducts & products, double reach, int delta, double position, double nodeOffset)
{
    CoarseTable table;
    double const step = std::ldexp(1.0, -delta);
    double const range = reach * (1.0 + step);
    auto const coordinate = [&](int place) { return (position + place + nodeOffset) * step - nodeOffset; };
    // Functions that only touch do not overlap; the margin keeps rounding from adding their zeros.
    double const margin = 1e-9;
    table.firstPlace = static_cast<int>(std::ceil(coordinate(0) - range + margin));
    table.width =
        static_cast<int>(std::floor(coordinate(brickEdge - 1) + range - margin)) - table.firstPlace + 1;
    double mass[brickEdge][coarseWidth] = {};
    double stiffness[brickEdge][coarseWidth] = {};
    double gradient[brickEdge][coarseWidth] = {};
    int firsts[brickEdge];
    table.taps = coarseTaps - 1;
    for (int place = 0; place < brickEdge; ++place) {
        double const x = coordinate(place) - table.firstPlace;
        firsts[place] = static_cast<int>(std::ceil(x - range + margin));
        int const end = static_cast<int>(std::floor(x + range - margin)) + 1;
        if (end - firsts[place] > table.taps)
            table.taps = coarseTaps;
        for (int coarse = firsts[place]; coarse < end; ++coarse) {
            Integrals const integrals = products.at(delta, x - coarse);
            mass[place][coarse] = integrals.mass;
            stiffness[place][coarse] = integrals.stiffness;
            gradient[place][coarse] = integrals.gradient;
        }
    }
    for (int place = 0; place < brickEdge; ++place) {
        table.firstTap[place] = std::min(firsts[place], coarseWidth - table.taps);
        for (int tap = 0; tap < coarseTaps; ++tap)
            table.tapPlaces[tap][place] = std::min(table.firstTap[place] + tap, coarseWidth - 1);
    }
    fillFactor(table.mass, table, mass);
    fillFactor(table.stiffness, table, stiffness);
    fillFactor(table.gradient, table, gradient);
    return table;
}

} // namespace

std::size_t BrickTables::indexOf(int delta, int brick) const
{
    std::vector<int> const & positions = m_positions[static_cast<std::size_t>(delta - maxDelta - 1)];
    int const position = brick & ((1 << (delta - 3)) - 1);
    return static_cast<std::size_t>(std::lower_bound(positions.begin(), positions.end(), position) -
                                    positions.begin());
}

BrickTables::BrickTables(CSingleVarLimitedPolynom const & kernel, bool isCentred, int greatestDelta,
                         std::vector<std::vector<int>> const & bricks)
{
    KernelProducts products(kernel);
    double const reach = std::max(-kernel.getLeftBound(), kernel.getRightBound());
    for (int tap = 0; tap < ownTaps; ++tap) {
        // From the node at hand to its neighbour.
        Integrals const integrals = products.at(0, tap - ownReach);
        m_ownMass[tap] = static_cast<float>(integrals.mass);
        m_ownStiffness[tap] = static_cast<float>(integrals.stiffness);
        m_ownGradient[tap] = static_cast<float>(integrals.gradient);
    }
    Integrals const self = products.at(0, 0.0);
    m_ownScale = 1.0 / (3.0 * self.mass * self.mass * self.stiffness);

    double const nodeOffset = isCentred ? 0.5 : 0.0;
    for (int delta = 1; delta <= greatestDelta; ++delta) {
        int const positions = delta > 3 ? 1 << (delta - 3) : 1;
        std::vector<CoarseTable> tables;
        if (delta > maxDelta) {
            std::vector<int> asked;
            for (int const brick : bricks.at(static_cast<std::size_t>(delta - maxDelta - 1)))
                asked.push_back(brick & (positions - 1));
            std::sort(asked.begin(), asked.end());
            asked.erase(std::unique(asked.begin(), asked.end()), asked.end());
            for (int const position : asked)
                tables.push_back(
                    makeTable(products, reach, delta, brickEdge * static_cast<double>(position), nodeOffset));
            m_coarse.push_back(std::move(tables));
            m_positions.push_back(std::move(asked));
            continue;
        }
        tables.reserve(static_cast<std::size_t>(positions));
        for (int position = 0; position < positions; ++position)
            tables.push_back(makeTable(products, reach, delta, brickEdge * position, nodeOffset));
        m_coarse.push_back(std::move(tables));
    }
}

} // namespace VolTr
