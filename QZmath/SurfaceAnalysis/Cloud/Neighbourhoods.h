// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/SurfaceAnalysis/Cloud/PointTree.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <QZsys/Progress.h>

#include <vector>

namespace REmath::Detail
{

/// The neighbours' coordinates in units of the tree, the point of interest first.
class Gathered
{
public:
    void take(CPointTree const & tree, int position, CNeighbourFinder::Neighbours const & neighbours)
    {
        m_points.clear();
        m_positions.clear();
        add(tree, position);
        for (int i = 0; i < neighbours.count; ++i) {
            if (neighbours.positions[i] != position)
                add(tree, neighbours.positions[i]);
        }
    }
    int size() const { return static_cast<int>(m_points.size()); }
    Point3D const * data() const { return m_points.data(); }
    /// Positions in the tree, in the same order.
    int const * positions() const { return m_positions.data(); }

private:
    void add(CPointTree const & tree, int position)
    {
        m_points.push_back(tree.point(position));
        m_positions.push_back(position);
    }

    std::vector<Point3D> m_points;
    std::vector<int> m_positions;
};

/// Calls `estimate(index, gathered)` for the points of every `stride`-th leaf of the tree, on all threads;
/// gives how often that was true.
template <class Estimate>
int forAllNeighbourhoods(CPointTree const & tree, int count, double radius, CProgressCounter * progress,
                         Estimate estimate, int stride = 1)
{
    if (tree.size() == 0)
        return 0;
    struct Worker
    {
        CNeighbourFinder finder;
        Gathered gathered;
        int made = 0;
    };
    int made = 0;
    QzBackend::LoopTeam::run(tree.usefulThreads(), progress, [&](QzBackend::LoopTeam & team) {
        std::vector<Worker> workers(index(team.threads()),
                                    Worker{CNeighbourFinder(tree, count, radius), {}, 0});
        auto const workOffLeaf = [&](int slot, int step) {
            Worker & worker = workers[index(slot)];
            int const leaf = step * stride;
            worker.finder.openLeaf(leaf);
            for (int position = tree.leafBegin(leaf); position < tree.leafBegin(leaf + 1); ++position) {
                worker.gathered.take(tree, position, worker.finder.find(position));
                worker.made += estimate(tree.index(position), worker.gathered);
            }
        };
        team.forEachOnSlot((tree.leafCount() + stride - 1) / stride, workOffLeaf, 1);
        for (Worker const & worker : workers)
            made += worker.made;
    });
    return made;
}

} // namespace REmath::Detail
