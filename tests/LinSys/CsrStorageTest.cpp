// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <random>
#include <vector>

using namespace REmath;

namespace
{

using T = double;

} // namespace

// A row that comes whole must do what its elements would, also when something in it is wrong.
TEST(CsrStorageTest, WholeRowsStoreUpToTheFirstWrongElement)
{
    int spoiled = 0;
    for (unsigned seed = 0; seed < 1000; ++seed) {
        std::mt19937 random(seed);
        int const size = 1 + int(random() % 6), base = int(random() % 2);
        bool const symmetric = random() % 2 == 0;
        CCSRSstorage<T> storage;
        storage.setSymmetric(symmetric);
        storage.setIndexBase(base);
        for (int vertex = 0; vertex < size; ++vertex)
            storage.DefineFreeVertex(vertex);
        std::vector<int> expectedColumns;
        std::vector<T> expectedValues;
        for (int row = 0; row < size && !storage.IsSpoiled(); ++row) {
            std::vector<int> columns;
            for (int column = 0; column < size; ++column)
                if (random() % 2 == 0 || column == row)
                    columns.push_back(column);
            if (random() % 8 == 0)
                columns[random() % columns.size()] = int(random() % 9) - 2;
            std::vector<T> const values(columns.size(), T(row + 1));
            bool isWrong = false;
            int last = -1;
            for (int const column : columns) {
                if (symmetric && column < row)
                    continue;
                isWrong = isWrong || column <= last || column >= size;
                if (isWrong)
                    break;
                last = column;
                expectedColumns.push_back(column + base);
                expectedValues.push_back(T(row + 1));
            }
            storage.addEquationFreePartNoAliases(row, int(columns.size()), values.data(), columns.data());
            ASSERT_EQ(storage.IsSpoiled(), isWrong) << seed;
            ASSERT_EQ(storage.GetEquationsNumber(), row + 1) << seed;
            ASSERT_EQ(storage.getRowIndex()[row + 1], last < 0 ? -1 : int(expectedColumns.size()) + base)
                << seed;
        }
        spoiled += storage.IsSpoiled();
        int const count = storage.getNonZeroValuesNumber();
        ASSERT_EQ(std::vector<int>(storage.getCsrColumns(), storage.getCsrColumns() + count),
                  expectedColumns);
        ASSERT_EQ(std::vector<T>(storage.getCsrValues(), storage.getCsrValues() + count), expectedValues);
    }
    EXPECT_GT(spoiled, 100);
    EXPECT_LT(spoiled, 900);
}

TEST(CsrStorageTest, MisuseSpoils)
{
    CVertexLinearCombination<T> equation;
    equation.AddVertex(1, 1);
    equation.AddVertex(2, 1);

    CCSRSstorage<T> descending;
    descending.DefineFreeVertex(2);
    descending.DefineFreeVertex(1);
    descending.AddEquation(equation);
    EXPECT_TRUE(descending.IsSpoiled());

    CCSRSstorage<T> oddBase;
    oddBase.setIndexBase(2);
    for (int vertex : {1, 2, 3})
        oddBase.DefineFreeVertex(vertex);
    oddBase.AddEquation(equation);
    EXPECT_TRUE(oddBase.IsSpoiled());

    T const value = 1;
    int const column = 0;
    auto const isSpoiledBy = [](int row, int count, T const * values, int const * columns) {
        CCSRSstorage<T> storage;
        storage.DefineFreeVertex(0);
        storage.DefineFreeVertex(1);
        storage.addEquationFreePartNoAliases(row, count, values, columns);
        return storage.IsSpoiled();
    };
    for (int row : {INT_MIN, -1, 1, 2, INT_MAX})
        EXPECT_TRUE(isSpoiledBy(row, 1, &value, &column)) << row;
    EXPECT_TRUE(isSpoiledBy(0, -1, &value, &column) && isSpoiledBy(0, 0, &value, &column));
    EXPECT_TRUE(isSpoiledBy(0, 1, nullptr, &column) && isSpoiledBy(0, 1, &value, nullptr));
    EXPECT_FALSE(isSpoiledBy(0, 1, &value, &column));
}

TEST(CsrStorageTest, CopyHasNoOpenMatrix)
{
    CCSRSstorage<T> storage;
    for (int vertex = 0; vertex < 3; ++vertex)
        storage.DefineFreeVertex(vertex);
    storage.DefineFixedVertex(9);
    CVertexLinearCombination<T> equation;
    equation.AddVertex(0, 4);
    storage.AddEquation(equation);
    std::unique_ptr<CCSRSstorage<T>> const made(storage.Copy());
    CCSRSstorage<T> assigned;
    assigned.DefineFreeVertex(5);
    assigned.reserveMatrixMemory(3);
    assigned = storage;
    CVertexLinearCombination<T> next;
    next.AddVertex(0, 6);
    for (CCSRSstorage<T> * const copy : {made.get(), &assigned}) {
        EXPECT_EQ(copy->GetFreeVertCoeff(0, 0), T(4));
        copy->AddEquation(next);
        EXPECT_FALSE(copy->IsSpoiled());
        EXPECT_EQ(copy->GetFreeVertCoeff(0, 0), T(0));
        EXPECT_EQ(copy->GetFreeVertCoeff(1, 0), T(6));
    }

    // The last stored element, not the largest, becomes 1 by its magnitude.
    CVertexLinearCombination<T> others;
    others.AddVertex(1, 8);
    others.AddVertex(2, -2);
    storage.AddEquation(others);
    EXPECT_EQ(storage.normalizeSystemMatrix(), T(2));
    EXPECT_EQ(std::vector<T>(storage.getCsrValues(), storage.getCsrValues() + 3), (std::vector<T>{2, 4, -1}));
}

TEST(CsrStorageTest, RoomIsReservedWheneverItIsAskedFor)
{
    int const size = 200, perRow = 3;
    for (int const definedBefore : {0, 1, 120, size}) {
        SCOPED_TRACE(definedBefore);
        CCSRSstorage<T> storage;
        for (int vertex = 0; vertex < size; ++vertex) {
            if (vertex == definedBefore)
                storage.reserveMatrixMemory(size * perRow);
            storage.DefineFreeVertex(vertex);
        }
        storage.DefineFixedVertex(size);
        if (definedBefore == size)
            storage.reserveMatrixMemory(size * perRow);
        T const * reserved = nullptr;
        for (int row = 0; row < size; ++row) {
            CVertexLinearCombination<T> equation;
            for (int vertex = std::max(0, row - 1); vertex <= std::min(row + 1, size); ++vertex)
                equation.AddVertex(vertex, T(row == vertex ? 2 : -1));
            storage.AddEquation(equation);
            ASSERT_TRUE(row == 0 || storage.getCsrValues() == reserved) << row;
            reserved = storage.getCsrValues();
        }
        EXPECT_TRUE(storage.IsCorrectlyDefinedSystem());
        EXPECT_EQ(storage.getNonZeroValuesNumber(), size * perRow - 2);
        EXPECT_EQ(storage.GetFreeVertCoeff(size - 1, size - 2), T(-1));
    }
}
