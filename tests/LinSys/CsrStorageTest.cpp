// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <random>
#include <vector>

#include <support/SolverSystems.h>

using namespace REmath;
using testSupport::PositionMap;

namespace
{

/// A system whose every scalar is chosen here: the free and the fixed matrix as dense tables.
template <class T>
struct RandomSystem
{
    std::vector<int> freeVertices, fixedVertices;
    std::vector<std::vector<T>> freeMatrix, fixedMatrix;

    RandomSystem(std::mt19937 & random, bool symmetric)
    {
        int vertex = -20;
        int const size = 1 + int(random() % 15);
        while (int(freeVertices.size()) < size) {
            vertex += 1 + int(random() % 3);
            (random() % 4 == 0 ? fixedVertices : freeVertices).push_back(vertex);
        }
        std::shuffle(fixedVertices.begin(), fixedVertices.end(), random);
        auto const number = [&random] { return random() % 3 == 0 ? T(int(random() % 15) - 7) : T(0); };
        freeMatrix.assign(freeVertices.size(), std::vector<T>(freeVertices.size()));
        fixedMatrix.assign(freeVertices.size(), std::vector<T>(fixedVertices.size()));
        for (std::size_t row = 0; row < freeVertices.size(); ++row) {
            for (std::size_t column = 0; column < freeVertices.size(); ++column) {
                bool const isMirrored = symmetric && column < row;
                freeMatrix[row][column] = isMirrored ? freeMatrix[column][row] : number();
            }
            freeMatrix[row][row] += T(1);
            std::generate(fixedMatrix[row].begin(), fixedMatrix[row].end(), number);
        }
    }
    void define(ILinearSystemStorage<T> & storage) const
    {
        for (int vertex : freeVertices) {
            storage.DefineFreeVertex(vertex);
        }
        for (int vertex : fixedVertices) {
            storage.DefineFixedVertex(vertex);
        }
    }
    CVertexLinearCombination<T> equation(std::size_t row) const
    {
        CVertexLinearCombination<T> combination;
        for (std::size_t column = freeVertices.size(); column-- > 0;) {
            if (freeMatrix[row][column] != T(0) || column == row) {
                combination.AddVertex(freeVertices[column], freeMatrix[row][column]);
            }
        }
        for (std::size_t column = 0; column < fixedVertices.size(); ++column) {
            combination.AddVertex(fixedVertices[column], fixedMatrix[row][column]);
        }
        return combination;
    }
};

template <class T>
class CsrStorageTest : public testing::Test
{};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(CsrStorageTest, Scalars, );

} // namespace

