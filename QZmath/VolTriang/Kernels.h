// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/CSFunc3.h>
#include <QZmath/VolTriang/Parallelepiped.h>
#include <QZmath/VolTriang/PiecewisePolynom.h>
#include <QZmath/VolTriang/ProductPiecewisePolynom.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>

namespace VolTr
{

/// The kernel of the reconstruction, an approximate Gaussian: K(x, y, z) = k(x) k(y) k(z) with the quadratic
/// B-spline k centred at 0,
///
///     k(t) = (t + 1.5)^2 / 2   on [-1.5, -0.5)
///            0.75 - t^2        on [-0.5,  0.5)
///            (t - 1.5)^2 / 2   on [ 0.5,  1.5)
///
/// Its support is [-1.5, 1.5]^3, its integral 1. The template functions of this header exist for two
/// forms of the same function: `CProductPiecewisePolynom`, one product of three splines, on which the
/// reconstruction runs, and `CPiecewisePolynom`, the sum of 27 polynomials on boxes, to which it can
/// be compared. They differ on the faces between the pieces only. The functions are thread-safe and
/// work on copies of their own.
template <class TKernel>
TKernel makeApproxGaussian();

/// The partial derivative of the kernel along axis 0, 1 or 2; another axis throws `std::out_of_range`.
template <class TKernel>
TKernel DgaussianDx(int axis);

/// The Laplacian of the kernel: three summands (81 polynomials on boxes),
/// each with k'' = 1, -2, 1 on one axis.
template <class TKernel>
TKernel makeApproxGaussianLaplacian();

/// A placed function as an object of its own, in model coordinates. Allocates. The scale of `function` must
/// not be 0.
template <class TKernel>
TKernel polynomByShiftedKernel(CCSFunc3Tmpl<TKernel> const & function);

/// The pointwise product of two placed functions, in model coordinates. Allocates.
template <class TKernel>
TKernel makeProduct(CCSFunc3Tmpl<TKernel> const & f, CCSFunc3Tmpl<TKernel> const & g);

/// The box outside which a placed function is 0, in model coordinates.
template <class TKernel>
CParallelepiped getScaledFunctionCommonSupport(CCSFunc3Tmpl<TKernel> const & function);

/// The integral of a function over space.
template <class TKernel>
double integrateOnSupport(TKernel const & function);

/// The factor of one summand on one axis of a placed function, in model coordinates, with the cube root of
/// the normalisation: the product of the three axes is the summand of the placed function. Indices out of
/// range throw `std::out_of_range`.
QZMATH_API CSingleVarLimitedPolynom
summandByShiftedKernel(CCSFunc3Tmpl<CProductPiecewisePolynom> const & function, int summandIndex, int axis);

/// Weight of a sample `point` towards a node at `node`, in a cell: the product over the axes of
/// 1 - |point - node| / width. Axes on which the cell is thinner than 1e-10 are left out. Negative where the
/// distance exceeds the width. Both are three coordinates.
QZMATH_API double calcTrilinearWeight(float const * const point, double const * const node,
                                      CParallelepiped const & cell);
/// Takes the point in double precision.
QZMATH_API double calcTrilinearWeight(double const * const point, double const * const node,
                                      CParallelepiped const & cell);

template <>
QZMATH_API CPiecewisePolynom makeApproxGaussian<CPiecewisePolynom>();
template <>
QZMATH_API CPiecewisePolynom DgaussianDx<CPiecewisePolynom>(int axis);
template <>
QZMATH_API CPiecewisePolynom makeApproxGaussianLaplacian<CPiecewisePolynom>();
extern template QZMATH_API CPiecewisePolynom polynomByShiftedKernel(CCSFunc3Tmpl<CPiecewisePolynom> const &);
extern template QZMATH_API CPiecewisePolynom makeProduct(CCSFunc3Tmpl<CPiecewisePolynom> const &,
                                                         CCSFunc3Tmpl<CPiecewisePolynom> const &);
extern template QZMATH_API CParallelepiped
getScaledFunctionCommonSupport(CCSFunc3Tmpl<CPiecewisePolynom> const &);
extern template QZMATH_API double integrateOnSupport(CPiecewisePolynom const &);

template <>
QZMATH_API CProductPiecewisePolynom makeApproxGaussian<CProductPiecewisePolynom>();
template <>
QZMATH_API CProductPiecewisePolynom DgaussianDx<CProductPiecewisePolynom>(int axis);
template <>
QZMATH_API CProductPiecewisePolynom makeApproxGaussianLaplacian<CProductPiecewisePolynom>();
extern template QZMATH_API CProductPiecewisePolynom
polynomByShiftedKernel(CCSFunc3Tmpl<CProductPiecewisePolynom> const &);
extern template QZMATH_API CProductPiecewisePolynom
makeProduct(CCSFunc3Tmpl<CProductPiecewisePolynom> const &, CCSFunc3Tmpl<CProductPiecewisePolynom> const &);
extern template QZMATH_API CParallelepiped
getScaledFunctionCommonSupport(CCSFunc3Tmpl<CProductPiecewisePolynom> const &);
extern template QZMATH_API double integrateOnSupport(CProductPiecewisePolynom const &);

} // namespace VolTr
