// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/SparseVector.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

using namespace REmath;

namespace
{

struct CloseFile
{
    void operator()(std::FILE * file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

template <class T>
std::string savedBytes(CSparseVectorTmpl<T> const & vector)
{
    File const file(std::tmpfile());
    EXPECT_TRUE(vector.SaveToFile(file.get()));
    std::string bytes(std::size_t(std::ftell(file.get())), '\0');
    std::rewind(file.get());
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), file.get()), bytes.size());
    return bytes;
}

// From a file, or from a stream that cannot tell its length: a pipe that another thread writes to.
template <class T>
bool loads(CSparseVectorTmpl<T> & vector, std::string const & bytes, bool fromPipe)
{
    if (!fromPipe) {
        File const file(std::tmpfile());
        std::fwrite(bytes.data(), 1, bytes.size(), file.get());
        std::rewind(file.get());
        return vector.LoadFromFile(file.get());
    }
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    File const reader(fdopen(ends[0], "rb"));
    std::thread writer([&] {
        File const file(fdopen(ends[1], "wb"));
        std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    });
    bool const isLoaded = vector.LoadFromFile(reader.get());
    while (std::fgetc(reader.get()) != EOF) {
    }
    writer.join();
    return isLoaded;
}

template <class T>
std::vector<T> randomArray(std::mt19937 & random, int size)
{
    std::vector<T> array;
    for (int position = 0; position < size; ++position)
        array.push_back(random() % 3 == 0 ? T(int(random() % 9) - 4) : random() % 2 == 0 ? T(0) : T(-0.0));
    return array;
}

template <class T>
void expectHolds(CSparseVectorTmpl<T> const & vector, std::vector<T> const & array)
{
    int stored = 0;
    for (int position = 0; position < int(array.size()); ++position) {
        T const element = array[std::size_t(position)];
        ASSERT_EQ(vector[position], element);
        if (element != T(0)) {
            T value = 0;
            int valuePosition = -1;
            vector.GetNonZeroElementAndPos(stored, value, valuePosition);
            ASSERT_EQ(value, element);
            ASSERT_EQ(valuePosition, position);
            ASSERT_EQ(vector.GetNonZeroPos(stored), position);
            ++stored;
        }
    }
    ASSERT_EQ(vector.GetNOfNonZeroElements(), stored);
    ASSERT_EQ(vector.GetNonZeroPos(stored), -1);
    ASSERT_EQ(vector.GetNonZeroPos(-1), -1);
    ASSERT_EQ(vector.GetElement(int(array.size())), T(0));
    ASSERT_EQ(vector.GetElement(-1), T(0));
    ASSERT_EQ(vector.GetMinNonZeroIdx(), stored > 0 ? vector.GetNonZeroPos(0) : 0x7FFFFFFF);
    ASSERT_EQ(vector.GetMaxNonZeroIdx(), stored > 0 ? vector.GetNonZeroPos(stored - 1) : -1);
}

template <class T>
class SparseVectorTest : public testing::Test
{};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(SparseVectorTest, Scalars, );

} // namespace

TYPED_TEST(SparseVectorTest, HoldsTheArrayItWasGivenAndReadsBackWhatItWrote)
{
    using T = TypeParam;
    std::mt19937 random(1);
    File const file(std::tmpfile());
    std::vector<std::vector<T>> arrays;
    CSparseVectorTmpl<T> reused;
    for (int size = 0; size < 60; ++size) {
        arrays.push_back(randomArray<T>(random, size % 2 == 0 ? size : int(random() % 4)));
        std::vector<T> const & array = arrays.back();
        CSparseVectorTmpl<T> const made(int(array.size()), array.data());
        ASSERT_NO_FATAL_FAILURE(expectHolds(made, array));
        reused.AssignByVector(int(array.size()), array.data());
        CSparseVectorTmpl<T> appended;
        appended.ReserveNonZeroElem(int(random() % 9) - 2);
        for (int k = 0; k < made.GetNOfNonZeroElements(); ++k)
            appended.SetElementNoIdxSearch(made.GetNonZeroPos(k), made[made.GetNonZeroPos(k)]);
        CSparseVectorTmpl<T> const copy(reused);
        reused.Reset();
        ASSERT_NO_FATAL_FAILURE(expectHolds(copy, array));
        ASSERT_NO_FATAL_FAILURE(expectHolds(appended, array));
        ASSERT_TRUE(copy.SaveToFile(file.get()));
    }
    // One after the other in one file, and the length that the form says.
    std::rewind(file.get());
    long end = 0;
    for (std::vector<T> const & array : arrays) {
        ASSERT_TRUE(reused.LoadFromFile(file.get()));
        ASSERT_NO_FATAL_FAILURE(expectHolds(reused, array));
        end += 4 + long(4 + sizeof(T)) * reused.GetNOfNonZeroElements();
        ASSERT_EQ(std::ftell(file.get()), end);
    }
    ASSERT_FALSE(reused.LoadFromFile(file.get()));

    T const notANumber = std::numeric_limits<T>::quiet_NaN();
    EXPECT_EQ(CSparseVectorTmpl<T>(1, &notANumber).GetNOfNonZeroElements(), 1);
}

