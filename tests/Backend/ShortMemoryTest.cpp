// SPDX-License-Identifier: Apache-2.0
// The direct solvers when an allocation fails, each one in turn: std::bad_alloc comes out, or the solution,
// and the next attempt succeeds. In a program of its own, whose operator new fails on demand.
#include <QZmath/Backend/DirectSolver.h>
#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <vector>

#include "support/SparseSystems.h"

namespace
{

std::atomic<long> allocationsLeft{-1}; // below 0: as many as there is memory for

void * allocate(std::size_t size)
{
    if (allocationsLeft >= 0 && allocationsLeft-- <= 0)
        throw std::bad_alloc();
    if (void * const memory = std::malloc(size > 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

} // namespace

void * operator new(std::size_t size) { return allocate(size); }
void * operator new[](std::size_t size) { return allocate(size); }
void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    try {
        return allocate(size);
    } catch (std::bad_alloc const &) {
        return nullptr;
    }
}
void operator delete(void * memory) noexcept { std::free(memory); }
void operator delete[](void * memory) noexcept { std::free(memory); }
void operator delete(void * memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void * memory, std::size_t) noexcept { std::free(memory); }

namespace
{

using QzBackend::CDirectSolver;

bool solve(testSupport::CompressedMatrix const & matrix, CDirectSolver::Definiteness definiteness,
           std::vector<double> const & right, std::vector<double> & solution)
{
    CDirectSolver solver(CDirectSolver::Structure::symmetricUpper, definiteness);
    return solver.defineStructure(matrix.size, matrix.rowIndex.data(), matrix.columns.data(),
                                  matrix.nonZeros(), matrix.indexBase) &&
           solver.reorder(nullptr) && solver.factor(matrix.values.data(), nullptr) &&
           solver.solve(right.data(), 1, solution.data());
}

TEST(ShortMemory, EveryAllocationOfASolverMayFail)
{
    std::mt19937 random(61);
    for (int const threads : {1, 3})
        for (auto const definiteness :
             {CDirectSolver::Definiteness::positiveDefinite, CDirectSolver::Definiteness::indefinite}) {
            CVescaThreadingTasksHelper::setNumOfPhisicalThread(threads);
            testSupport::CompressedMatrix const matrix =
                testSupport::gridOperator(threads == 1 ? 9 : 16, 1, 0.1, 1);
            std::vector<double> const right = testSupport::randomVector(matrix.size, random);
            std::vector<double> expected(right.size()), solution(right.size());
            ASSERT_TRUE(solve(matrix, definiteness, right, expected));
            long failures = 0;
            bool isDone = false;
            for (long number = 0; !isDone; number += 1 + number / 40) {
                std::fill(solution.begin(), solution.end(), 0.0);
                allocationsLeft = number;
                bool failed = false;
                try {
                    bool const solved = solve(matrix, definiteness, right, solution);
                    isDone = allocationsLeft.exchange(-1) > 0;
                    EXPECT_TRUE(solved) << number;
                } catch (std::bad_alloc const &) {
                    allocationsLeft = -1;
                    failed = true;
                }
                failures += failed;
                if (!failed) {
                    EXPECT_EQ(solution, expected) << number;
                }
            }
            EXPECT_GT(failures, 30);
            ASSERT_TRUE(solve(matrix, definiteness, right, solution));
            EXPECT_EQ(solution, expected);
            CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
        }
}

} // namespace
