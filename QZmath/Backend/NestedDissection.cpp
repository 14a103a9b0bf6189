// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/NestedDissection.h>

#include <QZmath/Backend/Place.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <utility>

namespace QzBackend
{
namespace
{

// Parts of fewer nodes are not cut.
constexpr int partNodes = 400;
// The graph is cut first where it has about so many nodes.
constexpr int coarsestNodes = 100;
// A step of coarsening that leaves more nodes than this share was not worth it.
constexpr double coarseningShare = 0.9;
// Larger graphs are coarsened once to this share of their nodes, or this many, and cut from there in several
// ways.
constexpr int sharedFraction = 12;
constexpr int leastSharedNodes = 1000;
constexpr int waysFromShared = 4;
constexpr int seedsOfSeparator = 3;
constexpr int mostPasses = 10;
constexpr int mostBisectionPasses = 4;
// Neither part may have more than this share of the weight.
constexpr double largestPart = 0.6;
// What an uneven cut costs: this times the separator's weight and the difference's share of the total.
constexpr double evennessOfMoves = 0.02;
constexpr double evennessOfChoice = 0.3;
// Separators are not improved further after so many steps without success.
constexpr int mostFutileMoves = 300;
constexpr double edgesBetweenReports = 2e5;
// Looks at each edge for a cut, about.
constexpr double edgesPerCut = 6;

// xorshift, after Marsaglia: good enough to break ties, and the same everywhere.
class Random
{
public:
    explicit Random(std::uint64_t seed) : m_state(seed * 2654435769u + 88172645463325252u) {}
    int below(int limit)
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return static_cast<int>((m_state >> 33) % static_cast<std::uint64_t>(limit));
    }
    void shuffle(std::vector<int> & numbers)
    {
        for (int last = static_cast<int>(numbers.size()) - 1; last > 0; --last)
            std::swap(numbers[at(last)], numbers[at(below(last + 1))]);
    }

private:
    std::uint64_t m_state;
};

// Turns edges looked at into positions.
class Watch
{
public:
    explicit Watch(PositionReport const & report) : m_report(report) {}
    // What follows leads from one position to another and looks at about so many edges.
    void setRange(double from, double to, double edges)
    {
        m_from = from;
        m_to = to;
        m_expected = edges;
        m_seen = 0;
    }
    void add(double edges)
    {
        m_seen += edges;
        m_sinceReport += edges;
        if (m_sinceReport >= edgesBetweenReports) {
            m_sinceReport = 0;
            m_report(m_from + (m_to - m_from) * std::min(1.0, m_seen / m_expected));
        }
    }

private:
    PositionReport const & m_report;
    double m_from = 0, m_to = 1, m_expected = 1, m_seen = 0, m_sinceReport = 0;
};

// With edges that stand for several.
struct WeightedGraph : Graph
{
    std::vector<int> edgeWeights;
    int totalWeight = 0;
};

struct Level
{
    WeightedGraph graph;
    std::vector<int> coarseOf; // node of the next level
};

// Nodes by key, the greatest on top, that can be removed and moved; the older one first where keys are
// equal.
class NodeQueue
{
public:
    explicit NodeQueue(std::size_t nodes) : m_place(nodes, -1) {}
    bool empty() const { return m_heap.empty(); }
    int top() const { return m_heap.front().node; }
    int topKey() const { return m_heap.front().key; }
    bool contains(int node) const { return m_place[at(node)] >= 0; }
    void clear()
    {
        for (Entry const & entry : m_heap)
            m_place[at(entry.node)] = -1;
        m_heap.clear();
        m_inserted = 0;
    }
    void insert(int node, int key)
    {
        m_heap.push_back({key, m_inserted++, node});
        rise(static_cast<int>(m_heap.size()) - 1);
    }
    void change(int node, int key)
    {
        int const place = m_place[at(node)];
        int const former = std::exchange(m_heap[at(place)].key, key);
        if (key > former)
            rise(place);
        else
            sink(place);
    }
    void remove(int node)
    {
        int const place = std::exchange(m_place[at(node)], -1);
        Entry const last = m_heap.back();
        m_heap.pop_back();
        if (last.node == node)
            return;
        m_heap[at(place)] = last;
        m_place[at(last.node)] = place;
        rise(place);
        sink(m_place[at(last.node)]);
    }

private:
    struct Entry
    {
        int key, number, node;
        bool operator<(Entry const & other) const
        {
            return key != other.key ? key < other.key : number < other.number;
        }
    };
    void rise(int place)
    {
        Entry const entry = m_heap[at(place)];
        for (; place > 0 && m_heap[at((place - 1) / 2)] < entry; place = (place - 1) / 2)
            put(place, m_heap[at((place - 1) / 2)]);
        put(place, entry);
    }
    void sink(int place)
    {
        Entry const entry = m_heap[at(place)];
        int const size = static_cast<int>(m_heap.size());
        for (int child = 2 * place + 1; child < size; child = 2 * place + 1) {
            if (child + 1 < size && m_heap[at(child)] < m_heap[at(child + 1)])
                ++child;
            if (!(entry < m_heap[at(child)]))
                break;
            put(place, m_heap[at(child)]);
            place = child;
        }
        put(place, entry);
    }
    void put(int place, Entry const & entry)
    {
        m_heap[at(place)] = entry;
        m_place[at(entry.node)] = place;
    }

