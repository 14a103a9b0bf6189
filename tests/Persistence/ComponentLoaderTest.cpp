// SPDX-License-Identifier: Apache-2.0

// The target of the component loader's fuzzer on files that are almost documents. It aborts when the loader
// accepts or refuses another file than it should, or loads other bytes.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size);

TEST(ComponentLoader, EveryTruncationAndEveryChangedByteOfTheCorpus)
{
    std::size_t files = 0;
    for (auto const & entry : std::filesystem::directory_iterator(QZ_COMPONENT_LOADER_CORPUS)) {
        SCOPED_TRACE(entry.path());
        std::ifstream stream(entry.path(), std::ios::binary);
        std::vector<char> const read{std::istreambuf_iterator<char>(stream), {}};
        std::vector<std::uint8_t> bytes(read.begin(), read.end());
        for (std::size_t size = 0; size <= bytes.size(); ++size)
            LLVMFuzzerTestOneInput(bytes.data(), size);
        for (std::uint8_t & byte : bytes) {
            std::uint8_t const sound = byte;
            for (int flip : {0x01, 0x80, 0xFF}) {
                byte = std::uint8_t(sound ^ flip);
                LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            }
            byte = sound;
        }
        ++files;
    }
    EXPECT_GE(files, 10u);
}
