// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/FillOrdering.h>

#include <QZmath/Backend/EliminationTree.h>
#include <QZmath/Backend/MinimumDegree.h>
#include <QZmath/Backend/NestedDissection.h>
#include <QZmath/Backend/Place.h>
#include <QZmath/Backend/RawArray.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

namespace QzBackend
{
namespace
{

constexpr double denseDegreeFactor = 10.0;
constexpr double mergeTriplesAboveNeighbours = 2e6;
constexpr double mergeFoursAboveNeighbours = 6e7;
// Nanoseconds that parts of the work take, by neighbours of rows, and by neighbours and nodes of the graph
// that is dissected, for each cut between it and its parts.
constexpr double adjacencyTime = 22;
constexpr double groupingTime = 26;
constexpr double graphTime = 4;
constexpr double cutTimeOfNeighbour = 60;
constexpr double cutTimeOfNode = 1000;
// The comparison with minimum degree, in terms of the dissection.
constexpr double comparisonShare = 0.15;

int groupSizeFor(double neighbours)
{
    return neighbours > mergeFoursAboveNeighbours ? 4 : neighbours > mergeTriplesAboveNeighbours ? 3 : 1;
}

double dissectionTime(double rows, double neighbours)
{
    double const groupSize = groupSizeFor(neighbours);
    double const cuts = 1 + std::max(0.0, std::log2(rows / groupSize / 400));
    return cuts *
           (cutTimeOfNode * rows / groupSize + cutTimeOfNeighbour * neighbours / std::pow(groupSize, 1.8));
}

double preparationTime(double neighbours)
{
    return neighbours * (adjacencyTime + graphTime + (groupSizeFor(neighbours) > 1 ? groupingTime : 0.0));
}

// Neighbours of each row, without the row itself, in both directions.
struct Adjacency
{
    std::vector<std::int64_t> begin;
    RawArray<int> neighbours;

