// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Minpack.h>

#include <cminpack.h>
#include <cstddef>
#include <exception>
#include <vector>

namespace QzBackend
{

namespace
{

struct Callback
{
    LeastSquaresFunctions const & functions;
    std::exception_ptr failure;
};

// No exception may cross the frames of the C library.
int call(void * context, int m, int n, double const * x, double * fvec, double * fjac, int ldfjac, int iflag)
{
    auto & callback = *static_cast<Callback *>(context);
    if (!callback.functions)
        return -1;
    try {
        return callback.functions(m, n, x, fvec, fjac, ldfjac, iflag);
    } catch (...) {
        callback.failure = std::current_exception();
        return -1;
    }
}

} // namespace

int levenbergMarquardt(LeastSquaresFunctions const & functions, int m, int n, double * x, double * fvec,
                       double tol)
{
    if (n < 1 || m < n || !(tol >= 0))
        return 0;
    auto const rows = static_cast<std::size_t>(m), columns = static_cast<std::size_t>(n);
    std::vector<int> pivots(columns);
    std::vector<double> derivatives(rows * columns), work(5 * columns + rows);
    Callback callback{functions, nullptr};
    int const info = lmder1(call, &callback, m, n, x, fvec, derivatives.data(), m, tol, pivots.data(),
                            work.data(), static_cast<int>(work.size()));
    if (callback.failure)
        std::rethrow_exception(callback.failure);
    return info;
}

} // namespace QzBackend
