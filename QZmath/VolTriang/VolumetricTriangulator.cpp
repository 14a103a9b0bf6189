// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/VolumetricTriangulator.h>

#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Kernels.h>
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/Stages/AcceleratedSolve.h>
#include <QZmath/VolTriang/Stages/IsoSurface.h>
#include <QZmath/VolTriang/Stages/IsoValue.h>
#include <QZmath/VolTriang/Stages/LogLine.h>
#include <QZmath/VolTriang/Stages/Reconstruction.h>
#include <QZmath/VolTriang/Stages/SampleSplat.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <utility>

bool b_MEASURE_TRIANG_TIME_On = true;

namespace VolTr
{

using VsPCnt::CMultiPhaseManager;
using VsPCnt::CMultiPhaseManagerSingleSubPhase;

CVolumetricTriangulator::CVolumetricTriangulator(ITriangulationTarget * target, IInputSamples const * samples,
                                                 CVolTriangulationParams const * params,
                                                 CProgressCounter * progress)
    : m_impl(std::make_shared<CVolumetricTriangulatorImpl>(
          target, samples, params != nullptr ? *params : CVolTriangulationParams(), progress))
{}

CVolumetricTriangulator::~CVolumetricTriangulator() = default;

void CVolumetricTriangulator::run() { m_impl->run(); }

CVolumetricTriangulatorImpl::CVolumetricTriangulatorImpl(ITriangulationTarget * target,
                                                         IInputSamples const * samples,
                                                         CVolTriangulationParams const & params,
                                                         CProgressCounter * progress)
    : m_samples(samples), m_progress(progress), m_params(params), m_target(target),
      m_kernel(makeApproxGaussian<Kernel>()), m_log(params.getDebugLog()), m_densityEstimationLevel(-1)
{}

CVolumetricTriangulatorImpl::~CVolumetricTriangulatorImpl() = default;

void CVolumetricTriangulatorImpl::run()
{
    logText(m_log, "Volumetric triangulation core started");
    logParameters();
    scaleKernel();

    CMultiPhaseManager phases(m_progress);
    bool const isAcceleratedRun = isAccelerated();
    registerPhases(phases, isAcceleratedRun);
    {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "tree");
        buildTree();
    }
    GradientBasis gradBasis;
    VectorField field;
    {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "grad_basis");
        // The other path refuses an empty system.
        if (isAcceleratedRun && m_octree->getNodesNumber() > 0) {
            m_lattice = std::make_unique<BrickLattice>(*m_octree);
            m_accelerated = std::make_unique<AcceleratedSolve>(*m_lattice, m_kernel, m_log);
        } else {
            makeGradientBasis(gradBasis, field);
        }
    }
    if (m_params.getVariableDensity()) {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "density weights");
        m_density = std::make_unique<SampleDensity>(estimateSampleDensity(
            *m_samples, *m_octree, *m_basis, m_densityEstimationLevel, m_progress, m_log));
    }
    {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "grad_div");
        if (m_accelerated != nullptr)
            m_accelerated->splat(*m_samples, *m_octree, m_density.get(), m_progress);
        else
            splatNormals(*m_samples, *m_octree, m_density.get(), field, m_progress);
    }

    Solution const solution =
        m_accelerated != nullptr ? solveByBricks(gradBasis, phases) : solveByMatrix(gradBasis, field, phases);
    std::vector<float> const * const weights = m_density != nullptr ? &m_density->weights : nullptr;
    int const threads = CVescaThreadingTasksHelper::getNumOfPhisicalThread();

    double isoValue = 0.0;
    {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "iso-value");
        logText(m_log, "Start calculating iso-value...");
        isoValue =
            solution.inBricks != nullptr
                ? calcMeanIsoValue(*solution.inBricks, *m_samples, *m_octree, weights, m_progress, threads)
                : calcMeanIsoValue(*solution.function, *m_samples, *m_octree, weights, m_progress);
        logValues(m_log, "Surface iso-value", isoValue);
    }
    {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "iso-surface");
        bool const withNormals = m_params.getEstimateResultNormals();
        if (solution.inBricks != nullptr) {
            extractIsoSurface(*solution.inBricks, isoValue, withNormals, *m_samples, *m_octree, m_params,
                              *m_target, m_progress, m_log, threads);
        } else {
            extractIsoSurface(*solution.function, isoValue, withNormals ? &gradBasis : nullptr, *m_samples,
                              *m_octree, m_params, *m_target, m_progress, m_log);
        }
    }
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

void CVolumetricTriangulatorImpl::scaleKernel()
{
    float const factor = m_params.getKernelScaleFactor();
    if (!(factor > 0.0f))
        return;
    double const scale = 1.0 / factor;
    double const scales[3] = {scale, scale, scale};
    m_kernel.scaleArgument(scales);
}

