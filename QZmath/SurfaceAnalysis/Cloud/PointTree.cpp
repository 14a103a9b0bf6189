// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>

#include <QZmath/Backend/ParallelPieces.h>
#include <QZmath/SurfaceAnalysis/Cloud/StablePartition.h>

#include <QZsys/ParallelTasks.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

namespace REmath::Detail
{

using QzBackend::forPieces;
using QzBackend::itemsPerPiece;
using QzBackend::piecesOf;

namespace
{

constexpr int largestLeaf = 14;

// How much farther than the last leaf's neighbours the candidates of the next are looked for, squared.
constexpr float reachMargin = 1.3F;

bool isFinite(Point3D const & point)
{
    return std::isfinite(point.x()) && std::isfinite(point.y()) && std::isfinite(point.z());
}

// Length of the interval of the values without a share of them at both ends, which are reordered.
double spreadOf(std::vector<float> & values, std::size_t ignored)
{
    auto const low = values.begin() + static_cast<std::ptrdiff_t>(ignored);
    auto const high = values.end() - 1 - static_cast<std::ptrdiff_t>(ignored);
    std::nth_element(values.begin(), low, values.end());
    double const least = static_cast<double>(*low);
    std::nth_element(values.begin(), high, values.end());
    return static_cast<double>(*high) - least;
}

// The power of 2 that brings the extent of the cloud into [1, 2), by the middle half of a sample of the
// points: outliers have no say. By all of them where that has no extent, and 1 where nothing has any.
double unitOf(int n, Point3D const * points)
{
    int const stride = std::max(1, n / 1024);
    double extent = 0;
    std::vector<float> values;
    for (bool isSample : {true, false}) {
        for (int axis = 0; axis < 3 && (isSample || extent == 0); ++axis) {
            values.clear();
            for (int i = 0; i < n; i += isSample ? stride : 1) {
                if (isFinite(points[i]))
                    values.push_back(points[i].asArray()[axis]);
            }
            if (!values.empty())
                extent = std::max(extent, spreadOf(values, isSample ? values.size() / 4 : 0));
        }
        if (extent > 0)
            return std::ldexp(1.0, -std::ilogb(extent));
    }
    return 1;
}

// Rounds to `float`; what would overflow stays finite.
float narrow(double value)
{
    double const largest = static_cast<double>(std::numeric_limits<float>::max());
    return static_cast<float>(std::clamp(value, -largest, largest));
}

// Squared distance of two intervals' boxes along one axis, rounded as that of any two points in them or
// less.
inline float gap(float low, float high, float otherLow, float otherHigh)
{
    float const distance = std::max(0.0F, std::max(low - otherHigh, otherLow - high));
    return distance * distance;
}

inline float squaredDistance(CPointTree::Node const & a, CPointTree::Node const & b)
{
    return gap(a.low[0], a.high[0], b.low[0], b.high[0]) + gap(a.low[1], a.high[1], b.low[1], b.high[1]) +
           gap(a.low[2], a.high[2], b.low[2], b.high[2]);
}

inline float squaredDistance(CPointTree::Node const & a, Point3D const & p)
{
    return gap(a.low[0], a.high[0], p.x(), p.x()) + gap(a.low[1], a.high[1], p.y(), p.y()) +
           gap(a.low[2], a.high[2], p.z(), p.z());
}

inline float squaredDistance(float x, float y, float z, Point3D const & p)
{
    float const dx = x - p.x(), dy = y - p.y(), dz = z - p.z();
    return dx * dx + dy * dy + dz * dz;
}

// The order of neighbours: by distance, then by index. A squared distance is not negative, so that its bits
// are ordered like itself.
std::uint64_t keyOf(float squaredDistance, std::uint32_t index)
{
    std::uint32_t bits;
    std::memcpy(&bits, &squaredDistance, sizeof(bits));
    return static_cast<std::uint64_t>(bits) << 32 | index;
}

float squaredDistanceOf(std::uint64_t key)
{
    auto const bits = static_cast<std::uint32_t>(key >> 32);
    float squaredDistance;
    std::memcpy(&squaredDistance, &bits, sizeof(bits));
    return squaredDistance;
}

} // namespace

CPointTree::CPointTree(int n, Point3D const * points, CProgressCounter * progress) : m_unit(unitOf(n, points))
{
    QzBackend::LoopTeam::run(usefulThreads(std::max(n, 0)), progress, [&](QzBackend::LoopTeam & team) {
        std::vector<Record> records = recordsOf(n, points, team);
        while (std::int64_t(largestLeaf) * m_leafCount < static_cast<std::int64_t>(records.size()))
            m_leafCount = 1 << ++m_leafLevel;
        m_size = static_cast<int>(records.size());
        m_nodes.resize(2 * static_cast<std::size_t>(m_leafCount));
        if (!records.empty())
            split(records, team);
    });
}

int CPointTree::usefulThreads(int points)
{
    int const pointsForEach = 64 * largestLeaf;
    return std::clamp(points / pointsForEach, 1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
}

// The finite points in their order, scaled.
std::vector<CPointTree::Record> CPointTree::recordsOf(int n, Point3D const * points,
                                                      QzBackend::LoopTeam & team) const
{
    std::vector<int> begins(static_cast<std::size_t>(piecesOf(std::max(n, 0))) + 1, 0);
    auto const pieceOf = [](int begin) { return static_cast<std::size_t>(begin / itemsPerPiece); };
    forPieces(
        n, team,
        [&](int begin, int end) {
            begins[pieceOf(begin) + 1] =
                static_cast<int>(std::count_if(points + begin, points + end, isFinite));
        },
        0.02);
    std::partial_sum(begins.begin(), begins.end(), begins.begin());
    std::vector<Record> records(static_cast<std::size_t>(begins.back()));
    forPieces(
        n, team,
        [&](int begin, int end) {
            auto next = static_cast<std::size_t>(begins[pieceOf(begin)]);
            for (int i = begin; i < end; ++i) {
                if (!isFinite(points[i]))
                    continue;
                Record & record = records[next++];
                record.index = static_cast<std::uint32_t>(i);
                for (int axis = 0; axis < 3; ++axis)
                    record.coords[axis] = narrow(static_cast<double>(points[i].asArray()[axis]) * m_unit);
            }
        },
        0.05);
    return records;
}

// The upper levels node by node, those of many points by all threads together, and below them whole subtrees.
void CPointTree::split(std::vector<Record> & records, QzBackend::LoopTeam & team)
{
    int const mostForOne = 1 << 19, mostForSubtree = 1 << 15; // a few milliseconds each
    int nodes = 1;
    int const levels = std::max(1, std::ilogb(std::max(1.0, double(m_size) / mostForSubtree)) + 1);
    {
        std::vector<Record> spare;
        for (int level = 0; nodes < m_leafCount && m_size / nodes > mostForSubtree; nodes *= 2, ++level) {
            double const until = 0.05 + 0.6 * (level + 1) / levels;
            int const leaves = m_leafCount / nodes;
            if (m_size / nodes <= mostForOne) {
                team.forEach(
                    nodes, [&](int node) { splitNode(records, nodes + node, leaves); }, until);
                continue;
            }
            spare.resize(records.size());
            for (int node = nodes; node < 2 * nodes; ++node)
                splitTogether(records, spare, node, leaves, team);
            records.swap(spare);
            team.setPosition(until);
        }
    }
    for (std::vector<float> & coords : m_coords)
        coords.resize(records.size());
    m_indices.resize(records.size());
    team.forEach(
        nodes, [&](int node) { splitBelow(records, nodes + node, m_leafCount / nodes); }, 1);
}

void CPointTree::splitBelow(std::vector<Record> & records, int node, int leaves)
{
    splitNode(records, node, leaves);
    if (leaves > 1) {
        splitBelow(records, 2 * node, leaves / 2);
        splitBelow(records, 2 * node + 1, leaves / 2);
    }
}

CPointTree::Node CPointTree::boxOf(Record const * begin, Record const * end)
{
    Node box;
    std::copy_n(begin->coords, 3, box.low);
    std::copy_n(begin->coords, 3, box.high);
    box.leastIndex = begin->index;
    for (Record const * record = begin; record != end; ++record) {
        for (int axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min(box.low[axis], record->coords[axis]);
            box.high[axis] = std::max(box.high[axis], record->coords[axis]);
        }
        box.leastIndex = std::min(box.leastIndex, record->index);
    }
    return box;
}

int CPointTree::longestSide(Node const & box)
{
    int axis = 0;
    for (int other = 1; other < 3; ++other) {
        if (box.high[other] - box.low[other] > box.high[axis] - box.low[axis])
            axis = other;
    }
    return axis;
}

// Fills a node above `leaves` leaves and divides its records among its children.
void CPointTree::splitNode(std::vector<Record> & records, int node, int leaves)
{
    int const firstLeaf = node * leaves - m_leafCount;
    Record * const begin = records.data() + leafBegin(firstLeaf);
    Record * const end = records.data() + leafBegin(firstLeaf + leaves);
    Node const box = m_nodes[static_cast<std::size_t>(node)] = boxOf(begin, end);
    if (leaves == 1)
        storeLeaf(records, firstLeaf);
    else
        std::nth_element(begin, records.data() + leafBegin(firstLeaf + leaves / 2), end,
                         Before{longestSide(box)});
}

// The same by all threads, with the records in `spare` afterwards: two records of a sample that have the
// middle one between them part the others, which leaves few to be ordered.
void CPointTree::splitTogether(std::vector<Record> const & records, std::vector<Record> & spare, int node,
                               int leaves, QzBackend::LoopTeam & team)
{
    int const firstLeaf = node * leaves - m_leafCount;
    Record const * const all = records.data() + leafBegin(firstLeaf);
    Record * const parted = spare.data() + leafBegin(firstLeaf);
    int const count = leafBegin(firstLeaf + leaves) - leafBegin(firstLeaf);
    int const middle = leafBegin(firstLeaf + leaves / 2) - leafBegin(firstLeaf);
    std::vector<Node> boxes(static_cast<std::size_t>(piecesOf(count)));
    forPieces(count, team, [&](int begin, int end) {
        boxes[static_cast<std::size_t>(begin / itemsPerPiece)] = boxOf(all + begin, all + end);
    });
    Node & box = m_nodes[static_cast<std::size_t>(node)] = boxes[0];
    for (Node const & part : boxes) {
        for (int axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min(box.low[axis], part.low[axis]);
            box.high[axis] = std::max(box.high[axis], part.high[axis]);
        }
        box.leastIndex = std::min(box.leastIndex, part.leastIndex);
    }
    Before const isBefore{longestSide(box)};

    int const sampleSize = std::clamp(count / 256, 1024, 1 << 16);
    int const margin = 2 * static_cast<int>(std::sqrt(sampleSize)); // four standard deviations of the median
    std::vector<Record> sample;
    for (int n = 0; n < sampleSize; ++n)
        sample.push_back(all[std::int64_t(count) * n / sampleSize]);
    std::sort(sample.begin(), sample.end(), isBefore);
    Record const low = sample[static_cast<std::size_t>(sampleSize / 2 - margin)];
    Record const high = sample[static_cast<std::size_t>(sampleSize / 2 + margin)];
    std::vector<int> const begins = partitionStably(
        count, 3, [&](int item) { return isBefore(all[item], low)    ? 0
                                         : isBefore(high, all[item]) ? 2
                                                                     : 1; },
        [&](int item, int place) { parted[place] = all[item]; }, team);
    // An odd sample puts the middle one into another class.
    auto const behind = std::upper_bound(begins.begin(), begins.end() - 1, middle);
    std::nth_element(parted + behind[-1], parted + middle, parted + *behind, isBefore);
}

void CPointTree::storeLeaf(std::vector<Record> & records, int leaf)
{
    auto const begin = records.begin() + leafBegin(leaf), end = records.begin() + leafBegin(leaf + 1);
    std::sort(begin, end, [](Record const & a, Record const & b) { return a.index < b.index; });
    for (auto record = begin; record != end; ++record) {
        auto const position = static_cast<std::size_t>(record - records.begin());
        for (int axis = 0; axis < 3; ++axis)
            m_coords[axis][position] = record->coords[axis];
        m_indices[position] = record->index;
    }
}

CNeighbourFinder::CNeighbourFinder(CPointTree const & tree, int count, double radius)
    : m_tree(tree), m_count(static_cast<std::size_t>(std::min(count, tree.size()))),
      m_squaredRadius(std::isfinite(radius) ? narrow(radius * radius)
                                            : std::numeric_limits<float>::infinity())
{}

void CNeighbourFinder::openLeaf(int leaf)
{
    bool const isLimited = m_count > 0;
    m_squaredReach = isLimited ? std::min(reachMargin * m_largestFound, m_squaredRadius) : m_squaredRadius;
    std::size_t const most = isLimited ? 256 + 4 * m_count : std::numeric_limits<std::size_t>::max();
    m_hasCandidates = (!isLimited || m_squaredReach > 0) && gather(leaf, m_squaredReach, most);
    m_largestFound = 0;
}

// Copies the points within a distance of the box of the leaf. False when they are more than `most`.
bool CNeighbourFinder::gather(int leaf, float squaredReach, std::size_t most)
{
    CPointTree::Node const box = m_tree.leafNode(leaf);
    int const leaves = m_tree.leafCount();
    m_ranges.clear();
    std::size_t size = 0;
    // One node of each level can wait, and the two that were put last.
    int waiting[40] = {1};
    int count = 1;
    while (count > 0) {
        int const node = waiting[--count];
        if (squaredDistance(m_tree.node(node), box) > squaredReach)
            continue;
        if (node < leaves) {
            waiting[count++] = 2 * node + 1;
            waiting[count++] = 2 * node;
            continue;
        }
        int const begin = m_tree.leafBegin(node - leaves), end = m_tree.leafBegin(node - leaves + 1);
        if (!m_ranges.empty() && m_ranges.back().end == begin)
            m_ranges.back().end = end;
        else
            m_ranges.push_back({begin, end});
        size += static_cast<std::size_t>(end - begin);
        if (size > most)
            return false;
    }
    m_candidateCount = static_cast<int>(size);
    if (size > m_candidates.size()) {
        m_candidates.resize(2 * size);
        m_squaredDistances.resize(2 * size);
        m_result.resize(2 * size + 1);
        for (std::vector<float> & coords : m_candidateCoords)
            coords.resize(2 * size);
    }
    std::size_t at = 0;
    for (Range const & range : m_ranges) {
        std::iota(m_candidates.data() + at, m_candidates.data() + at + (range.end - range.begin),
                  range.begin);
        for (int axis = 0; axis < 3; ++axis)
            std::copy(m_tree.coords(axis) + range.begin, m_tree.coords(axis) + range.end,
                      m_candidateCoords[axis].data() + at);
        at += static_cast<std::size_t>(range.end - range.begin);
    }
    return true;
}

CNeighbourFinder::Neighbours CNeighbourFinder::find(int position)
{
    Point3D const point = m_tree.point(position);
    if (m_hasCandidates) {
        float const *x = m_candidateCoords[0].data(), *y = m_candidateCoords[1].data(),
                    *z = m_candidateCoords[2].data();
        float * const squared = m_squaredDistances.data();
        for (int i = 0, size = m_candidateCount; i < size; ++i)
            squared[i] = squaredDistance(x[i], y[i], z[i], point);
        std::size_t const within = countWithin(m_squaredReach);
        // Nobody is missing within the reach.
        if (m_count == 0 || within >= m_count || m_squaredReach >= m_squaredRadius)
            return selectCandidates(within);
    }
    return searchTree(point);
}

std::size_t CNeighbourFinder::countWithin(float limit) const
{
    int count = 0;
    float const * const squared = m_squaredDistances.data();
    for (int i = 0, size = m_candidateCount; i < size; ++i)
        count += squared[i] <= limit;
    return static_cast<std::size_t>(count);
}

// The nearest of the `within` candidates inside the reach.
CNeighbourFinder::Neighbours CNeighbourFinder::selectCandidates(std::size_t within)
{
    if (m_count == 0 || within <= m_count)
        return candidatesWithin(m_squaredReach);
    // Look for a limit between the last neighbour and the next point. On a surface their number grows nearly
    // linearly with the squared distance, so few steps do.
    float low = 0, high = m_squaredReach;
    auto const wanted = static_cast<float>(m_count);
    float countLow = 0, countHigh = static_cast<float>(within);
    for (int step = 0; step < 12; ++step) {
        float const limit = low + (high - low) * ((wanted + 0.5F - countLow) / (countHigh - countLow));
        if (!(limit > low && limit < high))
            break;
        std::size_t const count = countWithin(limit);
        if (count == m_count)
            return candidatesWithin(limit);
        (count < m_count ? low : high) = limit;
        (count < m_count ? countLow : countHigh) = static_cast<float>(count);
    }
    m_found.clear();
    for (std::size_t i = 0; i < static_cast<std::size_t>(m_candidateCount); ++i) {
        if (m_squaredDistances[i] <= high)
            m_found.push_back(makeFound(m_squaredDistances[i], m_candidates[i]));
    }
    std::nth_element(m_found.begin(), m_found.begin() + static_cast<std::ptrdiff_t>(m_count), m_found.end());
    m_found.resize(m_count);
    m_largestFound = std::max(m_largestFound, high);
    return sortedFound();
}

CNeighbourFinder::Neighbours CNeighbourFinder::candidatesWithin(float limit)
{
    m_largestFound = std::max(m_largestFound, limit);
    std::int32_t * const result = m_result.data();
    std::int32_t const * const candidates = m_candidates.data();
    float const * const squared = m_squaredDistances.data();
    int count = 0;
    for (int i = 0, size = m_candidateCount; i < size; ++i) {
        result[count] = candidates[i];
        count += squared[i] <= limit;
    }
    return {result, count};
}

// Branch and bound from the root, nearer boxes first.
CNeighbourFinder::Neighbours CNeighbourFinder::searchTree(Point3D const & point)
{
    struct Waiting
    {
        int node;
        float squaredDistance;
    };
    int const leaves = m_tree.leafCount();
    Waiting waiting[40] = {{1, 0}};
    int count = 1;
    m_found.clear();
    while (count > 0) {
        Waiting const next = waiting[--count];
        if (isTooFar(next.squaredDistance, m_tree.node(next.node).leastIndex))
            continue;
        if (next.node >= leaves) {
            searchLeaf(point, next.node - leaves);
            continue;
        }
        Waiting nearer{2 * next.node, squaredDistance(m_tree.node(2 * next.node), point)};
        Waiting farther{2 * next.node + 1, squaredDistance(m_tree.node(2 * next.node + 1), point)};
        if (farther.squaredDistance < nearer.squaredDistance)
            std::swap(nearer, farther);
        waiting[count++] = farther;
        waiting[count++] = nearer;
    }
    if (m_found.empty())
        return {nullptr, 0};
    m_largestFound = std::max(m_largestFound, squaredDistanceOf(m_found.front().key));
    return sortedFound();
}

CNeighbourFinder::Found CNeighbourFinder::makeFound(float squaredDistance, std::int32_t position) const
{
    return {keyOf(squaredDistance, m_tree.index(position)), position};
}

CNeighbourFinder::Neighbours CNeighbourFinder::sortedFound()
{
    if (m_result.size() < m_found.size())
        m_result.resize(m_found.size());
    std::transform(m_found.begin(), m_found.end(), m_result.begin(),
                   [](Found const & found) { return found.position; });
    auto const count = static_cast<int>(m_found.size());
    std::sort(m_result.begin(), m_result.begin() + count);
    return {m_result.data(), count};
}

bool CNeighbourFinder::isTooFar(float squaredDistance, std::uint32_t index) const
{
    return squaredDistance > m_squaredRadius ||
           (m_found.size() == m_count && m_found.front().key < keyOf(squaredDistance, index));
}

// Keeps the nearest points as a heap with the farthest of them in front.
void CNeighbourFinder::searchLeaf(Point3D const & point, int leaf)
{
    int const end = m_tree.leafBegin(leaf + 1);
    for (int position = m_tree.leafBegin(leaf); position < end; ++position) {
        Point3D const other = m_tree.point(position);
        float const squared = squaredDistance(other.x(), other.y(), other.z(), point);
        if (isTooFar(squared, m_tree.index(position)))
            continue;
        if (m_found.size() == m_count) {
            std::pop_heap(m_found.begin(), m_found.end());
            m_found.pop_back();
        }
        m_found.push_back(makeFound(squared, position));
        std::push_heap(m_found.begin(), m_found.end());
    }
}

} // namespace REmath::Detail
