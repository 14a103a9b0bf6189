// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/VolTriang/Stages/CubeFrame.h>
#include <QZmath/VolTriang/Tree/LatticeHash.h>

#include <array>
#include <cstdint>
#include <vector>

namespace VolTr
{

/// Which cubes of the polygoniser lie near points, at two distances along the axes. Errs to the near side
/// only, by less than the edge of a cube, or than the distance where this is more than two edges.
///
/// The marks are bits in bricks of 8 x 8 x 8, of single cubes or, where the distances are many edges, of
/// blocks of cubes, so a point sets a few hundred marks at most. Memory: some 200 bytes a brick.
///
/// `levelOf` remembers where it was asked last, so an object serves one thread.
class QZMATH_SISTER_API SupportedCubes
{
public:
    enum class Level
    {
        beyond, ///< both distances
        skirt,  ///< the first one only
        supported
    };

    /// \param distance    in model units, above 0 and finite
    /// \param farDistance likewise, not less
    SupportedCubes(CubeFrame const & frame, double distance, double farDistance);

    void add(float const * point);
    /// All marks of another object with the same frame and distances.
    void add(SupportedCubes const & other);
    Level levelOf(CubeIndex const & cube) const;

private:
    struct Brick
    {
        CInt3 place;
        std::uint64_t supported[8]; // by plane x: bit 8 y + z
        std::uint64_t skirt[8];
    };

    struct BlockBox
    {
        std::array<int, 3> low = {1, 1, 1};
        std::array<int, 3> high = {0, 0, 0};
    };

    int findBrick(CInt3 const & place) const;
    Brick & brickAt(CInt3 const & place);
    template <std::uint64_t (Brick::*Planes)[8]>
    void mark(float const * point, double distance, BlockBox & last);

    CubeFrame m_frame;
    double m_distance;
    double m_farDistance;
    int m_shift = 0; // a block has 2^shift cubes along an axis
    std::vector<Brick> m_bricks;
    CLatticeHash m_table;
    mutable int m_last = -1;
    BlockBox m_lastSupported; // that were marked
    BlockBox m_lastSkirt;
};

} // namespace VolTr
