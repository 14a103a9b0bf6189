// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/CsrStorage.h>
#include <QZmath/LinSys/LinSysSolverCoreBicgstab.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>
#include <QZmath/LinSys/LinSysSolverSparse.h>
#include <QZmath/LinSys/SparseLinSysSolver.h>
#include <QZmath/LinSys/VPLSstorage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include <support/SolverSystems.h>

// Whole systems with many fixed vertices through every solver, compared with a dense elimination.

namespace
{

using namespace REmath;
using testSupport::DenseMatrix;
using testSupport::PositionMap;

enum class Kind
{
    definite,           // symmetric, dominant diagonal
    mixedSigns,         // symmetric, dominant diagonal of both signs
    saddlePoint,        // symmetric, zeros on a part of the diagonal
    dominant,           // not symmetric
    permutedRows,       // not symmetric, most diagonal elements 0
    zeroColumn,         // singular
    zeroColumnSymmetric // singular
};

bool isSymmetric(Kind kind) { return kind <= Kind::saddlePoint || kind == Kind::zeroColumnSymmetric; }

DenseMatrix matrixOf(Kind kind, int size, std::mt19937 & random)
{
    DenseMatrix matrix = testSupport::randomSparse(size, 4.0, isSymmetric(kind), 1.4, random);
    int const victim = int(random() % unsigned(size));
    switch (kind) {
    case Kind::definite:
    case Kind::dominant:
        break;
    case Kind::mixedSigns:
        for (int row = 0; row < size; row += 2) {
            matrix(row, row) = -matrix(row, row);
        }
        break;
    case Kind::saddlePoint:
        // The last third are multipliers: no element among them, each coupled strongly with a vertex of its
        // own.
        for (int row = size - size / 3; row < size; ++row) {
            for (int column = 0; column < size; ++column) {
                matrix(row, column) = matrix(column, row) = 0;
            }
            int const own = row - (size - size / 3);
            matrix(row, own) = matrix(own, row) = 2;
        }
        break;
    case Kind::permutedRows:
        for (int row = 0; row + 1 < size; ++row) {
            for (int column = 0; column < size; ++column) {
                std::swap(matrix(row, column), matrix(row + 1, column));
            }
        }
        break;
    case Kind::zeroColumn:
    case Kind::zeroColumnSymmetric:
        for (int other = 0; other < size; ++other) {
            matrix(other, victim) = 0;
            if (kind == Kind::zeroColumnSymmetric) {
                matrix(victim, other) = 0;
            }
        }
        break;
    }
    return matrix;
}

/// A system as a client states it, every number of it known. The numbers are those that `T` can hold.
template <class T>
struct Statement
{
    Statement(Kind systemKind, int size, int fixedCount, bool ascending, std::mt19937 & random)
        : kind(systemKind), freeMatrix(matrixOf(systemKind, size, random))
    {
        for (double & element : freeMatrix.elements) {
            element = double(T(element));
        }
        int vertex = -50;
        for (int k = 0; k < size + fixedCount; ++k) {
            vertex += 1 + int(random() % 5);
            bool const toFixed = int(freeVertices.size()) == size ||
                                 (int(fixedVertices.size()) < fixedCount && random() % 3 == 0);
            (toFixed ? fixedVertices : freeVertices).push_back(vertex);
        }
        std::shuffle(fixedVertices.begin(), fixedVertices.end(), random);
        if (!ascending) {
            std::shuffle(freeVertices.begin(), freeVertices.end(), random);
        }
        for (int row = 0; row < size; ++row) {
            std::vector<double> coeffs = testSupport::randomVector(fixedCount, random);
            for (double & coeff : coeffs) {
                coeff = random() % 2 == 0 ? double(T(coeff)) : 0.0;
            }
            // At least one row has a right part, unless there is nothing fixed.
            if (row == 0 && fixedCount > 0) {
                coeffs[0] = 1;
            }
            fixedMatrix.push_back(coeffs);
        }
    }

    void stateTo(IVertexPosLinearSystem<T> & solver, bool promiseDefinite) const
    {
        solver.setSymmetric(isSymmetric(kind));
        solver.setPositiveDefinite(promiseDefinite);
        for (int vertex : freeVertices) {
            solver.DefineFreeVertex(vertex);
        }
        for (int vertex : fixedVertices) {
            solver.DefineFixedVertex(vertex);
        }
        for (int row = 0; row < freeMatrix.size; ++row) {
            CVertexLinearCombination<T> equation;
            for (int column = freeMatrix.size - 1; column >= 0; --column) {
                // A singular system names the vertex all the same that none of its equations determines.
                if (freeMatrix(row, column) != 0 || row == column) {
                    equation.AddVertex(freeVertices[std::size_t(column)], T(freeMatrix(row, column)));
                }
            }
            for (std::size_t column = 0; column < fixedVertices.size(); ++column) {
                equation.AddVertex(fixedVertices[column], T(fixedMatrix[std::size_t(row)][column]));
            }
            solver.AddEquation(equation);
        }
    }

