// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/Bricks/BrickPasses.h>
#include <QZmath/VolTriang/SingleVarPolynom.h>

#include <vector>

namespace VolTr
{

/// The integrals of products of one-variable kernels on the nodes of a lattice, by difference of depth.
///
/// With the kernel k and nodes x apart, x counted from the coarser to the finer one in cells of the coarser,
/// for a difference of d depths:
///
///     mass       m = integral of k(t) q(t - x)
///     stiffness  s = integral of k'(t) q'(t - x)
///     gradient   g = integral of k(t) q'(t - x)           q(t) = 2^d k(2^d t)
///
/// The functions of the basis are tensor products of them, so the integral of the product of two gradients is
/// m m s + m s m + s m m, in units of the coarser cell to the power of -5.
class BrickTables
{
public:
    /// Greatest difference of depth that is served for all bricks; the number of tables doubles with every
    /// one.
    static constexpr int maxDelta = 12;
    /// Greatest half width of a kernel in its own cells that is served.
    static constexpr double maxReach = 1.5;

    /// \param kernel symmetric around 0
    /// \param bricks numbers of bricks on any axis, by difference of depth minus `maxDelta` + 1, ascending:
    /// those
    ///               that may be asked for where the difference is greater than `maxDelta`, as nobody could
    ///               hold the tables of all
    BrickTables(CSingleVarLimitedPolynom const & kernel, bool isCentred, int greatestDelta,
                std::vector<std::vector<int>> const & bricks = {});

    /// The table of an axis for the brick of that number (its first place divided by 8).
    CoarseTable const & coarse(int delta, int brick) const
    {
        std::vector<CoarseTable> const & tables = m_coarse[static_cast<std::size_t>(delta - 1)];
        if (delta > maxDelta)
            return tables[indexOf(delta, brick)];
        // One position for each multiple of eight places in a coarse cell.
        return tables[static_cast<std::size_t>(brick) & (tables.size() - 1)];
    }
    /// Of the own depth, from the place two below to the one two above; the gradient
    /// is that of the other node.
    float const * ownMass() const { return m_ownMass; }
    float const * ownStiffness() const { return m_ownStiffness; }
    float const * ownGradient() const { return m_ownGradient; }
    /// Factor of m m s + m s m + s m m that makes the coupling of a node with itself 1.
    double ownScale() const { return m_ownScale; }

private:
    std::size_t indexOf(int delta, int brick) const;

    std::vector<std::vector<CoarseTable>> m_coarse;
    std::vector<std::vector<int>> m_positions; // of the tables of the differences beyond `maxDelta`
    float m_ownMass[ownTaps];
    float m_ownStiffness[ownTaps];
    float m_ownGradient[ownTaps];
    double m_ownScale;
};

} // namespace VolTr
