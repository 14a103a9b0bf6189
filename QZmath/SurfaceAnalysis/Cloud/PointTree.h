// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Point3D.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class CProgressCounter;

namespace QzBackend
{
class LoopTeam;
}

namespace REmath::Detail
{

/// The finite points of a cloud in a balanced tree of boxes, for the neighbourhoods of all of them.
///
/// The tree is implicit: node 1 is the root, the children of node i are 2 i and 2 i + 1, all leaves are on
/// one level and hold equal shares of the points, up to one. Points are stored in the order of the leaves, so
/// that neighbours in space are mostly neighbours in memory; *positions* count in that order. A split is at
/// the median of the longer side of the box, ties by index, and leaves are ordered by index: the order
/// depends on the points only.
///
/// Coordinates are multiplied by the power of 2 that brings the extent of the bulk of the cloud into [1, 2).
/// That is exact and keeps squared distances from underflow. Those to far outliers may overflow: all infinite
/// distances are equal. Coordinates end at the largest `float`.
class CPointTree
{
public:
    struct Node
    {
        float low[3], high[3];
        std::uint32_t leastIndex; ///< of the cloud, among the points of the node
    };

    CPointTree(int n, Point3D const * points, CProgressCounter * progress);

    int size() const { return m_size; }
    int leafCount() const { return m_leafCount; }
    /// Positions of the points of a leaf: from `leafBegin(leaf)` to `leafBegin(leaf + 1)`.
    int leafBegin(int leaf) const
    {
        return static_cast<int>(static_cast<std::int64_t>(size()) * leaf >> m_leafLevel);
    }
    int leafOf(int position) const
    {
        int leaf = static_cast<int>((static_cast<std::int64_t>(position) << m_leafLevel) / size());
        while (leafBegin(leaf + 1) <= position)
            ++leaf;
        return leaf;
    }
    /// Most points of a leaf.
    int leafSize() const { return (size() - 1) / m_leafCount + 1; }
    Node const & node(int number) const { return m_nodes[static_cast<std::size_t>(number)]; }
    Node const & leafNode(int leaf) const { return node(m_leafCount + leaf); }

    /// Scaled coordinates along an axis, by position.
    float const * coords(int axis) const { return m_coords[axis].data(); }
    Point3D point(int position) const
    {
        auto const at = static_cast<std::size_t>(position);
        return {m_coords[0][at], m_coords[1][at], m_coords[2][at]};
    }
    /// Index of the cloud of a position.
    std::uint32_t index(int position) const { return m_indices[static_cast<std::size_t>(position)]; }
    /// The unit of the cloud in that of the tree: tree = cloud * unit().
    double unit() const { return m_unit; }
    /// How many threads are worth their while for work on all points: those of the tasks helper, but none
    /// with only a few leaves to do.
    int usefulThreads() const { return usefulThreads(m_size); }

private:
    struct Record
    {
        float coords[3];
        std::uint32_t index;
    };

    // The order along an axis, ties by index.
    struct Before
    {
        int axis;
        bool operator()(Record const & a, Record const & b) const
        {
            return a.coords[axis] < b.coords[axis] || (a.coords[axis] == b.coords[axis] && a.index < b.index);
        }
    };

    static int usefulThreads(int points);
    static Node boxOf(Record const * begin, Record const * end);
    static int longestSide(Node const & box);
    std::vector<Record> recordsOf(int n, Point3D const * points, QzBackend::LoopTeam & team) const;
    void split(std::vector<Record> & records, QzBackend::LoopTeam & team);
    void splitTogether(std::vector<Record> const & records, std::vector<Record> & spare, int node, int leaves,
                       QzBackend::LoopTeam & team);
    void splitBelow(std::vector<Record> & records, int node, int leaves);
    void splitNode(std::vector<Record> & records, int node, int leaves);
    void storeLeaf(std::vector<Record> & records, int leaf);

    std::vector<float> m_coords[3];
    std::vector<std::uint32_t> m_indices;
    std::vector<Node> m_nodes;
    int m_size = 0;
    int m_leafLevel = 0; ///< leafCount() is 1 << m_leafLevel
    int m_leafCount = 1;
    double m_unit = 1;
};

/// Finds the nearest points of every point of a tree, itself included: those whose (squared distance, index)
/// are the smallest, with the distance in `float` arithmetic. The result is exact and does not depend on what
/// the finder has done before.
///
/// The leaves are worked off one by one. The candidates of all points of a leaf are gathered at once, within
/// a distance that the leaf before suggests, and a point for which they do not suffice is searched for by
/// itself. In the order of the tree that is rare. Belongs to one thread; allocates while its buffers grow to
/// the largest number of candidates.
class CNeighbourFinder
{
public:
    /// Positions in rising order, valid until the next call to the finder.
    struct Neighbours
    {
        std::int32_t const * positions;
        int count;
    };

    /// @param count   most neighbours, at least 1; 0 for no limit
    /// @param radius  their largest distance in the unit of the tree; can be infinite with a limited count
    CNeighbourFinder(CPointTree const & tree, int count, double radius);

    /// Gathers the candidates of a leaf.
    void openLeaf(int leaf);
    /// The neighbours of a point of the open leaf.
    Neighbours find(int position);

private:
    struct Found
    {
        std::uint64_t key; ///< bits of the squared distance, then index: the order of neighbours
        std::int32_t position;
        bool operator<(Found const & other) const { return key < other.key; }
    };

    struct Range
    {
        int begin, end;
    };

    bool gather(int leaf, float squaredReach, std::size_t most);
    std::size_t countWithin(float limit) const;
    Neighbours selectCandidates(std::size_t within);
    Neighbours candidatesWithin(float limit);
    Neighbours searchTree(Point3D const & point);
    void searchLeaf(Point3D const & point, int leaf);
    bool isTooFar(float squaredDistance, std::uint32_t index) const;
    Found makeFound(float squaredDistance, std::int32_t position) const;
    Neighbours sortedFound();

    CPointTree const & m_tree;
    std::size_t m_count;
    float m_squaredRadius;
    float m_squaredReach = 0; ///< of the candidates of the open leaf
    float m_largestFound = 0; ///< squared distance, in the open leaf
    bool m_hasCandidates = false;

    std::vector<Range> m_ranges; ///< of positions
    int m_candidateCount = 0;    ///< in the buffers that follow
    std::vector<float> m_candidateCoords[3];
    std::vector<std::int32_t> m_candidates;
    std::vector<float> m_squaredDistances;
    std::vector<Found> m_found;
    std::vector<std::int32_t> m_result;
};

} // namespace REmath::Detail
