// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/LinSys/CsrMatrixDetail.h>
#include <QZmath/LinSys/LinSysFailure.h>
#include <QZmath/LinSys/LinearSystem.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>

namespace REmath
{

template <class Solve>
bool LinSysFailureReporter::noteFailure(Solve && solve)
{
    m_failure = LinSysFailure::none;
    try {
        bool const succeeded = solve();
        if (!succeeded && m_failure == LinSysFailure::none)
            m_failure = LinSysFailure::unknown;
        return succeeded;
    } catch (std::bad_alloc const &) {
        m_failure = LinSysFailure::noMemory;
        throw;
    } catch (...) {
        m_failure = LinSysFailure::interrupted;
        throw;
    }
}

namespace Detail
{

/// `spoiled` for a system that is, and `failure` for any other.
template <class T>
LinSysFailure unlessSpoiled(ILinearSystemReadOnly<T> const & system, LinSysFailure failure)
{
    auto const * const storage = dynamic_cast<ILinearSystemStorage<T> const *>(&system);
    return storage && storage->IsSpoiled() ? LinSysFailure::spoiled : failure;
}

/// Why a system is not correctly defined.
template <class T>
LinSysFailure whyUndefined(ILinearSystemReadOnly<T> const & system)
{
    return unlessSpoiled(system, LinSysFailure::incomplete);
}

/// Why no products can be formed with the matrix of a system.
template <class T>
LinSysFailure whyUnusable(ILinearSystemReadOnly<T> const & system, ICsrMatrix<T> const & matrix)
{
    bool const hasAllRows =
        isRowIndexComplete(matrix) && matrix.getMatrixSize() == system.GetEquationsNumber();
    return unlessSpoiled(system, hasAllRows ? LinSysFailure::malformed : LinSysFailure::incomplete);
}

template <class T>
bool areFinite(T const * numbers, std::size_t count)
{
    return std::all_of(numbers, numbers + count, [](T number) { return std::isfinite(number); });
}

} // namespace Detail
} // namespace REmath
