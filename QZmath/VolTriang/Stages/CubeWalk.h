// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Polygoniser/CubePlan.h>
#include <QZmath/VolTriang/Polygoniser/CubeTables.h>
#include <QZmath/VolTriang/Polygoniser/TriangleSink.h>
#include <QZmath/VolTriang/Stages/CubeFrame.h>
#include <QZmath/VolTriang/Stages/SupportedCubes.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <vector>

namespace VolTr
{

/// Follows a surface from cube to cube across the faces that it crosses, and hands its triangles to a sink.
///
/// Without supported cubes the walk goes depth first, as `jbProcess::polygonize` does, with the same
/// triangles in the same order. With them, it does so over supported cubes; unsupported ones that it meets
/// wait in queues, as the rims of patches. `followPatches` then goes on breadth first from all rims at the
/// same time: first over all of the skirt, the cubes near the supported ones, then over what lies beyond,
/// until a patch has come to its end or is larger than allowed. So patches are closed from the smallest on,
/// and a border that remains runs outside of the skirt. Patches that meet are one patch.
///
/// \tparam Lattice tells of cubes and corners:
///     - `Cube`, a small value;
///     - `Cube at(CubeIndex)` and `Cube across(Cube, CubeCut::Face)`, the neighbour;
///     - `bool complete(Cube &)`: makes the corners known, before `signsOf`; may all of them be used?
///     - `CubeIndex indexOf(Cube)`, `int signsOf(Cube)` with bit n set when corner n is positive;
///     - `bool markSeen(Cube &)`: true when it was not seen before;
///     - `bool isSeenAcross(Cube, CubeCut::Face)`: was the neighbour seen? May be false without a look;
///     - `bool isSettled(CubeIndex)`: are the cube, or all around it that the surface crosses, seen? May be
///       false without a look, and may be asked from many threads;
///     - `void addTriangles(Cube, CubePlan, TriangleSink &)`: passes the triangles of a cube to the
///       sink, with the vertices that come with it, at once or with those of the next cubes;
///     - `void passOn(TriangleSink &)`: passes on what still waits.
///
/// Each cube is visited once. Memory: a cube for each that waits, and some 24 bytes for each unsupported one.
template <class Lattice>
class CubeWalk
{
public:
    using Cube = typename Lattice::Cube;

    struct Counts
    {
        int pieces = 0; ///< walks from a beginning that gave triangles
        int closedPatches = 0;
        int abandonedPatches = 0;
        bool hasMetLimit = false; ///< the surface goes on where no cube may be visited
    };

    /// \param limits  of the indices of cubes
    /// \param support null when all cubes count as supported
    CubeWalk(Lattice & lattice, CubeBox const & limits, SupportedCubes const * support, TriangleSink & sink)
        : m_lattice(lattice), m_limits(limits), m_support(support), m_sink(sink)
    {}

    bool isSupported(CubeIndex const & cube) const { return levelOf(cube) == Level::supported; }

    /// Begins at a supported cube, whether the surface crosses it or not.
    void walkFrom(CubeIndex const & index)
    {
        Cube cube = m_lattice.at(index);
        m_lattice.complete(cube);
        m_lattice.markSeen(cube);
        begin(cube);
    }

    /// Begins at a cube if the surface crosses it, else at those across its faces that the surface crosses.
    /// Leaves out cubes that are not supported or that a walk has seen. Looks around a cube only once.
    void walkNear(CubeIndex const & index)
    {
        if (!mayBegin(index))
            return;
        Cube cube = m_lattice.at(index);
        if (!m_lattice.markSeen(cube))
            return;
        bool const isUsable = m_lattice.complete(cube);
        if (isCrossed(cube)) {
            if (isUsable)
                begin(cube);
            return;
        }
        for (CubeCut::Face const & face : CubeCut::faces) {
            CubeIndex const beside = neighbourOf(index, face);
            if (!mayBegin(beside))
                continue;
            Cube neighbour = m_lattice.at(beside);
            bool const mayBeUsed = m_lattice.complete(neighbour);
            if (isCrossed(neighbour) && m_lattice.markSeen(neighbour) && mayBeUsed)
                begin(neighbour);
        }
    }