    std::vector<Entry> m_heap;
    std::vector<int> m_place;
    int m_inserted = 0;
};

// Pairs of nodes for the next level, by the edge of the greatest weight; -1 stands for none in `mate`, which
// is the node itself then.
std::vector<int> match(WeightedGraph const & graph, int largestWeight, Random & random, Watch & watch)
{
    int const size = graph.size();
    std::vector<int> order(at(size)), mate(at(size), -1);
    {
        // By rising degree, with nodes of equal degree mixed: those of few neighbours have the least choice.
        std::vector<int> mixed(at(size));
        std::iota(mixed.begin(), mixed.end(), 0);
        random.shuffle(mixed);
        int const highest = static_cast<int>(0.7 * double(graph.neighbours.size()) / size) + 1;
        auto const degree = [&](int node) {
            return std::min(highest, static_cast<int>(graph.last(node) - graph.first(node)));
        };
        std::vector<int> place(at(highest) + 2, 0);
        for (int const node : mixed)
            ++place[at(degree(node)) + 1];
        std::partial_sum(place.begin(), place.end(), place.begin());
        for (int const node : mixed)
            order[at(place[at(degree(node))]++)] = node;
    }
    int alone = 0;
    for (int const node : order) {
        if (mate[at(node)] >= 0)
            continue;
        int best = -1, bestWeight = 0;
        for (int place = graph.begin[at(node)]; place < graph.begin[at(node) + 1]; ++place) {
            int const other = graph.neighbours[at(place)];
            if (graph.edgeWeights[at(place)] > bestWeight && mate[at(other)] < 0 &&
                graph.weights[at(node)] + graph.weights[at(other)] <= largestWeight) {
                best = other;
                bestWeight = graph.edgeWeights[at(place)];
            }
        }
        watch.add(double(graph.last(node) - graph.first(node)));
        if (best < 0) {
            ++alone;
            continue;
        }
        mate[at(node)] = best;
        mate[at(best)] = node;
    }
    // Around nodes of many neighbours, most of these are left over: they are matched with each other.
    if (alone > size / 10)
        for (int const hub : order) {
            int waiting = -1;
            for (int const * other = graph.first(hub); other != graph.last(hub); ++other) {
                if (mate[at(*other)] >= 0)
                    continue;
                if (waiting < 0) {
                    waiting = *other;
                } else if (graph.weights[at(waiting)] + graph.weights[at(*other)] <= largestWeight) {
                    mate[at(waiting)] = *other;
                    mate[at(*other)] = waiting;
                    waiting = -1;
                }
            }
            watch.add(double(graph.last(hub) - graph.first(hub)));
        }
    for (int node = 0; node < size; ++node)
        if (mate[at(node)] < 0)
            mate[at(node)] = node;
    return mate;
}

WeightedGraph contract(WeightedGraph const & graph, std::vector<int> const & mate,
                       std::vector<int> & coarseOf, Watch & watch)
{
    int const size = graph.size();
    coarseOf.assign(at(size), -1);
    int coarseSize = 0;
    for (int node = 0; node < size; ++node)
        if (node <= mate[at(node)])
            coarseOf[at(node)] = coarseOf[at(mate[at(node)])] = coarseSize++;
    WeightedGraph coarse;
    coarse.totalWeight = graph.totalWeight;
    coarse.begin.reserve(at(coarseSize) + 1);
    coarse.weights.reserve(at(coarseSize));
    coarse.neighbours.reserve(graph.neighbours.size() / 2);
    coarse.edgeWeights.reserve(graph.neighbours.size() / 2);
    std::vector<int> placeOf(at(coarseSize), -1);
    for (int node = 0; node < size; ++node) {
        int const partner = mate[at(node)];
        if (node > partner)
            continue;
        int const own = coarseOf[at(node)];
        std::size_t const begin = coarse.neighbours.size();
        auto const take = [&](int member) {
            for (int place = graph.begin[at(member)]; place < graph.begin[at(member) + 1]; ++place) {
                int const other = coarseOf[at(graph.neighbours[at(place)])];
                if (other == own)
                    continue;
                int & known = placeOf[at(other)];
                if (known < static_cast<int>(begin)) {
                    known = static_cast<int>(coarse.neighbours.size());
                    coarse.neighbours.push_back(other);
                    coarse.edgeWeights.push_back(graph.edgeWeights[at(place)]);
                } else {
                    coarse.edgeWeights[at(known)] += graph.edgeWeights[at(place)];
                }
            }
            watch.add(double(graph.last(member) - graph.first(member)));
        };
        take(node);
        if (partner != node)
            take(partner);
        coarse.begin.push_back(static_cast<int>(coarse.neighbours.size()));
        coarse.weights.push_back(graph.weights[at(node)] +
                                 (partner != node ? graph.weights[at(partner)] : 0));
    }
    return coarse;
}

// A separator of a graph in the making.
class Separator
{
public:
    Separator(WeightedGraph const & graph, Watch & watch)
        : m_graph(graph), m_watch(watch), m_side(at(graph.size()), 1), m_weight{0, graph.totalWeight, 0},
          m_largest(static_cast<int>(std::max(largestPart * graph.totalWeight, 1.0))),
          m_beside{std::vector<int>(at(graph.size()), 0), std::vector<int>(at(graph.size()), 0)},
          m_queue{NodeQueue(at(graph.size())), NodeQueue(at(graph.size()))}, m_moved(at(graph.size()), 0)
    {}
    // \param side  that of a coarser graph
    void set(std::vector<signed char> side)
    {
        m_side = std::move(side);
        m_weight[0] = m_weight[1] = m_weight[2] = 0;
        m_members.clear();
        for (int node = 0; node < m_graph.size(); ++node) {
            m_weight[m_side[at(node)]] += m_graph.weights[at(node)];
            if (m_side[at(node)] == 2)
                m_members.push_back(node);
        }
    }
    void improve(Random & random);
    std::vector<signed char> const & side() const { return m_side; }

