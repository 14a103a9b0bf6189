// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysVariableManager.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <limits>
#include <map>

#include <random>
#include <utility>
#include <vector>

using namespace REmath;

namespace
{

/// The smallest storage: keeps the free terms of every equation as they came.
template <class T>
class ListStorage : public CLinSysVariableManager<T>
{
public:
    using CLinSysVariableManager<T>::imitateAddEquation;
    ListStorage * Copy() const override { return new ListStorage(*this); }

    std::vector<int> m_rows;
    bool m_failsNext = false;

private:
    T onScalarProductByMatrixRow(int, int, T const *) const override { return 0; }
    T onGetFreeVertCoeff(int, int) const override { return 0; }
    bool onIsSymmetric() const override { return false; }
    void onSetSymmetric(bool) override {}
    void onAddEquationFreePart(CVertexLinearCombination<T> const &, int row) override
    {
        m_rows.push_back(row);
        if (m_failsNext) {
            this->Spoil();
        }
    }
    bool areFreeVariablesDefined() const override { return !m_rows.empty(); }
};

using Terms = std::map<int, double>;

/// The rules of the manager written down with plain maps.
struct Model
{
    bool spoiled = false;
    std::vector<int> freeVertices, fixedVertices;
    std::vector<std::vector<double>> fixedMatrix;
    int equations = 0;
    std::vector<int> storedRows;
    bool failsNext = false;

    static int find(std::vector<int> const & vertices, int vertex)
    {
        auto const found = std::find(vertices.begin(), vertices.end(), vertex);
        return found == vertices.end() ? -1 : int(found - vertices.begin());
    }
    void define(std::vector<int> & vertices, int vertex)
    {
        bool const isClosed = !fixedMatrix.empty() && !storedRows.empty();
        if (isClosed || find(freeVertices, vertex) >= 0 || find(fixedVertices, vertex) >= 0) {
            spoiled = true;
        } else {
            vertices.push_back(vertex);
        }
    }
    void allocate()
    {
        if (fixedMatrix.empty()) {
            if (!fixedVertices.empty()) {
                fixedMatrix.assign(freeVertices.size(), std::vector<double>(fixedVertices.size()));
            }
        } else if (fixedMatrix.size() != freeVertices.size() ||
                   fixedMatrix[0].size() != fixedVertices.size()) {
            spoiled = true;
        }
    }
    void add(Terms const & terms)
    {
        if (spoiled) {
            return;
        }
        allocate();
        std::size_t const row = std::size_t(equations);
        spoiled = spoiled || row >= freeVertices.size();
        int freeTerms = 0;
        for (auto term = terms.begin(); term != terms.end() && !spoiled; ++term) {
            int const fixedIndex = find(fixedVertices, term->first);
            if (find(freeVertices, term->first) >= 0) {
                ++freeTerms;
            } else if (fixedIndex >= 0) {
                fixedMatrix[row][std::size_t(fixedIndex)] = term->second;
            } else {
                spoiled = true;
            }
        }
        spoiled = spoiled || freeTerms == 0;
        if (!spoiled) {
            storedRows.push_back(equations++);
            spoiled = failsNext;
        }
    }
    void imitate(int row)
    {
        if (row != equations) {
            spoiled = true;
            return;
        }
        allocate();
        ++equations;
    }
    void set(int row, int fixedIndex, double value)
    {
        if (row >= 0 && row < int(fixedMatrix.size()) && fixedIndex >= 0 &&
            fixedIndex < int(fixedMatrix[0].size())) {
            fixedMatrix[std::size_t(row)][std::size_t(fixedIndex)] = value;
        } else {
            spoiled = true;
        }
    }
};

template <class T>
class MapInformer : public IVertexPosInformer<T>
{
public:
    T GetVertexPosition(int vertex) const override
    {
        m_asked.push_back(vertex);
        auto const found = m_positions.find(vertex);
        return found == m_positions.end() ? T(vertex) : found->second;
    }
    std::map<int, T> m_positions;
    mutable std::vector<int> m_asked;
};

template <class T>
class ListReceiver : public IEqSysResultReciever<T>
{
public:
    void SetVertexPosition(int vertex, T position) override { m_received.emplace_back(vertex, position); }
    std::vector<std::pair<int, T>> m_received;
};

template <class T>
void expectSame(ListStorage<T> const & storage, Model const & model)
{
    ASSERT_EQ(storage.IsSpoiled(), model.spoiled);
    ASSERT_EQ(storage.GetEquationsNumber(), model.equations);
    ASSERT_EQ(storage.m_rows, model.storedRows);
    ASSERT_EQ(storage.IsCorrectlyDefinedSystem(),
              !model.spoiled && model.equations == int(model.freeVertices.size()));
    int const freeCount = int(model.freeVertices.size());
    int const fixedCount = int(model.fixedVertices.size());
    ASSERT_EQ(storage.GetFreeVariablesNumber(), freeCount);
    ASSERT_EQ(storage.GetFixedVariablesNumber(), fixedCount);
    for (int index = -1; index <= std::max(freeCount, fixedCount); ++index) {
        ASSERT_EQ(storage.GetFreeVertexByIndex(index),
                  index >= 0 && index < freeCount ? model.freeVertices[std::size_t(index)] : -1);
        ASSERT_EQ(storage.GetFixedVertexByIndex(index),
                  index >= 0 && index < fixedCount ? model.fixedVertices[std::size_t(index)] : -1);
    }
    for (int row = -1; row <= freeCount; ++row) {
        for (int column = -1; column <= fixedCount; ++column) {
            bool const isInside = row >= 0 && row < int(model.fixedMatrix.size()) && column >= 0 &&
                                  column < int(model.fixedMatrix[0].size());
            ASSERT_EQ(storage.GetFixedVertCoeff(row, column),
                      isInside ? T(model.fixedMatrix[std::size_t(row)][std::size_t(column)]) : T(0));
        }
    }

    MapInformer<T> informer;
    std::vector<T> rightPart(std::size_t(model.equations), T(99));
    storage.SetSingleRightPart(rightPart.data(), informer);
    ASSERT_EQ(informer.m_asked, model.fixedVertices);
    std::vector<T> solution;
    for (std::size_t row = 0; row < rightPart.size(); ++row) {
        T expected = 0;
        if (row < model.fixedMatrix.size()) {
            for (std::size_t column = 0; column < model.fixedMatrix[row].size(); ++column) {
                expected -= T(model.fixedMatrix[row][column]) * T(model.fixedVertices[column]);
            }
        }
        ASSERT_EQ(rightPart[row], expected);
        solution.push_back(T(row) + T(0.5));
    }
    ListReceiver<T> receiver;
    storage.SetSingleSolution(solution.data(), receiver);
    ASSERT_EQ(receiver.m_received.size(), solution.size());
    for (std::size_t row = 0; row < solution.size(); ++row) {
        ASSERT_EQ(receiver.m_received[row].first, storage.GetFreeVertexByIndex(int(row)));
        ASSERT_EQ(receiver.m_received[row].second, solution[row]);
    }
}

template <class T>
class LinSysVariableManagerTest : public testing::Test
{};

using Scalars = testing::Types<float, double>;
TYPED_TEST_SUITE(LinSysVariableManagerTest, Scalars, );

} // namespace