    /// Follows the patches, after all walks. What of them lies beyond the skirt takes no more area than
    /// the supported surface, or than `largestGap` times that if this is more.
    /// \param largestGap share of the area of the supported surface that a patch may have; 0 when NaN
    void followPatches(double largestGap)
    {
        for (;;) {
            bool const isSkirt = !m_skirt.empty();
            if (!isSkirt && m_beyond.empty())
                break;
            std::deque<Waiting> & queue = isSkirt ? m_skirt : m_beyond;
            Waiting const next = queue.front();
            queue.pop_front();
            int const patch = rootOf(m_patchOf[static_cast<std::size_t>(next.number)]);
            if (!isSkirt && !mayGrow(m_patches[static_cast<std::size_t>(patch)], largestGap)) {
                m_patches[static_cast<std::size_t>(patch)].isOpen = true;
                continue;
            }
            Cube cube = m_lattice.across(next.from, CubeCut::faces[next.face]);
            if (!m_lattice.complete(cube))
                continue;
            double const area = visit(cube, patch);
            m_patches[static_cast<std::size_t>(rootOf(patch))].area += area;
            m_beyondArea += isSkirt ? 0.0 : area;
            flood(); // over supported surface that the patch has met
        }
        for (std::size_t n = 0; n < m_patches.size(); ++n) {
            Patch const & patch = m_patches[n];
            bool const isRoot = patch.parent == static_cast<int>(n);
            m_counts.abandonedPatches += isRoot && patch.isOpen ? 1 : 0;
            m_counts.closedPatches += isRoot && !patch.isOpen && patch.area > 0.0 ? 1 : 0;
        }
    }

    /// Would `walkNear` do nothing? May be false without a look. Between walks, from any threads.
    bool isSettled(CubeIndex const & index) const { return m_lattice.isSettled(index); }

    Counts const & counts() const { return m_counts; }

private:
    using Level = SupportedCubes::Level;
    static constexpr int noPatch = -1;

    // An unsupported cube, across a face of one that was visited.
    struct Waiting
    {
        Cube from;
        int face;
        int number; // among unsupported ones
    };
    // A node of a forest; the roots are the patches.
    struct Patch
    {
        int parent;
        bool isOpen;
        double area;
    };

    Level levelOf(CubeIndex const & cube) const
    {
        return m_support != nullptr ? m_support->levelOf(cube) : Level::supported;
    }

    static CubeIndex neighbourOf(CubeIndex const & index, CubeCut::Face const & face)
    {
        return {index[0] + face.step[0], index[1] + face.step[1], index[2] + face.step[2]};
    }

    bool mayBegin(CubeIndex const & index) const { return m_limits.contains(index) && isSupported(index); }

    bool isCrossed(Cube const & cube) const
    {
        int const signs = m_lattice.signsOf(cube);
        return signs != 0 && signs != 255;
    }

    void begin(Cube const & cube)
    {
        double const before = m_supportedArea;
        m_cubes.push_back(cube);
        flood();
        m_counts.pieces += m_supportedArea > before ? 1 : 0;
    }

    void flood()
    {
        while (!m_cubes.empty()) {
            Cube const cube = m_cubes.back();
            m_cubes.pop_back();
            m_supportedArea += visit(cube, noPatch);
        }
    }

    // Passes the triangles of a cube on, and lets the neighbours that the surface enters wait. Returns the
    // area in the cube.
    double visit(Cube const & cube, int patch)
    {
        int const signs = m_lattice.signsOf(cube);
        CubePlan const & plan = cubePlanOf(signs);
        m_lattice.addTriangles(cube, plan, m_sink);
        CubeIndex const index = m_lattice.indexOf(cube);
        for (int face = 0; face < 6; ++face) {
            int const sharedSigns = CubeCut::signsAt(signs, CubeCut::faces[face].corners);
            if (sharedSigns != 0 && sharedSigns != 15)
                meetNeighbour(cube, index, face, patch);
        }
        return plan.area;
    }