    // Less is better: the separator's weight, and how far a part is too heavy. Parts that are alike count
    // a little when separators are improved, and more when one of several is chosen.
    double cost(double evenness = evennessOfMoves) const
    {
        int const heavier = std::max(m_weight[0], m_weight[1]);
        return m_weight[2] + (heavier > m_largest ? 2.0 * (heavier - m_largest) : 0.0) +
               evenness * std::abs(m_weight[0] - m_weight[1]) * std::max(m_weight[2], 1) /
                   m_graph.totalWeight;
    }
    double costOfChoice() const { return cost(evennessOfChoice); }

private:
    struct Move
    {
        int node;
        int to;
        std::size_t pulledBegin;
    };
    bool runPass(Random & random, bool toFirst, bool toSecond);
    void countBeside(int node);
    int gain(int node, int to) const { return m_graph.weights[at(node)] - m_beside[1 - to][at(node)]; }
    void enqueue(int node);
    void move(int node, int to);
    void undo(Move const & move, std::size_t pulledEnd);

    WeightedGraph const & m_graph;
    Watch & m_watch;
    std::vector<signed char> m_side;
    int m_weight[3];
    int m_largest;
    std::vector<int> m_beside[2]; // for nodes of the separator: weight of the neighbours in each part
    NodeQueue m_queue[2];
    std::vector<char> m_moved;
    std::vector<Move> m_moves;
    std::vector<int> m_pulled, m_members;
};

void Separator::countBeside(int node)
{
    int beside[3] = {0, 0, 0};
    for (int const * other = m_graph.first(node); other != m_graph.last(node); ++other)
        beside[m_side[at(*other)]] += m_graph.weights[at(*other)];
    m_beside[0][at(node)] = beside[0];
    m_beside[1][at(node)] = beside[1];
    m_watch.add(double(m_graph.last(node) - m_graph.first(node)));
}

void Separator::enqueue(int node)
{
    m_queue[0].insert(node, gain(node, 0));
    m_queue[1].insert(node, gain(node, 1));
}

// Moves a node out of the separator and pulls its neighbours of the other part in.
void Separator::move(int node, int to)
{
    int const from = 1 - to;
    m_moves.push_back({node, to, m_pulled.size()});
    for (NodeQueue & queue : m_queue)
        if (queue.contains(node))
            queue.remove(node);
    m_side[at(node)] = static_cast<signed char>(to);
    int const weight = m_graph.weights[at(node)];
    m_weight[2] -= weight;
    m_weight[to] += weight;
    m_moved[at(node)] = 1;
    for (int const * other = m_graph.first(node); other != m_graph.last(node); ++other) {
        int const neighbour = *other;
        if (m_side[at(neighbour)] == 2) {
            m_beside[to][at(neighbour)] += weight;
            if (m_queue[from].contains(neighbour))
                m_queue[from].change(neighbour, gain(neighbour, from));
        } else if (m_side[at(neighbour)] == from) {
            m_pulled.push_back(neighbour);
            int const pulledWeight = m_graph.weights[at(neighbour)];
            m_side[at(neighbour)] = 2;
            m_weight[from] -= pulledWeight;
            m_weight[2] += pulledWeight;
            int beside[3] = {0, 0, 0};
            for (int const * third = m_graph.first(neighbour); third != m_graph.last(neighbour); ++third) {
                int const side = m_side[at(*third)];
                beside[side] += m_graph.weights[at(*third)];
                if (side == 2) {
                    m_beside[from][at(*third)] -= pulledWeight;
                    if (m_queue[to].contains(*third))
                        m_queue[to].change(*third, gain(*third, to));
                }
            }
            m_watch.add(double(m_graph.last(neighbour) - m_graph.first(neighbour)));
            m_beside[0][at(neighbour)] = beside[0];
            m_beside[1][at(neighbour)] = beside[1];
            if (!m_moved[at(neighbour)])
                enqueue(neighbour);
        }
    }
    m_watch.add(double(m_graph.last(node) - m_graph.first(node)));
}

void Separator::undo(Move const & move, std::size_t pulledEnd)
{
    int const weight = m_graph.weights[at(move.node)];
    m_side[at(move.node)] = 2;
    m_weight[move.to] -= weight;
    m_weight[2] += weight;
    for (std::size_t place = move.pulledBegin; place < pulledEnd; ++place) {
        int const pulled = m_pulled[place];
        m_side[at(pulled)] = static_cast<signed char>(1 - move.to);
        m_weight[2] -= m_graph.weights[at(pulled)];
        m_weight[1 - move.to] += m_graph.weights[at(pulled)];
    }
}

// One round of moves. True if the best state is better than that before.
bool Separator::runPass(Random & random, bool toFirst, bool toSecond)
{
    random.shuffle(m_members);
    for (int const node : m_members) {
        countBeside(node);
        enqueue(node);
    }
    m_moves.clear();
    m_pulled.clear();
    double const before = cost();
    double best = before;
    std::size_t bestMoves = 0;
    std::size_t const futile = at(std::min(2 * static_cast<int>(m_members.size()) + 10, mostFutileMoves));
    while (m_moves.size() <= bestMoves + futile) {
        int to = -1;
        for (int side = 0; side < 2; ++side) {
            if (m_queue[side].empty() || !(side == 0 ? toFirst : toSecond))
                continue;
            int const node = m_queue[side].top();
            // A part that is too heavy may only lose.
            if (m_weight[side] + m_graph.weights[at(node)] > m_largest &&
                m_weight[side] + m_graph.weights[at(node)] > m_weight[1 - side])
                continue;
            if (to < 0 || m_queue[side].topKey() > m_queue[to].topKey() ||
                (m_queue[side].topKey() == m_queue[to].topKey() && m_weight[side] < m_weight[to]))
                to = side;
        }
        if (to < 0)
            break;
        move(m_queue[to].top(), to);
        if (double const now = cost(); now < best) {
            best = now;
            bestMoves = m_moves.size();
        }
    }
    m_queue[0].clear();
    m_queue[1].clear();
    for (Move const & done : m_moves)
        m_moved[at(done.node)] = 0;
    while (m_moves.size() > bestMoves) {
        undo(m_moves.back(), m_pulled.size());
        m_pulled.resize(m_moves.back().pulledBegin);
        m_moves.pop_back();
    }
    m_members.insert(m_members.end(), m_pulled.begin(), m_pulled.end());
    m_members.erase(
        std::remove_if(m_members.begin(), m_members.end(), [&](int node) { return m_side[at(node)] != 2; }),
        m_members.end());
    return best < before;
}

void Separator::improve(Random & random)
{
    // Moves to one side only let the separator wander, over states that are no better, to where it is.
    int futile = 0;
    bool const secondFirst = m_weight[0] > m_weight[1];
    for (int pass = 0; pass < mostPasses && futile < 2; ++pass) {
        bool const second = secondFirst == (pass % 2 == 0);
        futile = runPass(random, !second, second) ? 0 : futile + 1;
    }
}

// Coarser and coarser graphs; `first` is the finest and stands in the first level.
void coarsen(std::vector<Level> & levels, int nodes, Random & random, Watch & watch)
{
    for (;;) {
        WeightedGraph const & graph = levels.back().graph;
        if (graph.size() <= nodes || graph.neighbours.empty())
            return;
        int const largest = std::max(2, static_cast<int>(1.5 * graph.totalWeight / std::max(nodes, 40)));
        std::vector<int> coarseOf;
        WeightedGraph coarse = contract(graph, match(graph, largest, random, watch), coarseOf, watch);
        if (coarse.size() > coarseningShare * graph.size())
            return;
        levels.back().coarseOf = std::move(coarseOf);
        levels.push_back({std::move(coarse), {}});
    }
}

std::vector<signed char> refineThrough(std::vector<Level> const & levels, std::vector<signed char> side,
                                       Random & random, Watch & watch)
{
    for (std::size_t level = levels.size() - 1; level-- > 0;) {
        std::vector<int> const & coarseOf = levels[level].coarseOf;
        std::vector<signed char> finer(coarseOf.size());
        for (std::size_t node = 0; node < finer.size(); ++node)
            finer[node] = side[at(coarseOf[node])];
        Separator separator(levels[level].graph, watch);
        separator.set(std::move(finer));
        separator.improve(random);
        side = separator.side();
    }
    return side;
}

// Two parts of a small graph with few edges between them.
class Bisection
{
public:
    Bisection(WeightedGraph const & graph, Watch & watch)
        : m_graph(graph), m_watch(watch), m_side(at(graph.size()), 1),
          m_gain(at(graph.size()), 0), m_queue{NodeQueue(at(graph.size())), NodeQueue(at(graph.size()))},
          m_largest(static_cast<int>(std::max(largestPart * graph.totalWeight, 1.0)))
    {}
    void grow(int seed);
    void improve();
    // All nodes that have an edge to the other part as a separator.
    std::vector<signed char> boundary() const;

private:
    bool runPass();
    void move(int node);