TYPED_TEST(CsrStorageTest, HoldsTheSystemThatItsEquationsState)
{
    using T = TypeParam;
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        bool const symmetric = seed % 2 == 0;
        RandomSystem<T> const system(random, symmetric);
        int const size = int(system.freeVertices.size());
        CCSRSstorage<T> storage;
        storage.setSymmetric(symmetric);
        storage.setIndexBase(int(seed / 2 % 2));
        storage.setExpectedElementsPerLine(int(seed % 3) * 4 - 4);
        system.define(storage);
        for (std::size_t row = 0; row < system.freeVertices.size(); ++row) {
            storage.AddEquation(system.equation(row));
        }
        ASSERT_TRUE(storage.IsCorrectlyDefinedSystem());
        ICsrMatrix<T> const & matrix = storage;
        ASSERT_EQ(matrix.isUpperTriangleOnlyStored(), symmetric);
        ASSERT_EQ(int(matrix.getIndexBase()), storage.getIndexBase());

        // Integers, so that the sums are exact whatever their order.
        PositionMap<T> positions;
        std::vector<T> solution;
        for (int vertex : system.freeVertices) {
            solution.push_back(T(int(random() % 9) - 4));
            positions.m_positions[vertex] = solution.back();
        }
        for (int vertex : system.fixedVertices) {
            positions.m_positions[vertex] = T(int(random() % 9) - 4);
        }
        std::vector<T> rightPart(system.freeVertices.size());
        std::vector<T> product(system.freeVertices.size());
        storage.SetSingleRightPart(rightPart.data(), positions);
        MatrixMultVector<T>(size, product.data(), matrix, solution.data());
        for (int row = 0; row < size; ++row) {
            std::size_t const r = std::size_t(row);
            T const residual = EvaluateLinCombination<T>(system.equation(r), positions);
            ASSERT_EQ(product[r] - rightPart[r], residual);
            ASSERT_EQ(storage.ScalarProductByMatrixRow(row, size, solution.data()), product[r]);
            for (int column = 0; column < size; ++column) {
                ASSERT_EQ(storage.GetFreeVertCoeff(row, column), system.freeMatrix[r][std::size_t(column)]);
            }
            ASSERT_EQ(storage.GetFreeVertCoeff(row, size), T(0));
            ASSERT_EQ(storage.GetFreeVertCoeff(row, -1), T(0));
        }
        for (int outside : {-1, INT_MIN, size, INT_MAX}) {
            ASSERT_EQ(storage.GetFreeVertCoeff(outside, 0), T(0));
        }
        PositionMap<T> received;
        storage.SetSingleSolution(solution.data(), received);
        ASSERT_EQ(received.m_positions.size(), solution.size());
        for (auto const & position : received.m_positions) {
            ASSERT_EQ(position.second, positions.m_positions[position.first]);
        }

        T const last = storage.getCsrValues()[storage.getNonZeroValuesNumber() - 1];
        std::vector<T> expected(storage.getCsrValues(),
                                storage.getCsrValues() + storage.getNonZeroValuesNumber());
        T const scale = std::abs(last);
        for (T & value : expected) {
            value *= scale > 0 ? T(1) / scale : T(1);
        }
        ASSERT_EQ(storage.normalizeSystemMatrix(), scale);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), storage.getCsrValues()));
    }
}

TYPED_TEST(CsrStorageTest, WholeRowsBehaveAsElementsPushedOneByOne)
{
    using T = TypeParam;
    int spoiled = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        int const size = 1 + int(random() % 6);
        bool const symmetric = random() % 2 == 0;
        int const base = int(random() % 2);
        CCSRSstorage<T> storage;
        storage.setSymmetric(symmetric);
        storage.setIndexBase(base);
        for (int vertex = 0; vertex < size; ++vertex) {
            storage.DefineFreeVertex(vertex);
        }
        if (random() % 2 == 0) {
            storage.reserveMatrixMemory(std::int64_t(1) << 40); // far more than such a matrix can hold
        }
        // What must come of it, by single pushes.
        CCSRSquareMatrix<T> expected;
        CCSRSquareMatrixFiller<T> filler(&expected, size, -1, base, symmetric);
        bool isSpoiled = false;
        int equations = 0;
        for (int step = 0; step < size; ++step) {
            int const row = random() % 30 == 0 ? int(random() % unsigned(size + 2)) - 1 : step;
            std::vector<int> columns;
            std::vector<T> values;
            for (int column = 0; column < size; ++column) {
                if (random() % 2 == 0 || column == row) {
                    columns.push_back(column);
                    values.push_back(T(random() % 9));
                }
            }
            if (random() % 15 == 0 && !columns.empty()) {
                columns[random() % columns.size()] = int(random() % 9) - 2;
            }
            int const count = random() % 40 == 0 ? 0 : int(columns.size());
            storage.addEquationFreePartNoAliases(row, count, values.data(), columns.data());

            if (isSpoiled || row >= size || count < 1) {
                isSpoiled = true;
            } else {
                for (int k = 0; k < count && !isSpoiled; ++k) {
                    int const column = columns[std::size_t(k)];
                    if (!symmetric || column >= row) {
                        isSpoiled = !filler.pushByRawNextNonZeroElement(row + base, column + base,
                                                                        values[std::size_t(k)]);
                    }
                }
                equations == row ? void(++equations) : void(isSpoiled = true);
            }
            ASSERT_EQ(storage.IsSpoiled(), isSpoiled) << seed;
            ASSERT_EQ(storage.GetEquationsNumber(), equations) << seed;
        }
        spoiled += isSpoiled;
        ASSERT_EQ(storage.getNonZeroValuesNumber(), expected.getNonZeroValuesNumber()) << seed;
        for (int k = 0; k < expected.getNonZeroValuesNumber(); ++k) {
            ASSERT_EQ(storage.getCsrValues()[k], expected.getCsrValues()[k]);
            ASSERT_EQ(storage.getCsrColumns()[k], expected.getCsrColumns()[k]);
        }
        for (int entry = 0; entry <= size; ++entry) {
            ASSERT_EQ(storage.getRowIndex()[entry], expected.getRowIndex()[entry]) << seed;
        }
    }
    EXPECT_GT(spoiled, 300);
    EXPECT_LT(spoiled, 2700);
}

