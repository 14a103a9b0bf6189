// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Reconstruction/Mesh/Vec.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class CProgressCounter;

namespace QzBackend
{
class CDirectSolver;
}

namespace QZmath::Stages
{

/// A part of a mesh whose inner vertices may move. Vertices are numbered anew: first those that are free.
struct PlatePatch
{
    std::int32_t free = 0;     ///< vertices that may move
    std::int32_t balanced = 0; ///< held ones after those: neighbours of free ones, with all their triangles
    std::vector<Vec> places;
    std::vector<std::array<std::int32_t, 3>> triangles;
};

/// Shapes for the free vertices of a patch, which a plate takes that is held at the others.
///
/// The membrane stretches over the rim: each free vertex is the mean of its neighbours, so that no crease or
/// spike of the patch survives. The thin plate bends as little as it can and continues the tangents of the
/// balanced vertices: the squares of the Laplacians of free and balanced vertices, divided by their areas,
/// have the least sum (Botsch, Kobbelt: An intuitive framework for real-time freeform modeling, 2004). Their
/// weights are the cotangents of the angles of a shape nearby, such as the membrane.
///
/// Where the surface meets the membrane at more than 75 degrees, the patch ends at a sharp corner of the
/// object, such as the edge of a missing base, and a plate that went on along the tangents would blow up like
/// a balloon. Near those parts of the rim it is under tension, so that it turns into the membrane within
/// about one radius.
///
/// Both are sparse symmetric systems of one structure: about 10 elements a vertex on and above the diagonal,
/// and factors of about n log n. The same bits for any number of threads.
class ThinPlate
{
public:
    /// \param patch kept by reference; every connected part of it has held vertices
    /// \throws what the progress counter throws; it may be null
    ThinPlate(PlatePatch const & patch, CProgressCounter * progress);
    ~ThinPlate();

    /// Sets the free vertices of `places` to the membrane. False when the system is singular or the result
    /// not finite. \throws what the progress counter throws; it may be null
    bool stretch(std::vector<Vec> & places, CProgressCounter * progress);
    /// Sets them from the shape as which they come, usually the membrane, to the plate.
    /// \param radius with which it turns at sharp corners, in model units; 0: without tension there
    bool bend(std::vector<Vec> & places, double radius, CProgressCounter * progress);

private:
    struct Weights;
    struct System;
    class Assembly;
    std::vector<Vec> normalsOffRim(std::vector<Vec> const & places, bool isInside) const;
    std::vector<std::uint8_t> findSharpRim(std::vector<Vec> const & places) const;
    std::vector<std::uint8_t> findTense(std::vector<Vec> const & places, double radius) const;
    Weights weigh(std::vector<Vec> const & places) const;
    bool solve(System && system, std::vector<Vec> & places, CProgressCounter * progress);

    std::size_t rows() const { return m_starts.size() - 1; }
    template <class Visit>
    void forEachNeighbour(std::size_t vertex, Visit const & visit) const
    {
        for (std::int32_t n = m_starts[vertex]; n < m_starts[vertex + 1]; ++n)
            visit(static_cast<std::size_t>(m_neighbours[static_cast<std::size_t>(n)]),
                  static_cast<std::size_t>(n));
    }

    PlatePatch const & m_patch;
    std::unique_ptr<QzBackend::CDirectSolver> m_solver; // with the first system's order of elimination
    std::unique_ptr<System> m_structure;                // whose arrays it uses
    std::vector<std::int32_t> m_starts;                 // of the neighbours of free and balanced vertices
    std::vector<std::int32_t> m_neighbours;             // of each of them in rising order
};

} // namespace QZmath::Stages
