// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <string>

namespace QZmath
{

/// What the system says about an error number; never empty.
inline std::string systemReason(int error)
{
    std::string const reason = error == 0 ? std::string() : std::strerror(error);
    return reason.empty() ? "the system gives no reason" : reason;
}

} // namespace QZmath
