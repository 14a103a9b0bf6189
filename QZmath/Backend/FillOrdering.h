// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparsePattern.h>

#include <limits>
#include <vector>

class CProgressCounter;

namespace QzBackend
{

/// An order of elimination that keeps the Cholesky factor of a symmetric matrix sparse: element k of the
/// result is the row eliminated k-th. The elements on and above the diagonal of `pattern` are read.
///
/// Rows with more than ten times the average number of neighbours go last, by rising degree: every order
/// would fill them, and they only hide the structure of the others. These are ordered by nested dissection or
/// minimum degree, whichever gives the sparser factor. `dissectionSaves` is how many nanoseconds a dissection
/// may save for each multiplication of a Cholesky factorisation after minimum degree: where that is less than
/// it takes, minimum degree serves. Large graphs are first shrunk by merging three or four rows whose
/// neighbourhoods agree most, which takes most of the time off the dissection for a few per cent of fill.
///
/// The same pattern gives the same order each time. `progress` (may be null) is told positions of 0 to 1,
/// every few milliseconds and in proportion to the usual time of each part, and may throw. Throws
/// `std::bad_alloc` when memory is short.
std::vector<int> fillReducingOrder(SparsePattern const & pattern, CProgressCounter * progress,
                                   double dissectionSaves = std::numeric_limits<double>::infinity());

/// About how many nanoseconds it takes to find the order of so many rows with so many neighbours in all, on a
/// processor of 2020. For positions of progress.
double expectedOrderingTime(int rows, double neighbours);

} // namespace QzBackend
