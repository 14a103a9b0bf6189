// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/CombinationFunction.h>

#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/IsoValue.h>
#include <QZmath/VolTriang/Stages/LevelSet.h>

#include <array>
#include <utility>

namespace VolTr
{

GradientBasis makeGradientBasis(Basis const & basis)
{
    GradientBasis result;
    for (int axis = 0; axis < 3; ++axis) {
        Kernel derivative;
        basis.getSamplePtr()->makePartialDerivative(&derivative, axis);
        result[static_cast<std::size_t>(axis)] =
            std::make_unique<Basis>(derivative, &basis.getOctreeRef(), 1);
    }
    return result;
}

// A walk stays local and returns to places that it left a while ago, so a few regions are kept.
class CombinationFunction::PointEvaluator final : public ImplicitFunction::Evaluator
{
public:
    PointEvaluator(CombinationFunction const & function, double extent)
        : m_function(function), m_value(8, extent), m_gradient{m_value, m_value, m_value}
    {}

    double value(double const * point) override { return m_function.m_function->eval(point, &m_value); }

    void gradient(double const * point, double * out3) override
    {
        VectorField const & parts = m_function.gradient();
        for (std::size_t axis = 0; axis < 3; ++axis)
            out3[axis] = parts[axis]->eval(point, &m_gradient[axis]);
    }

private:
    CombinationFunction const & m_function;
    COctreeFuncEvalHelper m_value;
    std::array<COctreeFuncEvalHelper, 3> m_gradient;
};

CombinationFunction::CombinationFunction(std::unique_ptr<Combination> function)
    : m_function(std::move(function))
{}

void CombinationFunction::add(COctree const & octree, int depth, std::function<double(int)> const & valueOf)
{
    CLatticeIndex const & nodes = octree.getNodeIndex(depth);
    if (nodes.size() == 0)
        return;
    Basis const & basis = m_function->getRelatedBasisRef();
    // The sum of all kernels on average over a cell is the integral of one, in cells.
    CProductPiecewisePolynom const & kernel = *basis.getSamplePtr();
    double integral = 1.0;
    for (int axis = 0; axis < 3; ++axis) {
        CSingleVarLimitedPolynom const & factor = kernel.getSummand(0).getMultiplier(axis);
        double const reach = basis.getSupportSizeInCells();
        int const steps = 600; // pieces of power 2: the midpoint rule errs by less than 1e-5
        double sum = 0.0;
        for (int step = 0; step < steps; ++step)
            sum += factor.eval(reach * (2.0 * (step + 0.5) / steps - 1.0));
        integral *= sum * 2.0 * reach / steps;
    }
    double const middle[3] = {0.0, 0.0, 0.0};
    double place[3];
    octree.getNodePosition(nodes.payload(0), place);
    double const scale = basis.evalBasisValue(nodes.payload(0), place) / kernel.eval(middle);
    for (int position = 0; position < nodes.size(); ++position) {
        int const node = nodes.payload(position);
        m_function->setBasisCoefficient(node, m_function->getBasisCoefficient(node) +
                                                  valueOf(node) / (scale * integral));
    }
}

std::unique_ptr<ImplicitFunction::Evaluator> CombinationFunction::makeEvaluator(double extent) const
{
    return std::make_unique<PointEvaluator>(*this, extent);
}

double CombinationFunction::meanAtSamples(StageContext const & context) const
{
    return calcMeanIsoValue(*m_function, context);
}

bool CombinationFunction::polygonise(LevelSet const & levelSet, StageContext const & context,
                                     TriangleSink & sink) const
{
    std::unique_ptr<Evaluator> const evaluator = makeEvaluator(levelSet.lattice.edge * 4.0);
    return polygoniseByCubes(*evaluator, levelSet, context, sink);
}

VectorField const & CombinationFunction::gradient() const
{
    if (m_isGradientMade.load(std::memory_order_acquire))
        return m_gradient;
    // Not by std::call_once: an exception on its way through the C library makes that load what it unwinds
    // with, and the library ends the process when there is no memory for it.
    std::lock_guard<std::mutex> const lock(m_gradientMutex);
    if (!m_isGradientMade.load(std::memory_order_relaxed)) {
        Basis const & basis = m_function->getRelatedBasisRef();
        GradientBasis gradBasis = makeGradientBasis(basis);
        VectorField gradient;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            gradient[axis] = std::make_unique<Combination>(gradBasis[axis].get());
            for (int node = 0; node < basis.getFunctionsNumber(); ++node)
                gradient[axis]->setBasisCoefficient(node, m_function->getBasisCoefficient(node));
        }
        m_gradBasis = std::move(gradBasis);
        m_gradient = std::move(gradient);
        m_isGradientMade.store(true, std::memory_order_release);
    }
    return m_gradient;
}

} // namespace VolTr
