// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/InputSamples.h>

namespace VolTr
{

IInputSamples::~IInputSamples() = default;

} // namespace VolTr
