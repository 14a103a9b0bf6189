// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/CSFunc3.h>

namespace VolTr
{

template <class TKernel>
CCSFunc3Tmpl<TKernel>::~CCSFunc3Tmpl() = default;

template <class TKernel>
double CCSFunc3Tmpl<TKernel>::eval(double const * const point) const
{
    double argument[3];
    for (int axis = 0; axis < 3; ++axis)
        argument[axis] = (point[axis] - m_argumentShift[axis]) * m_argumentScale;
    return m_kernel->eval(argument) * m_normalizationScale;
}

template class CCSFunc3Tmpl<CPiecewisePolynom>;
template class CCSFunc3Tmpl<CProductPiecewisePolynom>;

} // namespace VolTr