    WeightedGraph const & m_graph;
    Watch & m_watch;
    std::vector<signed char> m_side;
    std::vector<int> m_gain; // weight of the edges to the other part less that of those within
    NodeQueue m_queue[2];
    int m_weight[2] = {0, 0};
    int m_largest;
};

// From a node, and others if the graph is not connected, part 0 grows until the parts are alike.
void Bisection::grow(int seed)
{
    std::fill(m_side.begin(), m_side.end(), static_cast<signed char>(1));
    m_weight[0] = 0;
    m_weight[1] = m_graph.totalWeight;
    std::vector<int> front{seed};
    std::vector<char> seen(at(m_graph.size()), 0);
    seen[at(seed)] = 1;
    for (std::size_t next = 0; m_weight[0] < m_weight[1]; ++next) {
        if (next == front.size()) // of one component
            front.push_back(static_cast<int>(std::find(seen.begin(), seen.end(), char(0)) - seen.begin()));
        int const node = front[next];
        seen[at(node)] = 1;
        m_side[at(node)] = 0;
        m_weight[0] += m_graph.weights[at(node)];
        m_weight[1] -= m_graph.weights[at(node)];
        for (int const * other = m_graph.first(node); other != m_graph.last(node); ++other)
            if (!std::exchange(seen[at(*other)], char(1)))
                front.push_back(*other);
    }
}

void Bisection::move(int node)
{
    int const from = m_side[at(node)], to = 1 - from;
    m_side[at(node)] = static_cast<signed char>(to);
    m_weight[from] -= m_graph.weights[at(node)];
    m_weight[to] += m_graph.weights[at(node)];
    m_gain[at(node)] = -m_gain[at(node)];
    for (int place = m_graph.begin[at(node)]; place < m_graph.begin[at(node) + 1]; ++place) {
        int const other = m_graph.neighbours[at(place)];
        int const side = m_side[at(other)];
        m_gain[at(other)] += (side == to ? -2 : 2) * m_graph.edgeWeights[at(place)];
        if (m_queue[side].contains(other))
            m_queue[side].change(other, m_gain[at(other)]);
    }
    m_watch.add(double(m_graph.last(node) - m_graph.first(node)));
}

bool Bisection::runPass()
{
    for (int node = 0; node < m_graph.size(); ++node) {
        m_gain[at(node)] = 0;
        for (int place = m_graph.begin[at(node)]; place < m_graph.begin[at(node) + 1]; ++place)
            m_gain[at(node)] += (m_side[at(m_graph.neighbours[at(place)])] == m_side[at(node)] ? -1 : 1) *
                                m_graph.edgeWeights[at(place)];
    }
    for (int node = 0; node < m_graph.size(); ++node)
        m_queue[m_side[at(node)]].insert(node, m_gain[at(node)]);
    std::vector<int> moves;
    long change = 0, best = 0;
    int bestDifference = std::abs(m_weight[0] - m_weight[1]);
    std::size_t bestMoves = 0;
    while (moves.size() <= bestMoves + 50) {
        int from = -1;
        for (int side = 0; side < 2; ++side) {
            if (m_queue[side].empty())
                continue;
            int const weight = m_graph.weights[at(m_queue[side].top())];
            if (m_weight[1 - side] + weight > m_largest && m_weight[1 - side] + weight > m_weight[side])
                continue;
            if (from < 0 || m_queue[side].topKey() > m_queue[from].topKey() ||
                (m_queue[side].topKey() == m_queue[from].topKey() && m_weight[side] > m_weight[from]))
                from = side;
        }
        if (from < 0)
            break;
        int const node = m_queue[from].top();
        m_queue[from].remove(node);
        change -= m_gain[at(node)];
        move(node);
        moves.push_back(node);
        int const difference = std::abs(m_weight[0] - m_weight[1]);
        if (change < best || (change == best && difference < bestDifference)) {
            best = change;
            bestDifference = difference;
            bestMoves = moves.size();
        }
    }
    m_queue[0].clear();
    m_queue[1].clear();
    for (; moves.size() > bestMoves; moves.pop_back())
        move(moves.back());
    return best < 0;
}

void Bisection::improve()
{
    for (int pass = 0; pass < mostBisectionPasses && runPass(); ++pass) {
    }
}

std::vector<signed char> Bisection::boundary() const
{
    std::vector<signed char> result(m_side);
    for (int node = 0; node < m_graph.size(); ++node)
        for (int const * other = m_graph.first(node); other != m_graph.last(node); ++other)
            if (m_side[at(*other)] != m_side[at(node)])
                result[at(node)] = 2;
    return result;
}

std::vector<signed char> separateSmall(WeightedGraph const & graph, Random & random, Watch & watch)
{
    Separator separator(graph, watch);
    Bisection bisection(graph, watch);
    std::vector<signed char> best;
    double bestCost = std::numeric_limits<double>::infinity();
    for (int number = 0; number < seedsOfSeparator; ++number) {
        bisection.grow(random.below(graph.size()));
        bisection.improve();
        separator.set(bisection.boundary());
        separator.improve(random);
        if (separator.costOfChoice() < bestCost) {
            bestCost = separator.costOfChoice();
            best = separator.side();
        }
    }
    return best;
}

double costOf(WeightedGraph const & graph, std::vector<signed char> const & side, Watch & watch)
{
    Separator separator(graph, watch);
    separator.set(side);
    return separator.costOfChoice();
}

// The graph comes back as it was.
std::vector<signed char> separateWatched(Graph & graph, Watch & watch)
{
    std::vector<Level> levels(1);
    WeightedGraph & finest = levels.front().graph;
    finest.edgeWeights.assign(graph.neighbours.size(), 1);
    finest.totalWeight = std::accumulate(graph.weights.begin(), graph.weights.end(), 0);
    Random random(static_cast<std::uint64_t>(graph.size()));
    std::swap(static_cast<Graph &>(finest), graph);

    coarsen(levels, std::max(leastSharedNodes, finest.size() / sharedFraction), random, watch);
    std::vector<signed char> best;
    double bestCost = std::numeric_limits<double>::infinity();
    int const ways = levels.size() == 1 ? 1 : waysFromShared;
    for (int way = 0; way < ways; ++way) {
        std::vector<Level> below;
        below.push_back({levels.back().graph, {}});
        coarsen(below, coarsestNodes, random, watch);
        std::vector<signed char> side =
            refineThrough(below, separateSmall(below.back().graph, random, watch), random, watch);
        double const cost = ways == 1 ? 0.0 : costOf(levels.back().graph, side, watch);
        if (cost < bestCost) {
            bestCost = cost;
            best = std::move(side);
        }
    }
    best = refineThrough(levels, std::move(best), random, watch);
    std::swap(static_cast<Graph &>(levels.front().graph), graph);
    return best;
}

// The nodes of one part, by their names in `partNames`, and the edges between them.
Graph partOf(Graph const & graph, std::vector<signed char> const & side, int wanted,
             std::vector<int> const & names, std::vector<int> & partNames)
{
    std::vector<int> newNumber(at(graph.size()), -1);
    int count = 0;
    for (int node = 0; node < graph.size(); ++node)
        if (side[at(node)] == wanted)
            newNumber[at(node)] = count++;
    Graph part;
    part.begin.reserve(at(count) + 1);
    part.weights.reserve(at(count));
    partNames.reserve(at(count));
    for (int node = 0; node < graph.size(); ++node) {
        if (side[at(node)] != wanted)
            continue;
        for (int const * other = graph.first(node); other != graph.last(node); ++other)
            if (int const number = newNumber[at(*other)]; number >= 0)
                part.neighbours.push_back(number);
        part.begin.push_back(static_cast<int>(part.neighbours.size()));
        part.weights.push_back(graph.weights[at(node)]);
        partNames.push_back(names[at(node)]);
    }
    return part;
}

class Dissection
{
public:
    Dissection(Graph const & graph, GraphOrdering const & orderPart, PositionReport const & report)
        : m_orderPart(orderPart), m_report(report), m_watch(report),
          m_totalWork(std::max(1.0, workOf(graph))), m_workLeft(m_totalWork)
    {
        m_order.reserve(at(graph.size()));
    }

