// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/BulkSystem.h>

#include <QZmath/LinSys/LinSysSolverCoreMkl.h>
#include <QZmath/LinSys/LinSysSolverDecomposed.h>
#include <QZmath/LinSys/LinSysSolverMKL.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

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

struct Positions : IVertexPosInformer<double>, IEqSysResultReciever<double>
{
    std::map<int, double> of;
    double GetVertexPosition(int vertex) const override { return of.at(vertex); }
    void SetVertexPosition(int vertex, double position) override { of[vertex] = position; }
};

} // namespace

// The same equations one by one, through the interface of vertices and a dense solver.
TEST(BulkSystem, SolvesAsTheSystemOfSingleEquationsWithEveryCore)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> number(-1, 1);
        bool const symmetric = seed % 2 == 0;
        int const freeCount = 2 + int(random() % 30), fixedCount = int(random() % 4), parts = 3;
        std::vector<int> vertices(std::size_t(freeCount + fixedCount));
        for (std::size_t k = 0; k < vertices.size(); ++k)
            vertices[k] = int(k) * 7 - 50;
        std::shuffle(vertices.begin(), vertices.end(), random);
        CBulkSystem<double> bulk(symmetric, symmetric);
        ASSERT_TRUE(bulk.defineFree(freeCount, vertices.data()));
        ASSERT_TRUE(bulk.defineFixed(fixedCount, vertices.data() + freeCount));

        std::vector<std::vector<double>> matrix(std::size_t(freeCount),
                                                std::vector<double>(vertices.size(), 0.0));
        for (int row = 0; row < freeCount; ++row)
            for (int column = 0; column < freeCount + fixedCount; ++column)
                if (column == row)
                    matrix[std::size_t(row)][std::size_t(column)] = 9;
                else if (random() % 8 == 0)
                    matrix[std::size_t(row)][std::size_t(column)] = number(random);
        for (int row = 0; row < freeCount && symmetric; ++row)
            for (int column = 0; column < row; ++column)
                matrix[std::size_t(row)][std::size_t(column)] = matrix[std::size_t(column)][std::size_t(row)];

        CLinSysSolverMKL<double> single;
        for (int k = 0; k < freeCount; ++k)
            single.DefineFreeVertex(vertices[std::size_t(k)]);
        for (int k = 0; k < fixedCount; ++k)
            single.DefineFixedVertex(vertices[std::size_t(freeCount + k)]);
        int const ownSide = 10000; // a vertex of position 1 for each right side
        for (int row = 0; row < freeCount; ++row)
            single.DefineFixedVertex(ownSide + row);
        Equations halves[2];
        for (int row = 0; row < freeCount; ++row) {
            CVertexLinearCombination<double> equation;
            Equations & half = halves[row < freeCount / 2 ? 0 : 1];
            std::vector<std::size_t> order(vertices.size());
            for (std::size_t k = 0; k < order.size(); ++k)
                order[k] = k;
            std::shuffle(order.begin(), order.end(), random);
            for (std::size_t const column : order) {
                double const coeff = matrix[std::size_t(row)][column];
                if (coeff == 0)
                    continue;
                equation.AddVertex(vertices[column], coeff);
                half.add(vertices[column], coeff / 4); // repeated terms add up
                half.add(vertices[column], coeff - coeff / 4);
            }
            half.end();
            equation.AddVertex(ownSide + row, -1);
            single.AddEquation(equation);
        }
        ASSERT_EQ(halves[0].giveTo(bulk), BulkFault::none);
        ASSERT_FALSE(bulk.isComplete());
        ASSERT_EQ(halves[1].giveTo(bulk), BulkFault::none);
        ASSERT_TRUE(bulk.isComplete());

        std::vector<double> positions, sides;
        for (int k = 0; k < fixedCount * parts; ++k)
            positions.push_back(number(random));
        for (int k = 0; k < freeCount * parts; ++k)
            sides.push_back(fixedCount == 0 && k % parts == 1 ? 0
                                                              : number(random)); // no start for iterations
        std::vector<double> expected(sides.size());
        for (int part = 0; part < parts; ++part) {
            Positions known, solved;
            for (int k = 0; k < fixedCount; ++k)
                known.of[vertices[std::size_t(freeCount + k)]] = positions[std::size_t(k * parts + part)];
            for (int row = 0; row < freeCount; ++row)
                known.of[ownSide + row] = sides[std::size_t(row * parts + part)];
            IVertexPosInformer<double> const * informer = &known;
            IEqSysResultReciever<double> * receiver = &solved;
            ASSERT_TRUE(single.SolveSystem(1, &informer, &receiver, nullptr));
            for (int k = 0; k < freeCount; ++k)
                expected[std::size_t(k * parts + part)] = solved.of.at(vertices[std::size_t(k)]);
        }
        CLinSysSolverSparseDss<double> direct;
        CLinSysSolverSparseMKL<double> iterative(1e-13, 1000);
        CLinSysSolverCoreMkl<double> dense;
        CLinSysSolverDecomposed<double> decomposing({}, 1e-13, 1000);
        for (ILinSysSolverCore<double> * core :
             std::initializer_list<ILinSysSolverCore<double> *>{&direct, &iterative, &dense, &decomposing}) {
            std::vector<double> solutions(expected.size(), NAN);
            ASSERT_TRUE(bulk.solve(*core, parts, positions.data(), sides.data(), solutions.data(), nullptr))
                << seed;
            for (std::size_t k = 0; k < expected.size(); ++k)
                ASSERT_NEAR(solutions[k], expected[k], 1e-11) << seed;
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
