// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysVariableManager.h>

#include <gtest/gtest.h>
#include <support/SolverSystems.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <random>
#include <utility>
#include <vector>

using namespace REmath;

namespace
{

using T = float;

// The smallest storage: keeps the free terms of every equation as they came.
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
        if (m_failsNext)
            Spoil();
    }
    bool areFreeVariablesDefined() const override { return !m_rows.empty(); }
};

CVertexLinearCombination<T> equationOf(std::initializer_list<std::pair<int, T>> const & terms)
{
    CVertexLinearCombination<T> equation;
    for (auto const & [vertex, coeff] : terms)
        equation.AddVertex(vertex, coeff);
    return equation;
}

} // namespace

TEST(VertexNumberingTest, FindsWhatWasAddedWhateverThePattern)
{
    std::mt19937 random(3);
    std::vector<std::vector<int>> patterns(7);
    for (int k = 0; k < 3000; ++k) {
        // The last one is dense, then far away at both ends of the range, then dense again.
        int const vertices[] = {k,
                                -k,
                                5 + 3 * k,
                                k * 700000 - 1000000000,
                                k % 2 == 0 ? k : -k,
                                k,
                                k == 1000   ? INT_MAX
                                : k == 1001 ? INT_MIN
                                            : k};
        for (std::size_t p = 0; p < patterns.size(); ++p)
            patterns[p].push_back(vertices[p]);
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
        for (int index = 0; index < int(pattern.size()); ++index)
            ASSERT_EQ(numbering.at(index), pattern[std::size_t(index)]);
        EXPECT_EQ(numbering.at(-1), -1);
        EXPECT_EQ(numbering.at(numbering.size()), -1);
    }
}

TEST(LinSysVariableManagerTest, MisuseSpoilsAndNothingElseDoes)
{
    using Storage = ListStorage;
    struct Case
    {
        char const * what;
        std::function<void(Storage &)> use;
        bool isSpoiled;
        int equations;
    };
    auto const first = equationOf({{1, 3}, {10, 4}}), second = equationOf({{1, 0}, {20, 5}});
    auto const whole = [&](Storage & storage) {
        storage.AddEquation(first);
        storage.AddEquation(second); // a free term of zero is enough
    };
    auto const setting = [&](int row, int fixedIndex) {
        return [&first, row, fixedIndex](Storage & storage) {
            storage.AddEquation(first);
            storage.SetFixedVertCoeff(row, fixedIndex, T(1));
        };
    };
    auto const adding = [](CVertexLinearCombination<T> const & equation) {
        return [equation](Storage & storage) { storage.AddEquation(equation); };
    };
    Case const cases[] = {
        {"nothing", [](Storage &) {}, false, 0},
        {"complete", whole, false, 2},
        {"one too many", [&](Storage & s) { whole(s), s.AddEquation(first); }, true, 2},
        {"free again", [](Storage & s) { s.DefineFreeVertex(2); }, true, 0},
        {"fixed as free", [](Storage & s) { s.DefineFreeVertex(10); }, true, 0},
        {"free as fixed", [](Storage & s) { s.DefineFixedVertex(2); }, true, 0},
        {"fixed again", [](Storage & s) { s.DefineFixedVertex(20); }, true, 0},
        {"free too late", [&](Storage & s) { s.AddEquation(first), s.DefineFreeVertex(3); }, true, 1},
        {"fixed too late", [&](Storage & s) { s.AddEquation(first), s.DefineFixedVertex(3); }, true, 1},
        {"unknown vertex", adding(equationOf({{1, 1}, {5, 1}})), true, 0},
        {"no free vertex", adding(equationOf({{10, 1}})), true, 0},
        {"no vertex", adding({}), true, 0},
        {"coefficient set", setting(1, 1), false, 1},
        {"row below", setting(-1, 0), true, 1},
        {"row above", setting(2, 0), true, 1},
        {"column below", setting(0, -1), true, 1},
        {"column above", setting(0, 2), true, 1},
        {"set too early", [](Storage & s) { s.SetFixedVertCoeff(0, 0, T(1)); }, true, 0},
        {"imitated", [](Storage & s) { s.imitateAddEquation(0), s.imitateAddEquation(1); }, false, 2},
        {"imitated out of turn", [](Storage & s) { s.imitateAddEquation(1); }, true, 0},
        {"fixed after an imitated one",
         [&](Storage & s) { s.imitateAddEquation(0), s.DefineFixedVertex(30), s.AddEquation(first); }, true,
         1},
        {"the storage fails", [&](Storage & s) { s.m_failsNext = true, s.AddEquation(first); }, true, 1},
        {"spoiled before", [&](Storage & s) { s.Spoil(), s.AddEquation(first); }, true, 0},
    };
    for (Case const & one : cases) {
        SCOPED_TRACE(one.what);
        Storage storage;
        for (int vertex : {1, 2})
            storage.DefineFreeVertex(vertex);
        for (int vertex : {20, 10})
            storage.DefineFixedVertex(vertex);
        one.use(storage);
        Storage copy(storage);
        for (Storage * either : {&storage, &copy}) {
            EXPECT_EQ(either->IsSpoiled(), one.isSpoiled);
            EXPECT_EQ(either->GetEquationsNumber(), one.equations);
            EXPECT_EQ(either->IsCorrectlyDefinedSystem(), !one.isSpoiled && one.equations == 2);
        }
    }

    Storage storage;
    storage.DefineFreeVertex(2);
    storage.DefineFreeVertex(1);
    storage.DefineFixedVertex(20);
    storage.DefineFixedVertex(10);
    whole(storage);
    for (int outside : {-1, 2}) {
        EXPECT_EQ(storage.GetFreeVertexByIndex(outside) + storage.GetFixedVertexByIndex(outside), -2);
        EXPECT_EQ(storage.GetFixedVertCoeff(outside, 0), T(0));
        EXPECT_EQ(storage.GetFixedVertCoeff(0, outside), T(0));
    }
    EXPECT_EQ(storage.GetFixedVertexByIndex(1), 10);
    EXPECT_EQ(storage.GetFixedVertCoeff(0, 1), T(4));
    T const solution[2] = {T(7), T(8)};
    testSupport::PositionMap<T> receiver;
    storage.SetSingleSolution(solution, receiver);
    EXPECT_EQ(receiver.m_positions, (std::map<int, T>{{2, T(7)}, {1, T(8)}}));
}

// Not even an unusable position harms where the coefficient is zero.
TEST(LinSysVariableManagerTest, ZeroFixedCoefficientsNeverMeetAPosition)
{
    ListStorage storage;
    storage.DefineFreeVertex(1);
    storage.DefineFreeVertex(2);
    storage.DefineFixedVertex(20);
    storage.DefineFixedVertex(10);
    for (T const coeff : {T(-0.0), T(1)})
        storage.AddEquation(equationOf({{1, 1}, {10, 2}, {20, coeff}}));
    struct Informer : IVertexPosInformer<T>
    {
        T GetVertexPosition(int vertex) const override
        {
            return vertex == 20 ? std::numeric_limits<T>::quiet_NaN() : T(3);
        }
    } const informer;
    T rightPart[2];
    storage.SetSingleRightPart(rightPart, informer);
    EXPECT_EQ(rightPart[0], T(-6));
    EXPECT_NE(rightPart[1], rightPart[1]);
}