TEST(VertexNumberingTest, FindsWhatWasAddedWhateverThePattern)
{
    std::mt19937 random(3);
    std::vector<std::vector<int>> patterns(7);
    for (int k = 0; k < 3000; ++k) {
        patterns[0].push_back(k);
        patterns[1].push_back(-k);
        patterns[2].push_back(5 + 3 * k);
        patterns[3].push_back(k * 700000 - 1000000000);
        patterns[4].push_back(k % 2 == 0 ? k : -k);
        patterns[5].push_back(k);
        // Dense, then far away at both ends of the range, then dense again.
        patterns[6].push_back(k == 1000 ? INT_MAX : k == 1001 ? INT_MIN : k);
    }
    std::shuffle(patterns[5].begin(), patterns[5].end(), random);
    for (std::vector<int> const & pattern : patterns) {
        CVertexNumbering numbering;
        std::map<int, int> model;
        for (int vertex : pattern) {
            ASSERT_EQ(numbering.find(vertex), -1);
            model.emplace(vertex, numbering.size());
            numbering.add(vertex);
            int const probe = pattern[random() % pattern.size()];
            for (int near : {probe, probe == INT_MAX ? INT_MIN : probe + 1, probe / 2, vertex}) {
                auto const found = model.find(near);
                ASSERT_EQ(numbering.find(near), found == model.end() ? -1 : found->second);
            }
        }
        for (int index = 0; index < int(pattern.size()); ++index) {
            ASSERT_EQ(numbering.at(index), pattern[std::size_t(index)]);
            ASSERT_EQ(numbering.find(pattern[std::size_t(index)]), index);
        }
        EXPECT_EQ(numbering.at(-1), -1);
        EXPECT_EQ(numbering.at(numbering.size()), -1);
    }
}

