// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Lapack.h>

#include <lapacke.h>

namespace QzBackend
{

bool choleskyLower(int size, double * matrix, int leading)
{
    return size <= 0 || LAPACKE_dpotrf_work(LAPACK_COL_MAJOR, 'L', size, matrix, leading) == 0;
}

} // namespace QzBackend
