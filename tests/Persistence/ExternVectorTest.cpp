// SPDX-License-Identifier: Apache-2.0
#include "Persistence/ExternVectorModel.h"

#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

namespace
{

using namespace qz_test;

void writeElement(Vector & vector, std::size_t index, Bytes const & bytes)
{
    ElementHandle handle;
    std::memcpy(vector.lockElement(index, &handle), bytes.data(), bytes.size());
    vector.releaseElement(true, &handle);
}

class ExternVectorOnDisk : public testing::TestWithParam<bool>
{};

TEST_P(ExternVectorOnDisk, RandomOperationsAgree)
{
    for (std::size_t elementSize : {1u, 3u, 8u, 100u, 4096u, 5000u}) {
        std::mt19937 random(static_cast<unsigned>(elementSize));
        ExternVectorModel model(elementSize, [&random] { return static_cast<unsigned>(random()); });
        for (int step = 0; step < 4000; ++step) {
            ASSERT_NO_FATAL_FAILURE(model.step(GetParam())) << elementSize << " bytes, step " << step;
            if (step % 100 == 0) {
                ASSERT_NO_FATAL_FAILURE(model.checkAll()) << elementSize << " bytes, step " << step;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, ExternVectorOnDisk, testing::Bool(),
                         [](auto const & full) { return full.param ? "full" : "free"; });

TEST(ExternVector, LengthsThatNoFileCanHaveAreRefused)
{
    EXPECT_TRUE(runsOutOfMemory([] { makeVector(0); }));
    std::unique_ptr<Vector> const vector = makeVector(16);
    EXPECT_TRUE(runsOutOfMemory([&] { vector->resize(0x80000000u); }));
    for (std::size_t const absurd : {std::size_t(1) << 60, ~std::size_t(0)})
        EXPECT_TRUE(runsOutOfMemory([&] { vector->reserve(absurd); }));
    vector->reserve(0);
    EXPECT_EQ(vector->capacity(), 0u);
    EXPECT_TRUE(runsOutOfMemory([] { makeVector(std::uint64_t(1) << 63)->reserve(1); }));
    vector->resize(2);
    EXPECT_EQ(readElement(*vector, 1, 16), Bytes(16));
}

TEST(ExternVector, ElementsBeyondThreeGibibytes)
{
    constexpr std::size_t mebibyte = std::size_t(1) << 20;
    std::unique_ptr<Vector> const vector = makeVector(mebibyte);
    vector->resize(3 * 1024 + 2);
    auto const element = [](std::size_t index) {
        return Bytes(mebibyte, static_cast<unsigned char>(index % 251));
    };
    std::size_t const written[] = {0, 2047, 2048, 3073};
    for (std::size_t index : written)
        writeElement(*vector, index, element(index));
    for (std::size_t index : written)
        EXPECT_EQ(readElement(*vector, index, mebibyte), element(index));
    EXPECT_EQ(readElement(*vector, 3072, mebibyte), Bytes(mebibyte));
}

TEST(ExternVector, FileLiesInTheNamedFolderAndHasNoName)
{
    namespace fs = std::filesystem;
    auto folder = std::make_unique<qz_test::TestFolder>();
    std::string const path = folder->path("");
    char const * const before = std::getenv("TMPDIR");
    std::string const kept = before ? before : "";
    setenv("TMPDIR", path.c_str(), 1);
    std::unique_ptr<Vector> vector = makeVector(8);
    auto const expectOpenFiles = [&](int expected) {
        int count = 0;
        for (auto const & entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            count += fs::read_symlink(entry.path(), error).string().rfind(path, 0) == 0;
        }
        EXPECT_EQ(count, expected);
        EXPECT_TRUE(folder->files().empty());
    };
    expectOpenFiles(0);
    vector->resize(10);
    expectOpenFiles(1);
    vector->clear();
    expectOpenFiles(0);
    vector->resize(10);
    vector = makeVector(8);
    expectOpenFiles(0);
    folder.reset();
    EXPECT_TRUE(runsOutOfMemory([&] { vector->resize(1); }));
    before ? setenv("TMPDIR", kept.c_str(), 1) : unsetenv("TMPDIR");
    vector->resize(1); // the folder is there now
    EXPECT_EQ(vector->size(), 1u);
}

} // namespace
