// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/VPLSstorage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <numeric>
#include <random>
#include <type_traits>
#include <vector>

using namespace REmath;

namespace
{

template <class T, template <class> class RowAdapter>
struct StorageOf
{
    using Scalar = T;
    using Adapter = RowAdapter<T>;
    using Storage = CVPLSstorage<T, RowAdapter>;
    static constexpr bool isShifted = std::is_same_v<Adapter, CShiftedVectorAsVPLstorageRow<T>>;
};

// The compressed rows, whose free vertices have to ascend.
template <class T>
struct CompressedStorageOf
{
    using Scalar = T;
    using Storage = CCSRSstorage<T>;
    static constexpr bool isShifted = false;
};

template <class>
class VPLSstorageTest : public testing::Test
{};
using Storages = testing::Types<StorageOf<float, CStdVectorAsVPLSstorageRow>,
                                StorageOf<double, CShiftedVectorAsVPLstorageRow>,
                                StorageOf<double, CSparseVectorAsVPLSstorageRow>>;
TYPED_TEST_SUITE(VPLSstorageTest, Storages, );

template <class>
class LinearSystemStorageTest : public testing::Test
{};
using AllStorages =
    testing::Types<StorageOf<double, CStdVectorAsVPLSstorageRow>,
                   StorageOf<float, CShiftedVectorAsVPLstorageRow>,
                   StorageOf<float, CSparseVectorAsVPLSstorageRow>, CompressedStorageOf<double>>;
TYPED_TEST_SUITE(LinearSystemStorageTest, AllStorages, );

template <class T>
class NumberedPositions : public IVertexPosInformer<T>
{
public:
    T GetVertexPosition(int vertex) const override { return T(vertex % 5); }
};

// What a storage of shifted rows gives for an element.
template <class T>
T shiftedElement(std::vector<T> const & row, int column)
{
    auto const isNotZero = [](T value) { return value != T(0); };
    auto const first = std::find_if(row.begin(), row.end(), isNotZero);
    auto const last = std::find_if(row.rbegin(), row.rend(), isNotZero).base();
    std::ptrdiff_t const index = (first - row.begin()) + column;
    return first < last && index >= 0 && index < last - first ? first[index] : T(0);
}

} // namespace