    std::vector<double> rightPart(std::vector<double> const & fixedPositions) const
    {
        std::vector<double> result;
        for (std::vector<double> const & coeffs : fixedMatrix) {
            double sum = 0;
            for (std::size_t k = 0; k < coeffs.size(); ++k) {
                sum -= coeffs[k] * fixedPositions[k];
            }
            result.push_back(sum);
        }
        return result;
    }

    Kind kind;
    DenseMatrix freeMatrix;
    std::vector<std::vector<double>> fixedMatrix;
    std::vector<int> freeVertices, fixedVertices;
};

/// One call of `SolveSystem` for random positions of the fixed vertices, and what came of it.
template <class T>
struct Solve
{
    Solve(Statement<T> const & statement, int rightParts, std::mt19937 & random)
        : m_statement(statement), given(std::size_t(rightParts))
    {
        for (PositionMap<T> & positions : given) {
            for (int vertex : statement.fixedVertices) {
                positions.m_positions[vertex] = T(int(random() % 41) - 20);
            }
        }
    }
    bool run(IVertexPosLinearSystem<T> & solver)
    {
        received.assign(given.size(), {});
        std::vector<IVertexPosInformer<T> const *> informers;
        std::vector<IEqSysResultReciever<T> *> receivers;
        for (std::size_t part = 0; part < given.size(); ++part) {
            informers.push_back(&given[part]);
            receivers.push_back(&received[part]);
        }
        return solver.SolveSystem(int(given.size()), informers.data(), receivers.data(), nullptr);
    }
    std::vector<double> fixedPositions(std::size_t part) const
    {
        std::vector<double> result;
        for (int vertex : m_statement.fixedVertices) {
            result.push_back(double(given[part].m_positions.at(vertex)));
        }
        return result;
    }
    void expectSolved(double tolerance) const
    {
        for (std::size_t part = 0; part < given.size(); ++part) {
            ASSERT_EQ(received[part].m_positions.size(), m_statement.freeVertices.size());
            std::vector<double> const expected =
                testSupport::eliminate(m_statement.freeMatrix, m_statement.rightPart(fixedPositions(part)));
            std::vector<double> solution;
            for (int vertex : m_statement.freeVertices) {
                solution.push_back(double(received[part].m_positions.at(vertex)));
            }
            double const scale = testSupport::norm(expected);
            for (std::size_t k = 0; k < expected.size(); ++k) {
                ASSERT_NEAR(solution[k], expected[k], tolerance * scale) << "right part " << part;
            }
        }
    }
    bool isNothingReceived() const
    {
        return std::all_of(received.begin(), received.end(),
                           [](PositionMap<T> const & positions) { return positions.m_positions.empty(); });
    }

