// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/BrickSystemDetail.h>
#include <QZmath/VolTriang/PipelineTypesDetail.h>

#include <vector>

class CProgressCounter;
namespace VsUt
{
class IDebugLog;
}

namespace VolTr
{

/// The one-variable factor of the reconstruction's kernel, the same on each axis.
CSingleVarLimitedPolynom const & kernelFactor(Kernel const & kernel);

/// The system of the reconstruction over bricks, from the splatted field to the amplitudes of the kernels.
class AcceleratedSolve
{
public:
    AcceleratedSolve(BrickLattice const & lattice, Kernel const & kernel, VsUt::IDebugLog * log);

    /// Takes the right part from the field, whose memory is not needed any more afterwards.
    void makeRightPart(VectorField const & field, CProgressCounter * progress);

    /// The amplitudes of the kernels at the nodes, compact over the lattice and up to a common positive
    /// factor; empty when the solution was not reached, which the log then tells.
    std::vector<float> amplitudes(double tolerance, CProgressCounter * progress);

private:
    BrickLattice const & m_lattice;
    BrickSystem m_system;
    BrickSystem::Vector m_right;
    VsUt::IDebugLog * m_log;
};

} // namespace VolTr
