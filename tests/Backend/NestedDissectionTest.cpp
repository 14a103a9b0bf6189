// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/MinimumDegree.h>
#include <QZmath/Backend/NestedDissection.h>
#include <QZmath/Backend/Place.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include "support/SparseSystems.h"

namespace
{

using namespace QzBackend;

Graph graphOf(testSupport::CompressedMatrix const & matrix)
{
    std::vector<std::vector<int>> neighbours(at(matrix.size));
    for (int row = 0; row < matrix.size; ++row)
        for (int place = matrix.rowIndex[at(row)]; place < matrix.rowIndex[at(row) + 1]; ++place)
            if (int const column = matrix.columns[at(place)]; column > row) {
                neighbours[at(row)].push_back(column);
                neighbours[at(column)].push_back(row);
            }
    Graph graph;
    for (std::vector<int> const & others : neighbours) {
        graph.neighbours.insert(graph.neighbours.end(), others.begin(), others.end());
        graph.begin.push_back(int(graph.neighbours.size()));
        graph.weights.push_back(1);
    }
    return graph;
}

void ignore(double) {}

// Weights of the two parts and the separator; fails when an edge joins the parts.
std::vector<int> checkedWeights(Graph const & graph, std::vector<signed char> const & side)
{
    std::vector<int> weights(3, 0);
    for (int node = 0; node < graph.size(); ++node) {
        weights[at(side[at(node)])] += graph.weights[at(node)];
        for (int const * other = graph.first(node); other != graph.last(node); ++other)
            EXPECT_NE(side[at(node)] + side[at(*other)], 1);
    }
    return weights;
}

TEST(NestedDissection, SeparatorsOfGridsAreTheirPlanes)
{
    for (int const side : {9, 14, 20}) {
        Graph const graph = graphOf(testSupport::gridOperator(side, 1, 0.1, 0));
        std::vector<int> const weights = checkedWeights(graph, separate(graph, ignore));
        EXPECT_LE(weights[2], side * side * 5 / 4) << side;
        EXPECT_LE(std::max(weights[0], weights[1]), graph.size() * 3 / 5 + 1) << side;
    }
}

TEST(NestedDissection, AnyGraphIsSeparatedAndOrderedOnce)
{
    std::mt19937 random(51);
    for (int round = 0; round < 60; ++round) {
        int const size = 1 + int(random() % 900);
        testSupport::CompressedMatrix matrix;
        matrix.size = size;
        matrix.rowIndex.push_back(0);
        for (int row = 0; row < size; ++row) {
            // Stars, chains, pieces without an edge, and nodes that all are neighbours.
            for (int column = row + 1; column < size; ++column)
                if ((round % 4 == 0 && row < 3) || (round % 4 == 1 && column == row + 1 && row % 97) ||
                    (round % 4 == 2 && random() % 400 == 0) || (round % 4 == 3 && size < 260 && row > 20))
                    matrix.columns.push_back(column);
            matrix.rowIndex.push_back(int(matrix.columns.size()));
        }
        Graph graph = graphOf(matrix);
        for (int & weight : graph.weights)
            weight = 1 + int(random() % 5);
        checkedWeights(graph, separate(graph, ignore));
        double last = 0;
        std::vector<int> const order = nestedDissection(
            graph,
            [](Graph const & part, PositionReport const &) {
                std::vector<int> nodes(at(part.size()));
                std::iota(nodes.rbegin(), nodes.rend(), 0);
                return nodes;
            },
            [&](double position) {
                EXPECT_GE(position, last);
                EXPECT_LE(position, 1.0);
                last = position;
            });
        std::vector<int> sorted(order), identity(at(size));
        std::sort(sorted.begin(), sorted.end());
        std::iota(identity.begin(), identity.end(), 0);
        ASSERT_EQ(sorted, identity) << round;
    }
}

// Gives the number of elements of the factor too, by elimination of one node after the other.
double eliminatedElements(Graph const & graph, std::vector<int> const & order)
{
    std::vector<int> position(order.size());
    for (std::size_t k = 0; k < order.size(); ++k)
        position[at(order[k])] = int(k);
    std::vector<std::set<int>> later(order.size());
    double elements = 0;
    for (int node = 0; node < graph.size(); ++node)
        for (int const * other = graph.first(node); other != graph.last(node); ++other)
            if (position[at(*other)] > position[at(node)])
                later[at(position[at(node)])].insert(position[at(*other)]);
    for (std::size_t k = 0; k < order.size(); ++k) {
        double const weight = graph.weights[at(order[k])];
        elements += weight * (weight + 1) / 2;
        for (int const other : later[k])
            elements += weight * graph.weights[at(order[at(other)])];
        if (later[k].size() > 1)
            later[at(*later[k].begin())].insert(std::next(later[k].begin()), later[k].end());
    }
    return elements;
}

// Each time a node whose elimination joins the least weight, with degrees counted anew.
double elementsOfExactDegrees(Graph const & graph)
{
    std::vector<std::set<int>> neighbours(at(graph.size()));
    for (int node = 0; node < graph.size(); ++node)
        neighbours[at(node)].insert(graph.first(node), graph.last(node));
    std::vector<int> order, left(at(graph.size()));
    std::iota(left.begin(), left.end(), 0);
    auto const degree = [&](int node) {
        return std::accumulate(neighbours[at(node)].begin(), neighbours[at(node)].end(), 0,
                               [&](int sum, int other) { return sum + graph.weights[at(other)]; });
    };
    while (!left.empty()) {
        auto const next = std::min_element(left.begin(), left.end(),
                                           [&](int one, int other) { return degree(one) < degree(other); });
        int const node = *next;
        left.erase(next);
        order.push_back(node);
        for (int const other : neighbours[at(node)]) {
            neighbours[at(other)].insert(neighbours[at(node)].begin(), neighbours[at(node)].end());
            neighbours[at(other)].erase(node);
            neighbours[at(other)].erase(other);
        }
    }
    return eliminatedElements(graph, order);
}

TEST(MinimumDegree, MakesAsLittleFillAsExactDegrees)
{
    std::mt19937 random(52);
    double found = 0, exact = 0;
    for (int round = 0; round < 40; ++round) {
        int const size = 1 + int(random() % 120);
        testSupport::CompressedMatrix matrix;
        matrix.size = size;
        matrix.rowIndex.push_back(0);
        for (int row = 0; row < size; ++row) {
            // Trees, bands with gaps, few random edges, and many.
            int const rarity = round % 4 == 2 ? size / 2 + 1 : 6;
            for (int column = row + 1; column < size; ++column)
                if ((round % 4 == 0 && column / 2 == row) ||
                    (round % 4 == 1 && column - row < 6 && random() % 3) ||
                    (round % 4 >= 2 && int(random()) % rarity == 0))
                    matrix.columns.push_back(column);
            matrix.rowIndex.push_back(int(matrix.columns.size()));
        }
        Graph graph = graphOf(matrix);
        for (int & weight : graph.weights)
            weight = round % 3 ? 1 : 1 + int(random() % 4);
        std::vector<int> const order = minimumDegree(graph, ignore);
        std::vector<int> sorted(order), identity(at(size));
        std::sort(sorted.begin(), sorted.end());
        std::iota(identity.begin(), identity.end(), 0);
        ASSERT_EQ(sorted, identity) << round;
        double const elements = eliminatedElements(graph, order);
        if (round % 4 == 0 && round % 3) {
            EXPECT_EQ(elements, size + double(graph.neighbours.size()) / 2); // a tree fills nothing in
        }
        // What it knows of that is a bound, and close.
        EXPECT_EQ(minimumDegree(graph, ignore, 1.2 * elements), order) << round;
        EXPECT_TRUE(minimumDegree(graph, ignore, elements - 1).empty()) << round;
        found += elements;
        exact += elementsOfExactDegrees(graph);
    }
    EXPECT_LT(found, 1.02 * exact);
}

TEST(MinimumDegree, LargeGraphsAreReportedAndGivenUp)
{
    Graph const graph = graphOf(testSupport::gridOperator(24, 1, 0.1, 0));
    double last = 0;
    int reports = 0;
    std::vector<int> const order = minimumDegree(graph, [&](double position) {
        EXPECT_TRUE(position >= last && position <= 1);
        last = position;
        ++reports;
    });
    EXPECT_GT(reports, 5);
    EXPECT_EQ(order.size(), at(graph.size()));
    struct Enough
    {};
    EXPECT_THROW(minimumDegree(graph, [](double) { throw Enough(); }), Enough);
}

} // namespace
