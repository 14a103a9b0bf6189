// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Surface/CubeOwners.h>
#include <QZmath/Distributed/Surface/SharedVertices.h>
#include <QZmath/VolTriang/Bricks/BrickSurface.h>
#include <QZmath/VolTriang/Stages/CubeFrame.h>
#include <QZmath/VolTriang/Stages/SupportedCubes.h>

#include <vector>

namespace VolTr
{
class TriangleSink;
}

namespace QZmath::Distributed
{

/// Follows a surface from cube to cube over the cubes of one rank. Which cubes all ranks visit together does
/// not depend on which rank has which: those that are reached from cubes near samples, across faces that the
/// surface crosses, over cubes within reach.
class RankWalk
{
public:
    using Cube = VolTr::BrickSurface::Cube;
    using CubeIndex = VolTr::CubeIndex;

    struct Input
    {
        VolTr::BrickSurface & surface;
        CubeOwners const & owners;
        int rank;
        int ranks;
        VolTr::CubeBox limits;
        VolTr::SupportedCubes const * support; ///< null when all cubes are within reach
        VolTr::TriangleSink & sink;
    };

    explicit RankWalk(Input const & input)
        : m_input(input), m_crossings(static_cast<std::size_t>(input.ranks))
    {}

    /// Begins at the cube of a sample if the surface crosses it, else at those across its faces that it
    /// crosses; at cubes of the rank only.
    void beginNear(CubeIndex const & index);
    /// Would `beginNear` do nothing? May be false without a look. Between walks, from any threads.
    bool isSettled(CubeIndex const & index) const { return m_input.surface.isSettled(index); }
    /// Begins at a cube of the rank that the surface enters from one of another.
    void enter(CubeIndex const & index);

    /// The cubes of other ranks that the surface enters, by rank, each once; they are forgotten.
    std::vector<std::vector<CubeIndex>> takeCrossings();
    /// The vertices that cubes of other ranks have as well, in the numbers of the surface.
    std::vector<BorderVertex> takeBorder();

private:
    bool isWithinReach(CubeIndex const & index) const;
    bool isOwn(CubeIndex const & index) const { return m_input.owners.ownerOf(index) == m_input.rank; }
    bool isCrossed(Cube cube) const;
    void begin(Cube cube);
    void visit(Cube cube);
    void noteBorder(Cube cube, CubeIndex const & index, VolTr::CubePlan const & plan);

    Input const m_input;
    std::vector<Cube> m_open; // seen, to be visited
    std::vector<std::vector<CubeIndex>> m_crossings;
    std::vector<BorderVertex> m_border; // with repetitions
    bool m_hasLooked = false;
    CubeIndex m_lastLook{};
};

} // namespace QZmath::Distributed