// The weights are the expected shares of the run time.
void CVolumetricTriangulatorImpl::registerPhases(CMultiPhaseManager & phases, bool isAccelerated) const
{
    if (m_params.getPhaseNameShown())
        phases.showPhaseName();
    phases.RegisterPhase("tree", 10);
    phases.RegisterPhase("grad_basis", 2);
    if (m_params.getVariableDensity())
        phases.RegisterPhase("density weights", 30);
    phases.RegisterPhase("grad_div", 10);
    if (!isAccelerated)
        registerAssemblyPhases(phases);
    phases.RegisterPhase("update right part", 5);
    phases.RegisterPhase("solve", !isAccelerated && m_params.getOctreeDepth() >= 9 ? 200 : 30);
    phases.RegisterPhase("iso-value", 10);
    phases.RegisterPhase("iso-surface", 40);
}

void CVolumetricTriangulatorImpl::registerAssemblyPhases(CMultiPhaseManager & phases) const
{
    if (CVescaThreadingTasksHelper::getNumOfPhisicalThread() < 2) {
        phases.RegisterPhase("right_part", 50);
        phases.RegisterPhase("matrix", 50);
    } else {
        phases.RegisterPhase("matrix+right_part", 100);
    }
}

bool CVolumetricTriangulatorImpl::isAccelerated() const
{
    if (!m_params.getAccelerated() || m_params.getPrefferedSolver() != 0)
        return false;
    int const deepest = m_params.getOctreeDepth() - (m_params.getUseCenter() ? 1 : 0);
    int const level = m_params.getDetalizationLevel();
    int const depths = (level < 0 || level > deepest ? deepest : level) + 1;
    if (BrickSystem::canServe(depths, kernelFactor(m_kernel)) &&
        BrickFunction::canServe(deepest, kernelFactor(m_kernel)))
        return true;
    logText(m_log, "Accelerated solver cannot serve this kernel or depth");
    return false;
}

CVolumetricTriangulatorImpl::Solution CVolumetricTriangulatorImpl::solveByMatrix(GradientBasis & gradBasis,
                                                                                 VectorField & field,
                                                                                 CMultiPhaseManager & phases)
{
    ReconstructionSolver system =
        chooseSolver(m_params.getPrefferedSolver(), m_octree->getNodesNumber(), m_log);
    assembleSystem(*m_basis, gradBasis, field, *m_octree, system, phases, m_progress, m_log);
    dropField(gradBasis, field);
    CMultiPhaseManagerSingleSubPhase phase(&phases, "solve");
    return {solveEquation(*m_basis, std::move(system), m_progress, m_log), nullptr};
}

CVolumetricTriangulatorImpl::Solution CVolumetricTriangulatorImpl::solveByBricks(GradientBasis & gradBasis,
                                                                                 CMultiPhaseManager & phases)
{
    {
        CMultiPhaseManagerSingleSubPhase phase(&phases, "update right part");
        m_accelerated->makeRightPart(m_progress);
    }
    CMultiPhaseManagerSingleSubPhase phase(&phases, "solve");
    std::vector<float> const amplitudes =
        m_accelerated->amplitudes(m_params.getSolverTolerance(), m_progress);
    m_accelerated.reset(); // its memory serves the stages to come
    if (!amplitudes.empty()) {
        auto function =
            std::make_unique<BrickFunction>(*m_lattice, *m_octree, kernelFactor(m_kernel), amplitudes);
        m_lattice.reset();
        return {nullptr, std::move(function)};
    }

    CMultiPhaseManager inner(m_progress);
    inner.RegisterPhase("grad_div", 10);
    registerAssemblyPhases(inner);
    inner.RegisterPhase("update right part", 5);
    inner.RegisterPhase("solve", 100);
    VectorField field;
    {
        CMultiPhaseManagerSingleSubPhase innerPhase(&inner, "grad_div");
        makeGradientBasis(gradBasis, field);
        splatNormals(*m_samples, *m_octree, m_density.get(), field, m_progress);
    }
    return solveByMatrix(gradBasis, field, inner);
}

// They are as large as the unknown function itself; neither solve nor extraction needs them, normals apart.
void CVolumetricTriangulatorImpl::dropField(GradientBasis & gradBasis, VectorField & field) const
{
    for (auto & component : field)
        component.reset();
    if (!m_params.getEstimateResultNormals()) {
        for (auto & component : gradBasis)
            component.reset();
    }
}

void CVolumetricTriangulatorImpl::buildTree()
{
    m_octree = std::make_unique<COctree>(m_samples, m_params.getOctreeDepth(), m_progress,
                                         m_params.getUseCenter(), m_params.getDetalizationLevel());
    COctree const & octree = *m_octree;
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

void CVolumetricTriangulatorImpl::makeGradientBasis(GradientBasis & gradBasis, VectorField & field)
{
    for (int axis = 0; axis < 3; ++axis) {
        std::size_t const component = static_cast<std::size_t>(axis);
        Kernel derivative;
        m_kernel.makePartialDerivative(&derivative, axis);
        gradBasis[component] = std::make_unique<Basis>(derivative, m_octree.get(), 1);
        field[component] = std::make_unique<Combination>(gradBasis[component].get());
    }
}

} // namespace VolTr
