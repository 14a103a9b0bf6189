// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace QZmath
{

struct ReconstructionOptions;

/// \throws ReconstructionError that names the first option out of its range
void checkOptions(ReconstructionOptions const & options);

} // namespace QZmath
