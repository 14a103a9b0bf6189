// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Cloud/SpanningTree.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/IndexDetail.h>
#include <QZmath/Foundation/VectorProductsDetail.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace REmath::Detail
{

namespace
{

using QzBackend::LoopTeam;

// Points of the graph's neighbourhoods, the point itself included, and of those that link its parts.
constexpr int graphNeighbours = 16;
constexpr int linkNeighbours = 64;

// Levels of the weights of edges, and the mark of an edge that is not there.
constexpr int levelCount = 255;
constexpr std::uint8_t noEdge = 255;

// Points per piece of work.
constexpr int blockSize = 4096;

// Normals of unit length by position. Zero where there is none.
class PositionNormals
{
public:
    PositionNormals(CPointTree const & tree, Point3D const * normals)
    {
        m_normals.reserve(index(tree.size()));
        for (int position = 0; position < tree.size(); ++position) {
            Point3D_d normal = widen(normals[tree.index(position)]);
            double const length = normal.length();
            normal = length > 0 && std::isfinite(length) ? normal / length : Point3D_d();
            m_normals.emplace_back(normal.x(), normal.y(), normal.z());
        }
    }

    int size() const { return static_cast<int>(m_normals.size()); }
    Point3D const & operator[](int position) const { return m_normals[index(position)]; }
    bool exists(int position) const
    {
        Point3D const & normal = (*this)[position];
        return normal.x() != 0 || normal.y() != 0 || normal.z() != 0;
    }
    float cosine(int a, int b) const
    {
        Point3D const &left = (*this)[a], &right = (*this)[b];
        return left.x() * right.x() + left.y() * right.y() + left.z() * right.z();
    }
    // The angle between two tangent planes in even steps; more exactly the chord on the unit sphere.
    std::uint8_t level(int a, int b) const
    {
        float const apart = std::max(0.0F, 1 - std::abs(cosine(a, b)));
        return static_cast<std::uint8_t>(
            std::min(levelCount - 1, static_cast<int>(levelCount * std::sqrt(apart))));
    }

private:
    std::vector<Point3D> m_normals;
};

// Disjoint sets whose elements know whether their sign agrees with that of the representative.
class SignedSets
{
public:
    struct Place
    {
        int root;
        bool isTurned;
    };

    explicit SignedSets(int size) : m_links(index(size)), m_sizes(m_links.size(), 1)
    {
        for (std::size_t i = 0; i < m_links.size(); ++i)
            m_links[i] = static_cast<std::uint32_t>(2 * i);
    }

    // Halves the path on its way.
    Place find(int element)
    {
        std::uint32_t turned = 0;
        auto at = static_cast<std::uint32_t>(element);
        while (m_links[at] >> 1 != at) {
            std::uint32_t const next = m_links[at];
            m_links[at] = m_links[next >> 1] ^ (next & 1);
            turned ^= m_links[at] & 1;
            at = m_links[at] >> 1;
        }
        return {static_cast<int>(at), turned != 0};
    }

    // Joins two sets so that `a` and `b` agree, or do not. False when they were one set before.
    bool join(int a, int b, bool agree)
    {
        Place left = find(a), right = find(b);
        if (left.root == right.root)
            return false;
        if (size(left.root) < size(right.root))
            std::swap(left, right);
        bool const isTurned = (left.isTurned != right.isTurned) == agree;
        m_links[index(right.root)] =
            static_cast<std::uint32_t>(left.root) << 1 | static_cast<std::uint32_t>(isTurned);
        m_sizes[index(left.root)] += size(right.root);
        return true;
    }

    int size(int root) const { return m_sizes[index(root)]; }

private:
    std::vector<std::uint32_t> m_links; // twice the parent, and 1 if the sign is not the parent's
    std::vector<int> m_sizes;
};

// Calls `visit(position, findNeighbours)` for the points of the tree on the threads of the team.
template <class Visit>
void forAllPoints(CPointTree const & tree, int neighbours, LoopTeam & team, Visit visit)
{
    std::vector<CNeighbourFinder> finders(
        index(team.threads()), CNeighbourFinder(tree, neighbours, std::numeric_limits<double>::infinity()));
    auto const visitLeaf = [&](int slot, int leaf) {
        CNeighbourFinder & finder = finders[index(slot)];
        bool isOpen = false;
        for (int position = tree.leafBegin(leaf); position < tree.leafBegin(leaf + 1); ++position) {
            visit(position, [&] {
                if (!std::exchange(isOpen, true))
                    finder.openLeaf(leaf);
                return finder.find(position);
            });
        }
    };
    team.forEachOnSlot(tree.leafCount(), visitLeaf, 1);
}

struct Edge
{
    int from, to;
};

// The edges between near neighbours, the lightest first, and of equal ones in the order of the tree.
std::vector<Edge> sortedEdges(CPointTree const & tree, PositionNormals const & normals, LoopTeam & team)
{
    std::size_t const slots = graphNeighbours - 1;
    std::vector<int> targets(slots * index(tree.size()), -1);
    std::vector<std::uint8_t> levels(targets.size(), noEdge);
    forAllPoints(tree, graphNeighbours, team, [&](int position, auto findNeighbours) {
        if (!normals.exists(position))
            return;
        CNeighbourFinder::Neighbours const neighbours = findNeighbours();
        std::size_t slot = slots * index(position);
        std::size_t const end = slot + slots;
        for (int i = 0; i < neighbours.count && slot < end; ++i) {
            int const target = neighbours.positions[i];
            if (target == position || !normals.exists(target))
                continue;
            targets[slot] = target;
            levels[slot++] = normals.level(position, target);
        }
    });

    // An edge that both ends know counts at the one that comes first.
    int const blocks = (tree.size() + blockSize - 1) / blockSize;
    std::vector<std::array<std::size_t, levelCount>> counts(index(blocks));
    team.forEach(blocks, [&](int block) {
        std::array<std::size_t, levelCount> & count = counts[index(block)];
        count.fill(0);
        int const end = std::min((block + 1) * blockSize, tree.size());
        for (int from = block * blockSize; from < end; ++from) {
            std::size_t const first = slots * index(from);
            for (std::size_t slot = first; slot < first + slots && targets[slot] >= 0; ++slot) {
                auto const back = targets.begin() + static_cast<std::ptrdiff_t>(slots) * targets[slot];
                if (targets[slot] < from && std::find(back, back + slots, from) != back + slots)
                    levels[slot] = noEdge;
                else
                    ++count[levels[slot]];
            }
        }
    });
    std::size_t total = 0;
    for (std::size_t level = 0; level < levelCount; ++level) {
        for (std::array<std::size_t, levelCount> & count : counts)
            total += std::exchange(count[level], total);
    }
    std::vector<Edge> edges(total);
    team.forEach(blocks, [&](int block) {
        std::array<std::size_t, levelCount> & next = counts[index(block)];
        int const end = std::min((block + 1) * blockSize, tree.size());
        for (int from = block * blockSize; from < end; ++from) {
            std::size_t const first = slots * index(from);
            for (std::size_t slot = first; slot < first + slots; ++slot) {
                if (levels[slot] != noEdge)
                    edges[next[levels[slot]]++] = {from, targets[slot]};
            }
        }
    });
    return edges;
}

// Kruskal's method.
void spread(CPointTree const & tree, PositionNormals const & normals, SignedSets & sets,
            CProgressCounter * progress)
{
    std::vector<Edge> edges;
    {
        CPrgCntSubPhase const searching(progress, 0.0, 0.5, 0, true);
        LoopTeam::run(tree.usefulThreads(), progress,
                      [&](LoopTeam & team) { edges = sortedEdges(tree, normals, team); });
    }
    CPrgCntSubPhase const joining(progress, 0.5, 0.4, 0, true);
    for (std::size_t i = 0; i < edges.size(); ++i) {
        if (progress && i % 65536 == 0)
            progress->SetPosFloat(static_cast<double>(i) / static_cast<double>(edges.size()));
        sets.join(edges[i].from, edges[i].to, normals.cosine(edges[i].from, edges[i].to) >= 0);
    }
}

// The outermost points of a part in the directions of the axes and the diagonals, both ways.
class OutermostPoints
{
public:
    static constexpr int voters = 14;

    void add(Point3D const & point, int position)
    {
        for (std::size_t line = 0; line < 7; ++line) {
            double const height = dot(widen(point), direction(line));
            offer(m_highest[line], height, position);
            offer(m_lowest[line], -height, position);
        }
    }
    // Sum of the outward components of their normals, which `signedNormal` gives.
    template <class SignedNormal>
    double vote(SignedNormal signedNormal) const
    {
        double sum = 0;
        for (std::size_t line = 0; line < 7; ++line) {
            Point3D_d const unit = direction(line).unitLength();
            sum += dot(signedNormal(m_highest[line].position), unit) -
                   dot(signedNormal(m_lowest[line].position), unit);
        }
        return sum;
    }

private:
    struct Outermost
    {
        double height = 0;
        int position = -1;
    };

    static Point3D_d const & direction(std::size_t line)
    {
        static Point3D_d const directions[7] = {{1, 0, 0},  {0, 1, 0},  {0, 0, 1}, {1, 1, 1},
                                                {1, 1, -1}, {1, -1, 1}, {-1, 1, 1}};
        return directions[line];
    }
    static void offer(Outermost & outermost, double height, int position)
    {
        if (outermost.position < 0 || height > outermost.height)
            outermost = {height, position};
    }

    Outermost m_highest[7], m_lowest[7];
};

// The connected parts and the outward sense of each.
class Parts
{
public:
    Parts(CPointTree const & tree, PositionNormals const & normals, SignedSets & sets)
        : m_partOfRoot(index(tree.size()), -1)
    {
        std::vector<OutermostPoints> outermost;
        for (int position = 0; position < tree.size(); ++position) {
            if (!normals.exists(position))
                continue;
            int & part = m_partOfRoot[index(sets.find(position).root)];
            if (part < 0) {
                part = static_cast<int>(outermost.size());
                outermost.emplace_back();
            }
            outermost[index(part)].add(tree.point(position), position);
        }
        for (OutermostPoints const & points : outermost) {
            m_votes.push_back(points.vote([&](int position) {
                Point3D_d const normal = widen(normals[position]);
                return sets.find(position).isTurned ? -normal : normal;
            }));
        }
    }

    int count() const { return static_cast<int>(m_votes.size()); }
    bool isInward(int root) const { return vote(root) < 0; }
    bool isUndecided(int root) const { return std::abs(vote(root)) < OutermostPoints::voters / 2.0; }

private:
    double vote(int root) const { return m_votes[index(m_partOfRoot[index(root)])]; }

    std::vector<int> m_partOfRoot;
    std::vector<double> m_votes;
};

// Links undecided parts with wider neighbourhoods, each by its best edges: rounds of Boruvka's method.
void linkParts(CPointTree const & tree, PositionNormals const & normals, SignedSets & sets,
               CProgressCounter * progress)
{
    struct Link
    {
        int to = -1;
        std::uint8_t level = noEdge;
    };
    std::vector<Link> links(index(tree.size()));
    std::vector<int> roots(links.size()), order;
    for (bool isLinked = true; isLinked;) {
        Parts const parts(tree, normals, sets);
        if (parts.count() < 2)
            return;
        for (int position = 0; position < tree.size(); ++position)
            roots[index(position)] = sets.find(position).root;
        auto const findLink = [&](int position, auto findNeighbours) {
            Link & link = links[index(position)];
            link = {};
            int const root = roots[index(position)];
            if (!normals.exists(position) || !parts.isUndecided(root))
                return;
            CNeighbourFinder::Neighbours const neighbours = findNeighbours();
            for (int i = 0; i < neighbours.count; ++i) {
                int const target = neighbours.positions[i];
                if (roots[index(target)] == root || !normals.exists(target))
                    continue;
                std::uint8_t const level = normals.level(position, target);
                if (level < link.level)
                    link = {target, level};
            }
        };
        LoopTeam::run(tree.usefulThreads(), progress,
                      [&](LoopTeam & team) { forAllPoints(tree, linkNeighbours, team, findLink); });
        order.clear();
        for (int position = 0; position < tree.size(); ++position) {
            if (links[index(position)].to >= 0)
                order.push_back(position);
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](int a, int b) { return links[index(a)].level < links[index(b)].level; });
        isLinked = false;
        for (int const from : order) {
            int const to = links[index(from)].to;
            isLinked = sets.join(from, to, normals.cosine(from, to) >= 0) || isLinked;
        }
    }
}

} // namespace

int orientBySpanningTree(CPointTree const & tree, Point3D * normals, CProgressCounter * progress)
{
    if (tree.size() == 0)
        return 0;
    PositionNormals const positionNormals(tree, normals);
    SignedSets sets(tree.size());
    spread(tree, positionNormals, sets, progress);
    {
        CPrgCntSubPhase const linking(progress, 0.9, 0.1, 0, true);
        linkParts(tree, positionNormals, sets, progress);
    }

    Parts const parts(tree, positionNormals, sets);
    int guessed = 0;
    for (int position = 0; position < tree.size(); ++position) {
        if (!positionNormals.exists(position))
            continue;
        SignedSets::Place const place = sets.find(position);
        guessed += parts.isUndecided(place.root);
        if (place.isTurned != parts.isInward(place.root))
            normals[tree.index(position)] = -normals[tree.index(position)];
    }
    return guessed;
}

} // namespace REmath::Detail
