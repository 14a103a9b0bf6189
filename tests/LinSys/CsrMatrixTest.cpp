// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrMatrix.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace REmath;

namespace
{

template <class T>
using Dense = std::vector<std::vector<T>>;

/// Random square matrix whose last row is never empty, so that its row index is complete.
template <class T>
Dense<T> makeDense(int size, double density, bool upperOnly, std::mt19937 & random)
{
    std::uniform_real_distribution<T> value(-1, 1);
    std::vector<T> const zeros(std::size_t(size), T(0));
    Dense<T> dense(zeros.size(), zeros);
    for (int row = 0; row < size; ++row) {
        for (int column = upperOnly ? row : 0; column < size; ++column) {
            bool const isLast = row == size - 1 && column == size - 1;
            if (isLast || double(random() % 1000) < density * 1000)
                dense[std::size_t(row)][std::size_t(column)] = value(random);
        }
    }
    return dense;
}

template <class T>
CCSRSquareMatrix<T> makeCsr(Dense<T> const & dense, int base, bool upperOnly)
{
    CCSRSquareMatrix<T> matrix;
    CCSRSquareMatrixFiller<T> filler(&matrix, int(dense.size()), -1, base, upperOnly);
    for (int row = 0; row < int(dense.size()); ++row) {
        for (int column = 0; column < int(dense.size()); ++column) {
            T const value = dense[std::size_t(row)][std::size_t(column)];
            if (value != T(0)) {
                EXPECT_TRUE(filler.pushByRawNextNonZeroElement(row + base, column + base, value));
            }
        }
    }
    EXPECT_TRUE(filler.setCompleted());
    return matrix;
}

template <class T>
T elementOf(ICsrMatrix<T> const & matrix, int row, int column)
{
    int const base = matrix.getIndexBase();
    for (int k = matrix.getCsrPointerB()[row] - base; k < matrix.getCsrPointerE()[row] - base; ++k)
        if (matrix.getCsrColumns()[k] == column + base)
            return matrix.getCsrValues()[k];
    return 0;
}

/// Answers for a dense matrix as a system does; `drift` makes it answer differently in the second pass.
template <class T>
class DenseSystem : public ILinearSystemReadOnly<T>
{
public:
    Dense<T> m_dense;
    int m_queriesBeforeDrift = INT_MAX;

private:
    bool onIsCorrectlyDefinedSystem() const override { return true; }
    void onSetSingleRightPart(T *, IVertexPosInformer<T> const &) const override {}
    int onGetEquationsNumber() const override { return int(m_dense.size()); }
    T onScalarProductByMatrixRow(int, int, T const *) const override { return 0; }
    T onGetFreeVertCoeff(int row, int column) const override
    {
        return m_queries++ < m_queriesBeforeDrift ? m_dense[std::size_t(row)][std::size_t(column)] : T(1);
    }
    void onSetSingleSolution(T const *, IEqSysResultReciever<T> &) const override {}
    bool onIsSymmetric() const override { return false; }
    bool onIsPositiveDefinite() const override { return false; }
    mutable int m_queries = 0;
};

template <class T>
class CsrMatrixTest : public testing::Test
{};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(CsrMatrixTest, Scalars, );

} // namespace