    void run(Graph graph, std::vector<int> names)
    {
        double const work = workOf(graph);
        if (graph.neighbours.empty()) {
            m_order.insert(m_order.end(), names.begin(), names.end());
            return;
        }
        if (graph.size() <= partNodes)
            return orderWhole(graph, names);
        enter(double(graph.neighbours.size()), edgesPerCut * double(graph.neighbours.size()));
        std::vector<signed char> const side = separateWatched(graph, m_watch);
        std::ptrdiff_t const left = std::count(side.begin(), side.end(), 0);
        std::ptrdiff_t const right = std::count(side.begin(), side.end(), 1);
        if (std::max(left, right) > std::ptrdiff_t(side.size()) * 9 / 10 || left == 0 || right == 0)
            return orderWhole(graph, names); // no cut worth the name
        std::vector<int> leftNames, rightNames, separator;
        Graph leftPart = partOf(graph, side, 0, names, leftNames);
        Graph rightPart = partOf(graph, side, 1, names, rightNames);
        for (std::size_t node = 0; node < side.size(); ++node)
            if (side[node] == 2)
                separator.push_back(names[node]);
        m_workLeft -= work - workOf(leftPart) - workOf(rightPart);
        graph = Graph();
        run(std::move(leftPart), std::move(leftNames));
        run(std::move(rightPart), std::move(rightNames));
        m_order.insert(m_order.end(), separator.begin(), separator.end());
    }