    int size() const { return int(begin.size()) - 1; }
    std::int64_t degree(int row) const { return begin[std::size_t(row) + 1] - begin[std::size_t(row)]; }
    int const * first(int row) const { return neighbours.data() + begin[std::size_t(row)]; }
    int const * last(int row) const { return neighbours.data() + begin[std::size_t(row) + 1]; }
};

void report(CProgressCounter * progress, double position)
{
    if (progress)
        progress->SetPosFloat(position);
}

Adjacency adjacencyOf(SparsePattern const & pattern, CProgressCounter * progress)
{
    Adjacency result;
    std::size_t const size = std::size_t(pattern.size);
    result.begin.assign(size + 1, 0);
    std::vector<std::int64_t> & begin = result.begin;
    for (int row = 0; row < pattern.size; ++row) {
        if (row % 16 == 0)
            report(progress, 0.0);
        pattern.visitUpper(row, [&](int upper, int other, int) {
            if (upper != other) {
                ++begin[std::size_t(upper) + 1];
                ++begin[std::size_t(other) + 1];
            }
        });
    }
    std::partial_sum(begin.begin(), begin.end(), begin.begin());
    double const neighbours = double(begin[size]);
    double const end =
        neighbours * adjacencyTime / std::max(1.0, expectedOrderingTime(pattern.size, neighbours));
    result.neighbours = touchedArray<int>(at(begin[size]), [&] { report(progress, 0.0); });
    std::vector<std::int64_t> place(begin.begin(), begin.end() - 1);
    for (int row = 0; row < pattern.size; ++row) {
        if (row % 16 == 0)
            report(progress, end * row / pattern.size);
        pattern.visitUpper(row, [&](int upper, int other, int) {
            if (upper != other) {
                result.neighbours[std::size_t(place[std::size_t(upper)]++)] = other;
                result.neighbours[std::size_t(place[std::size_t(other)]++)] = upper;
            }
        });
    }
    return result;
}

// Groups the rows that `selected` marks; the result holds for each group its rows. Groups of one row if
// `groupSize` is 1.
std::vector<std::vector<int>> groupRows(Adjacency const & adjacency, std::vector<char> const & selected,
                                        int groupSize, CProgressCounter * progress, double begin, double end)
{
    int const size = adjacency.size();
    std::vector<std::vector<int>> groups;
    if (groupSize == 1) {
        for (int row = 0; row < size; ++row)
            if (selected[std::size_t(row)])
                groups.push_back({row});
        return groups;
    }
    // Rows of few neighbours first: they are the most local ones and have the least choice of partners.
    std::vector<int> seeds;
    for (int row = 0; row < size; ++row)
        if (selected[std::size_t(row)])
            seeds.push_back(row);
    std::stable_sort(seeds.begin(), seeds.end(),
                     [&](int left, int right) { return adjacency.degree(left) < adjacency.degree(right); });

    std::vector<char> free(selected);
    std::vector<int> neighbourOf(std::size_t(size), -1);
    std::vector<std::pair<double, int>> candidates; // by falling similarity, then by row
    for (std::size_t number = 0; number < seeds.size(); ++number) {
        if (number % 256 == 0)
            report(progress, begin + (end - begin) * double(number) / double(seeds.size()));
        int const seed = seeds[number];
        if (!free[std::size_t(seed)])
            continue;
        free[std::size_t(seed)] = 0;
        neighbourOf[std::size_t(seed)] = seed;
        std::for_each(adjacency.first(seed), adjacency.last(seed),
                      [&](int other) { neighbourOf[std::size_t(other)] = seed; });
        candidates.clear();
        for (int const * other = adjacency.first(seed); other != adjacency.last(seed); ++other) {
            if (!free[std::size_t(*other)] || adjacency.degree(*other) > 2 * adjacency.degree(seed))
                continue;
            std::int64_t const shared =
                std::count_if(adjacency.first(*other), adjacency.last(*other),
                              [&](int third) { return neighbourOf[std::size_t(third)] == seed; });
            std::int64_t const united = adjacency.degree(*other) + adjacency.degree(seed) - shared;
            candidates.emplace_back(-double(shared) / double(united), *other);
        }
        std::size_t const partners = std::min(candidates.size(), std::size_t(groupSize) - 1);
        std::partial_sort(candidates.begin(), candidates.begin() + std::ptrdiff_t(partners),
                          candidates.end());
        std::vector<int> group{seed};
        for (std::size_t partner = 0; partner < partners; ++partner) {
            group.push_back(candidates[partner].second);
            free[std::size_t(candidates[partner].second)] = 0;
        }
        groups.push_back(std::move(group));
    }
    return groups;
}

// False when the graph has more neighbours than 32-bit positions hold.
bool makeGroupGraph(Adjacency const & adjacency, std::vector<std::vector<int>> const & groups, Graph & graph,
                    CProgressCounter * progress, double begin, double end)
{
    std::vector<int> groupOf(std::size_t(adjacency.size()), -1);
    for (std::size_t group = 0; group < groups.size(); ++group)
        for (int const row : groups[group])
            groupOf[std::size_t(row)] = int(group);
    std::vector<int> seenBy(groups.size(), -1);
    for (std::size_t group = 0; group < groups.size(); ++group) {
        if (group % 256 == 0)
            report(progress, begin + (end - begin) * double(group) / double(groups.size()));
        seenBy[group] = int(group);
        for (int const row : groups[group])
            for (int const * other = adjacency.first(row); other != adjacency.last(row); ++other) {
                int const otherGroup = groupOf[std::size_t(*other)];
                if (otherGroup >= 0 && seenBy[std::size_t(otherGroup)] != int(group)) {
                    seenBy[std::size_t(otherGroup)] = int(group);
                    graph.neighbours.push_back(otherGroup);
                }
            }
        if (graph.neighbours.size() > std::size_t(std::numeric_limits<int>::max()))
            return false;
        graph.begin.push_back(int(graph.neighbours.size()));
        graph.weights.push_back(int(groups[group].size()));
    }
    return true;
}

// Number of elements of the Cholesky factor of the graph in this order.
double factorElements(Graph const & graph, std::vector<int> const & order, PositionReport const & report)
{
    std::vector<int> position(order.size()), weights(order.size());
    for (std::size_t k = 0; k < order.size(); ++k) {
        position[std::size_t(order[k])] = int(k);
        weights[k] = graph.weights[std::size_t(order[k])];
    }
    int visited = 0;
    auto const visit = [&](int k, auto const & call) {
        if (visited++ % 4096 == 0)
            report(0.5 * visited / graph.size());
        std::size_t const node = std::size_t(order[std::size_t(k)]);
        for (int place = graph.begin[node]; place < graph.begin[node + 1]; ++place)
            call(position[std::size_t(graph.neighbours[std::size_t(place)])]);
    };
    std::vector<int> const parent =
        eliminationTree(graph.size(), [&](int k, auto const & call) { visit(k, call); });
    std::vector<int> const treeOrder = postorder(parent, std::vector<int>(parent.size(), 0));
    std::vector<int> const counts =
        ColumnCounter(parent, treeOrder, &weights).count([&](int k, auto const & call) {
            visit(k, [&](int other) {
                if (other > k)
                    call(other);
            });
        });
    double elements = 0;
    for (std::size_t k = 0; k < order.size(); ++k)
        elements += weights[k] * (counts[k] - (weights[k] - 1) / 2.0);
    return elements;
}

} // namespace

double expectedOrderingTime(int rows, double neighbours)
{
    return preparationTime(neighbours) + (1 + comparisonShare) * dissectionTime(rows, neighbours);
}

std::vector<int> fillReducingOrder(SparsePattern const & pattern, CProgressCounter * progress,
                                   double dissectionSaves)
{
    int const size = pattern.size;
    Adjacency const adjacency = adjacencyOf(pattern, progress);
    double const neighbours = double(adjacency.neighbours.size());
    double const denseDegree = denseDegreeFactor * neighbours / std::max(size, 1);
    std::vector<char> selected(std::size_t(size), 1);
    std::vector<int> dense;
    for (int row = 0; row < size; ++row)
        if (double(adjacency.degree(row)) > denseDegree) {
            selected[std::size_t(row)] = 0;
            dense.push_back(row);
        }
    std::stable_sort(dense.begin(), dense.end(),
                     [&](int left, int right) { return adjacency.degree(left) < adjacency.degree(right); });

    int const groupSize = groupSizeFor(neighbours);
    double const allTime = std::max(1.0, expectedOrderingTime(size, neighbours));
    double const grouping = neighbours * adjacencyTime / allTime;
    double const dissection = preparationTime(neighbours) / allTime;
    double const making = dissection - neighbours * graphTime / allTime;
    double const comparison = dissection + dissectionTime(size, neighbours) / allTime;
    std::vector<std::vector<int>> const groups =
        groupRows(adjacency, selected, groupSize, progress, grouping, making);
    std::vector<int> groupOrder;
    Graph graph;
    if (!makeGroupGraph(adjacency, groups, graph, progress, making, dissection) || graph.neighbours.empty()) {
        groupOrder.resize(groups.size());
        std::iota(groupOrder.begin(), groupOrder.end(), 0);
    } else {
        auto const within = [&](double begin, double end) {
            return [=](double position) { report(progress, begin + (end - begin) * position); };
        };
        auto const orderPart = [](Graph const & part, PositionReport const & reportPart) {
            return minimumDegree(part, reportPart);
        };
        // The comparison takes a tenth of the time or so, the dissection the rest.
        double const middle = dissection + (1.0 - dissection) * comparisonShare / (1.0 + comparisonShare);
        double limit = std::numeric_limits<double>::infinity(), degreeWork = 0;
        std::vector<int> degreeOrder;
        bool const isSoon = std::isfinite(dissectionSaves);
        if (isSoon)
            degreeOrder = minimumDegree(graph, within(dissection, middle), limit, &degreeWork);
        if (isSoon && dissectionSaves * degreeWork < dissectionTime(size, neighbours)) {
            groupOrder = std::move(degreeOrder);
        } else {
            double const begin = isSoon ? middle : dissection, end = isSoon ? 1.0 : comparison;
            groupOrder = nestedDissection(graph, orderPart, within(begin, begin + 0.98 * (end - begin)));
            limit = factorElements(graph, groupOrder, within(begin + 0.98 * (end - begin), end));
            if (!isSoon) // gives up when it makes more fill
                degreeOrder = minimumDegree(graph, within(end, 1.0), limit);
            else if (factorElements(graph, degreeOrder, within(1.0, 1.0)) >= limit)
                degreeOrder.clear();
            if (!degreeOrder.empty())
                groupOrder = std::move(degreeOrder);
        }
    }
    std::vector<int> order;
    order.reserve(std::size_t(size));
    for (int const group : groupOrder)
        order.insert(order.end(), groups[std::size_t(group)].begin(), groups[std::size_t(group)].end());
    order.insert(order.end(), dense.begin(), dense.end());
    report(progress, 1.0);
    return order;
}

} // namespace QzBackend
