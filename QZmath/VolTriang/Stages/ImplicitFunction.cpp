// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>

#include <QZmath/VolTriang/Stages/CloudPeers.h>
#include <QZmath/VolTriang/Stages/ReconstructionPath.h>

namespace VolTr
{

EvaluableFunction::~EvaluableFunction() = default;
ImplicitFunction::~ImplicitFunction() = default;
CloudPeers::~CloudPeers() = default;
ReconstructionPath::~ReconstructionPath() = default;

} // namespace VolTr
