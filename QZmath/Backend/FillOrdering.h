// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/SparsePattern.h>

#include <vector>

class CProgressCounter;

namespace QzBackend
{

/// An order of elimination that keeps the Cholesky factor of a symmetric matrix sparse: element k of the
/// result is the row eliminated k-th. The elements on and above the diagonal of `pattern` are read.
///
/// Rows with more than ten times the average number of neighbours go last, by rising degree: every order
/// would fill them, and they only hide the structure of the others. These are ordered by nested dissection or
/// minimum degree (AMD), whichever gives the sparser factor. Large graphs are first shrunk by merging three
/// or four rows whose neighbourhoods agree most, which takes most of the time off the dissection for a few
/// per cent of fill.
///
/// The same pattern gives the same order each time. `progress` (may be null) is told positions of 0 to 1,
/// every few milliseconds except while AMD runs, about a microsecond for each row, and may throw. Throws
/// `std::bad_alloc` when memory is short.
std::vector<int> fillReducingOrder(SparsePattern const & pattern, CProgressCounter * progress);

} // namespace QzBackend
