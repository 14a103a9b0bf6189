// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/OctreeFuncLinComb.h>

#include <QZmath/VolTriang/Basis/OctreeFuncBasisTables.h>
#include <QZmath/VolTriang/OctreeIterators.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace VolTr
{

template <class TKernel>
class COctreeFuncLinCombImpl
{
public:
    using Plan = COctreeFuncEvalHelper::Plan;
    using Region = COctreeFuncEvalHelper::Region;

    explicit COctreeFuncLinCombImpl(COctreeFuncBasisTmpl<TKernel> const * functionBasis)
        : basis(functionBasis), octree(&functionBasis->getOctreeRef()),
          coefficients(static_cast<std::size_t>(functionBasis->getFunctionsNumber()), 0.0)
    {}

    double eval(double const * point, COctreeFuncEvalHelper * helper) const
    {
        if (helper == nullptr)
            return evalOnTree(point);
        int region = helper->getCashedRegionindex(point);
        if (region < 0) {
            region = helper->recordNewRegion(point);
            if (region < 0)
                return evalOnTree(point);
            recordRegion(point, *helper, region);
        }
        return evalOnRegion(point, helper->at(region));
    }

    COctreeFuncBasisTmpl<TKernel> const * basis;
    COctree const * octree;
    std::vector<double> coefficients;

private:
    // Kernels that evaluation by plan has room for.
    static std::size_t const greatestSummands = 4;
    static int const greatestWidth = 16;

    // Calls visit(node, depth, place) for all nodes with a coefficient other than 0 whose supports may hold
    // the point. The support is symmetric, so a box around the point finds the same nodes as their boxes
    // tested against the point.
    template <class Visitor>
    void visitNodes(double const * point, COctreeFuncEvalHelper const * helper, Visitor visit) const
    {
        for (int depth = octree->getNodeDepthBegin(); depth < octree->getNodeDepthEnd(); ++depth) {
            CParallelepiped box = basis->getScaledKernelSupportRef(depth);
            for (int axis = 0; axis < CParallelepiped::DIM; ++axis) {
                box.getMinMod()[axis] += point[axis];
                box.getMaxMod()[axis] += point[axis];
            }
            if (helper != nullptr)
                helper->enlargeRegion(&box);
            for (COctreeInBoxNodeIterator it(octree, box, depth); !it.isFinished(); it.next()) {
                int const node = it.currentNodeIndex();
                if (coefficients[static_cast<std::size_t>(node)] != 0.0)
                    visit(node, depth, it.currentNodeShift());
            }
        }
    }

    double evalOnTree(double const * point) const
    {
        COctreeFuncBasisImpl<TKernel> const & functions = basis->impl();
        double sum = 0.0;
        visitNodes(point, nullptr, [&](int node, int depth, CInt3 const & place) {
            double center[3];
            octree->cellCoordsToReal(center, place);
            double const value = functions.evalKernel(center, depth, point);
            if (value != 0.0)
                sum += functions.normalizations[static_cast<std::size_t>(depth)] *
                       coefficients[static_cast<std::size_t>(node)] * value;
        });
        return sum;
    }

    void recordRegion(double const * point, COctreeFuncEvalHelper & helper, int region) const
    {
        Region & recorded = helper.m_regions[static_cast<std::size_t>(region)];
        Plan & plan = recorded.plan;
        try {
            plan.nodes.clear();
            visitNodes(point, &helper, [&](int node, int depth, CInt3 const & place) {
                helper.recordIndexInfo(region, node, coefficients[static_cast<std::size_t>(node)]);
                plan.nodes.emplace_back(depth, place);
            });
            if constexpr (CKernelEvaluator<TKernel>::isSeparable)
                makePlan(recorded);
        } catch (...) {
            recorded.hits = -1; // half a region would give wrong values
            throw;
        }
    }

    // Leaves the region without a plan when evaluation by plan could differ from the plain sum or take too
    // much memory.
    void makePlan(Region & region) const
    {
        COctreeFuncBasisImpl<TKernel> const & functions = basis->impl();
        Plan & plan = region.plan;
        plan.basis = nullptr;
        plan.bricks.clear();
        plan.amplitudes.clear();
        plan.reach = 0.0;
        for (int axis = 0; axis < 3; ++axis)
            plan.reach = std::max({plan.reach, -functions.sample.getCommonSupportRef().getMin()[axis],
                                   functions.sample.getCommonSupportRef().getMax()[axis]});
        plan.reach += 1e-3; // far above the rounding of places
        std::size_t const summands = functions.evaluator.summandsNumber();
        if (summands == 0 || summands > greatestSummands || !(2.0 * plan.reach < greatestWidth))
            return;
        plan.width = static_cast<int>(2.0 * plan.reach) + 1;
        std::size_t const count = region.indexes.size();
        for (std::size_t entry = 0; entry < count;) {
            // The entries stand in the order of depths.
            int const depth = plan.nodes[entry].depth();
            std::size_t end = entry + 1;
            while (end < count && plan.nodes[end].depth() == depth)
                ++end;
            if (!appendBrick(region, depth, entry, end))
                return;
            entry = end;
        }
        plan.entriesPlanned = count;
        plan.basis = &functions;
    }

    bool appendBrick(Region & region, int depth, std::size_t begin, std::size_t end) const
    {
        COctreeFuncBasisImpl<TKernel> const & functions = basis->impl();
        Plan & plan = region.plan;
        auto const placeOf = [&](std::size_t entry) -> CInt3 const & { return plan.nodes[entry].shift(); };
        CInt3 first = placeOf(begin);
        CInt3 last = first;
        for (std::size_t entry = begin; entry < end; ++entry) {
            for (int axis = 0; axis < 3; ++axis) {
                first.coordMod(axis) = std::min(first.coord(axis), placeOf(entry).coord(axis));
                last.coordMod(axis) = std::max(last.coord(axis), placeOf(entry).coord(axis));
            }
        }
        int const margin = plan.width - 1;
        int const levels = octree->getLeafCellDepth() - depth;
        typename Plan::Brick brick{0.0 - functions.argumentScales[static_cast<std::size_t>(depth)],
                                   {first.x(), first.y(), first.z()},
                                   1 << levels,
                                   {0, 0, 0},
                                   plan.amplitudes.size()};
        double volume = 1.0;
        for (int axis = 0; axis < 3; ++axis) {
            brick.counts[axis] = ((last.coord(axis) - first.coord(axis)) >> levels) + 1;
            volume *= brick.counts[axis] + 2 * margin;
        }
        if (volume > 32.0 * static_cast<double>(end - begin) + 65536.0)
            return false;
        plan.amplitudes.resize(plan.amplitudes.size() + static_cast<std::size_t>(volume), 0.0);
        plan.bricks.push_back(brick);
        for (std::size_t entry = begin; entry < end; ++entry) {
            CInt3 place = placeOf(entry);
            place -= first;
            double const amplitude =
                functions.normalizations[static_cast<std::size_t>(depth)] * region.coefficients[entry];
            if (!std::isfinite(amplitude))
                return false;
            plan.amplitudes[amplitudeIndex(brick, margin, place.x() >> levels, place.y() >> levels,
                                           place.z() >> levels)] = amplitude;
        }
        return true;
    }

    // Where the amplitude of a place of a brick stands. Places count from the origin, down to -margin.
    static std::size_t amplitudeIndex(typename Plan::Brick const & brick, int margin, int x, int y, int z)
    {
        std::size_t const lineLength = static_cast<std::size_t>(brick.counts[2] + 2 * margin);
        std::size_t const planeLines = static_cast<std::size_t>(brick.counts[1] + 2 * margin);
        return brick.firstAmplitude +
               (static_cast<std::size_t>(x + margin) * planeLines + static_cast<std::size_t>(y + margin)) *
                   lineLength +
               static_cast<std::size_t>(z + margin);
    }

    double evalOnRegion(double const * point, Region const & region) const
    {
        COctreeFuncBasisImpl<TKernel> const & functions = basis->impl();
        if constexpr (CKernelEvaluator<TKernel>::isSeparable) {
            if (region.plan.basis == &functions && region.plan.entriesPlanned == region.indexes.size()) {
                if (functions.evaluator.summandsNumber() != 1)
                    return evalPlan<0, 0>(point, region.plan);
                return region.plan.width == 3   ? evalPlan<1, 3>(point, region.plan)
                       : region.plan.width == 4 ? evalPlan<1, 4>(point, region.plan)
                                                : evalPlan<1, 0>(point, region.plan);
            }
        }
        // Entries that a client recorded himself.
        double sum = 0.0;
        for (std::size_t entry = 0; entry < region.indexes.size(); ++entry) {
            int const node = region.indexes[entry];
            int const depth = octree->getNodeDepth(node);
            double center[3];
            octree->getNodePosition(node, center);
            double const value = functions.evalKernel(center, depth, point);
            if (value != 0.0)
                sum += functions.normalizations[static_cast<std::size_t>(depth)] *
                       region.coefficients[entry] * value;
        }
        return sum;
    }

    // Adds the terms in the order in which the region holds them; places without an entry add exactly 0.
    // `Summands` and `Width` 0 stand for any number.
    template <std::size_t Summands, int Width>
    double evalPlan(double const * point, Plan const & plan) const
    {
        CKernelEvaluator<TKernel> const & evaluator = basis->impl().evaluator;
        std::size_t const summands = Summands > 0 ? Summands : evaluator.summandsNumber();
        int const width = Width > 0 ? Width : plan.width;
        double const unit = octree->getUnit();
        double const * const boxMin = octree->getBoxMin();
        double lattice[3];
        for (int axis = 0; axis < 3; ++axis)
            lattice[axis] = (point[axis] - boxMin[axis]) / unit;
        double factors[3][Summands > 0 ? Summands : greatestSummands][Width > 0 ? Width : greatestWidth];
        double sum = 0.0;
        for (typename Plan::Brick const & brick : plan.bricks) {
            int begin[3]; // first place in reach
            double const perStep = 1.0 / brick.step;
            bool inReach = true;
            for (int axis = 0; axis < 3; ++axis) {
                double const place = (lattice[axis] - brick.origin[axis]) * perStep;
                double const low = place - plan.reach;
                // Also refuses NaN. The sum is positive, so the conversion rounds down. A place at exactly
                // `low` is beyond the kernel already.
                inReach = inReach && low > -width && low < brick.counts[axis] - 1;
                begin[axis] = inReach ? static_cast<int>(low + width) + 1 - width : 0;
            }
            if (!inReach)
                continue;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                // Places beyond the lattice need not fit into `int`.
                double const step = brick.step;
                double coord = brick.origin[axis] + begin[axis] * step;
                for (int place = 0; place < width; ++place, coord += step) {
                    double const x = (coord * unit + boxMin[axis] - point[axis]) * brick.scale;
                    for (std::size_t summand = 0; summand < summands; ++summand)
                        factors[axis][summand][place] = evaluator.evalFactor(summand, axis, x);
                }
            }
            std::size_t const lineLength = static_cast<std::size_t>(brick.counts[2] + 2 * (width - 1));
            std::size_t const planeLines = static_cast<std::size_t>(brick.counts[1] + 2 * (width - 1));
            double const * plane =
                plan.amplitudes.data() + amplitudeIndex(brick, width - 1, begin[0], begin[1], begin[2]);
            for (int x = 0; x < width; ++x, plane += planeLines * lineLength) {
                double const * line = plane;
                for (int y = 0; y < width; ++y, line += lineLength) {
                    double factorsXY[Summands > 0 ? Summands : greatestSummands];
                    for (std::size_t summand = 0; summand < summands; ++summand)
                        factorsXY[summand] = factors[0][summand][x] * factors[1][summand][y];
                    for (int z = 0; z < width; ++z) {
                        double value = factorsXY[0] * factors[2][0][z];
                        for (std::size_t summand = 1; summand < summands; ++summand)
                            value += factorsXY[summand] * factors[2][summand][z];
                        sum += line[z] * value;
                    }
                }
            }
        }
        return sum;
    }
};

