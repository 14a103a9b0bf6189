// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

/// The nonlinear least squares that the library takes from MINPACK.
namespace QzBackend
{

/// Fills the values (`iflag` 1) or the column-major derivatives (`iflag` 2) at `x`; negative to stop.
using LeastSquaresFunctions =
    std::function<int(int m, int n, double const * x, double * fvec, double * fjac, int ldfjac, int iflag)>;

/// Levenberg-Marquardt with derivatives, `lmder1`: gives its `info`, 0 for bad sizes or tolerance before
/// anything is called. Exceptions of the functions pass through. Needs `m (n + 1) + 6 n` numbers of working
/// memory.
int levenbergMarquardt(LeastSquaresFunctions const & functions, int m, int n, double * x, double * fvec,
                       double tol);

} // namespace QzBackend
