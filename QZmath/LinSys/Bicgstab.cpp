// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/Bicgstab.h>

#include <QZmath/Backend/Blas.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace REmath
{

using VsUt::asIndex;
namespace
{

// Scalar products below these count as zero. The ones that decide on the step along the stabilising direction
// are compared in double precision for both types.
template <class T>
constexpr T smallProduct = T();
template <>
constexpr float smallProduct<float> = 1e-15f;
template <>
constexpr double smallProduct<double> = 1e-40;
constexpr double smallStabilisingProduct = 1e-40;
// Iterations in which a residual has to halve where nothing else limits them, and so many for each unknown.
constexpr std::int64_t patience = 1000, patienceOfUnknown = 10;

template <class T>
int iterate(int n, void (*multiply)(void *, T const *, T *), void * context, T const * b, T * x, T eps,
            int maxIterations)
{
    using namespace QzBackend;
    std::size_t const size = asIndex(std::max(n, 0));
    std::vector<T> work(6 * size);
    T * const r = work.data(); // A x - b: the negative of the usual residual
    T * const p = r + size;
    T * const s = p + size;
    T * const h = s + size; // shadow residual
    T * const v = h + size;
    T * const t = v + size;

    T const limit = eps * eps * dot(size, b, b);
    if (size > 0)
        multiply(context, x, r);
    axpy(size, T(-1), b, r);
    copy(size, r, p);
    copy(size, r, s);
    copy(size, r, h);
    if (dot(size, h, h) < smallProduct<T>)
        return -1;
    T rho = dot(size, h, s);

    int iteration = 0;
    T residual = dot(size, r, r);
    T halvedResidual = residual;
    std::int64_t halvedAt = 0;
    while (residual > limit) {
        multiply(context, p, v);
        T const d = dot(size, h, v);
        if (std::fabs(d) < smallProduct<T>)
            return -1;
        T const alpha = rho / d;
        axpy(size, -alpha, v, r);
        axpy(size, -alpha, v, s);
        multiply(context, s, t);
        T const a = dot(size, s, t);
        T const c = dot(size, t, t);
        bool const stagnates =
            std::fabs(a) < smallStabilisingProduct || std::fabs(c) < smallStabilisingProduct;
        T const omega = stagnates ? T(0) : a / c;
        axpy(size, -omega, t, r);
        axpy(size, -alpha, p, x);
        axpy(size, -omega, s, x);
        axpy(size, -omega, t, s);
        T const newRho = dot(size, h, s);
        // Without a stabilising step this is infinite or not a number, and the next residual ends the loop.
        T const beta = ((alpha / omega) / rho) * newRho;
        rho = newRho;
        scal(size, beta, p);
        axpy(size, T(1), s, p);
        axpy(size, -(omega * beta), v, p);
        residual = dot(size, r, r);
        ++iteration;
        if (maxIterations > 0) {
            if (iteration >= maxIterations)
                break;
        } else if (residual < halvedResidual / 2) {
            halvedResidual = residual;
            halvedAt = iteration;
        } else if (iteration - halvedAt > patience + patienceOfUnknown * std::int64_t{n}) {
            return -1;
        }
    }
    return iteration;
}

} // namespace

int bicgstab(int n, void (*multiply)(void *, float const *, float *), void * context, float const * rightPart,
             float * solution, float eps, int maxIterations)
{
    return iterate<float>(n, multiply, context, rightPart, solution, eps, maxIterations);
}

int bicgstab(int n, void (*multiply)(void *, double const *, double *), void * context,
             double const * rightPart, double * solution, double eps, int maxIterations)
{
    return iterate<double>(n, multiply, context, rightPart, solution, eps, maxIterations);
}

} // namespace REmath
