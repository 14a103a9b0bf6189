// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace QzBackend
{

/// A number that is known not to be negative, as a place in a container.
template <class T>
constexpr std::size_t at(T place)
{
    return static_cast<std::size_t>(place);
}

} // namespace QzBackend
