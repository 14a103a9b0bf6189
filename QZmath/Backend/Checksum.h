// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstddef>
#include <cstdint>

namespace QzBackend
{

/// The CRC-32 that zlib, PNG and Ethernet have (polynomial 0x04C11DB7, reflected), of what was summed so far,
/// 0 at the beginning, and the bytes behind it. O(n).
QZMATH_SISTER_API std::uint32_t crc32(std::uint32_t soFar, void const * bytes, std::size_t count);

} // namespace QzBackend
