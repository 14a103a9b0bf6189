// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cassert>
#include <cstddef>

namespace REmath::Detail
{

/// A number that is known not to be negative, as the index of a container.
constexpr std::size_t index(int number)
{
    assert(number >= 0);
    return static_cast<std::size_t>(number);
}

} // namespace REmath::Detail