    Statement<T> const & m_statement;
    std::vector<PositionMap<T>> given, received;
};

template <class T>
struct Candidate
{
    std::string name;
    bool isDirect;
    bool needsAscending;
    bool readsElements; // shifted rows give none
    std::unique_ptr<IVertexPosLinearSystem<T>> solver;
};

template <class T>
std::vector<Candidate<T>> everySolver(int size)
{
    using DenseRows = CVPLSstorage<T, CStdVectorAsVPLSstorageRow>;
    using ShiftedRows = CVPLSstorage<T, CShiftedVectorAsVPLstorageRow>;
    using SparseRows = CVPLSstorage<T, CSparseVectorAsVPLSstorageRow>;
    using Csr = CCSRSstorage<T>;
    std::vector<Candidate<T>> result;
    auto const add = [&result](char const * name, bool isDirect, bool needsAscending, bool readsElements,
                               IVertexPosLinearSystem<T> * solver) {
        result.push_back({name, isDirect, needsAscending, readsElements,
                          std::unique_ptr<IVertexPosLinearSystem<T>>(solver)});
    };
    add("dense rows, ready", true, false, true, new CLinSysSolverMKL<T>);
    add("csr, dense core", true, true, true, new CLinSysSolverCompose<T, Csr, CLinSysSolverCoreMkl<T>>);
    add("sparse rows, dense core", true, false, true,
        new CLinSysSolverCompose<T, SparseRows, CLinSysSolverCoreMkl<T>>);
    add("sparse rows, ready", true, false, true, new CSparseLinSysSolver<T>);
    add("csr direct, ready", true, true, true, new CSparseStoreSparseLinSysSolver<T>(3));
    add("csr iterative, ready", false, true, true,
        new CSparseStoreBicgstabLinSysSolver<T>(3, T(1e-6), 5 * size));
    // Blocks that are not coupled would leave the merge nothing to do, which counts as a breakdown.
    std::vector<int> const boundaries = size < 4 ? std::vector<int>() : std::vector<int>{size / 2};
    add("csr decomposed, ready", false, true, true,
        new CLinSysSolverSpaceDecomposer<T>(boundaries, 1e-6, 5 * size));
    add("csr, direct", true, true, true, new CLinSysSolverCompose<T, Csr, CLinSysSolverSparseDss<T>>);
    add("dense rows, direct", true, false, true,
        new CLinSysSolverCompose<T, DenseRows, CLinSysSolverSparseDss<T>>);
    add("sparse rows, direct", true, false, true,
        new CLinSysSolverCompose<T, SparseRows, CLinSysSolverSparseDss<T>>);
    add("csr, iterative", false, true, true, new CLinSysSolverCompose<T, Csr, CLinSysSolverSparseMKL<T>>);
    add("dense rows, iterative", false, false, true,
        new CLinSysSolverCompose<T, DenseRows, CLinSysSolverSparseMKL<T>>);
    add("sparse rows, iterative", false, false, true,
        new CLinSysSolverCompose<T, SparseRows, CLinSysSolverSparseMKL<T>>);
    add("csr, by products", false, true, true,
        new CLinSysSolverCompose<T, Csr, CLinSysSolverCoreBicgstab<T>>);
    add("dense rows, by products", false, false, true,
        new CLinSysSolverCompose<T, DenseRows, CLinSysSolverCoreBicgstab<T>>);
    add("sparse rows, by products", false, false, true,
        new CLinSysSolverCompose<T, SparseRows, CLinSysSolverCoreBicgstab<T>>);
    add("shifted rows, by products", false, false, false,
        new CLinSysSolverCompose<T, ShiftedRows, CLinSysSolverCoreBicgstab<T>>);
    add("csr, decomposed", true, true, true, new CLinSysSolverCompose<T, Csr, CLinSysSolverDecomposed<T>>);
    return result;
}

template <class T>
class SolverPropertiesTest : public testing::Test
{};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(SolverPropertiesTest, Scalars, );

} // namespace

TYPED_TEST(SolverPropertiesTest, EverySolverSolvesWhatWasStated)
{
    using T = TypeParam;
    bool const isFloat = std::is_same_v<T, float>;
    for (Kind kind :
         {Kind::definite, Kind::mixedSigns, Kind::saddlePoint, Kind::dominant, Kind::permutedRows}) {
        for (unsigned seed = 0; seed < 8; ++seed) {
            int const size = int(seed == 0 ? 1 : 3 + 6 * seed);
            for (Candidate<T> & candidate : everySolver<T>(size)) {
                std::mt19937 random(seed);
                bool const isEasy = kind == Kind::definite || kind == Kind::dominant;
                if (!candidate.isDirect && !isEasy) {
                    continue; // such systems need not converge
                }
                SCOPED_TRACE(candidate.name + ", kind " + std::to_string(int(kind)) + ", size " +
                             std::to_string(size));
                double const tolerance = !candidate.isDirect ? 2e-4 : isFloat ? 1e-4 : 1e-10;
                Statement<T> const statement(kind, size, 1 + int(seed % 5), candidate.needsAscending, random);
                std::unique_ptr<IVertexPosLinearSystem<T>> solver = std::move(candidate.solver);
                statement.stateTo(*solver, kind == Kind::definite && seed % 2 == 0);
                ASSERT_TRUE(solver->IsCorrectlyDefinedSystem());
                for (int row = 0; row < size && candidate.readsElements; ++row) {
                    for (int column = 0; column < size; ++column) {
                        ASSERT_EQ(double(solver->GetFreeVertCoeff(row, column)),
                                  statement.freeMatrix(row, column));
                    }
                }
                Solve<T> first(statement, 3, random);
                ASSERT_TRUE(first.run(*solver));
                ASSERT_NO_FATAL_FAILURE(first.expectSolved(tolerance));
                Solve<T> second(statement, 1, random);
                ASSERT_TRUE(second.run(*solver));
                ASSERT_NO_FATAL_FAILURE(second.expectSolved(tolerance));
                Solve<T> none(statement, 0, random);
                ASSERT_TRUE(none.run(*solver));

                std::unique_ptr<IVertexPosLinearSystem<T>> const copy(solver->Copy());
                IVertexPosLinearSystem<T> const & original = *solver;
                IVertexPosLinearSystem<T> const & copied = *copy;
                ASSERT_TRUE(typeid(original) == typeid(copied));
                ASSERT_EQ(copy->isSymmetric(), isSymmetric(kind));
                ASSERT_EQ(copy->isPositiveDefinite(), solver->isPositiveDefinite());
                solver.reset();
                std::vector<PositionMap<T>> const firstReceived = first.received;
                ASSERT_TRUE(first.run(*copy));
                for (std::size_t part = 0; part < firstReceived.size(); ++part) {
                    ASSERT_EQ(first.received[part].m_positions, firstReceived[part].m_positions);
                }

                // Other coefficients of a fixed vertex count from the next solve on.
                Statement<T> changed = statement;
                changed.fixedMatrix[0][0] = -3;
                copy->SetFixedVertCoeff(0, 0, T(-3));
                Solve<T> third(changed, 2, random);
                ASSERT_TRUE(third.run(*copy));
                ASSERT_NO_FATAL_FAILURE(third.expectSolved(tolerance));
            }
        }
    }
}