TYPED_TEST(LinearSystemStorageTest, HoldsTheSystemThatItsEquationsState)
{
    using T = typename TypeParam::Scalar;
    using Storage = typename TypeParam::Storage;
    constexpr bool isCompressed = std::is_same_v<Storage, CCSRSstorage<T>>;
    NumberedPositions<T> const positions;
    for (unsigned seed = 0; seed < 150; ++seed) {
        std::mt19937 random(seed);
        bool const isSymmetric = seed % 2 == 0;
        std::size_t const freeCount = 1 + random() % 12, fixedCount = random() % 4;
        std::vector<int> vertices;
        for (std::size_t k = 0; k < freeCount + fixedCount; ++k)
            vertices.push_back(7 * int(k) - 20);
        std::shuffle(vertices.begin(), vertices.end(), random);
        auto storage = std::make_unique<Storage>();
        storage->setSymmetric(isSymmetric);
        if constexpr (isCompressed) {
            std::sort(vertices.begin(), vertices.begin() + std::ptrdiff_t(freeCount));
            storage->setIndexBase(int(seed / 2 % 2));
            storage->setExpectedElementsPerLine(int(seed % 3) * 4 - 4);
        }
        for (std::size_t k = 0; k < vertices.size(); ++k)
            k < freeCount ? storage->DefineFreeVertex(vertices[k]) : storage->DefineFixedVertex(vertices[k]);
        std::vector<std::vector<T>> dense(freeCount, std::vector<T>(freeCount));
        std::vector<CVertexLinearCombination<T>> equations(freeCount);
        for (std::size_t row = 0; row < freeCount; ++row) {
            // A zero term makes an equation legal that has no other free one.
            equations[row].AddVertex(vertices[isCompressed ? row : random() % freeCount], T(0));
            for (std::size_t k = vertices.size(); k-- > 0;) {
                T coeff = random() % 3 == 0 ? T(int(random() % 9) - 4) : T(0);
                if (isSymmetric && isCompressed && k < row)
                    coeff = dense[k][row];
                equations[row].AddVertex(vertices[k], coeff);
                if (k < freeCount)
                    dense[row][k] = coeff;
            }
            // A copy takes the next equation as the original would.
            if (!isCompressed && random() % 4 == 0)
                storage.reset(storage->Copy());
            storage->AddEquation(equations[row]);
        }
        ASSERT_TRUE(storage->IsCorrectlyDefinedSystem());

        // Integers, so that the sums are exact whatever their order.
        int const size = int(freeCount);
        std::vector<T> vector, rightPart(freeCount, T(77)), products(freeCount);
        for (std::size_t k = 0; k < freeCount; ++k)
            vector.push_back(positions.GetVertexPosition(vertices[k]));
        if constexpr (isCompressed)
            MatrixMultVector<T>(size, products.data(), *storage, vector.data());
        storage->SetSingleRightPart(rightPart.data(), positions);
        for (int row = 0; row < size; ++row) {
            std::size_t const r = std::size_t(row);
            T const product = storage->ScalarProductByMatrixRow(row, size, vector.data());
            ASSERT_EQ(product, std::inner_product(vector.begin(), vector.end(), dense[r].begin(), T(0)));
            ASSERT_TRUE(!isCompressed || products[r] == product);
            ASSERT_EQ(product - rightPart[r], EvaluateLinCombination<T>(equations[r], positions));
            for (int column = 0; column < size; ++column)
                ASSERT_EQ(storage->GetFreeVertCoeff(row, column), TypeParam::isShifted
                                                                      ? shiftedElement(dense[r], column)
                                                                      : dense[r][std::size_t(column)]);
            for (int outside : {-1 - size, INT_MIN, size, INT_MAX}) {
                ASSERT_EQ(storage->GetFreeVertCoeff(row, outside), T(0));
                ASSERT_EQ(storage->GetFreeVertCoeff(outside, 0), T(0));
                ASSERT_EQ(storage->ScalarProductByMatrixRow(outside, size, vector.data()), T(0));
            }
        }
    }
}

TYPED_TEST(VPLSstorageTest, AdaptersReadNoFurtherThanTheVector)
{
    using T = typename TypeParam::Scalar;
    using Adapter = typename TypeParam::Adapter;
    std::vector<T> array(200, T(0));
    std::iota(array.begin() + 40, array.end(), T(-7));
    typename Adapter::RowType row;
    Adapter::assignRowByArray(&row, 200, array.data());
    for (int length : {200, 100, 60, 41, 1, 0, -1}) {
        std::vector<T> const vector(std::size_t(std::max(0, length)), T(2));
        T const expected = std::inner_product(vector.begin(), vector.end(), array.begin(), T(0));
        ASSERT_EQ(Adapter::scalarProduct(row, length, vector.data()), expected);
    }
}

// What the storages add to the rules of the variable manager: after an equation without fixed vertices a free
// one is still taken, but it has no row.
TYPED_TEST(LinearSystemStorageTest, LateVerticesHaveNoRow)
{
    typename TypeParam::Storage storage;
    CVertexLinearCombination<typename TypeParam::Scalar> equation;
    equation.AddVertex(1, 1);
    storage.DefineFreeVertex(1);
    storage.DefineFreeVertex(2);
    storage.AddEquation(equation);
    storage.DefineFreeVertex(3);
    EXPECT_FALSE(storage.IsSpoiled());
    equation.AddVertex(3, 1);
    storage.AddEquation(equation);
    EXPECT_TRUE(storage.IsSpoiled());
}

TYPED_TEST(VPLSstorageTest, RowsThatWereMadeByACallTakeNoVertex)
{
    using Storage = typename TypeParam::Storage;
    for (auto const define : {&Storage::DefineFreeVertex, &Storage::DefineFixedVertex}) {
        Storage storage;
        storage.DefineFreeVertex(1);
        EXPECT_EQ(storage.getRow(0), nullptr);
        storage.AllocateMatrix();
        EXPECT_TRUE(storage.getRow(0) && !storage.getRow(1) && !storage.IsSpoiled());
        (storage.*define)(2);
        EXPECT_TRUE(storage.IsSpoiled());
    }
}
