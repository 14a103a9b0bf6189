// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/MinimumDegree.h>

#include <QZmath/Backend/Place.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <utility>

namespace QzBackend
{
namespace
{

// Places in lists looked at between two reports: a few milliseconds.
constexpr double placesBetweenReports = 1e5;

// A node is at first a variable: a row not yet eliminated. An eliminated one becomes an element and stands
// for the full submatrix that its elimination left on the variables of its list. A variable's list holds the
// elements that it belongs to, then the variables that it has an edge with outside of them. Variables that
// are merged with others, and elements whose submatrix lies within another one, are dead: of weight 0 or mark
// 0, with an empty list.
class Elimination
{
public:
    Elimination(Graph const & graph, PositionReport const & report, double mostElements);
    std::vector<int> run(double * work);

private:
    struct Node
    {
        int begin = 0;       // of the list in `m_lists`
        int length = 0;      // of the list
        int elements = 0;    // so many at its beginning
        int weight = 0;      // 0 when dead, negative while in the list of the pivot
        int degree = 0;      // bound for the weight of the neighbours; of an element, the weight of its list
        int mergedInto = -1; // for dead variables
        int step = -1;       // in which it was the pivot
        int next = -1;       // among those of the same degree
        int previous = -1;   // -1 for the first one
        int hashNext = -1;   // among those of the same hash
        unsigned hash = 0;
        std::int64_t mark =
            1; // of elements: from m_stamp on, the stamp plus the weight outside the pivot's list
    };

    Node & node(int number) { return m_nodes[at(number)]; }
    int & place(int number) { return m_lists[at(number)]; }
    void enqueue(int variable);
    void dequeue(int variable);
    void compress();
    void gatherPivotList(int pivot);
    void measureElements();
    void updateVariables(int pivot);
    void mergeAlike();
    bool isAlike(Node const & left, Node const & right);
    void finish(int pivot);
    std::vector<int> order();

