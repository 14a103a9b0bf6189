// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Octree.h>
#include <QZmath/VolTriang/OctreeIterators.h>

#include "QZsys/TaskSupport.h"

#include <support/SampledClouds.h>

#include <QZsys/Exceptions.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace VolTr;

namespace
{

// The tree as plain ordered maps: every sample walks all depths and corners.
struct ReferenceTree
{
    std::map<CInt3, int> cellIndexes;
    std::multimap<CInt3, int> cellSamples;
    std::map<CTreeNode, int> nodeIndexes;
    std::vector<CTreeNode> nodes;

    ReferenceTree(IInputSamples const & samples, COctree const & octree)
    {
        int const size = 1 << octree.getLeafCellDepth();
        for (int sample = 0; sample < samples.pointsNumber(); ++sample) {
            float const * point = samples.getSampleCoords3(sample);
            CInt3 cell;
            for (int axis = 0; axis < 3; ++axis) {
                double const low = octree.getBoxMin()[axis];
                double const high = octree.getBoxMax()[axis];
                int const coord =
                    low == high ? 0 : static_cast<int>(std::floor(size * (point[axis] - low) / (high - low)));
                cell.coordMod(axis) = std::min(coord, size - 1);
            }
            cellIndexes.emplace(cell, static_cast<int>(cellIndexes.size()));
            cellSamples.emplace(cell, sample);
            for (int depth = octree.getNodeDepthBegin(); depth < octree.getNodeDepthEnd(); ++depth) {
                for (int corner = 0; corner < 8; ++corner) {
                    CTreeNode node;
                    octree.makeCellNode(&node, depth, cell, corner);
                    if (nodeIndexes.emplace(node, static_cast<int>(nodes.size())).second)
                        nodes.push_back(node);
                }
            }
        }
    }
};

// Random in a box whose top is the unit square.
PointCloudSamples boxCloud(unsigned seed, std::size_t count, float thickness = 1.0f)
{
    return qz_test::cloudOf("box", count, {0.0, 1.0, 1.0f, {}, thickness, seed});
}

struct TreeKind
{
    int depth;
    bool useCenter;
    int detalizationLevel;
};

class OctreeOfKind : public testing::TestWithParam<TreeKind>
{
protected:
    PointCloudSamples samples = boxCloud(11, 300, 0.05f);
    COctree octree{&samples, GetParam().depth, nullptr, GetParam().useCenter, GetParam().detalizationLevel};
    ReferenceTree reference{samples, octree};
};

} // namespace

TEST_P(OctreeOfKind, NumbersCellsAndNodesInTheOrderOfFirstUse)
{
    ASSERT_EQ(octree.getNodesNumber(), static_cast<int>(reference.nodes.size()));
    for (int node = 0; node < octree.getNodesNumber(); ++node)
        ASSERT_EQ(octree.getNode(node), reference.nodes[static_cast<std::size_t>(node)]) << node;
    ASSERT_EQ(octree.getCellsNumberOnDeepestLevel(), static_cast<int>(reference.cellIndexes.size()));
    for (auto const & [cell, sample] : reference.cellSamples) {
        int const index = octree.getCellByCoordinates(sample);
        EXPECT_EQ(octree.getCellOffset(index), cell);
    }
}

TEST_P(OctreeOfKind, NodeIteratorsYieldWhatABoxHolds)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<double> coord(-0.6, 1.6);
    for (int query = 0; query < 60; ++query) {
        double low[3];
        double high[3];
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = coord(random);
            high[axis] = query % 5 == 0 ? coord(random) : low[axis] + 0.3 * std::fabs(coord(random));
        }
        CParallelepiped const box(low, high);
        for (int depth = -1; depth <= GetParam().depth; ++depth) {
            std::vector<int> expected;
            if (depth >= octree.getNodeDepthBegin() && depth < octree.getNodeDepthEnd()) {
                for (auto const & [node, index] : reference.nodeIndexes) {
                    bool inside = node.depth() == depth;
                    for (int axis = 0; axis < 3; ++axis) {
                        int const size = 1 << GetParam().depth;
                        double const edge = octree.getBoxMax()[axis] - octree.getBoxMin()[axis];
                        double const origin = octree.getBoxMin()[axis];
                        inside =
                            inside &&
                            node.shift().coord(axis) >= std::floor(size * (low[axis] - origin) / edge) &&
                            node.shift().coord(axis) <= std::floor(size * (high[axis] - origin) / edge) + 1;
                    }
                    if (inside)
                        expected.push_back(index);
                }
            }
            std::vector<int> found;
            for (COctreeInBoxNodeIterator it(&octree, box, depth); !it.isFinished(); it.next()) {
                EXPECT_EQ(it.currentNodeShift(), octree.getNode(it.currentNodeIndex()).shift());
                found.push_back(it.currentNodeIndex());
            }
            ASSERT_EQ(found, expected) << "query " << query << " depth " << depth;
        }
    }
}