    void meetNeighbour(Cube const & cube, CubeIndex const & index, int face, int patch)
    {
        CubeIndex const next = neighbourOf(index, CubeCut::faces[face]);
        if (!m_limits.contains(next)) {
            m_counts.hasMetLimit = true;
            if (patch != noPatch)
                m_patches[static_cast<std::size_t>(rootOf(patch))].isOpen = true;
            return;
        }
        if (m_lattice.isSeenAcross(cube, CubeCut::faces[face])) // so it is a supported one
            return;
        Level const level = levelOf(next);
        if (level != Level::supported) {
            addUnsupported({cube, face, 0}, next, level, patch);
            return;
        }
        Cube neighbour = m_lattice.across(cube, CubeCut::faces[face]);
        if (m_lattice.markSeen(neighbour) && m_lattice.complete(neighbour))
            m_cubes.push_back(neighbour);
    }

    void addUnsupported(Waiting waiting, CubeIndex const & index, Level level, int patch)
    {
        CInt3 const place(index.data());
        std::uint64_t const hash = CLatticeHash::hashOf(place, 0);
        int const known = m_unsupportedTable.find(
            hash, [&](int number) { return m_unsupported[static_cast<std::size_t>(number)] == place; });
        if (known >= 0) {
            if (patch != noPatch)
                unite(patch, m_patchOf[static_cast<std::size_t>(known)]);
            return;
        }
        if (patch == noPatch) {
            patch = static_cast<int>(m_patches.size());
            m_patches.push_back({patch, false, 0.0});
        }
        waiting.number = static_cast<int>(m_unsupported.size());
        m_unsupported.push_back(place);
        m_patchOf.push_back(patch);
        m_unsupportedTable.insert(hash, waiting.number, [&](int number) {
            return CLatticeHash::hashOf(m_unsupported[static_cast<std::size_t>(number)], 0);
        });
        (level == Level::skirt ? m_skirt : m_beyond).push_back(waiting);
    }

    // Beyond the skirt.
    bool mayGrow(Patch const & patch, double largestGap) const
    {
        return !patch.isOpen && patch.area <= largestGap * m_supportedArea &&
               m_beyondArea <= std::max(1.0, largestGap) * m_supportedArea;
    }

    int rootOf(int patch)
    {
        while (m_patches[static_cast<std::size_t>(patch)].parent != patch) {
            int & parent = m_patches[static_cast<std::size_t>(patch)].parent;
            parent = m_patches[static_cast<std::size_t>(parent)].parent;
            patch = parent;
        }
        return patch;
    }

    void unite(int one, int other)
    {
        one = rootOf(one);
        other = rootOf(other);
        if (one == other)
            return;
        Patch & kept = m_patches[static_cast<std::size_t>(std::min(one, other))];
        Patch & joined = m_patches[static_cast<std::size_t>(std::max(one, other))];
        joined.parent = std::min(one, other);
        kept.area += joined.area;
        kept.isOpen = kept.isOpen || joined.isOpen;
    }

    Lattice & m_lattice;
    CubeBox const m_limits;
    SupportedCubes const * const m_support;
    TriangleSink & m_sink;
    Counts m_counts;
    std::vector<Cube> m_cubes; // supported and seen, to be visited
    double m_supportedArea = 0.0;
    // Unsupported cubes that the walk has met, whether they were visited or not.
    std::vector<CInt3> m_unsupported;
    std::vector<int> m_patchOf;
    CLatticeHash m_unsupportedTable;
    std::vector<Patch> m_patches;
    std::deque<Waiting> m_skirt;
    std::deque<Waiting> m_beyond;
    double m_beyondArea = 0.0;
};

} // namespace VolTr