TYPED_TEST(CsrMatrixTest, FillerTakesAscendingElementsUpToTheirNumber)
{
    using T = TypeParam;
    struct Case
    {
        int expected; // -1: not known ahead
        std::vector<std::pair<int, int>> places;
        std::size_t taken; // elements in front of the first that is refused
        bool completes;    // when asked to, or by the last of the expected ones
    };
    std::vector<std::pair<int, int>> const three = {{0, 0}, {0, 2}, {2, 1}};
    Case const cases[] = {
        {-1, three, 3, true},
        {3, three, 3, true},
        {2, three, 2, false},
        {4, three, 3, false},
        {-1, {}, 0, false},
        {-1, {{0, 1}, {0, 1}}, 1, false},
        {-1, {{0, 1}, {0, 0}, {1, 1}}, 1, false},
        {-1, {{1, 1}, {0, 2}}, 1, false},
        {-1, {{0, 1}, {0, 3}}, 1, false},
        {-1, {{0, 1}, {3, 0}}, 1, false},
        {-1, {{-1, 0}}, 0, false},
        {-1, {{0, -1}}, 0, false},
    };
    for (Case const & one : cases) {
        for (int base : {0, 1}) {
            SCOPED_TRACE(testing::PrintToString(one.places) + " base " + std::to_string(base));
            CCSRSquareMatrix<T> matrix;
            CCSRSquareMatrixFiller<T> filler(&matrix, 3, one.expected, base, false);
            for (std::size_t k = 0; k < one.places.size(); ++k) {
                auto const & [row, column] = one.places[k];
                EXPECT_EQ(filler.pushByRawNextNonZeroElement(row + base, column + base, T(k + 1)),
                          k < one.taken);
            }
            EXPECT_EQ(filler.isSpoiled(), one.taken < one.places.size());
            bool const completes = one.expected < 0 ? filler.setCompleted() : filler.isCompleted();
            EXPECT_EQ(completes, one.completes);
            EXPECT_EQ(filler.isCompleted(), one.completes);
            for (std::size_t k = 0; k < one.taken; ++k) {
                EXPECT_EQ(matrix.getCsrColumns()[k], one.places[k].second + base);
                EXPECT_EQ(matrix.getCsrValues()[k], T(k + 1));
            }
            if (completes) {
                for (int const pushed : {0, 1, 2, 3}) {
                    int const expected[4] = {0, 2, 2, 3};
                    EXPECT_EQ(matrix.getRowIndex()[pushed], expected[pushed] + base);
                }
                EXPECT_EQ(matrix.getNonZeroValuesNumber(), 3);
            }
        }
    }
    // An exact filler needs neither a reservation nor a completion; with them it is spoiled.
    for (bool reserves : {false, true}) {
        CCSRSquareMatrix<T> matrix;
        CCSRSquareMatrixFiller<T> filler(&matrix, 3, 2, 0, true);
        EXPECT_TRUE(filler.pushByRawNextNonZeroElement(1, 0, 9)); // below the diagonal: passed over
        EXPECT_FALSE(filler.isSpoiled());
        reserves ? filler.reserveMemory(20) : void(filler.setCompleted());
        EXPECT_TRUE(filler.isSpoiled());
    }
}

TYPED_TEST(CsrMatrixTest, FillerSurvivesHostileUse)
{
    using T = TypeParam;
    CCSRSquareMatrixFiller<T> targetless(nullptr, 3, 2, 0, false);
    EXPECT_FALSE(targetless.isCompleted());
    EXPECT_FALSE(targetless.pushByRawNextNonZeroElement(0, 0, 1));
    EXPECT_TRUE(targetless.isSpoiled());
    targetless.reserveMemory(3);

    CCSRSquareMatrix<T> matrix;
    for (int size : {-1, -2, INT_MIN}) {
        CCSRSquareMatrixFiller<T> filler(&matrix, size, 2, 1, false);
        EXPECT_FALSE(filler.pushByRawNextNonZeroElement(1, 1, 1));
        EXPECT_FALSE(filler.isCompleted());
        EXPECT_EQ(matrix.getRowIndexSize(), 0);
    }
    for (int base : {-1, 2, INT_MAX, INT_MIN}) {
        CCSRSquareMatrixFiller<T> filler(&matrix, 2, -1, base, false);
        EXPECT_FALSE(filler.pushByRawNextNonZeroElement(base, base, 1));
    }
    for (int extreme : {INT_MIN, INT_MAX}) {
        CCSRSquareMatrixFiller<T> rows(&matrix, 2, -1, 1, false);
        EXPECT_FALSE(rows.pushByRawNextNonZeroElement(extreme, 1, 1));
        CCSRSquareMatrixFiller<T> columns(&matrix, 2, -1, 1, false);
        EXPECT_FALSE(columns.pushByRawNextNonZeroElement(1, extreme, 1));
    }
    // The target is taken away under an exact filler.
    CCSRSquareMatrixFiller<T> filler(&matrix, 4, 4, 0, false);
    EXPECT_TRUE(filler.pushByRawNextNonZeroElement(0, 0, 1));
    matrix.initMemory(2, 1, CSR_INDEX_BASE_0, false);
    EXPECT_FALSE(filler.pushByRawNextNonZeroElement(1, 0, 1));
    EXPECT_EQ(CCSRSquareMatrix<T>().getMatrixSize(), -1);
    EXPECT_EQ(CCSRSquareMatrix<T>().getCsrPointerE(), nullptr);
    EXPECT_EQ(CCSRSquareMatrix<T>().getMemoryPolicy(), CSR_MEMORY_PREALLOCATED);
}

