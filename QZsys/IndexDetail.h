// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>

namespace VsUt
{

/// A position or a count that is held in a signed integer, as the standard containers want it. It is not to
/// be negative; builds with assertions check that.
inline std::size_t asIndex(std::int64_t number)
{
    assert(number >= 0);
    return static_cast<std::size_t>(number);
}

} // namespace VsUt