template <class TKernel>
COctreeFuncLinCombTmpl<TKernel>::COctreeFuncLinCombTmpl(COctreeFuncBasisTmpl<TKernel> const * basis)
    : m_impl(std::make_unique<COctreeFuncLinCombImpl<TKernel>>(basis)),
      m_coefficients(m_impl->coefficients.data())
{}

template <class TKernel>
COctreeFuncLinCombTmpl<TKernel>::~COctreeFuncLinCombTmpl() = default;

template <class TKernel>
COctreeFuncLinCombTmpl<TKernel>::COctreeFuncLinCombTmpl(COctreeFuncLinCombTmpl const & other)
    : m_impl(std::make_unique<COctreeFuncLinCombImpl<TKernel>>(*other.m_impl)),
      m_coefficients(m_impl->coefficients.data())
{}

template <class TKernel>
COctreeFuncLinCombTmpl<TKernel> &
COctreeFuncLinCombTmpl<TKernel>::operator=(COctreeFuncLinCombTmpl const & other)
{
    *m_impl = *other.m_impl;
    m_coefficients = m_impl->coefficients.data();
    return *this;
}

template <class TKernel>
COctreeFuncBasisTmpl<TKernel> const & COctreeFuncLinCombTmpl<TKernel>::getRelatedBasisRef() const
{
    return *m_impl->basis;
}

template <class TKernel>
double COctreeFuncLinCombTmpl<TKernel>::eval(double const * point, COctreeFuncEvalHelper * helper) const
{
    return m_impl->eval(point, helper);
}

template <class TKernel>
double COctreeFuncLinCombTmpl<TKernel>::eval(float const * point, COctreeFuncEvalHelper * helper) const
{
    double const widened[3] = {point[0], point[1], point[2]};
    return m_impl->eval(widened, helper);
}

template class COctreeFuncLinCombTmpl<CPiecewisePolynom>;
template class COctreeFuncLinCombTmpl<CProductPiecewisePolynom>;

} // namespace VolTr