TEST_P(OctreeOfKind, NeighborIteratorYieldsTheEightNodesOfACell)
{
    for (int cell = 0; cell < octree.getCellsNumberOnDeepestLevel(); cell += 7) {
        for (int depth = octree.getNodeDepthBegin(); depth < octree.getNodeDepthEnd(); ++depth) {
            std::vector<int> expected;
            for (int corner = 0; corner < 8; ++corner) {
                CTreeNode node;
                octree.makeCellNode(&node, depth, octree.getCellOffset(cell), corner);
                expected.push_back(reference.nodeIndexes.at(node));
            }
            std::vector<int> found;
            for (COctreeNeighborNodeIterator it(&octree, cell, depth); !it.isFinished(); it.next())
                found.push_back(it.currentNodeIndex());
            std::sort(expected.begin(), expected.end());
            std::sort(found.begin(), found.end());
            ASSERT_EQ(found, expected);
        }
    }
}

TEST_P(OctreeOfKind, SampleIteratorYieldsTheSamplesOfTouchedCells)
{
    std::mt19937 random(6);
    std::uniform_real_distribution<double> coord(-0.2, 1.2);
    for (int query = 0; query < 40; ++query) {
        double const low[3] = {coord(random), coord(random), -0.1};
        double const high[3] = {low[0] + 0.4, low[1] + 0.2, query % 3 == 0 ? -0.05 : coord(random)};
        int const limit = query % 4 == 0 ? 1 + query % 3 : -1;
        std::vector<int> expected;
        std::map<CInt3, int> taken;
        int const last = (1 << GetParam().depth) - 1;
        for (auto const & [cell, sample] : reference.cellSamples) {
            bool inside = true;
            for (int axis = 0; axis < 3; ++axis) {
                inside = inside &&
                         cell.coord(axis) >= std::max(0, octree.realToLattice(low[axis], axis, 0)) &&
                         cell.coord(axis) <= std::min(last, octree.realToLattice(high[axis], axis, 0));
            }
            if (inside && (limit < 0 || taken[cell]++ < limit))
                expected.push_back(sample);
        }
        std::vector<int> found;
        CSamplePointsIteratorInBox it(samples, octree, CParallelepiped(low, high), limit);
        for (; !it.isFinished(); it.next()) {
            int const sample = it.currentSampleIndex();
            found.push_back(sample);
            EXPECT_EQ((*it)[0], samples.getSampleCoords3(sample)[0]);
            EXPECT_EQ(it.currCellIntCoord(), octree.getCellOffset(octree.getCellByCoordinates(sample)));
        }
        EXPECT_EQ(it.currentSampleIndex(), -1);
        ASSERT_EQ(found, expected) << query;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, OctreeOfKind,
                         testing::Values(TreeKind{1, false, -1}, TreeKind{2, true, -1}, TreeKind{5, true, -1},
                                         TreeKind{5, true, 0}, TreeKind{6, true, 2}, TreeKind{5, false, -1},
                                         TreeKind{6, false, 1}, TreeKind{16, true, 3},
                                         TreeKind{29, false, -1}, TreeKind{29, true, -1}));

TEST(Octree, DepthRanges)
{
    PointCloudSamples const samples = boxCloud(1, 20);
    auto const range = [&](int depth, bool useCenter, int level) {
        COctree const octree(&samples, depth, nullptr, useCenter, level);
        return std::pair(octree.getNodeDepthBegin(), octree.getNodeDepthEnd());
    };
    EXPECT_EQ(range(5, true, -1), std::pair(0, 5));
    EXPECT_EQ(range(5, true, 0), std::pair(4, 5));
    EXPECT_EQ(range(5, true, 4), std::pair(0, 5));
    EXPECT_EQ(range(5, true, 5), std::pair(0, 5));
    EXPECT_EQ(range(5, false, 5), std::pair(0, 6));
    EXPECT_EQ(range(5, false, 2), std::pair(3, 6));
    for (auto const & [depth, useCenter] :
         {std::pair(-1, true), {1, true}, {0, false}, {30, true}, {1000, false}}) {
        EXPECT_EQ(thrownBy([&, d = depth, c = useCenter] { COctree(&samples, d, nullptr, c, -1); }),
                  "Incorrect tree depth detected in VolTr::COctree constructor");
    }
}

TEST(Octree, DegenerateClouds)
{
    PointCloudSamples single;
    single.add({1e6f, -3.0f, 0.0f}, {0.0f, 0.0f, 1.0f});
    COctree const one(&single, 4, nullptr, true, -1);
    EXPECT_EQ(one.getCellsNumberOnDeepestLevel(), 1);
    EXPECT_EQ(one.getNodesNumber(), 8 * 4);
    single.add({1e6f, -3.0f, 0.0f}, {0.0f, 0.0f, 1.0f});
    EXPECT_EQ(COctree(&single, 4, nullptr, true, -1).getNodesNumber(), 8 * 4);

    PointCloudSamples const none;
    COctree const empty(&none, 4, nullptr, true, -1);
    EXPECT_EQ(empty.getNodesNumber(), 0);
    double const middle[3] = {0.0, 0.0, 0.0};
    EXPECT_FALSE(empty.isInLeafCell(middle));
    EXPECT_TRUE(COctreeInBoxNodeIterator(&empty, empty.getNodesBoundaryBox(), 2).isFinished());

    float const infinity = std::numeric_limits<float>::infinity();
    for (float bad : {infinity, -infinity, std::numeric_limits<float>::quiet_NaN()}) {
        PointCloudSamples broken = boxCloud(3, 10);
        broken.add({0.0f, bad, 0.0f}, {0.0f, 0.0f, 1.0f});
        EXPECT_EQ(thrownBy([&] { COctree(&broken, 4, nullptr, true, -1); }),
                  "Sample 10 has a coordinate that is not finite");
    }

    float const greatest = std::numeric_limits<float>::max();
    PointCloudSamples huge;
    huge.add({greatest, greatest, greatest}, {0.0f, 0.0f, 1.0f});
    huge.add({-greatest, -greatest, -greatest}, {0.0f, 0.0f, 1.0f});
    EXPECT_EQ(COctree(&huge, 6, nullptr, true, -1).getCellsNumberOnDeepestLevel(), 2);
}

// Two cells hold more samples than are sorted together.
TEST(Octree, CrowdedCellsHoldAllTheirSamplesInOrder)
{
    PointCloudSamples samples = boxCloud(5, 3000);
    for (int n = 0; n < 40000; ++n)
        samples.add({n % 3 == 0 ? 0.3f : 0.6f, 0.4f, 0.5f}, {0.0f, 0.0f, 1.0f});
    COctree const octree(&samples, 5, nullptr, true, -1);
    ReferenceTree const reference(samples, octree);
    ASSERT_EQ(octree.getCellIndex().size(), static_cast<int>(reference.cellIndexes.size()));
    for (int position = 0; position < octree.getCellIndex().size(); ++position) {
        std::vector<int> expected;
        auto const range =
            reference.cellSamples.equal_range(octree.getCellOffset(octree.getCellIndex().payload(position)));
        std::for_each(range.first, range.second,
                      [&](auto const & entry) { expected.push_back(entry.second); });
        EXPECT_EQ(std::vector<int>(octree.getSamplesBegin(position), octree.getSamplesEnd(position)),
                  expected);
    }
}

TEST(Octree, QueriesOutsideTheTreeAndNaNYieldNothing)
{
    PointCloudSamples const samples = boxCloud(2, 200);
    COctree const octree(&samples, 5, nullptr, true, -1);
    double const nan = std::numeric_limits<double>::quiet_NaN();
    CParallelepiped const boxes[] = {{5.0, 6.0, 0.0, 1.0, 0.0, 1.0},
                                     {nan, 1.0, 0.0, 1.0, 0.0, 1.0},
                                     {0.0, nan, 0.0, 1.0, 0.0, 1.0},
                                     {0.9, 0.1, 0.0, 1.0, 0.0, 1.0},
                                     {-1e300, -1e299, 0.0, 1.0, 0.0, 1.0}};
    for (CParallelepiped const & box : boxes) {
        EXPECT_TRUE(COctreeInBoxNodeIterator(&octree, box, 4).isFinished());
        EXPECT_TRUE(CSamplePointsIteratorInBox(samples, octree, box, -1).isFinished());
    }
    CParallelepiped const all(CInterval::all(), CInterval::all(), CInterval::all());
    int count = 0;
    for (CSamplePointsIteratorInBox it(samples, octree, all, -1); !it.isFinished(); it.next())
        ++count;
    EXPECT_EQ(count, 200);
}

TEST(Octree, InterruptionLeavesTheConstructor)
{
    PointCloudSamples const samples = boxCloud(2, 200);
    CProgressCounter progress;
    progress.interrupt();
    EXPECT_THROW(COctree(&samples, 5, &progress, true, -1), CUserIntrException);
    EXPECT_NO_THROW(COctree(&samples, 5, &progress, true, -1));
}
