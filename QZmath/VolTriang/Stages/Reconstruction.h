// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Bricks/BrickFunction.h>
#include <QZmath/VolTriang/Stages/AcceleratedSolve.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>
#include <QZmath/VolTriang/Stages/SampleDensity.h>
#include <QZmath/VolTriang/Stages/SystemAssembly.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <memory>

class CProgressCounter;

namespace VolTr
{

class COctree;
class IInputSamples;
class ITriangulationTarget;

/// The stages of the reconstruction, in the order in which `run` calls them.
class CVolumetricTriangulatorImpl
{
public:
    CVolumetricTriangulatorImpl(ITriangulationTarget * target, IInputSamples const * samples,
                                CVolTriangulationParams const & params, CProgressCounter * progress);
    virtual ~CVolumetricTriangulatorImpl();
    CVolumetricTriangulatorImpl(CVolumetricTriangulatorImpl const &) = delete;
    CVolumetricTriangulatorImpl & operator=(CVolumetricTriangulatorImpl const &) = delete;

    void run();

private:
    // The function in one of two forms; the other one is null.
    struct Solution
    {
        std::unique_ptr<Combination> function;
        std::unique_ptr<BrickFunction> inBricks;
    };

    void logParameters() const;
    void scaleKernel();
    bool isAccelerated() const;
    void registerPhases(VsPCnt::CMultiPhaseManager & phases, bool isAccelerated) const;
    void registerAssemblyPhases(VsPCnt::CMultiPhaseManager & phases) const;
    void buildTree();
    void makeGradientBasis(GradientBasis & gradBasis, VectorField & field);
    Solution solveByMatrix(GradientBasis & gradBasis, VectorField & field,
                           VsPCnt::CMultiPhaseManager & phases);
    Solution solveByBricks(GradientBasis & gradBasis, VsPCnt::CMultiPhaseManager & phases);
    void dropField(GradientBasis & gradBasis, VectorField & field) const;

    IInputSamples const * m_samples;
    std::unique_ptr<COctree> m_octree;
    std::unique_ptr<Basis> m_basis;
    CProgressCounter * m_progress;
    CVolTriangulationParams m_params;
    ITriangulationTarget * m_target;
    Kernel m_kernel;
    VsUt::IDebugLog * m_log;
    std::unique_ptr<BrickLattice> m_lattice;         // null unless the run is accelerated
    std::unique_ptr<AcceleratedSolve> m_accelerated; // likewise
    std::unique_ptr<SampleDensity> m_density;        // null unless the density varies
    int m_densityEstimationLevel;
};

} // namespace VolTr
