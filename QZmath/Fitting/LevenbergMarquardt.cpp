// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/LevenbergMarquardt.h>

#include <QZmath/Backend/Minpack.h>

#include <functional>

int REmath::lmder1_adapter(
    Functor7<int, int, int, double const *, double *, double *, int, int> const & functor, int m, int n,
    double * x, double * fvec, double tol)
{
    return QzBackend::levenbergMarquardt(std::cref(functor), m, n, x, fvec, tol);
}
