// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Bricks/BrickSystem.h>
#include <QZmath/VolTriang/Stages/PipelineTypes.h>

#include <array>
#include <vector>

class CProgressCounter;
namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

class COctree;
class IInputSamples;
struct SampleDensity;

/// The one-variable factor of the reconstruction's kernel, the same on each axis.
CSingleVarLimitedPolynom const & kernelFactor(Kernel const & kernel);

/// The system of the reconstruction over bricks, from the splatted field to the amplitudes of the kernels.
class AcceleratedSolve
{
public:
    AcceleratedSolve(BrickLattice const & lattice, Kernel const & kernel, VsUt::IDebugLog * log);

    /// Distributes the normals of all samples on the nodes around them, with the weights and on the depths of
    /// `splatNormals`. \param density null when all samples have weight 1
    void splat(IInputSamples const & samples, COctree const & octree, SampleDensity const * density,
               CProgressCounter * progress);

    /// Makes the right part from what was splatted.
    void makeRightPart(CProgressCounter * progress);

    /// The amplitudes of the kernels at the nodes, compact over the lattice and up to a common positive
    /// factor; empty when the solution was not reached, which the log then tells.
    std::vector<float> amplitudes(double tolerance, CProgressCounter * progress);

private:
    BrickLattice const & m_lattice;
    BrickSystem m_system;
    std::vector<std::array<double, 3>> m_field; // compact
    BrickSystem::Vector m_right;
    VsUt::IDebugLog * m_log;
};

} // namespace VolTr
