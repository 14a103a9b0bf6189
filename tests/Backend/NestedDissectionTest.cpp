// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/NestedDissection.h>
#include <QZmath/Backend/Place.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
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
            [](Graph const & part) {
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

} // namespace
