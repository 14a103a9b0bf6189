// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <exception>

/// Status of a run that the user stopped.
inline constexpr int QZ_STATUS_USER_INTR = 10;
/// Status of a run that failed for a reason without a code of its own.
inline constexpr int QZ_STATUS_UNEXPECTED_ERR = -1;

namespace BlockProc
{

using ::QZ_STATUS_UNEXPECTED_ERR;
using ::QZ_STATUS_USER_INTR;

/// Ends a block-processing run with a status: thrown on the thread that calls `CBlockProcessor::Run`, its
/// code is what `Run` returns. Thrown on a worker's thread, it is an unexpected error like any other.
class QZMATH_API EBlockAlgError : public std::exception
{
public:
    explicit EBlockAlgError(int code = 0) : m_code(code) {}
    ~EBlockAlgError() override;
    int GetErrorCode() const { return m_code; }
    char const * what() const noexcept override;

private:
    int m_code;
};

} // namespace BlockProc
