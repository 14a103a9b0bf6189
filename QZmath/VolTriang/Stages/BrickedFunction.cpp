// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/BrickedFunction.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Bricks/BrickSurface.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/IsoValue.h>
#include <QZmath/VolTriang/Stages/LevelSet.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/Stages/SurfaceWalk.h>

#include <QZsys/Progress.h>

#include <functional>
#include <optional>
#include <utility>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

class PointEvaluator final : public EvaluableFunction::Evaluator
{
public:
    explicit PointEvaluator(BrickFunction const & function) : m_function(function) {}

    double value(double const * point) override { return m_function.eval(point, m_hint); }
    void gradient(double const * point, double * out3) override { m_function.gradient(point, out3, m_hint); }

private:
    BrickFunction const & m_function;
    BrickFunction::Hint m_hint;
};

} // namespace

std::unique_ptr<EvaluableFunction::Evaluator> BrickEvaluation::makeEvaluator(double) const
{
    return std::make_unique<PointEvaluator>(m_function);
}

BrickedFunction::BrickedFunction(BrickFunction function) : m_function(std::move(function)) {}

void BrickedFunction::add(COctree const & octree, int depth, std::function<double(int)> const & valueOf)
{
    CLatticeIndex const & nodes = octree.getNodeIndex(depth);
    double const kernelSum = m_function.kernelSum();
    int const shift = octree.getLeafCellDepth() - depth;
    for (int position = 0; position < nodes.size(); ++position) {
        int const node = nodes.payload(position);
        CInt3 const & at = octree.getNode(node).shift();
        m_function.addAmplitude(depth, {at.x() >> shift, at.y() >> shift, at.z() >> shift},
                                static_cast<float>(valueOf(node) / kernelSum));
    }
}

std::unique_ptr<ImplicitFunction::Evaluator> BrickedFunction::makeEvaluator(double) const
{
    return std::make_unique<PointEvaluator>(m_function);
}

double BrickedFunction::meanAtSamples(StageContext const & context) const
{
    return calcMeanIsoValue(m_function, context);
}

bool BrickedFunction::polygonise(LevelSet const & levelSet, StageContext const & context,
                                 TriangleSink & sink) const
{
    PointEvaluator evaluator(m_function);
    std::optional<CubeFrame> const frame = findSurface(evaluator, levelSet, context);
    if (!frame)
        return false;
    if (frame->edge < 0.0) {
        context.report.failure = "reconstructFactor gives the cubes of the lattice no size";
        return false;
    }
    std::function<bool(double const *)> isRefused;
    if (SurfaceEnd const * const end = levelSet.end)
        isRefused = [end](double const * point) { return end->isBeyond(point); };
    BrickSurface surface(m_function, levelSet.isoValue, frame->start.data(), frame->edge,
                         levelSet.lattice.bounds, isRefused);
    {
        CPrgCntSubPhase phase(context.progress, 0.0, 0.3, 0, true);
        LoopTeam::run(context.threads, context.progress,
                      [&surface](LoopTeam & team) { surface.prepare(team); });
    }
    sink.expectVertices(surface.solvedEdges());
    CPrgCntSubPhase phase(context.progress, 0.3, 0.7, 0, true);
    walkSurface(surface, *frame, levelSet, context, sink);
    return true;
}

} // namespace VolTr