    std::vector<int> takeOrder() { return std::move(m_order); }

private:
    // In edges: each one is looked at about equally often for each cut between the graph and its parts.
    static double workOf(Graph const & graph)
    {
        return double(graph.neighbours.size()) *
               (1.0 + std::max(0.0, std::log2(double(graph.size()) / partNodes)));
    }
    void enter(double work, double edges)
    {
        double const done = 1.0 - m_workLeft / m_totalWork;
        m_watch.setRange(done, std::min(1.0, done + work / m_totalWork), edges);
    }
    void orderWhole(Graph const & graph, std::vector<int> const & names)
    {
        double const before = m_workLeft;
        m_workLeft -= workOf(graph);
        for (int const node : m_orderPart(graph, [&](double position) {
                 m_report(1.0 - (before + (m_workLeft - before) * position) / m_totalWork);
             }))
            m_order.push_back(names[at(node)]);
        // Parts too small for a report of their own.
        enter(0.0, 1.0);
        m_watch.add(4.0 * double(graph.neighbours.size()));
    }

    GraphOrdering const & m_orderPart;
    PositionReport const & m_report;
    Watch m_watch;
    double const m_totalWork;
    double m_workLeft;
    std::vector<int> m_order;
};

} // namespace

std::vector<signed char> separate(Graph const & graph, PositionReport const & report)
{
    Watch watch(report);
    Graph copy(graph);
    return separateWatched(copy, watch);
}

std::vector<int> nestedDissection(Graph const & graph, GraphOrdering const & orderPart,
                                  PositionReport const & report)
{
    std::vector<int> names(at(graph.size()));
    std::iota(names.begin(), names.end(), 0);
    Dissection dissection(graph, orderPart, report);
    dissection.run(graph, std::move(names));
    return dissection.takeOrder();
}

} // namespace QzBackend
