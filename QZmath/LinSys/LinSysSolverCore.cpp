// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverCore.h>

namespace REmath
{

template class ILinSysSolverCore<float>;
template class ILinSysSolverCore<double>;

} // namespace REmath
