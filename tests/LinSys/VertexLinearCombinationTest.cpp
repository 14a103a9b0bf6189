// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinearSystem.h>

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <utility>
#include <vector>

using namespace REmath;

namespace
{

using T = double;

std::vector<std::pair<int, T>> terms(CVertexLinearCombination<T> const & combination)
{
    std::vector<std::pair<int, T>> found;
    for (CVertexMonom<T> const & term : combination)
        found.emplace_back(term.GetVertexIdx(), term.GetCoeff());
    return found;
}

} // namespace

TEST(VertexLinearCombinationTest, BehavesAsAnOrderedMapThatAccumulates)
{
    using Combination = CVertexLinearCombination<T>;
    using Terms = std::vector<std::pair<int, T>>;
    std::mt19937 random(1);
    for (int round = 0; round < 1000; ++round) {
        Combination combination, other;
        std::map<int, T> model, otherModel;
        for (int step = 0; step < 8; ++step) { // few, so that the coefficients stay exact
            int const vertex = int(random() % 20) - 10;
            T const coeff = T(int(random() % 9) - 4);
            switch (random() % 5) {
            case 0:
                combination *= coeff;
                for (auto & term : model)
                    term.second *= coeff;
                break;
            case 1: {
                bool const isSelf = random() % 2 == 0;
                combination += isSelf ? combination : other;
                for (auto const & [added, amount] : isSelf ? std::map<int, T>(model) : otherModel)
                    model[added] += amount;
                break;
            }
            case 2:
                other = Combination(combination); // must not see what comes next
                otherModel = model;
                break;
            default:
                combination.AddVertex(vertex, coeff);
                model[vertex] += coeff;
            }
            ASSERT_EQ(terms(combination), (Terms(model.begin(), model.end())));
            ASSERT_EQ(terms(other), (Terms(otherModel.begin(), otherModel.end())));
            ASSERT_EQ(combination.VertexCoeff(vertex), model.count(vertex) ? model[vertex] : T(0));
        }
    }
}

TEST(VertexLinearCombinationTest, IteratorsKeepTheirTermAndCompareByPlace)
{
    using Iterator = CLinearCombIterator<T>;
    CVertexLinearCombination<T> combination;
    EXPECT_EQ(combination.begin(), combination.end());
    combination.AddVertex(7, 0);
    combination.AddVertex(-3, 2);

    Iterator first = combination.begin();
    Iterator const former = first++;
    // A term that comes in between is met, a changed coefficient is seen by the next one to arrive only.
    combination.AddVertex(-3, 5);
    combination.AddVertex(0, 1);
    EXPECT_EQ(former->GetCoeff(), 2);
    EXPECT_EQ(former, combination.begin());
    EXPECT_EQ(combination.begin()->GetCoeff(), 7);
    Iterator walker = former;
    EXPECT_EQ((++walker)->GetVertexIdx(), 0);
    EXPECT_EQ(++walker, first);
    EXPECT_EQ(++walker, combination.end());
    EXPECT_EQ(++walker, combination.end());
    CVertexLinearCombination<T> const copy(combination);
    EXPECT_NE(copy.begin(), combination.begin());
}

TEST(VertexLinearCombinationTest, EvaluationAsksForVerticesWithACoefficientOnly)
{
    struct Informer : IVertexPosInformer<T>
    {
        T GetVertexPosition(int vertex) const override
        {
            asked.push_back(vertex);
            return T(vertex) / 4;
        }
        mutable std::vector<int> asked;
    } const informer;
    CVertexLinearCombination<T> combination;
    EXPECT_EQ(EvaluateLinCombination<T>(combination, informer), T(0));
    combination.AddVertex(8, 3);
    combination.AddVertex(5, T(-0.0));
    combination.AddVertex(-4, 2);
    combination.AddVertex(6, std::numeric_limits<T>::denorm_min());
    EXPECT_EQ(EvaluateLinCombination<T>(combination, informer), T(4));
    EXPECT_EQ(informer.asked, (std::vector<int>{-4, 6, 8}));
}
