// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/BulkSystem.h>

#include <QZmath/LinSys/LinSysSolverCoreMkl.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <numeric>
#include <random>
#include <vector>

#include <support/SparseSystems.h>

using namespace REmath;

namespace
{

struct Equations
{
    std::vector<std::int64_t> begins{0};
    std::vector<int> vertices;
    std::vector<double> coeffs;

    void add(int vertex, double coeff)
    {
        vertices.push_back(vertex);
        coeffs.push_back(coeff);
    }
    void end() { begins.push_back(std::int64_t(vertices.size())); }
    BulkFault giveTo(CBulkSystem<double> & system, std::int64_t * faulty = nullptr) const
    {
        return system.addEquations(std::int64_t(begins.size()) - 1, begins.data(), vertices.data(),
                                   coeffs.data(), faulty);
    }
};

} // namespace

TEST(BulkSystem, SolvesTheSystemThatItsEquationsStateWithEveryCore)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        bool const symmetric = seed % 2 == 0;
        int const freeCount = 2 + int(random() % 30), fixedCount = int(random() % 4), parts = 3;
        std::vector<int> vertices(std::size_t(freeCount + fixedCount));
        for (std::size_t k = 0; k < vertices.size(); ++k)
            vertices[k] = int(k) * 7 - 50;
        std::shuffle(vertices.begin(), vertices.end(), random);
        CBulkSystem<double> bulk(symmetric, symmetric);
        ASSERT_TRUE(bulk.defineFree(freeCount, vertices.data()));
        ASSERT_TRUE(bulk.defineFixed(fixedCount, vertices.data() + freeCount));

        auto const matrix = testSupport::randomSparse(freeCount, freeCount / 8.0, symmetric, 1.5, random);
        std::vector<double> const positions = testSupport::randomVector(fixedCount * parts, random);
        std::vector<double> sides = testSupport::randomVector(freeCount * parts, random);
        for (std::size_t row = 0; row < std::size_t(freeCount) && fixedCount == 0; ++row)
            sides[row * parts + 1] = 0; // no start for iterations
        std::vector<std::vector<double>> rights(parts, std::vector<double>(std::size_t(freeCount)));
        Equations halves[2];
        for (int row = 0; row < freeCount; ++row) {
            Equations & half = halves[row < freeCount / 2 ? 0 : 1];
            std::vector<int> order(vertices.size());
            std::iota(order.begin(), order.end(), 0);
            std::shuffle(order.begin(), order.end(), random);
            for (std::size_t part = 0; part < parts; ++part)
                rights[part][std::size_t(row)] = sides[std::size_t(row) * parts + part];
            for (int const column : order) {
                double const coeff = column < freeCount ? matrix(row, column) : int(random() % 5) - 2;
                if (coeff == 0)
                    continue;
                half.add(vertices[std::size_t(column)], coeff / 4); // repeated terms add up
                half.add(vertices[std::size_t(column)], coeff - coeff / 4);
                for (std::size_t part = 0; part < parts && column >= freeCount; ++part)
                    rights[part][std::size_t(row)] -=
                        coeff * positions[std::size_t(column - freeCount) * parts + part];
            }
            half.end();
        }
        ASSERT_EQ(halves[0].giveTo(bulk), BulkFault::none);
        ASSERT_FALSE(bulk.isComplete());
        ASSERT_EQ(halves[1].giveTo(bulk), BulkFault::none);
        ASSERT_TRUE(bulk.isComplete());

        CLinSysSolverSparseDss<double> direct;
        CLinSysSolverSparseMKL<double> iterative(1e-13, 1000);
        CLinSysSolverCoreMkl<double> dense;
        CLinSysSolverDecomposed<double> decomposing({}, 1e-13, 1000);
        for (ILinSysSolverCore<double> * core :
             std::initializer_list<ILinSysSolverCore<double> *>{&direct, &iterative, &dense, &decomposing}) {
            std::vector<double> solutions(sides.size(), NAN);
            ASSERT_TRUE(bulk.solve(*core, parts, positions.data(), sides.data(), solutions.data(), nullptr))
                << seed;
            for (std::size_t part = 0; part < parts; ++part) {
                std::vector<double> const expected = testSupport::eliminate(matrix, rights[part]);
                for (std::size_t k = 0; k < expected.size(); ++k)
                    ASSERT_NEAR(solutions[k * parts + part], expected[k], 1e-11) << seed;
            }
        }
    }
}

TEST(BulkSystem, TakesNothingOfFaultyEquations)
{
    int const freeOnes[] = {3, 1, 2}, fixedOnes[] = {8};
    struct Case
    {
        BulkFault fault;
        std::int64_t equation;
        Equations equations;
    };
    double const nan = std::nan("");
    Case const cases[] = {
        {BulkFault::unknownVertex, 1, {{0, 1, 2}, {1, 9}, {1, 1}}},
        {BulkFault::noFreeVertex, 0, {{0, 1}, {8}, {1}}},
        {BulkFault::noFreeVertex, 1, {{0, 1, 1}, {1}, {1}}},
        {BulkFault::notFinite, 1, {{0, 1, 2}, {1, 2}, {1, nan}}},
        {BulkFault::badBegins, 0, {{1, 2}, {1, 1}, {1, 1}}},
        {BulkFault::badBegins, 1, {{0, 2, 1}, {1, 1}, {1, 1}}},
        {BulkFault::tooMany, 3, {{0, 1, 2, 3, 4}, {1, 2, 3, 1}, {1, 1, 1, 1}}},
    };
    CBulkSystem<double> system;
    EXPECT_TRUE(system.defineFree(2, freeOnes));
    EXPECT_FALSE(system.defineFree(2, freeOnes + 1)); // 1 again
    EXPECT_TRUE(system.defineFree(1, freeOnes + 2));
    EXPECT_FALSE(system.defineFixed(1, freeOnes));
    EXPECT_TRUE(system.defineFixed(1, fixedOnes));
    for (Case const & one : cases) {
        std::int64_t equation = -1;
        EXPECT_EQ(one.equations.giveTo(system, &equation), one.fault);
        EXPECT_EQ(equation, one.equation);
        EXPECT_EQ(system.equationCount(), 0);
    }
    Equations const sound{{0, 1, 3, 5}, {1, 2, 8, 3, 2}, {2, 1, -1, 1, 1}};
    EXPECT_EQ(sound.giveTo(system), BulkFault::none);
    EXPECT_FALSE(system.defineFree(1, fixedOnes));
    double const position = 6, sides[] = {4, 0, 0};
    double solution[3] = {};
    CLinSysSolverSparseDss<double> core;
    EXPECT_TRUE(system.solve(core, 1, &position, sides, solution, nullptr));
    EXPECT_DOUBLE_EQ(solution[0], -6); // of vertex 3, defined first
    EXPECT_DOUBLE_EQ(solution[1], 2);
    EXPECT_DOUBLE_EQ(solution[2], 6);
}
