// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/Bicgstab.h>

#include <QZmath/Backend/Blas.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace REmath
{

namespace
{

// What counts as zero in the tests for breakdown.
template <class T>
T smallValue();
template <>
double smallValue<double>()
{
    return 1e-40;
}
template <>
float smallValue<float>()
{
    return 1e-15f;
}

// Products of residuals become far smaller than their squares at the start, so this bound is that of `double`
// for both types.
template <class T>
bool isNegligible(T value)
{
    return std::fabs(static_cast<double>(value)) < 1e-40;
}

template <class T>
int bicgstabOf(int n, void (*multiply)(void *, T const *, T *), void * context, T const * rightPart,
               T * solution, T eps, int maxIterations)
{
    using QzBackend::axpy;
    using QzBackend::dot;
    using QzBackend::scal;

    std::size_t const size = n > 0 ? static_cast<std::size_t>(n) : 0;
    T const limit = eps * eps * dot(size, rightPart, rightPart);
    std::vector<T> residual(size, T(0));
    std::vector<T> productOfDirection(size, T(0));
    std::vector<T> productOfStep(size, T(0));
    multiply(context, solution, residual.data());
    axpy(size, T(-1), rightPart, residual.data());
    std::vector<T> direction = residual;
    std::vector<T> step = residual;
    std::vector<T> const shadow = residual;
    if (dot(size, shadow.data(), shadow.data()) < smallValue<T>())
        return -1;
    T rho = dot(size, shadow.data(), step.data());

    int iterations = 0;
    while (dot(size, residual.data(), residual.data()) > limit) {
        multiply(context, direction.data(), productOfDirection.data());
        T const denominator = dot(size, shadow.data(), productOfDirection.data());
        if (std::fabs(denominator) < smallValue<T>())
            return -1;
        T const alpha = rho / denominator;
        axpy(size, -alpha, productOfDirection.data(), residual.data());
        axpy(size, -alpha, productOfDirection.data(), step.data());
        multiply(context, step.data(), productOfStep.data());
        T const a = dot(size, step.data(), productOfStep.data());
        T const c = dot(size, productOfStep.data(), productOfStep.data());
        T const omega = isNegligible(a) || isNegligible(c) ? T(0) : a / c;
        axpy(size, -omega, productOfStep.data(), residual.data());
        axpy(size, -alpha, direction.data(), solution);
        axpy(size, -omega, step.data(), solution);
        axpy(size, -omega, productOfStep.data(), step.data());
        T const rhoNew = dot(size, shadow.data(), step.data());
        T const beta = ((alpha / omega) / rho) * rhoNew;
        rho = rhoNew;
        scal(size, beta, direction.data());
        axpy(size, T(1), step.data(), direction.data());
        axpy(size, -(omega * beta), productOfDirection.data(), direction.data());
        ++iterations;
        if (maxIterations > 0 && iterations >= maxIterations)
            break;
    }
    return iterations;
}

} // namespace

int bicgstab(int n, void (*multiply)(void *, double const *, double *), void * context,
             double const * rightPart, double * solution, double eps, int maxIterations)
{
    return bicgstabOf(n, multiply, context, rightPart, solution, eps, maxIterations);
}

int bicgstab(int n, void (*multiply)(void *, float const *, float *), void * context, float const * rightPart,
             float * solution, float eps, int maxIterations)
{
    return bicgstabOf(n, multiply, context, rightPart, solution, eps, maxIterations);
}

} // namespace REmath
