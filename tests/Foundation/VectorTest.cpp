// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Vector.h>

#include "DenseTestSupport.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
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

/// All memory that a vector has, and how much of it is in use.
template <class T>
struct Model
{
    std::vector<T> memory;
    std::size_t size;

    void resize(std::size_t newSize)
    {
        if (newSize > memory.size()) {
            memory.resize(size);
            memory.resize(newSize, T(0));
        } else if (newSize > size) {
            std::fill(memory.begin() + long(size), memory.begin() + long(newSize), T(0));
        }
        size = newSize;
    }
    std::vector<T> inUse() const { return std::vector<T>(memory.begin(), memory.begin() + long(size)); }
};

TYPED_TEST(VectorTest, FollowsAModelThroughRandomOperations)
{
    using T = TypeParam;
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        std::vector<T> outside(7);
        bool const isOutside = round % 2 == 1;
        Vector<T> vector = isOutside ? Vector<T>(5) : Vector<T>(outside.data(), 5);
        Vector<T> wrapper(outside.data(), 5);
        Vector<T> & tested = isOutside ? wrapper : vector;
        Model<T> model{std::vector<T>(5, T(0)), 5};
        for (int step = 0; step < 60; ++step) {
            int const number = int(random() % 12);
            T const value = randomElement<T>(random);
            Vector<T> other(number);
            for (int index = 0; index < number; ++index) {
                other[index] = randomElement<T>(random);
            }
            switch (random() % 9) {
            case 0:
                EXPECT_EQ(tested.resize(number), number);
                model.resize(std::size_t(number));
                break;
            case 1:
                tested.trim(number);
                if (std::size_t(number) <= model.memory.size()) {
                    model.size = std::size_t(number);
                }
                break;
            case 2:
                tested.untrim();
                model.size = model.memory.size();
                break;
            case 3:
                EXPECT_EQ(tested = value, value);
                std::fill_n(model.memory.begin(), model.size, value);
                break;
            case 4:
                if (std::size_t(number) > model.memory.size()) {
                    model.memory.resize(std::size_t(number));
                }
                model.size = std::size_t(number);
                std::copy_n(other.memory(), number, model.memory.begin());
                tested = other;
                break;
            case 5:
                if (std::size_t(number) <= model.size) {
                    int const at = int(random() % (model.size - std::size_t(number) + 1));
                    tested.as(at, other);
                    std::copy_n(other.memory(), number, model.memory.begin() + at);
                    EXPECT_EQ(tested.get(at, number), other);
                }
                break;
            case 6:
                other.resize(tested);
                tested += other;
                for (std::size_t index = 0; index < model.size; ++index) {
                    model.memory[index] = T(model.memory[index] + other[int(index)]);
                }
                break;
            case 7:
                other = tested;
                other = value;
                tested = other - tested;
                for (std::size_t index = 0; index < model.size; ++index) {
                    model.memory[index] = T(value - model.memory[index]);
                }
                break;
            case 8:
                tested *= 3;
                tested -= value;
                for (std::size_t index = 0; index < model.size; ++index) {
                    model.memory[index] = T(T(model.memory[index] * 3) - value);
                }
                break;
            }
            // Bytes may wrap around. The numbers of other types are kept small enough for the model.
            if (sizeof(T) > 1 && step % 6 == 5) {
                tested.reset(value);
                std::fill_n(model.memory.begin(), model.size, value);
            }
            ASSERT_EQ(contents(tested), model.inUse()) << "round " << round << ", step " << step;
            Vector<T> const copy(tested);
            ASSERT_TRUE(copy == tested && copy.n() == tested.rows());
            if constexpr (std::is_arithmetic_v<T>) {
                std::vector<T> const inUse = model.inUse();
                auto const smallest = std::min_element(inUse.begin(), inUse.end());
                ASSERT_EQ(tested.minIndex(), inUse.empty() ? -1 : smallest - inUse.begin());
                ASSERT_EQ(tested.minimum(), inUse.empty() ? T(0) : *smallest);
            }
        }
    }
}

TYPED_TEST(VectorTest, OverMemoryOfTheCallersWorksThereUntilItGrows)
{
    using T = TypeParam;
    std::vector<T> outside(4, T(1));
    {
        Vector<T> vector(outside.data(), 3);
        vector[2] = T(5);
        Vector<T> const shorter(2);
        vector = shorter;
        EXPECT_EQ(outside, (std::vector<T>{T(0), T(0), T(5), T(1)}));
        vector.untrim();
        vector = Vector<T>(3);
        EXPECT_EQ(vector.memory(), outside.data());
        EXPECT_EQ(outside[2], T(0));
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
    Vector<T> const two(2), four(4);
    EXPECT_EQ(wordOf([&] { vector += two; }), "NURBSsize");
    EXPECT_EQ(wordOf([&] { vector -= four; }), "NURBSsize");
    EXPECT_EQ(wordOf([&] { vector + two; }), "NURBSsize");
    EXPECT_EQ(wordOf([&] { vector - four; }), "NURBSsize");
    EXPECT_EQ(wordOf([&] { return vector == two; }), "NURBSsize");
    EXPECT_EQ(wordOf([&] { return vector != two; }), "NURBSsize");
    EXPECT_EQ(wordOf([&] { vector.as(2, two); }), "NURBSmatrix_err");
    EXPECT_EQ(wordOf([&] { vector.as(-1, two); }), "NURBSmatrix_err");
    EXPECT_EQ(wordOf([&] { vector.as(INT_MAX, two); }), "NURBSmatrix_err");
    EXPECT_EQ(wordOf([&] { vector.get(1, 3); }), "NURBSmatrix_err");
    EXPECT_EQ(wordOf([&] { vector.get(-1, 1); }), "NURBSmatrix_err");
    EXPECT_EQ(wordOf([&] { vector.get(INT_MAX, INT_MAX); }), "NURBSmatrix_err");
    EXPECT_EQ(wordOf([&] { vector.get(0, INT_MIN); }), "NURBSmatrix_err");
    EXPECT_EQ(vector, before);
    EXPECT_EQ(vector.get(3, 0).size(), 0);
    EXPECT_EQ(Vector<T>(-3).size(), 0);
}

TEST(Vector, IntegersWrapAroundAndNeverTrap)
{
    Vector<int> vector(2);
    vector = INT_MIN;
    vector /= -1;
    EXPECT_EQ(vector[1], INT_MIN);
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
    int const grown = vector.resize(INT_MAX);
    bool hasThrown = false;
    try {
        Vector<HPoint3D_d> const tooLarge(INT_MAX);
    } catch (std::bad_alloc const &) {
        hasThrown = true;
    }
    ASSERT_EQ(setrlimit(RLIMIT_AS, &former), 0);
    EXPECT_EQ(grown, -1);
    EXPECT_TRUE(hasThrown);
    EXPECT_EQ(vector, before);
}
#endif

} // namespace
