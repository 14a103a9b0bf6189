// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/TriangulationTarget.h>

namespace VolTr
{

ITriangulationTarget::~ITriangulationTarget() = default;

} // namespace VolTr
