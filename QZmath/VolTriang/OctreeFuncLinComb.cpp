// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/OctreeFuncLinComb.h>

#include <QZmath/VolTriang/OctreeFuncBasisImpl.h>
#include <QZmath/VolTriang/OctreeIterators.h>

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
        Plan & plan = helper.m_regions[static_cast<std::size_t>(region)].plan;
        if constexpr (CKernelEvaluator<TKernel>::isSeparable)
            startPlan(plan);
        visitNodes(point, &helper, [&](int node, int depth, CInt3 const & place) {
            double const coefficient = coefficients[static_cast<std::size_t>(node)];
            helper.recordIndexInfo(region, node, coefficient);
            if constexpr (CKernelEvaluator<TKernel>::isSeparable)
                appendToPlan(plan, depth, place, coefficient);
        });
        if constexpr (CKernelEvaluator<TKernel>::isSeparable)
            finishPlan(plan);
    }

    void startPlan(Plan & plan) const
    {
        plan.basis = &basis->impl();
        plan.entriesPlanned = 0;
        plan.levels.clear();
        plan.planes.clear();
        plan.lines.clear();
        plan.entries.clear();
    }

    void appendToPlan(Plan & plan, int depth, CInt3 const & place, double coefficient) const
    {
        COctreeFuncBasisImpl<TKernel> const & functions = basis->impl();
        double center[3];
        octree->cellCoordsToReal(center, place);
        double const scale = 0.0 - functions.argumentScales[static_cast<std::size_t>(depth)];
        bool const newLevel = plan.levels.empty() || plan.levels.back().scale != scale;
        if (newLevel)
            plan.levels.push_back({scale, plan.planes.size()});
        bool const newPlane = newLevel || plan.planes.back().coord != center[0];
        if (newPlane)
            plan.planes.push_back({center[0], plan.lines.size()});
        if (newPlane || plan.lines.back().coord != center[1])
            plan.lines.push_back({center[1], plan.entries.size()});
        plan.entries.push_back(
            {center[2], functions.normalizations[static_cast<std::size_t>(depth)] * coefficient});
    }

    // Closes the three lists with ends, so that each group ends where the next begins.
    void finishPlan(Plan & plan) const
    {
        plan.entriesPlanned = plan.entries.size();
        plan.levels.push_back({0.0, plan.planes.size()});
        plan.planes.push_back({0.0, plan.lines.size()});
        plan.lines.push_back({0.0, plan.entries.size()});
    }

    double evalOnRegion(double const * point, Region const & region) const
    {
        COctreeFuncBasisImpl<TKernel> const & functions = basis->impl();
        if constexpr (CKernelEvaluator<TKernel>::isSeparable) {
            if (region.plan.basis == &functions && region.plan.entriesPlanned == region.indexes.size()) {
                return functions.evaluator.summandsNumber() == 1 ? evalPlan<1>(point, region.plan)
                                                                 : evalPlan<0>(point, region.plan);
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

    // The one-variable factors of all summands at one coordinate; false when all of them are 0.
    template <std::size_t Summands>
    static bool evalFactors(CKernelEvaluator<TKernel> const & evaluator, std::size_t summands,
                            std::size_t axis, double x, double const * outer, double * factors)
    {
        if constexpr (Summands == 1) {
            factors[0] = evaluator.evalFactor(0, axis, x);
            if (outer != nullptr)
                factors[0] = outer[0] * factors[0];
            return factors[0] != 0.0;
        }
        bool any = false;
        for (std::size_t summand = 0; summand < summands; ++summand) {
            if (outer != nullptr && outer[summand] == 0.0) {
                factors[summand] = 0.0;
                continue;
            }
            double const factor = evaluator.evalFactor(summand, axis, x);
            factors[summand] = outer != nullptr ? outer[summand] * factor : factor;
            any = any || factors[summand] != 0.0;
        }
        return any;
    }

    // Adds the terms in the order in which the region holds them; what is skipped is exactly 0. `Summands` 0
    // stands for any number.
    template <std::size_t Summands>
    double evalPlan(double const * point, Plan const & plan) const
    {
        CKernelEvaluator<TKernel> const & evaluator = basis->impl().evaluator;
        std::size_t const summands = evaluator.summandsNumber();
        double stackFactors[3][8];
        std::vector<double> heapFactors; // kernels of more than eight summands only
        double * factors[3] = {stackFactors[0], stackFactors[1], stackFactors[2]};
        if (Summands == 0 && summands > 8) {
            heapFactors.resize(3 * summands);
            for (std::size_t axis = 0; axis < 3; ++axis)
                factors[axis] = heapFactors.data() + axis * summands;
        }
        double sum = 0.0;
        for (std::size_t level = 0; level + 1 < plan.levels.size(); ++level) {
            double const scale = plan.levels[level].scale;
            for (std::size_t plane = plan.levels[level].planesBegin;
                 plane < plan.levels[level + 1].planesBegin; ++plane) {
                double const x = (plan.planes[plane].coord - point[0]) * scale;
                if (!evalFactors<Summands>(evaluator, summands, 0, x, nullptr, factors[0]))
                    continue;
                for (std::size_t line = plan.planes[plane].begin; line < plan.planes[plane + 1].begin;
                     ++line) {
                    double const y = (plan.lines[line].coord - point[1]) * scale;
                    if (!evalFactors<Summands>(evaluator, summands, 1, y, factors[0], factors[1]))
                        continue;
                    for (std::size_t entry = plan.lines[line].begin; entry < plan.lines[line + 1].begin;
                         ++entry) {
                        double const z = (plan.entries[entry].z - point[2]) * scale;
                        if (!evalFactors<Summands>(evaluator, summands, 2, z, factors[1], factors[2]))
                            continue;
                        double value = 0.0;
                        for (std::size_t summand = 0; summand < (Summands == 1 ? 1 : summands); ++summand)
                            value += factors[2][summand];
                        sum += plan.entries[entry].amplitude * value;
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
