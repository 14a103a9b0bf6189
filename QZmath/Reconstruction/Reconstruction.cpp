// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Reconstruction.h>

namespace QZmath
{

ReconstructionError::ReconstructionError(Kind kind, std::string const & sentence)
    : std::runtime_error(sentence), m_kind(kind)
{}

ReconstructionError::~ReconstructionError() = default;

VolTr::CVolTriangulationParams ReconstructionOptions::acceleratedCore()
{
    VolTr::CVolTriangulationParams params;
    params.setAccelerated(true);
    return params;
}

} // namespace QZmath