TYPED_TEST(CsrStorageTest, MisuseSpoils)
{
    using T = TypeParam;
    CVertexLinearCombination<T> equation;
    equation.AddVertex(1, 1);
    equation.AddVertex(2, 1);

    CCSRSstorage<T> descending;
    descending.DefineFreeVertex(2);
    descending.DefineFreeVertex(1);
    descending.AddEquation(equation);
    EXPECT_TRUE(descending.IsSpoiled());
    EXPECT_EQ(descending.GetEquationsNumber(), 1);

    // Without fixed vertices a free one may still be defined, but the matrix has no row for it.
    CCSRSstorage<T> late;
    late.DefineFreeVertex(1);
    late.DefineFreeVertex(2);
    late.AddEquation(equation);
    late.DefineFreeVertex(3);
    EXPECT_FALSE(late.IsSpoiled());
    equation.AddVertex(3, 1);
    late.AddEquation(equation);
    EXPECT_TRUE(late.IsSpoiled());

    CCSRSstorage<T> oddBase;
    oddBase.setIndexBase(2);
    for (int vertex : {1, 2, 3}) {
        oddBase.DefineFreeVertex(vertex);
    }
    EXPECT_FALSE(oddBase.IsSpoiled());
    oddBase.AddEquation(equation);
    EXPECT_TRUE(oddBase.IsSpoiled());

    T const value = 1;
    int const column = 0;
    for (int badCase = 0; badCase < 5; ++badCase) {
        CCSRSstorage<T> storage;
        storage.DefineFreeVertex(0);
        storage.addEquationFreePartNoAliases(badCase == 0   ? INT_MIN
                                             : badCase == 1 ? INT_MAX
                                                            : 0,
                                             badCase == 2 ? -1 : 1, badCase == 3 ? nullptr : &value,
                                             badCase == 4 ? nullptr : &column);
        EXPECT_TRUE(storage.IsSpoiled()) << badCase;
    }
}

TYPED_TEST(CsrStorageTest, CopyHasNoOpenMatrix)
{
    using T = TypeParam;
    CCSRSstorage<T> storage;
    for (int vertex = 0; vertex < 3; ++vertex) {
        storage.DefineFreeVertex(vertex);
    }
    storage.DefineFixedVertex(9);
    CVertexLinearCombination<T> equation;
    equation.AddVertex(0, 4);
    storage.AddEquation(equation);
    std::unique_ptr<CCSRSstorage<T>> const owned(storage.Copy());
    CCSRSstorage<T> & copy = *owned;
    EXPECT_EQ(copy.GetFreeVertCoeff(0, 0), T(4));
    EXPECT_EQ(copy.getNonZeroValuesNumber(), 1);
    copy.AddEquation(equation);
    EXPECT_FALSE(copy.IsSpoiled());
    EXPECT_EQ(copy.GetFreeVertCoeff(0, 0), T(0));
    EXPECT_EQ(copy.GetFreeVertCoeff(1, 0), T(4));
    EXPECT_EQ(copy.GetFreeVertCoeff(2, 0), T(0)); // a row that is not there yet
    T const ones[3] = {1, 1, 1};
    EXPECT_EQ(copy.ScalarProductByMatrixRow(2, 3, ones), T(0));
    EXPECT_EQ(storage.getNonZeroValuesNumber(), 1);

    copy.Spoil();
    copy = storage;
    EXPECT_FALSE(copy.IsSpoiled());
    EXPECT_EQ(copy.GetFreeVertCoeff(0, 0), T(4));
    EXPECT_EQ(CCSRSstorage<T>().normalizeSystemMatrix(), T(0));
}