TYPED_TEST(SparseVectorTest, FileFormIsCountPositionsValues)
{
    using T = TypeParam;
    CSparseVectorTmpl<T> vector;
    vector.SetElementNoIdxSearch(3, T(1.5));
    vector.SetElementNoIdxSearch(70000, T(-2));
    std::int32_t const head[3] = {2, 3, 70000};
    T const values[2] = {T(1.5), T(-2)};
    std::string expected(sizeof(head) + sizeof(values), '\0');
    std::memcpy(expected.data(), head, sizeof(head));
    std::memcpy(expected.data() + sizeof(head), values, sizeof(values));
    EXPECT_EQ(savedBytes(vector), expected);

    EXPECT_FALSE(vector.SaveToFile(nullptr));
    EXPECT_FALSE(vector.LoadFromFile(nullptr));
    File const readOnly(std::fopen("/dev/null", "rb"));
    EXPECT_FALSE(CSparseVectorTmpl<T>().SaveToFile(readOnly.get()));
}

TYPED_TEST(SparseVectorTest, FilesThatAreNotWholeAreRefusedWithoutHarm)
{
    using T = TypeParam;
    std::mt19937 random(2);
    CSparseVectorTmpl<T> const original(40, randomArray<T>(random, 40).data());
    std::string const bytes = savedBytes(original);
    int const count = original.GetNOfNonZeroElements();
    ASSERT_GT(count, 3);
    for (bool isPipe : {false, true}) {
        CSparseVectorTmpl<T> loaded;
        for (std::size_t length = 0; length < bytes.size(); ++length) {
            loaded = original;
            ASSERT_FALSE(loads(loaded, bytes.substr(0, length), isPipe));
            ASSERT_EQ(loaded.GetNOfNonZeroElements(), length < 4 ? 0 : count) << length;
            for (int k = 0; k < loaded.GetNOfNonZeroElements() && 8 + 4 * std::size_t(k) <= length; ++k)
                ASSERT_EQ(loaded.GetNonZeroPos(k), original.GetNonZeroPos(k));
        }
        // Counts that the file does not bear out take no memory, and unordered positions are harmless.
        for (std::int32_t promised : {-1, INT_MIN, INT_MAX, 1 << 30}) {
            for (std::size_t const bodySize : {0u, 5u, 1000000u}) {
                std::string hostile(sizeof(promised) + bodySize, '\1');
                std::memcpy(hostile.data(), &promised, sizeof(promised));
                loaded = CSparseVectorTmpl<T>();
                ASSERT_FALSE(loads(loaded, hostile, isPipe));
                ASSERT_LE(loaded.GetNOfNonZeroElements(), promised < 0 ? 0 : int(bodySize / 4) + (1 << 14));
                loaded.GetElement(loaded.GetMaxNonZeroIdx() / 2);
            }
        }
        std::vector<T> const array(200000, T(3));
        std::string const whole = savedBytes(CSparseVectorTmpl<T>(int(array.size()), array.data()));
        ASSERT_TRUE(loads(loaded, whole, isPipe));
        EXPECT_EQ(savedBytes(loaded), whole);
    }
}
