// SPDX-License-Identifier: Apache-2.0
#include <apps/io/CloudReader.h>
#include <apps/io/InputError.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Whatever the bytes are, reading them ends in a cloud of consistent sizes or in an `InputError`.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    qz_io::ByteSource source(reinterpret_cast<char const *>(data), size);
    try {
        qz_io::PointCloud const cloud =
            qz_io::readCloud(source, qz_io::CloudFormat::QZ_FUZZED_FORMAT, nullptr);
        if (cloud.coords.size() % 3 != 0 || cloud.normals.size() != cloud.coords.size() ||
            (!cloud.boundary.empty() && cloud.boundary.size() != cloud.size()) || cloud.size() > size)
            std::abort();
        qz_io::checkCloud(cloud);
    } catch (qz_io::InputError const &) {
    }
    return 0;
}
