// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <limits>

namespace VolTr
{

CVolTriangulationParams::CVolTriangulationParams()
    : m_octreeDepth(-1), m_reconstructFactor(1.0f), m_closed(true), m_estimateResultNormals(false),
      m_phaseNameShown(false), m_useCenter(true), m_kernelScaleFactor(0.95f), m_debugLog(nullptr),
      m_variableDensity(true), m_densityEstimationDepthDelta(2), m_detalizationLevel(-1),
      m_prefferedSolver(0), m_accelerated(false), m_solverTolerance(1e-3), m_refine(false),
      m_correctField(false), m_allComponents(false), m_reach(0.0), m_largestGap(0.2)
{}

CVolTriangulationParams::~CVolTriangulationParams() = default;
CVolTriangulationParams::CVolTriangulationParams(CVolTriangulationParams const &) = default;
CVolTriangulationParams & CVolTriangulationParams::operator=(CVolTriangulationParams const &) = default;

float CVolTriangulationParams::getCellFactor() const
{
    // Depths that no `int` lattice holds are refused by the octree; here they only
    // must not shift out of range.
    int const depth = m_octreeDepth < 0 ? 0 : m_octreeDepth > 30 ? 30 : m_octreeDepth;
    return static_cast<float>(1 << depth) * m_reconstructFactor;
}

float CVolTriangulationParams::estimateTriangleSize(float modelSize) const
{
    return modelSize / getCellFactor();
}

int CVolTriangulationParams::estimateTrianglesNumber() const
{
    float const cellFactor = getCellFactor();
    float const estimate = 6 * cellFactor * cellFactor;
    if (!(estimate < static_cast<float>(std::numeric_limits<int>::max())))
        return std::numeric_limits<int>::max();
    return static_cast<int>(estimate);
}

} // namespace VolTr
