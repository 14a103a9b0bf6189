// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>

#include <apps/sampling/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

using qz_sampling::Random;
using REmath::Point3D;
using REmath::Detail::CNeighbourFinder;
using REmath::Detail::CPointTree;

namespace
{

constexpr double everywhere = std::numeric_limits<double>::infinity();

// The indices of the neighbours, in order.
std::vector<int> neighboursByBruteForce(std::vector<Point3D> const & points, std::size_t at, int count,
                                        double radius)
{
    std::vector<std::pair<float, int>> order;
    for (std::size_t i = 0; i < points.size(); ++i) {
        Point3D const arm = points[i] - points[at];
        float const squared = arm.x() * arm.x() + arm.y() * arm.y() + arm.z() * arm.z();
        if (squared >= 0 && static_cast<double>(squared) <= radius * radius) // not NaN
            order.emplace_back(squared, static_cast<int>(i));
    }
    std::sort(order.begin(), order.end());
    if (count > 0 && order.size() > static_cast<std::size_t>(count))
        order.resize(static_cast<std::size_t>(count));
    std::vector<int> neighbours(order.size());
    std::transform(order.begin(), order.end(), neighbours.begin(),
                   [](auto const & each) { return each.second; });
    std::sort(neighbours.begin(), neighbours.end());
    return neighbours;
}

// Compares the neighbours of every `stride`-th point.
void expectBruteForce(std::vector<Point3D> const & points, int count, double radius, std::size_t stride)
{
    CPointTree const tree(static_cast<int>(points.size()), points.data(), nullptr);
    CNeighbourFinder finder(tree, count, radius * tree.unit());
    for (int leaf = 0; leaf < tree.leafCount(); ++leaf) {
        finder.openLeaf(leaf);
        for (int position = tree.leafBegin(leaf); position < tree.leafBegin(leaf + 1); ++position) {
            CNeighbourFinder::Neighbours const found = finder.find(position);
            EXPECT_TRUE(std::is_sorted(found.positions, found.positions + found.count));
            std::size_t const at = tree.index(position);
            if (at % stride != 0)
                continue;
            std::vector<int> indices;
            for (int i = 0; i < found.count; ++i)
                indices.push_back(static_cast<int>(tree.index(found.positions[i])));
            std::sort(indices.begin(), indices.end());
            ASSERT_EQ(indices, neighboursByBruteForce(points, at, count, radius)) << at;
        }
    }
}

} // namespace

TEST(PointTree, NeighboursAreThoseOfBruteForce)
{
    // Clusters of very different density, needles, equal distances on a grid, repeated points, outliers,
    // holes.
    Random random(1);
    std::vector<Point3D> points;
    for (int i = 0; i < 700; ++i) {
        double const size = std::pow(10.0, random.uniform(-4, 0));
        points.emplace_back(size * random.normal(), size * random.normal(), 0.3 * size * random.normal());
        points.emplace_back(20 + random.normal() * 1e-3, random.normal() * 1e-3, random.uniform(-2, 2));
        points.emplace_back(i % 22 * 0.25, i / 22 * 0.25, 40 + i % 7);
        if (i % 10 == 3)
            points.push_back(points[7]);
        if (i % 50 == 0)
            points.emplace_back(300 * random.normal(), 300 * random.normal(), 300 * random.normal());
        if (i % 200 == 0)
            points.emplace_back(0, 0, 1e30 * i);
        if (i % 100 == 0)
            points.emplace_back(0, std::numeric_limits<float>::quiet_NaN(), 0);
    }
    for (int count : {1, 20, 150})
        expectBruteForce(points, count, everywhere, 7);
    for (double radius : {0.0, 0.3, 0.6, 50.0})
        expectBruteForce(points, radius == 0.3 ? 12 : radius == 50 ? 7 : 0, radius, 7);
    expectBruteForce(points, 100000, everywhere, 50);
    expectBruteForce(points, 0, 1000, 50);
    for (std::size_t copies : {1U, 300U})
        expectBruteForce(std::vector<Point3D>(copies, Point3D(3, 4, 5)), 20, everywhere, 1);
}

TEST(PointTree, ManyPointsAreSplitAtTheMedian)
{
    // Of few distinct coordinates, so that the index decides at every cut.
    Random random(2);
    std::vector<Point3D> points(1300000);
    for (Point3D & point : points)
        point = Point3D(std::round(random.uniform(0, 40)), std::round(random.uniform(0, 9)), 3);
    CPointTree const tree(static_cast<int>(points.size()), points.data(), nullptr);
    for (int node = 1, leaves = tree.leafCount(); node < 64;
         leaves = tree.leafCount() >> std::ilogb(++node)) {
        CPointTree::Node const & box = tree.node(node);
        int const axis = box.high[1] - box.low[1] > box.high[0] - box.low[0] ? 1 : 0;
        int const firstLeaf = node * leaves - tree.leafCount();
        std::pair<float, std::uint32_t> last(-1.0F, 0), first(1e9F, 0);
        for (int at = tree.leafBegin(firstLeaf); at < tree.leafBegin(firstLeaf + leaves); ++at) {
            std::pair<float, std::uint32_t> const key(tree.coords(axis)[at], tree.index(at));
            if (at < tree.leafBegin(firstLeaf + leaves / 2))
                last = std::max(last, key);
            else
                first = std::min(first, key);
        }
        ASSERT_LT(last, first) << node;
    }
}
