// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>

#include <string>

namespace qz_sampling
{

/// Writes a cloud in the form that the extension tells, as `QZmath::writePoints`; boundary marks to PLY only.
/// Throws `QZmath::OutputError`.
void writeCloud(Cloud const & cloud, std::string const & fileName);

} // namespace qz_sampling