TYPED_TEST(LinSysVariableManagerTest, FollowsItsRulesUnderRandomUse)
{
    using T = TypeParam;
    int wellDefined = 0;
    for (unsigned seed = 0; seed < 1500; ++seed) {
        std::mt19937 random(seed);
        ListStorage<T> storage;
        Model model;
        // Rounds of clean building mixed with rounds where anything may come at any time.
        bool const isWild = seed % 3 == 0;
        int const universe = 8;
        for (int step = 0; step < 40; ++step) {
            int const vertex = int(random() % universe);
            auto const action = isWild ? random() % 24 : step < 6 ? random() % 6 : 8 + random() % 9;
            if (action < 4) {
                if (isWild || Model::find(model.freeVertices, vertex) < 0) {
                    storage.DefineFreeVertex(vertex);
                    model.define(model.freeVertices, vertex);
                }
            } else if (action < 8) {
                storage.DefineFixedVertex(vertex);
                model.define(model.fixedVertices, vertex);
            } else if (action < 18) {
                CVertexLinearCombination<T> equation;
                Terms terms;
                unsigned const termsNumber = 1 + unsigned(random() % 5);
                for (unsigned k = 0; k < termsNumber; ++k) {
                    int const termVertex = int(random() % unsigned(universe + (isWild ? 1 : 0)));
                    double const coeff = double(int(random() % 5)) - 2;
                    bool const isKnown = Model::find(model.freeVertices, termVertex) >= 0 ||
                                         Model::find(model.fixedVertices, termVertex) >= 0;
                    if (isKnown || random() % 20 == 0) {
                        equation.AddVertex(termVertex, T(coeff));
                        terms[termVertex] += coeff;
                    }
                }
                model.failsNext = storage.m_failsNext = random() % 40 == 0;
                storage.AddEquation(equation);
                model.add(terms);
            } else if (action < 20) {
                int const row = model.equations + (random() % 8 == 0 ? 1 : 0);
                storage.imitateAddEquation(row);
                model.imitate(row);
            } else if (action < 22) {
                int const row = int(random() % 6) - 1;
                int const fixedIndex = int(random() % 4) - 1;
                if (random() % 2 == 0 || !model.fixedMatrix.empty()) {
                    storage.SetFixedVertCoeff(row, fixedIndex, T(step));
                    model.set(row, fixedIndex, step);
                }
            } else if (action == 22 && random() % 10 == 0) {
                storage.Spoil();
                model.spoiled = true;
            } else if (action == 23) {
                // A copy whose free storage is gone takes vertices again, though its fixed matrix exists.
                ListStorage<T> copy(storage);
                copy.m_rows.clear();
                storage = copy;
                model.storedRows.clear();
            }
            ASSERT_NO_FATAL_FAILURE(expectSame(storage, model)) << "seed " << seed << " step " << step;
            wellDefined += storage.IsCorrectlyDefinedSystem() && model.equations > 2;
        }
    }
    EXPECT_GT(wellDefined, 20); // the walk must not spend its life in the spoiled state
}

TYPED_TEST(LinSysVariableManagerTest, ZeroFixedCoefficientsNeverMeetAPosition)
{
    using T = TypeParam;
    ListStorage<T> storage;
    storage.DefineFreeVertex(1);
    storage.DefineFreeVertex(2);
    storage.DefineFixedVertex(20);
    storage.DefineFixedVertex(10);
    CVertexLinearCombination<T> equation;
    equation.AddVertex(1, 1);
    equation.AddVertex(10, 2);
    equation.AddVertex(20, T(-0.0));
    storage.AddEquation(equation);
    equation.AddVertex(20, 1);
    storage.AddEquation(equation);

    MapInformer<T> informer;
    informer.m_positions = {{20, std::numeric_limits<T>::quiet_NaN()}, {10, T(3)}};
    T rightPart[2];
    storage.SetSingleRightPart(rightPart, informer);
    EXPECT_EQ(informer.m_asked, (std::vector<int>{20, 10}));
    EXPECT_EQ(rightPart[0], T(-6));
    EXPECT_NE(rightPart[1], rightPart[1]);
    EXPECT_TRUE(storage.IsCorrectlyDefinedSystem());
}
