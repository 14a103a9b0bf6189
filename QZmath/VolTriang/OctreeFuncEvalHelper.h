// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Lattice.h>
#include <QZmath/VolTriang/Parallelepiped.h>

#include <cstddef>
#include <vector>

namespace VolTr
{

/// Remembers for a few cubic regions which functions of a combination matter there, so that evaluations at
/// neighbouring points do not walk the octree again.
///
/// Belongs to one thread and to one combination: the regions hold that combination's nodes and coefficients.
/// Copyable. A hit allocates nothing; a new region reuses the memory of the one that it replaces.
class QZMATH_API COctreeFuncEvalHelper
{
public:
    /// \param regionsNumber    how many regions are kept; 0 or less keeps none
    /// \param regionHalfSize   half the edge of a region, in model units
    COctreeFuncEvalHelper(int regionsNumber, double regionHalfSize);
    virtual ~COctreeFuncEvalHelper();
    COctreeFuncEvalHelper(COctreeFuncEvalHelper const &);
    COctreeFuncEvalHelper & operator=(COctreeFuncEvalHelper const &);

    /// The first region in use that holds the point, bounds included, or -1. Counts the hit.
    int getCashedRegionindex(double const * const point);
    /// Makes a region around a point, in the first unused slot or in place of the one with the fewest hits
    /// (the first of them). -1 when no regions are kept.
    int recordNewRegion(double const * const point);
    /// Moves each corner of a box outward by the half size of a region.
    void enlargeRegion(CParallelepiped * box) const;
    /// Appends a node and its coefficient to a region; nothing for a negative region.
    void recordIndexInfo(int region, int basisIndex, double coefficient);

    /// Nodes and coefficients of a region, in the order of recording (region unchecked).
    std::vector<int>::const_iterator getBasisIndexesBegin(int region) const
    {
        return at(region).indexes.begin();
    }
    std::vector<int>::const_iterator getBasisIndexesEnd(int region) const { return at(region).indexes.end(); }
    std::vector<double>::const_iterator getCoeffsBegin(int region) const
    {
        return at(region).coefficients.begin();
    }
    std::vector<double>::const_iterator getCoeffsEnd(int region) const
    {
        return at(region).coefficients.end();
    }

private:
    template <class TKernel>
    friend class COctreeFuncLinCombImpl;

    // The entries of a region once more, as one dense brick of lattice places for each depth: a point's
    // neighbours stand at fixed distances from its place. Around each brick stands a margin of zeros as wide
    // as the kernel reaches.
    struct Plan
    {
        struct Brick
        {
            double scale;  // by which center minus point is multiplied
            int origin[3]; // least lattice place of an entry
            int step;      // lattice places from one to the next
            int counts[3]; // places on each axis, without the margin
            std::size_t firstAmplitude;
        };

        void const * basis = nullptr; // whose nodes the entries are; null when there is no plan
        std::size_t entriesPlanned = 0;
        double reach = 0.0;           // of the kernel, in steps
        int width = 0;                // how many places of an axis may be in reach; the margin is one less
        std::vector<CTreeNode> nodes; // of the entries, in their order
        std::vector<Brick> bricks;
        std::vector<double> amplitudes; // normalisation times coefficient; z runs fastest
    };

    struct Region
    {
        CParallelepiped box;
        int hits = -1; // -1 for a region that is not in use
        std::vector<int> indexes;
        std::vector<double> coefficients;
        Plan plan;
    };

    Region const & at(int region) const { return m_regions[static_cast<std::size_t>(region)]; }

    double m_regionHalfSize;
    std::vector<Region> m_regions;
};

} // namespace VolTr