TYPED_TEST(SolverPropertiesTest, SingularSystemsAreRefusedByDirectSolvers)
{
    using T = TypeParam;
    for (Kind kind : {Kind::zeroColumn, Kind::zeroColumnSymmetric}) {
        for (unsigned seed = 0; seed < 10; ++seed) {
            int const size = 4 + int(seed);
            for (Candidate<T> & candidate : everySolver<T>(size)) {
                // The decomposing solver takes no note of a failure of its direct part.
                if (!candidate.isDirect || candidate.name == "csr, decomposed") {
                    continue;
                }
                SCOPED_TRACE(candidate.name + ", size " + std::to_string(size));
                std::mt19937 random(seed);
                Statement<T> const statement(kind, size, 2, candidate.needsAscending, random);
                statement.stateTo(*candidate.solver, isSymmetric(kind) && seed % 2 == 0);
                ASSERT_TRUE(candidate.solver->IsCorrectlyDefinedSystem());
                Solve<T> solve(statement, 2, random);
                EXPECT_FALSE(solve.run(*candidate.solver));
                EXPECT_TRUE(solve.isNothingReceived());
            }
        }
    }
}

TYPED_TEST(SolverPropertiesTest, SpoiledAndUnfinishedSystemsAreRefused)
{
    using T = TypeParam;
    std::vector<Candidate<T>> fresh = everySolver<T>(8);
    std::size_t number = 0;
    for (Candidate<T> & candidate : everySolver<T>(8)) {
        if (candidate.name.find("iterative") != std::string::npos ||
            candidate.name.find("decomposed") != std::string::npos) {
            ++number;
            continue; // these two solve what they find
        }
        SCOPED_TRACE(candidate.name);
        std::mt19937 random(4);
        Statement<T> const statement(Kind::dominant, 8, 2, candidate.needsAscending, random);
        Solve<T> solve(statement, 1, random);
        candidate.solver->DefineFreeVertex(statement.freeVertices[0]);
        EXPECT_FALSE(candidate.isDirect && solve.run(*candidate.solver)); // no equation yet
        EXPECT_TRUE(solve.isNothingReceived());
        candidate = std::move(fresh[number++]);
        statement.stateTo(*candidate.solver, false);
        ASSERT_TRUE(solve.run(*candidate.solver));
        candidate.solver->AddEquation(CVertexLinearCombination<T>());
        EXPECT_TRUE(candidate.solver->IsSpoiled());
        EXPECT_FALSE(solve.run(*candidate.solver));
        EXPECT_TRUE(solve.isNothingReceived());
        std::unique_ptr<IVertexPosLinearSystem<T>> const copy(candidate.solver->Copy());
        EXPECT_TRUE(copy->IsSpoiled());
    }
}

TYPED_TEST(SolverPropertiesTest, WithoutFixedVerticesTheSolutionIsZero)
{
    using T = TypeParam;
    for (Candidate<T> & candidate : everySolver<T>(6)) {
        SCOPED_TRACE(candidate.name);
        std::mt19937 random(4);
        Statement<T> const statement(Kind::definite, 6, 0, candidate.needsAscending, random);
        statement.stateTo(*candidate.solver, true);
        Solve<T> solve(statement, 2, random);
        bool const solved = solve.run(*candidate.solver);
        // An exact start is a breakdown for the iteration; only the core over a matrix delivers it.
        if (candidate.isDirect || candidate.name.find("iterative") != std::string::npos) {
            ASSERT_TRUE(solved);
            ASSERT_NO_FATAL_FAILURE(solve.expectSolved(0.0));
        } else {
            EXPECT_FALSE(solved);
        }
    }
}