TYPED_TEST(CsrMatrixTest, ProductsAgreeWithTheDenseMatrix)
{
    using T = TypeParam;
    std::mt19937 random(11);
    std::uniform_real_distribution<T> value(-1, 1);
    for (int round = 0; round < 120; ++round) {
        int const size = 1 + int(random() % 70);
        bool const upperOnly = round % 2 == 0;
        int const base = round / 2 % 2;
        Dense<T> const dense = makeDense<T>(size, round % 5 * 0.25, upperOnly, random);
        CCSRSquareMatrix<T> const matrix = makeCsr(dense, base, upperOnly);
        std::vector<T> vector(dense.size());
        std::generate(vector.begin(), vector.end(), [&] { return value(random); });
        std::vector<T> result(vector.size(), T(77));
        MatrixMultVector<T>(size, result.data(), matrix, vector.data());
        for (std::size_t row = 0; row < vector.size(); ++row) {
            double expected = 0;
            for (std::size_t column = 0; column < vector.size(); ++column) {
                bool const isMirrored = upperOnly && column < row;
                expected +=
                    double(isMirrored ? dense[column][row] : dense[row][column]) * double(vector[column]);
            }
            ASSERT_NEAR(result[row], expected, sizeof(T) == 4 ? 2e-5 : 1e-13);
        }
        std::vector<T> again(vector.size());
        MatrixMultVector<T>(size, again.data(), matrix, vector.data());
        ASSERT_EQ(again, result);

        // Not the size of the matrix: refused.
        std::vector<T> untouched(vector.size() + 1, T(5));
        MatrixMultVector<T>(size + 1, untouched.data(), matrix, vector.data());
        MatrixMultVector<T>(size - 1, untouched.data(), matrix, vector.data());
        ASSERT_EQ(untouched, std::vector<T>(vector.size() + 1, T(5)));
    }
}

TYPED_TEST(CsrMatrixTest, ProductOfAnIncompleteMatrixIsRefused)
{
    using T = TypeParam;
    for (bool upperOnly : {false, true}) {
        CCSRSquareMatrix<T> matrix;
        CCSRSquareMatrixFiller<T> filler(&matrix, 3, -1, 1, upperOnly);
        std::vector<T> const vector(3, T(1));
        std::vector<T> const before(3, T(5));
        std::vector<T> result = before;
        MatrixMultVector<T>(3, result.data(), matrix, vector.data());
        EXPECT_EQ(result, before);
        EXPECT_TRUE(filler.pushByRawNextNonZeroElement(1, 3, 2));
        EXPECT_TRUE(filler.setCompleted());
        MatrixMultVector<T>(3, result.data(), matrix, vector.data());
        EXPECT_EQ(result, before);
    }
    T result = 5;
    MatrixMultVector<T>(-1, &result, CCSRSquareMatrix<T>(), &result);
    MatrixMultVector<T>(0, &result, CCSRSquareMatrix<T>(), &result);
    EXPECT_EQ(result, T(5));
}

