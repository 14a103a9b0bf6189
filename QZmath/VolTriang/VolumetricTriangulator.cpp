// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/VolumetricTriangulator.h>

#include <QZmath/Backend/FreeMemory.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/Stages/ExactPath.h>
#include <QZmath/VolTriang/Stages/FieldCorrection.h>
#include <QZmath/VolTriang/Stages/IsoSurface.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/PathChoice.h>
#include <QZmath/VolTriang/Stages/Refinement.h>
#include <QZmath/VolTriang/Stages/RunPhases.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/StageContext.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <utility>

bool b_MEASURE_TRIANG_TIME_On = true;

namespace VolTr
{

// A run: the stages in their order, and what lives from one to the next.
class CVolumetricTriangulatorImpl
{
public:
    CVolumetricTriangulatorImpl(ITriangulationTarget * target, IInputSamples const * samples,
                                CVolTriangulationParams const & params, CProgressCounter * progress);

    void setReport(CReconstructionReport * report) { m_report = report; }
    void run();

private:
    void run(CReconstructionReport & report);
    void logParameters() const;
    void registerPhases(RunPhases & phases, ReconstructionPath const & path) const;
    void buildTree(CReconstructionReport & report);
    std::unique_ptr<ImplicitFunction> solve(std::unique_ptr<ReconstructionPath> path,
                                            StageContext const & context) const;
    double findIsoValue(StageContext const & context, ImplicitFunction const & function) const;

