// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

/// Why a linear system was not solved.
namespace REmath
{

enum class LinSysFailure
{
    none,
    /// The system was misused while it was stated, see `ILinearSystemStorage::IsSpoiled`.
    spoiled,
    /// There are not as many equations as free vertices, or the matrix lacks rows.
    incomplete,
    /// Elements of the matrix lie outside of it or out of order, or boundaries of blocks do.
    malformed,
    /// An element of the matrix or of a right part is not a finite number. A dense solve may have given true.
    notFinite,
    /// The matrix is singular to working precision, or not definite as declared.
    singular,
    /// Memory was short: `std::bad_alloc` was thrown, or there are more elements than can be counted.
    noMemory,
    /// An exception passed through, of an interrupted progress counter or of an informer or receiver.
    interrupted,
    /// An iteration broke down, as on a right part of zeros, ended at its limit or in numbers that are not
    /// finite. What was reached may have been delivered, also by a solve that gave true.
    notConverged,
    /// A core of other making failed without a reason.
    unknown
};

/// The reason in words, as the end of a message: "the matrix is singular, or not definite as declared".
QZMATH_API char const * failureText(LinSysFailure failure);

/// The query of a solver or core that keeps the reason.
class LinSysFailureReporter
{
public:
    /// What went wrong in the last solve, also one that an exception left; `none` before the first one and
    /// after one in which all went well. A solve that gave false always has a reason.
    LinSysFailure lastFailure() const { return m_failure; }

protected:
    /// For the implementation of a solve, before it gives false.
    void setFailure(LinSysFailure failure) { m_failure = failure; }

    /// Gives what `solve` gives, and notes the failure of one that throws or does not tell.
    template <class Solve>
    bool noteFailure(Solve && solve);

private:
    LinSysFailure m_failure = LinSysFailure::none;
};

} // namespace REmath
