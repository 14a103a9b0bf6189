// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Checksum.h>

#include <zlib.h>

namespace QzBackend
{

std::uint32_t crc32(std::uint32_t soFar, void const * bytes, std::size_t count)
{
    return static_cast<std::uint32_t>(::crc32_z(soFar, static_cast<Bytef const *>(bytes), count));
}

} // namespace QzBackend
