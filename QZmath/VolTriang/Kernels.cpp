// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Kernels.h>

#include <QZmath/VolTriang/Tree/TrilinearShare.h>

#include <cmath>
#include <stdexcept>

namespace VolTr
{

template <>
CProductPiecewisePolynom makeApproxGaussian<CProductPiecewisePolynom>()
{
    double const left[3] = {1.125, 1.5, 0.5};
    double const middle[3] = {0.75, 0.0, -1.0};
    double const right[3] = {1.125, -1.5, 0.5};
    CSingleVarPolynom const pieces[3] = {{3, left}, {3, middle}, {3, right}};
    double const knots[4] = {-1.5, -0.5, 0.5, 1.5};
    CSingleVarLimitedPolynom const spline(0.0, 3, pieces, 4, knots);
    CProductPolynom const summand(spline, spline, spline);
    return CProductPiecewisePolynom(1, &summand);
}

template <>
CProductPiecewisePolynom DgaussianDx<CProductPiecewisePolynom>(int axis)
{
    CProductPiecewisePolynom derivative;
    makeApproxGaussian<CProductPiecewisePolynom>().makePartialDerivative(&derivative, axis);
    return derivative;
}

template <>
CProductPiecewisePolynom makeApproxGaussianLaplacian<CProductPiecewisePolynom>()
{
    CProductPiecewisePolynom laplacian;
    makeApproxGaussian<CProductPiecewisePolynom>().makeLaplacian(&laplacian);
    return laplacian;
}

namespace
{

CPolynom quadratic(int axis, double constant, double linear, double square)
{
    CMonom const variable = CMonom::x_i_pow_d(axis, 1);
    CPolynom polynom(square * (variable * variable));
    polynom += CPolynom(linear * variable);
    polynom += constant;
    return polynom;
}

CPolynom linear(int axis, double constant, double slope)
{
    return CPolynom(slope * CMonom::x_i_pow_d(axis, 1)) + constant;
}

CPolynom constant(double value) { return CPolynom(CWeightedMonom(value, CMonom())); }

// A function of one variable in space: three pieces between the knots of the spline, slabs of space.
CPiecewisePolynom makeSlabs(int axis, CPolynom const & left, CPolynom const & middle, CPolynom const & right)
{
    CPolynom const * const pieces[3] = {&left, &middle, &right};
    CPiecewisePolynom function;
    for (int piece = 0; piece < 3; ++piece) {
        CParallelepiped support(CInterval::all(), CInterval::all(), CInterval::all());
        support.setDimension(axis, CInterval(piece - 1.5, piece - 0.5));
        function.addTerm(CLimitedPolynom(*pieces[piece], support, nullptr));
    }
    return function;
}

CPiecewisePolynom makeSpline(int axis)
{
    CPolynom middle(-1.0 * CMonom::x_i_pow_d(axis, 2));
    middle += 0.75;
    return makeSlabs(axis, quadratic(axis, 1.125, 1.5, 0.5), middle, quadratic(axis, 1.125, -1.5, 0.5));
}

CPiecewisePolynom makeSplineDerivative(int axis)
{
    return makeSlabs(axis, linear(axis, 1.5, 1.0), CPolynom(-2.0 * CMonom::x_i_pow_d(axis, 1)),
                     linear(axis, -1.5, 1.0));
}

CPiecewisePolynom makeSplineSecondDerivative(int axis)
{
    return makeSlabs(axis, constant(1.0), constant(-2.0), constant(1.0));
}

} // namespace

template <>
CPiecewisePolynom makeApproxGaussian<CPiecewisePolynom>()
{
    return makeSpline(0) * makeSpline(1) * makeSpline(2);
}

template <>
CPiecewisePolynom DgaussianDx<CPiecewisePolynom>(int axis)
{
    if (axis < 0 || axis > 2)
        throw std::out_of_range("axis");
    CPiecewisePolynom derivative = makeSplineDerivative(axis);
    for (int other = 0; other < 3; ++other)
        if (other != axis)
            derivative = derivative * makeSpline(other);
    return derivative;
}

template <>
CPiecewisePolynom makeApproxGaussianLaplacian<CPiecewisePolynom>()
{
    return makeSplineSecondDerivative(0) * makeSpline(1) * makeSpline(2) +
           makeSpline(0) * makeSplineSecondDerivative(1) * makeSpline(2) +
           makeSpline(0) * makeSpline(1) * makeSplineSecondDerivative(2);
}

template <class TKernel>
TKernel polynomByShiftedKernel(CCSFunc3Tmpl<TKernel> const & function)
{
    TKernel polynom(function.getkernelRef());
    double const scale[3] = {function.getArgumentScale(), function.getArgumentScale(),
                             function.getArgumentScale()};
    double const * centre = function.getArgumentShift();
    double const shift[3] = {0.0 - centre[0], 0.0 - centre[1], 0.0 - centre[2]};
    polynom.scaleArgument(scale);
    polynom.substituteArgPlusConst(shift);
    polynom *= function.getNormalizationScale();
    return polynom;
}

template <class TKernel>
TKernel makeProduct(CCSFunc3Tmpl<TKernel> const & f, CCSFunc3Tmpl<TKernel> const & g)
{
    return polynomByShiftedKernel(f) * polynomByShiftedKernel(g);
}

template <class TKernel>
CParallelepiped getScaledFunctionCommonSupport(CCSFunc3Tmpl<TKernel> const & function)
{
    CParallelepiped box = function.getkernelRef().getCommonSupportRef();
    double const * centre = function.getArgumentShift();
    double const cellSize = 1.0 / function.getArgumentScale();
    for (int axis = 0; axis < 3; ++axis) {
        box.getMinMod()[axis] = box.getMin()[axis] * cellSize + centre[axis];
        box.getMaxMod()[axis] = box.getMax()[axis] * cellSize + centre[axis];
    }
    return box;
}

template <class TKernel>
double integrateOnSupport(TKernel const & function)
{
    return function.integrateOnSupport();
}

CSingleVarLimitedPolynom summandByShiftedKernel(CCSFunc3Tmpl<CProductPiecewisePolynom> const & function,
                                                int summandIndex, int axis)
{
    CSingleVarLimitedPolynom factor = function.getkernelRef().getSummand(summandIndex).getMultiplier(axis);
    factor.scaleArgument(function.getArgumentScale());
    factor.substituteArgPlusConst(0.0 - function.getArgumentShift()[axis]);
    factor *= std::cbrt(function.getNormalizationScale());
    return factor;
}

double calcTrilinearWeight(double const * const point, double const * const node,
                           CParallelepiped const & cell)
{
    double weight = 1.0;
    for (int axis = 0; axis < 3; ++axis)
        weight *= trilinearShare(point[axis], node[axis], cell.getMax()[axis] - cell.getMin()[axis]);
    return weight;
}

double calcTrilinearWeight(float const * const point, double const * const node, CParallelepiped const & cell)
{
    double const widened[3] = {point[0], point[1], point[2]};
    return calcTrilinearWeight(widened, node, cell);
}

template CPiecewisePolynom polynomByShiftedKernel(CCSFunc3Tmpl<CPiecewisePolynom> const & function);
template CPiecewisePolynom makeProduct(CCSFunc3Tmpl<CPiecewisePolynom> const & f,
                                       CCSFunc3Tmpl<CPiecewisePolynom> const & g);
template CParallelepiped getScaledFunctionCommonSupport(CCSFunc3Tmpl<CPiecewisePolynom> const & function);
template double integrateOnSupport(CPiecewisePolynom const & function);
template CProductPiecewisePolynom
polynomByShiftedKernel(CCSFunc3Tmpl<CProductPiecewisePolynom> const & function);
template CProductPiecewisePolynom makeProduct(CCSFunc3Tmpl<CProductPiecewisePolynom> const & f,
                                              CCSFunc3Tmpl<CProductPiecewisePolynom> const & g);
template CParallelepiped
getScaledFunctionCommonSupport(CCSFunc3Tmpl<CProductPiecewisePolynom> const & function);
template double integrateOnSupport(CProductPiecewisePolynom const & function);

} // namespace VolTr