    IInputSamples const * m_samples;
    std::unique_ptr<COctree> m_octree;
    std::unique_ptr<Basis> m_basis;
    CProgressCounter * m_progress;
    CVolTriangulationParams m_params;
    ITriangulationTarget * m_target;
    CReconstructionReport * m_report = nullptr;
    Kernel m_kernel;
    VsUt::IDebugLog * m_log;
    SampleDensity m_density; // without weights unless the density varies
    int m_densityEstimationLevel;
};

CVolumetricTriangulator::CVolumetricTriangulator(ITriangulationTarget * target, IInputSamples const * samples,
                                                 CVolTriangulationParams const * params,
                                                 CProgressCounter * progress)
    : m_impl(std::make_shared<CVolumetricTriangulatorImpl>(
          target, samples, params != nullptr ? *params : CVolTriangulationParams(), progress))
{}

CVolumetricTriangulator::~CVolumetricTriangulator() = default;

void CVolumetricTriangulator::setReport(CReconstructionReport * report) { m_impl->setReport(report); }

void CVolumetricTriangulator::run() { m_impl->run(); }

CVolumetricTriangulatorImpl::CVolumetricTriangulatorImpl(ITriangulationTarget * target,
                                                         IInputSamples const * samples,
                                                         CVolTriangulationParams const & params,
                                                         CProgressCounter * progress)
    : m_samples(samples), m_progress(progress), m_params(params), m_target(target),
      m_kernel(makeReconstructionKernel(params.getKernelScaleFactor())), m_log(params.getDebugLog()),
      m_densityEstimationLevel(-1)
{}

void CVolumetricTriangulatorImpl::run()
{
    CReconstructionReport unread;
    CReconstructionReport & report = m_report != nullptr ? *m_report : unread;
    report = CReconstructionReport();
    run(report);
}

void CVolumetricTriangulatorImpl::run(CReconstructionReport & report)
{
    RunRecord record(report);
    logText(m_log, "Volumetric triangulation core started");
    logParameters();
    int const threads = std::max(1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    PathChoice const choice = choosePath(*m_samples, m_params, m_kernel, m_log);
    report.threads = threads;
    report.path = choice.path;
    report.reason = choice.reason;
    std::unique_ptr<ReconstructionPath> path = makePath(choice.path, m_params, threads);

    RunPhases phases(m_progress, &record);
    registerPhases(phases, *path);
    auto const inPhase = [&phases](char const * name, auto const & stage) {
        RunPhases::Scope const phase(phases, name);
        return stage();
    };
    inPhase("tree", [&] { buildTree(report); });
    StageContext context = {*m_samples, m_params, *m_octree, *m_basis, nullptr,
                            m_progress, m_log,    report,    threads};
    inPhase("grad_basis", [&] { path->prepare(context); });
    if (m_params.getVariableDensity()) {
        inPhase("density weights", [&] {
            m_density = estimateSampleDensity(*m_samples, *m_octree, *m_basis, m_densityEstimationLevel,
                                              threads, m_progress, m_log);
        });
        context.density = &m_density;
    }
    inPhase("grad_div", [&] { path->splat(context); });
    path->assemble(context, phases);
    auto function = inPhase("solve", [&] { return solve(std::move(path), context); });
    double isoValue = inPhase("iso-value", [&] { return findIsoValue(context, *function); });
    if (m_params.getCorrectField()) {
        inPhase("field correction", [&] {
            {
                CPrgCntSubPhase phase(m_progress, 0.0, 0.85, 0, true);
                correctField(context, *function, isoValue);
            }
            CPrgCntSubPhase phase(m_progress, 0.85, 0.15, 0, true);
            isoValue = findIsoValue(context, *function);
        });
    }
    // The function of the bricks knows its nodes itself.
    if (report.path == CReconstructionReport::Path::accelerated)
        m_octree->releaseNodes();
    std::unique_ptr<SampleSurface> surface; // what the samples say of it
    if (m_params.getRefine()) {
        inPhase("refinement",
                [&] { surface = fitToSamples(context, *function, isoValue, polygoniserEdge(context)); });
    }
    m_density = SampleDensity();
    context.density = nullptr;
    QzBackend::returnFreedMemory(static_cast<double>(report.nodes) + m_samples->pointsNumber());
    inPhase("iso-surface", [&] {
        extractIsoSurface(context, *function, isoValue, surface.get(), *m_target,
                          [&function] { function.reset(); });
    });
    logText(m_log, "Volumetric triangulation core completed");
}

void CVolumetricTriangulatorImpl::logParameters() const
{
    logValues(m_log, "Octree depth", m_params.getOctreeDepth());
    logValues(m_log, "Kernel scale", m_params.getKernelScaleFactor());
    logValues(m_log, "Subdivision factor", m_params.getReconstructFactor());
    logValues(m_log, "Closed", m_params.getClosed());
    logValues(m_log, "Normals by gradient", m_params.getEstimateResultNormals());
    logValues(m_log, "Center scheme", m_params.getUseCenter());
    logValues(m_log, "Samples #", m_samples->pointsNumber());
    logValues(m_log, "Variable density", m_params.getVariableDensity());
    if (m_params.getVariableDensity())
        logValues(m_log, "Density estimation level delta", m_params.getDensityEstimationDepthDelta());
}

// The weights are the expected shares of the run time.
void CVolumetricTriangulatorImpl::registerPhases(RunPhases & phases, ReconstructionPath const & path) const
{
    if (m_params.getPhaseNameShown())
        phases.showNames();
    phases.add("tree", 10);
    phases.add("grad_basis", 2);
    if (m_params.getVariableDensity())
        phases.add("density weights", 30);
    phases.add("grad_div", 10);
    path.registerPhases(phases);
    phases.add("iso-value", 10);
    if (m_params.getCorrectField())
        phases.add("field correction", 20);
    if (m_params.getRefine())
        phases.add("refinement", 20);
    phases.add("iso-surface", 40);
}

void CVolumetricTriangulatorImpl::buildTree(CReconstructionReport & report)
{
    m_octree = std::make_unique<COctree>(m_samples, m_params.getOctreeDepth(), m_progress,
                                         m_params.getUseCenter(), m_params.getDetalizationLevel());
    COctree const & octree = *m_octree;
    report.octreeDepth = octree.getLeafCellDepth();
    report.leafCells = octree.getCellsNumberOnDeepestLevel();
    report.nodes = octree.getNodesNumber();
    report.unknowns = report.nodes;
    CParallelepiped const cells = octree.getCellsBoundaryBox();
    CParallelepiped const nodes = octree.getNodesBoundaryBox();
    auto const logTriple = [this](char const * label, double const * triple) {
        logValues(m_log, label, triple[0], triple[1], triple[2]);
    };
    logValues(m_log, "Octree depth", octree.getLeafCellDepth());
    logValues(m_log, "Leaf cells", octree.getCellsNumberOnDeepestLevel());
    logValues(m_log, "Nodes number ", octree.getNodesNumber());
    logValues(m_log, "Node depth bounds", octree.getNodeDepthBegin(), octree.getNodeDepthEnd() - 1);
    logValues(m_log, "Leaf cell size", octree.getCellSize(m_params.getOctreeDepth() - 1));
    logTriple("Cells box min", cells.getMin());
    logTriple("Cells box max", cells.getMax());
    logTriple("Node min", nodes.getMin());
    logTriple("Node max", nodes.getMax());

    m_basis = std::make_unique<Basis>(m_kernel, m_octree.get(), 0);
    logValues(m_log, "Kernel support size in cells", m_basis->getSupportSizeInCells());
    if (m_params.getVariableDensity()) {
        int const delta = std::max(m_params.getDensityEstimationDepthDelta(), 0);
        m_densityEstimationLevel = std::max(octree.getNodeDepthEnd() - delta - 1, octree.getNodeDepthBegin());
        logValues(m_log, "Density estimation level", m_densityEstimationLevel);
    }
}

// A path that does not converge is gone before the exact one starts from the splat.
std::unique_ptr<ImplicitFunction> CVolumetricTriangulatorImpl::solve(std::unique_ptr<ReconstructionPath> path,
                                                                     StageContext const & context) const
{
    if (auto function = path->solve(context))
        return function;
    path.reset();
    context.report.path = CReconstructionReport::Path::exact;
    context.report.reason = CReconstructionReport::Reason::didNotConverge;
    context.report.iterations = 0;
    context.report.relativeResidual = 0.0;
    ExactPath exact(context.threads, 100);
    RunPhases phases(m_progress, nullptr);
    phases.add("grad_div", 10);
    exact.registerPhases(phases);
    {
        RunPhases::Scope const phase(phases, "grad_div");
        exact.prepare(context);
        exact.splat(context);
    }
    exact.assemble(context, phases);
    RunPhases::Scope const phase(phases, "solve");
    return exact.solve(context);
}

double CVolumetricTriangulatorImpl::findIsoValue(StageContext const & context,
                                                 ImplicitFunction const & function) const
{
    logText(m_log, "Start calculating iso-value...");
    double const isoValue = function.meanAtSamples(context);
    context.report.isoValue = isoValue;
    logValues(m_log, "Surface iso-value", isoValue);
    return isoValue;
}

} // namespace VolTr
