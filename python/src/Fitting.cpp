// SPDX-License-Identifier: Apache-2.0
#include <python/src/Subsystems.h>

namespace qz_python
{

void bindFitting(pybind11::module_ &) {}

} // namespace qz_python
