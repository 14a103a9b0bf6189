// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/SupportedCubes.h>

#include <algorithm>
#include <cmath>

namespace VolTr
{

namespace
{

// Distances are at most so many blocks.
double const mostBlocks = 2.0;

} // namespace

SupportedCubes::SupportedCubes(CubeFrame const & frame, double distance, double farDistance)
    : m_frame(frame), m_distance(distance), m_farDistance(farDistance)
{
    while (m_shift < 30 && distance > mostBlocks * std::fabs(std::ldexp(frame.edge, m_shift)))
        ++m_shift;
}

int SupportedCubes::findBrick(CInt3 const & place) const
{
    if (m_last < 0 || m_bricks[static_cast<std::size_t>(m_last)].place != place) {
        int const found = m_table.find(CLatticeHash::hashOf(place, 0), [&](int brick) {
            return m_bricks[static_cast<std::size_t>(brick)].place == place;
        });
        if (found < 0)
            return found;
        m_last = found;
    }
    return m_last;
}

SupportedCubes::Brick & SupportedCubes::brickAt(CInt3 const & place)
{
    int brick = findBrick(place);
    if (brick < 0) {
        brick = static_cast<int>(m_bricks.size());
        m_bricks.emplace_back();
        m_bricks.back().place = place;
        m_table.insert(CLatticeHash::hashOf(place, 0), brick, [&](int other) {
            return CLatticeHash::hashOf(m_bricks[static_cast<std::size_t>(other)].place, 0);
        });
    }
    return m_bricks[static_cast<std::size_t>(brick)];
}

// Marks the blocks that touch the box around a point.
template <std::uint64_t (SupportedCubes::Brick::*Planes)[8]>
void SupportedCubes::mark(float const * point, double distance, BlockBox & last)
{
    BlockBox box;
    std::array<int, 3> & low = box.low;
    std::array<int, 3> & high = box.high;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        int const ends[2] = {m_frame.indexOf(point[axis] - distance, axis) >> m_shift,
                             m_frame.indexOf(point[axis] + distance, axis) >> m_shift};
        low[axis] = std::min(ends[0], ends[1]);
        high[axis] = std::max(ends[0], ends[1]);
    }
    if (low == last.low && high == last.high)
        return;
    last = box;
    for (int x = low[0] >> 3; x <= high[0] >> 3; ++x) {
        for (int y = low[1] >> 3; y <= high[1] >> 3; ++y) {
            for (int z = low[2] >> 3; z <= high[2] >> 3; ++z) {
                int const firstZ = std::max(low[2] - 8 * z, 0);
                int const lastZ = std::min(high[2] - 8 * z, 7);
                std::uint64_t const row = (UINT64_C(2) << lastZ) - (UINT64_C(1) << firstZ);
                std::uint64_t rows = 0;
                for (int n = std::max(low[1] - 8 * y, 0); n <= std::min(high[1] - 8 * y, 7); ++n)
                    rows |= row << 8 * n;
                Brick & brick = brickAt(CInt3(x, y, z));
                for (int n = std::max(low[0] - 8 * x, 0); n <= std::min(high[0] - 8 * x, 7); ++n)
                    (brick.*Planes)[n] |= rows;
            }
        }
    }
}

void SupportedCubes::add(float const * point)
{
    mark<&Brick::supported>(point, m_distance, m_lastSupported);
    mark<&Brick::skirt>(point, m_farDistance, m_lastSkirt);
}

void SupportedCubes::add(SupportedCubes const & other)
{
    for (Brick const & marks : other.m_bricks) {
        Brick & own = brickAt(marks.place);
        for (int plane = 0; plane < 8; ++plane) {
            own.supported[plane] |= marks.supported[plane];
            own.skirt[plane] |= marks.skirt[plane];
        }
    }
}

SupportedCubes::Level SupportedCubes::levelOf(CubeIndex const & cube) const
{
    int const block[3] = {cube[0] >> m_shift, cube[1] >> m_shift, cube[2] >> m_shift};
    int const brick = findBrick(CInt3(block[0] >> 3, block[1] >> 3, block[2] >> 3));
    if (brick < 0)
        return Level::beyond;
    Brick const & marks = m_bricks[static_cast<std::size_t>(brick)];
    std::uint64_t const bit = UINT64_C(1) << (8 * (block[1] & 7) + (block[2] & 7));
    if ((marks.supported[block[0] & 7] & bit) != 0)
        return Level::supported;
    return (marks.skirt[block[0] & 7] & bit) != 0 ? Level::skirt : Level::beyond;
}

} // namespace VolTr
