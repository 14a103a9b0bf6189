// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Surface/RankWalk.h>

#include <QZmath/VolTriang/Polygoniser/CubePlan.h>
#include <QZmath/VolTriang/Polygoniser/CubeTables.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>

#include <algorithm>
#include <utility>

namespace QZmath::Distributed
{

using VolTr::CubePlan;

namespace
{

VolTr::CubeIndex neighbourOf(VolTr::CubeIndex const & index, CubeCut::Face const & face)
{
    return {index[0] + face.step[0], index[1] + face.step[1], index[2] + face.step[2]};
}

} // namespace

bool RankWalk::isWithinReach(CubeIndex const & index) const
{
    return m_input.limits.contains(index) &&
           (m_input.support == nullptr ||
            m_input.support->levelOf(index) != VolTr::SupportedCubes::Level::beyond);
}

bool RankWalk::isCrossed(Cube cube) const
{
    int const signs = m_input.surface.signsOf(cube);
    return signs != 0 && signs != 255;
}

// A cube of another rank is looked at, but never marked as seen: that says that its rank was told.
void RankWalk::beginNear(CubeIndex const & index)
{
    if (m_hasLooked && index == m_lastLook)
        return;
    m_hasLooked = true;
    m_lastLook = index;
    VolTr::BrickSurface & surface = m_input.surface;
    bool const isMine = isOwn(index);
    if (!isMine) {
        bool const isBesideMine =
            std::any_of(std::begin(CubeCut::faces), std::end(CubeCut::faces),
                        [&](CubeCut::Face const & face) { return isOwn(neighbourOf(index, face)); });
        if (!isBesideMine)
            return;
    }
    if (!isWithinReach(index))
        return;
    Cube const cube = surface.at(index);
    if (isMine && !surface.markSeen(cube))
        return;
    surface.complete(cube);
    if (isCrossed(cube)) {
        if (isMine)
            begin(cube);
        return;
    }
    for (CubeCut::Face const & face : CubeCut::faces) {
        CubeIndex const beside = neighbourOf(index, face);
        if (!isOwn(beside) || !isWithinReach(beside))
            continue;
        Cube const neighbour = surface.at(beside);
        surface.complete(neighbour);
        if (isCrossed(neighbour) && surface.markSeen(neighbour))
            begin(neighbour);
    }
}

void RankWalk::enter(CubeIndex const & index)
{
    if (!isWithinReach(index))
        return;
    Cube const cube = m_input.surface.at(index);
    if (!m_input.surface.markSeen(cube))
        return;
    m_input.surface.complete(cube);
    begin(cube);
}

void RankWalk::begin(Cube cube)
{
    m_open.push_back(cube);
    while (!m_open.empty()) {
        Cube const next = m_open.back();
        m_open.pop_back();
        visit(next);
    }
}

void RankWalk::visit(Cube cube)
{
    VolTr::BrickSurface & surface = m_input.surface;
    int const signs = surface.signsOf(cube);
    CubePlan const & plan = VolTr::cubePlanOf(signs);
    CubeIndex const index = surface.indexOf(cube);
    surface.addTriangles(cube, plan, m_input.sink);
    if (m_input.ranks > 1 && !m_input.owners.isInsideUnit(index))
        noteBorder(cube, index, plan);
    for (CubeCut::Face const & face : CubeCut::faces) {
        int const sharedSigns = CubeCut::signsAt(signs, face.corners);
        if (sharedSigns == 0 || sharedSigns == 15)
            continue;
        if (surface.isSeenAcross(cube, face))
            continue;
        CubeIndex const next = neighbourOf(index, face);
        if (!isWithinReach(next))
            continue;
        Cube const neighbour = surface.across(cube, face);
        surface.markSeen(neighbour);
        int const owner = m_input.owners.ownerOf(next);
        if (owner != m_input.rank) {
            m_crossings[static_cast<std::size_t>(owner)].push_back(next);
            continue;
        }
        surface.complete(neighbour);
        m_open.push_back(neighbour);
    }
}

void RankWalk::noteBorder(Cube cube, CubeIndex const & index, CubePlan const & plan)
{
    for (CubePlan::Edge const & edge : plan.edges) {
        // The cubes that have the edge: one along each axis that it runs along, two along the others.
        int const(&steps)[3] = CubeCut::edgeSteps[edge.direction];
        CubeIndex low;
        CubeIndex high;
        CubeIndex first;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            first[axis] = index[axis] + (edge.first >> (2 - axis) & 1);
            low[axis] = first[axis] - (steps[axis] <= 0 ? 1 : 0);
            high[axis] = first[axis] - (steps[axis] < 0 ? 1 : 0);
        }
        BorderVertex entry;
        std::size_t others = 0;
        CubeIndex beside;
        for (beside[0] = low[0]; beside[0] <= high[0]; ++beside[0]) {
            for (beside[1] = low[1]; beside[1] <= high[1]; ++beside[1]) {
                for (beside[2] = low[2]; beside[2] <= high[2]; ++beside[2]) {
                    int const owner = m_input.owners.ownerOf(beside);
                    bool const isKnown = owner == m_input.rank || owner == entry.others[0] ||
                                         owner == entry.others[1] || owner == entry.others[2];
                    if (!isKnown)
                        entry.others[others++] = owner;
                }
            }
        }
        if (others == 0)
            continue;
        auto const packed = [](int a, int b) {
            return static_cast<std::int64_t>(static_cast<std::uint64_t>(static_cast<std::uint32_t>(a)) << 32 |
                                             static_cast<std::uint32_t>(b));
        };
        entry.key = {packed(first[0], first[1]), packed(first[2], edge.direction)};
        entry.vertex = m_input.surface.vertexOf(cube, edge);
        m_border.push_back(entry);
    }
}

std::vector<std::vector<VolTr::CubeIndex>> RankWalk::takeCrossings()
{
    std::vector<std::vector<CubeIndex>> result(m_crossings.size());
    result.swap(m_crossings);
    return result;
}

std::vector<BorderVertex> RankWalk::takeBorder()
{
    std::sort(m_border.begin(), m_border.end(),
              [](BorderVertex const & a, BorderVertex const & b) { return a.vertex < b.vertex; });
    m_border.erase(
        std::unique(m_border.begin(), m_border.end(),
                    [](BorderVertex const & a, BorderVertex const & b) { return a.vertex == b.vertex; }),
        m_border.end());
    return std::move(m_border);
}

} // namespace QZmath::Distributed