    PositionReport const & m_report;
    double const m_mostElements;
    std::vector<Node> m_nodes;
    std::vector<int> m_lists;
    int m_free = 0;              // first place of `m_lists` behind all lists
    std::vector<int> m_ofDegree; // first variable of each degree
    std::vector<int> m_ofHash;   // first variable of each hash
    std::vector<int> m_usedHashes;
    int m_totalWeight = 0, m_weightLeft = 0, m_lowestDegree = 0;
    int m_listBegin = 0, m_listEnd = 0, m_listWeight = 0, m_pivotWeight = 0; // of the pivot
    std::int64_t m_stamp = 2;
    double m_seen = 0;
};

Elimination::Elimination(Graph const & graph, PositionReport const & report, double mostElements)
    : m_report(report), m_mostElements(mostElements), m_nodes(at(graph.size()))
{
    std::size_t const places = graph.neighbours.size();
    // A pivot's list is made while those that it replaces still stand.
    m_lists.reserve(places + places / 5 + at(graph.size()) + 1);
    m_lists = graph.neighbours;
    m_lists.resize(places + places / 5 + at(graph.size()) + 1);
    m_free = static_cast<int>(places);
    m_totalWeight = std::accumulate(graph.weights.begin(), graph.weights.end(), 0);
    m_weightLeft = m_totalWeight;
    m_ofDegree.assign(at(m_totalWeight) + 1, -1);
    m_ofHash.assign(at(graph.size()), -1);
    for (int number = 0; number < graph.size(); ++number) {
        Node & one = node(number);
        one.begin = graph.begin[at(number)];
        one.length = graph.begin[at(number) + 1] - one.begin;
        one.weight = graph.weights[at(number)];
        for (int const * other = graph.first(number); other != graph.last(number); ++other)
            one.degree += graph.weights[at(*other)];
        enqueue(number);
    }
}

void Elimination::enqueue(int variable)
{
    Node & one = node(variable);
    int & first = m_ofDegree[at(one.degree)];
    one.previous = -1;
    one.next = first;
    if (first >= 0)
        node(first).previous = variable;
    first = variable;
    m_lowestDegree = std::min(m_lowestDegree, one.degree);
}

void Elimination::dequeue(int variable)
{
    Node const & one = node(variable);
    (one.previous < 0 ? m_ofDegree[at(one.degree)] : node(one.previous).next) = one.next;
    if (one.next >= 0)
        node(one.next).previous = one.previous;
}

// Moves all lists to the front of the memory, in the order in which they stand.
void Elimination::compress()
{
    // The first place of each list names its owner meanwhile, which keeps what stood there.
    for (int number = 0; number < static_cast<int>(m_nodes.size()); ++number)
        if (Node & one = node(number); one.length > 0)
            one.begin = std::exchange(place(one.begin), -1 - number);
    int to = 0;
    for (int from = 0; from < m_free;) {
        if (place(from) >= 0) {
            ++from;
            continue;
        }
        Node & one = node(-1 - place(from));
        place(to) = std::exchange(one.begin, to);
        std::copy(m_lists.begin() + from + 1, m_lists.begin() + from + one.length, m_lists.begin() + to + 1);
        to += one.length;
        from += one.length;
    }
    m_seen += m_free;
    m_free = to;
}

// The variables that the pivot's elimination joins, behind all other lists. The elements among them end.
void Elimination::gatherPivotList(int pivot)
{
    Node & one = node(pivot);
    m_pivotWeight = one.weight;
    one.weight = -one.weight;
    if (m_free + one.degree >= static_cast<int>(m_lists.size()))
        compress();
    m_listBegin = m_listEnd = m_free;
    m_listWeight = 0;
    auto const take = [&](int begin, int end) {
        for (int from = begin; from < end; ++from) {
            int const number = place(from);
            Node & variable = node(number);
            if (variable.weight <= 0)
                continue;
            m_listWeight += variable.weight;
            variable.weight = -variable.weight;
            place(m_listEnd++) = number;
            dequeue(number);
        }
        m_seen += end - begin;
    };
    for (int from = one.begin; from < one.begin + one.elements; ++from) {
        Node & element = node(place(from));
        take(element.begin, element.begin + element.length);
        element.mark = 0;
        element.length = 0;
    }
    take(one.begin + one.elements, one.begin + one.length);
    one.begin = m_listBegin;
    one.length = m_listEnd - m_listBegin;
    one.elements = 0;
    m_free = m_listEnd;
}

// The weight that each element of the variables has outside of the pivot's list, as marks above the stamp.
void Elimination::measureElements()
{
    for (int from = m_listBegin; from < m_listEnd; ++from) {
        Node const & variable = node(place(from));
        for (int other = variable.begin; other < variable.begin + variable.elements; ++other) {
            Node & element = node(place(other));
            if (element.mark >= m_stamp)
                element.mark += variable.weight; // negative in the list
            else if (element.mark != 0)
                element.mark = m_stamp + element.degree + variable.weight;
        }
        m_seen += variable.elements;
    }
}

// Leaves of each list what is alive and outside of the pivot's, puts the pivot first, and bounds the degree.
void Elimination::updateVariables(int pivot)
{
    for (int from = m_listBegin; from < m_listEnd; ++from) {
        int const number = place(from);
        Node & variable = node(number);
        int const begin = variable.begin, elementsEnd = begin + variable.elements;
        int const end = begin + variable.length;
        std::int64_t outside = 0;
        unsigned hash = 0;
        int to = begin;
        for (int other = begin; other < elementsEnd; ++other) {
            Node & element = node(place(other));
            if (element.mark == 0)
                continue;
            if (element.mark > m_stamp) {
                outside += element.mark - m_stamp;
                hash += static_cast<unsigned>(place(other));
                place(to++) = place(other);
            } else { // within the pivot's list
                element.mark = 0;
                element.length = 0;
            }
        }
        int const elements = to - begin;
        int const variablesBegin = to;
        for (int other = elementsEnd; other < end; ++other)
            if (Node const & neighbour = node(place(other)); neighbour.weight > 0) {
                outside += neighbour.weight;
                hash += static_cast<unsigned>(place(other));
                place(to++) = place(other);
            }
        m_seen += variable.length;
        if (to == begin) { // no edge leads anywhere else: eliminated together with the pivot
            m_listWeight += variable.weight;
            m_pivotWeight -= variable.weight;
            variable.weight = 0;
            variable.length = 0;
            variable.mergedInto = pivot;
            continue;
        }
        // One place at least has become free: the pivot's, or that of an element that it took over.
        place(to) = place(variablesBegin);
        place(variablesBegin) = place(begin);
        place(begin) = pivot;
        variable.elements = elements + 1;
        variable.length = to + 1 - begin;
        variable.degree = static_cast<int>(std::min<std::int64_t>(variable.degree, outside));
        variable.hash = hash % static_cast<unsigned>(m_nodes.size());
        int & first = m_ofHash[at(static_cast<int>(variable.hash))];
        if (first < 0)
            m_usedHashes.push_back(static_cast<int>(variable.hash));
        variable.hashNext = std::exchange(first, number);
    }
    m_stamp += m_totalWeight + 1;
}

// The left one's list is marked with the stamp.
bool Elimination::isAlike(Node const & left, Node const & right)
{
    if (left.length != right.length || left.elements != right.elements)
        return false;
    m_seen += right.length;
    return std::all_of(m_lists.begin() + right.begin + 1, m_lists.begin() + right.begin + right.length,
                       [&](int other) { return node(other).mark == m_stamp; });
}

// Variables of the pivot's list with the same lists stay alike for good.
void Elimination::mergeAlike()
{
    for (int const hash : m_usedHashes) {
        for (int left = std::exchange(m_ofHash[at(hash)], -1); left >= 0; left = node(left).hashNext) {
            Node & kept = node(left);
            if (kept.hashNext < 0)
                break;
            // Marks of elements say that they are alive, those of variables nothing.
            for (int other = kept.begin + 1; other < kept.begin + kept.length; ++other)
                node(place(other)).mark = m_stamp;
            m_seen += kept.length;
            for (int last = left, right = kept.hashNext; right >= 0; right = node(last).hashNext) {
                Node & other = node(right);
                if (!isAlike(kept, other)) {
                    last = right;
                    continue;
                }
                kept.weight += other.weight;
                other.weight = 0;
                other.length = 0;
                other.mergedInto = left;
                node(last).hashNext = other.hashNext;
            }
            ++m_stamp;
        }
    }
    m_usedHashes.clear();
}

// The pivot becomes an element, and the variables wait for their turn with new degrees.
void Elimination::finish(int pivot)
{
    m_weightLeft -= m_pivotWeight;
    int to = m_listBegin;
    for (int from = m_listBegin; from < m_listEnd; ++from) {
        int const number = place(from);
        Node & variable = node(number);
        if (variable.weight == 0)
            continue;
        variable.weight = -variable.weight;
        std::int64_t const degree = std::int64_t(variable.degree) + m_listWeight - variable.weight;
        variable.degree = static_cast<int>(std::min<std::int64_t>(degree, m_weightLeft - variable.weight));
        enqueue(number);
        place(to++) = number;
    }
    m_free = to;
    Node & element = node(pivot);
    element.weight = 0;
    element.length = to - m_listBegin;
    element.degree = m_listWeight;
    element.mark = element.length > 0 ? 1 : 0;
}

std::vector<int> Elimination::run(double * work)
{
    double elements = 0, multiplications = 0, reported = 0;
    for (int step = 0; m_weightLeft > 0; ++step) {
        while (m_ofDegree[at(m_lowestDegree)] < 0)
            ++m_lowestDegree;
        int const pivot = m_ofDegree[at(m_lowestDegree)];
        dequeue(pivot);
        node(pivot).step = step;
        gatherPivotList(pivot);
        measureElements();
        updateVariables(pivot);
        mergeAlike();
        finish(pivot);
        elements += double(m_pivotWeight) * (m_listWeight + (m_pivotWeight + 1) / 2.0);
        double const meanHeight = m_listWeight + m_pivotWeight / 2.0;
        multiplications += m_pivotWeight * meanHeight * meanHeight;
        if (elements > m_mostElements)
            return {};
        m_seen += 10;
        if (m_seen > reported + placesBetweenReports) {
            reported = m_seen;
            m_report(1.0 - double(m_weightLeft) / m_totalWeight);
        }
    }
    if (work)
        *work = multiplications;
    return order();
}

// Variables that were merged with others come with these.
std::vector<int> Elimination::order()
{
    int const size = static_cast<int>(m_nodes.size());
    std::vector<int> result(at(size)), begin(at(size) + 1, 0);
    for (int number = 0; number < size; ++number) {
        int pivot = number;
        while (node(pivot).step < 0)
            pivot = node(pivot).mergedInto;
        for (int other = number; other != pivot;)
            other = std::exchange(node(other).mergedInto, pivot);
        ++begin[at(node(pivot).step) + 1];
    }
    std::partial_sum(begin.begin(), begin.end(), begin.begin());
    for (int number = 0; number < size; ++number) {
        Node const & one = node(number);
        int const step = one.step < 0 ? node(one.mergedInto).step : one.step;
        result[at(begin[at(step)]++)] = number;
    }
    return result;
}

} // namespace

std::vector<int> minimumDegree(Graph const & graph, PositionReport const & report, double mostElements,
                               double * work)
{
    return Elimination(graph, report, mostElements).run(work);
}

} // namespace QzBackend
