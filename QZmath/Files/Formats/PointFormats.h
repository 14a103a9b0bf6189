// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>
#include <QZmath/Files/PointCloud.h>
#include <QZmath/Files/Streams/ByteSource.h>

#include <QZsys/Progress.h>

#include <cstdint>
#include <string>
#include <vector>

namespace QZmath
{

class ReadingProgress;
struct PointShare;

/// What a file says of its points, and of the triangles between them.
struct VertexData
{
    PointCloud points;
    std::vector<float> density;          ///< 1 a point, or empty
    std::vector<std::int32_t> triangles; ///< 3 a triangle, within the points
};

/// The readers of one format each. Throw `InputError`, and whatever the progress counter throws. What
/// `wanted` does not ask for is skipped. Those with a `share` read only that of a file, unless it is null.
enum class Wanted
{
    points,
    mesh
};
VertexData readPly(ByteSource & source, ReadingProgress & reading, Wanted wanted,
                   PointShare * share = nullptr);
VertexData readObj(ByteSource & source, ReadingProgress & reading, Wanted wanted);
VertexData readStl(ByteSource & source, ReadingProgress & reading);
PointCloud readText(ByteSource & source, ReadingProgress & reading, std::string const & columns,
                    bool intensityFirst, PointShare * share = nullptr);
PointCloud readPcd(ByteSource & source, ReadingProgress & reading);
PointCloud readLas(ByteSource & source, ReadingProgress & reading, PointShare * share = nullptr);

/// The note on points of a LAS file that count as deleted.
QZMATH_FILES_API std::string noteOnWithheld(std::size_t points);

/// Things of one size, `count` of them from a place of a file on, of which a share has those from `first` on.
struct RowRange
{
    std::uint64_t first, count;
};
RowRange rowsOf(PointShare const & share, std::uint64_t place, std::uint64_t size, std::uint64_t count);

/// Reports the share of the source that has been read, each time 64 KiB more are.
class ReadingProgress
{
public:
    ReadingProgress(ByteSource const & source, CProgressCounter * counter)
        : m_source(source), m_counter(counter)
    {}
    void update()
    {
        if (m_counter != nullptr && m_source.position() >= m_next) {
            m_next = m_source.position() + (1 << 16);
            m_counter->SetPosFloat(m_source.progress());
        }
    }

private:
    ByteSource const & m_source;
    CProgressCounter * m_counter;
    std::uint64_t m_next = 0;
};

} // namespace QZmath