TYPED_TEST(CsrMatrixTest, SubMatrixIsTheBlockOfTheDenseMatrix)
{
    using T = TypeParam;
    std::mt19937 random(12);
    for (int round = 0; round < 100; ++round) {
        int const size = 1 + int(random() % 12);
        bool const upperOnly = random() % 2 == 0;
        int const base = int(random() % 2);
        Dense<T> const dense = makeDense<T>(size, 0.4, upperOnly, random);
        CCSRSquareMatrix<T> const matrix = makeCsr(dense, base, upperOnly);
        for (int first = -1; first <= size + 1; ++first) {
            for (int last = -1; last <= size + 1; ++last) {
                CCSRSquareMatrix<T> block;
                if (round % 2 == 0) {
                    block = matrix;
                    block.makeSelfSubMatrix(first, last, block);
                } else {
                    block.makeSelfSubMatrix(first, last, matrix);
                }
                bool const isRange = first >= 0 && first <= last && last <= size;
                ASSERT_EQ(block.getMatrixSize(), isRange ? last - first : 0);
                ASSERT_EQ(block.getIndexBase(), base);
                ASSERT_EQ(block.isUpperTriangleOnlyStored(), upperOnly);
                ASSERT_EQ(block.getMemoryPolicy(), CSR_MEMORY_PREALLOCATED);
                ASSERT_EQ(block.getRowIndex()[0], base);
                int nonZeros = 0;
                for (int row = 0; row < block.getMatrixSize(); ++row) {
                    for (int column = 0; column < block.getMatrixSize(); ++column) {
                        T const expected = dense[std::size_t(row + first)][std::size_t(column + first)];
                        ASSERT_EQ(elementOf<T>(block, row, column), expected);
                        nonZeros += expected != T(0);
                    }
                }
                ASSERT_EQ(block.getNonZeroValuesNumber(), nonZeros);
                ASSERT_EQ(block.getRowIndex()[block.getMatrixSize()], nonZeros + base);
            }
        }
    }
    CCSRSquareMatrix<T> incomplete;
    incomplete.initMemory(4, 0, CSR_INDEX_BASE_1, false);
    CCSRSquareMatrix<T> block;
    block.makeSelfSubMatrix(1, 3, incomplete);
    EXPECT_EQ(block.getMatrixSize(), 0);
    block.makeSelfSubMatrix(INT_MIN, INT_MAX, CCSRSquareMatrix<T>());
    EXPECT_EQ(block.getMatrixSize(), 0);
}

TYPED_TEST(CsrMatrixTest, ConversionCopiesEveryElementThatIsNotZero)
{
    using T = TypeParam;
    std::mt19937 random(13);
    for (int round = 0; round < 60; ++round) {
        int const size = round % 12;
        bool const upperOnly = random() % 2 == 0;
        int const base = int(random() % 2);
        DenseSystem<T> system;
        system.m_dense = makeDense<T>(size, 0.3, false, random);
        if (round % 10 == 9) {
            std::vector<T> const zeros(std::size_t(size), T(-0.0));
            system.m_dense = Dense<T>(zeros.size(), zeros);
        }
        CCSRSquareMatrix<T> const matrix = LinearSystem2CsrMatrix<T>(system, base, upperOnly);
        EXPECT_FALSE(matrix.isUpperTriangleOnlyStored());
        EXPECT_EQ(matrix.getMatrixSize(), size);
        EXPECT_EQ(matrix.getIndexBase(), base);
        int nonZeros = 0;
        for (int row = 0; row < size && matrix.getNonZeroValuesNumber() > 0; ++row) {
            for (int column = 0; column < size; ++column) {
                T const value = system.m_dense[std::size_t(row)][std::size_t(column)];
                T const expected = upperOnly && column < row ? T(0) : value;
                ASSERT_EQ(elementOf<T>(matrix, row, column), expected);
                nonZeros += expected != T(0);
            }
        }
        EXPECT_EQ(matrix.getNonZeroValuesNumber(), nonZeros);
        EXPECT_EQ(nonZeros > 0, size > 0 && round % 10 != 9);
        EXPECT_THROW(LinearSystem2CsrMatrix<T>(system, 2, upperOnly), std::logic_error);
    }
    DenseSystem<T> drifting;
    drifting.m_dense = Dense<T>(2, std::vector<T>(2, T(0)));
    drifting.m_queriesBeforeDrift = 4;
    try {
        LinearSystem2CsrMatrix<T>(drifting, 1, false);
        FAIL() << "a system that changes was taken";
    } catch (std::logic_error const & error) {
        EXPECT_STREQ(error.what(), "REmath::LinearSystem2CsrMatrix internal error");
    }
}
