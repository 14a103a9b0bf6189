// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/VolTriangulationError.h>

namespace VolTr
{

CVolTriangulationError::CVolTriangulationError(char const * text) : m_text(text != nullptr ? text : "") {}
CVolTriangulationError::~CVolTriangulationError() = default;
char const * CVolTriangulationError::what() const noexcept { return m_text.c_str(); }

} // namespace VolTr
