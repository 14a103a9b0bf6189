// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Vector.h>

#include "DenseTestSupport.h"

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#ifdef __linux__
#include <sys/resource.h>
#endif

namespace
{

using namespace REmath;
using denseTest::randomElement;
using denseTest::wordOf;

template <class T>
class VectorTest : public testing::Test
{};
TYPED_TEST_SUITE(VectorTest, denseTest::AllElements, );

template <class T>
std::vector<T> contents(Vector<T> const & vector)
{
    return std::vector<T>(vector.memory(), vector.memory() + vector.size());
}

template <class T>
std::vector<T> randomElements(int size, std::mt19937 & random)
{
    std::vector<T> elements(static_cast<std::size_t>(size));
    std::generate(elements.begin(), elements.end(), [&] { return randomElement<T>(random); });
    return elements;
}

TYPED_TEST(VectorTest, OperationsActOnTheElementsInUse)
{
    using T = TypeParam;
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        int const size = 1 + int(random() % 12), part = int(random() % unsigned(size)),
                  at = int(random() % unsigned(size - part + 1));
        std::vector<T> a = randomElements<T>(size, random), b = randomElements<T>(size, random);
        std::vector<T> wanted(a), outside(static_cast<std::size_t>(size));
        Vector<T> first(a.data(), size), second(b.data(), size);
        Vector<T> own(1), wrapper(outside.data(), size);
        Vector<T> & tested = round % 2 == 0 ? own : wrapper;
        tested = first;
        ASSERT_EQ(contents(tested), a);
        ASSERT_TRUE(tested == first && tested.n() == tested.rows());

        // Trimmed elements keep their values until they are taken back or overwritten by growing.
        tested.trim(part);
        ASSERT_EQ(contents(tested), std::vector<T>(a.begin(), a.begin() + part));
        tested.trim(1000);
        ASSERT_EQ(tested.size(), part);
        tested.untrim();
        ASSERT_EQ(contents(tested), a);
        tested.trim(part);
        ASSERT_EQ(tested.resize(size), size);
        std::fill(wanted.begin() + part, wanted.end(), T(0));
        ASSERT_EQ(contents(tested), wanted);

        T const value = randomElement<T>(random);
        tested = Vector<T>(first);
        tested += second;
        tested *= 3;
        tested += b[0];
        tested -= value;
        tested = tested - (first + second);
        for (std::size_t k = 0; k < wanted.size(); ++k)
            wanted[k] = T(T(T(T(T(a[k] + b[k]) * 3) + b[0]) - value) - T(a[k] + b[k]));
        ASSERT_EQ(contents(tested), wanted);
        ASSERT_EQ(tested != first, wanted != a);
        tested = first;
        tested.as(at, second.get(0, part));
        std::copy_n(b.begin(), part, std::copy_n(a.begin(), at, wanted.begin()));
        std::copy(a.begin() + at + part, a.end(), wanted.begin() + at + part);
        ASSERT_EQ(contents(tested), wanted);
        ASSERT_EQ(tested.get(at, part), second.get(0, part));
        if constexpr (std::is_arithmetic_v<T>) {
            auto const smallest = std::min_element(wanted.begin(), wanted.end());
            ASSERT_EQ(tested.minIndex(), smallest - wanted.begin());
            ASSERT_EQ(tested.minimum(), *smallest);
            tested.resize(0);
            ASSERT_EQ(tested.minIndex(), -1);
            ASSERT_EQ(tested.minimum(), T(0));
        }
        ASSERT_EQ((tested = first).resize(2 * size), 2 * size);
        (wanted = a).resize(static_cast<std::size_t>(2 * size), T(0));
        ASSERT_EQ(contents(tested), wanted);
        ASSERT_EQ(tested = value, value);
        second.resize(2 * size);
        second.reset(value);
        ASSERT_EQ(contents(tested), std::vector<T>(wanted.size(), value));
        ASSERT_EQ(tested, second);
    }
}

TYPED_TEST(VectorTest, OverMemoryOfTheCallersWorksThereUntilItGrows)
{
    using T = TypeParam;
    std::vector<T> outside(4, T(1));
    {
        Vector<T> vector(outside.data(), 3);
        vector[2] = T(5);
        vector = Vector<T>(2);
        EXPECT_EQ(outside, (std::vector<T>{T(0), T(0), T(5), T(1)}));
        vector.resize(4);
        EXPECT_NE(vector.memory(), outside.data());
        vector[3] = T(7);
    }
    EXPECT_EQ(outside[3], T(1));
    Vector<T> wrapper(outside.data(), 4);
    Vector<T> const moved(std::move(wrapper));
    EXPECT_NE(moved.memory(), outside.data());
    EXPECT_EQ(contents(moved), outside);
}

TYPED_TEST(VectorTest, ThrowsItsWordsAndChangesNothing)
{
    using T = TypeParam;
    Vector<T> vector(3);
    vector = T(4);
    Vector<T> const before(vector);
    for (int const size : {2, 4}) {
        Vector<T> const other(size);
        EXPECT_EQ(wordOf([&] { vector -= other; }), "NURBSsize");
        EXPECT_EQ(wordOf([&] { vector + other; }), "NURBSsize");
        EXPECT_EQ(wordOf([&] { return vector == other; }), "NURBSsize");
    }
    for (int const at : {2, -1, INT_MAX}) {
        EXPECT_EQ(wordOf([&] { vector.as(at, Vector<T>(2)); }), "NURBSmatrix_err");
        EXPECT_EQ(wordOf([&] { vector.get(at, at == INT_MAX ? at : 2); }), "NURBSmatrix_err");
    }
    EXPECT_EQ(wordOf([&] { vector.get(0, INT_MIN); }), "NURBSmatrix_err");
    EXPECT_EQ(vector, before);
    EXPECT_EQ(vector.get(3, 0).size() + Vector<T>(-3).size(), 0);
}

TEST(Vector, IntegersWrapAroundAndNeverTrap)
{
    Vector<int> vector(1);
    vector = INT_MIN;
    vector /= -1;
    EXPECT_EQ(vector[0], INT_MIN);
    vector -= 1;
    EXPECT_EQ(vector[0], INT_MAX);
    vector *= INT_MAX;
    EXPECT_EQ(vector[0], 1);
}

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Vector, SaysWhenThereIsNoMemoryToGrow)
{
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &former), 0);
    Vector<HPoint3D_d> vector(3);
    vector = HPoint3D_d(1, 2, 3, 4);
    Vector<HPoint3D_d> const before(vector);
    rlimit tight = former;
    tight.rlim_cur = 4ULL << 30;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    EXPECT_EQ(vector.resize(INT_MAX), -1);
    EXPECT_THROW(Vector<HPoint3D_d>(INT_MAX), std::bad_alloc);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &former), 0);
    EXPECT_EQ(vector, before);
}
#endif

} // namespace
