// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/LatticeIndex.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace VolTr
{

/// Makes indices of lattice points from sorted ones by merging their lines, without a search or a hash table.
/// Where several points of the source come together, the one with the least payload counts. Linear in the
/// points, on all threads of the team, with a result that does not depend on their number.
class LatticeSweep
{
public:
    explicit LatticeSweep(QzBackend::LoopTeam & team) : m_team(team) {}

    /// \param places distinct, ascending
    CLatticeIndex sorted(std::vector<CInt3> const & places, std::vector<int> const & payloads);

    /// The points (c + offset) / 2, rounded down, of all points c, each with the least payload of its points.
    CLatticeIndex halved(CLatticeIndex const & source, int offset);

    struct Surroundings
    {
        CLatticeIndex index;
        std::vector<std::uint8_t> corners; ///< by position: of the cube that the payload is from
    };
    /// The corners of all cubes, by their least corners; bits 0, 1 and 2 of a corner step along x, y and z.
    Surroundings surrounded(CLatticeIndex const & cubes);

    /// Calls visit(position, place, payload), the payload to be changed, for all points of an index, on any
    /// thread.
    template <class Visit>
    void forEachPoint(CLatticeIndex & index, Visit const & visit);

    /// Turns all coordinates c into `c * 2^shift + add`.
    void scale(CLatticeIndex & index, int shift, int add);

private:
    using Group = CLatticeIndex::Group;
    using Point = CLatticeIndex::Point;
    static constexpr int mostSources = 2; // lines or planes that come together along an axis

    // What a coordinate of the source becomes: (coord + add) >> shift, for each of some `add`.
    struct Rule
    {
        int shift;
        int adds[mostSources];
        int addsNumber;
        bool keepsCorners;
    };
    template <class Element>
    struct Stream
    {
        Element const * next;
        Element const * end;
        int add;
        int corner;
    };
    // A plane of the result, of which some lines are made.
    struct PlaneTask
    {
        int coord;
        int planes[mostSources];
        int corners[mostSources];
        int planesNumber;
        int lowestLine;
        int highestLine;
    };
    // Consecutive points of an index. A plane or a line may go on in the next part.
    struct Part
    {
        std::vector<Group> planes;
        std::vector<Group> lines;
        std::vector<Point> points;
        std::vector<std::uint8_t> corners;
        void add(CInt3 const & place, int payload);
    };

    static int coordOf(Group const & group) { return group.coord; }
    static int coordOf(Point const & point) { return point.z; }
    template <class Element, class Visit>
    static bool takeLeast(Stream<Element> * streams, int count, int shift, int & least, Visit const & visit);
    std::vector<PlaneTask> plan(CLatticeIndex const & source, Rule const & rule) const;
    static void sweepPlane(CLatticeIndex const & source, Rule const & rule, PlaneTask const & task,
                           Part & part);
    Surroundings sweep(CLatticeIndex const & source, Rule const & rule);
    Surroundings join(std::vector<Part> & parts);

    QzBackend::LoopTeam & m_team;
};

template <class Visit>
void LatticeSweep::forEachPoint(CLatticeIndex & index, Visit const & visit)
{
    int const pointsPerChunk = 1 << 14;
    int const chunks = (index.size() + pointsPerChunk - 1) / pointsPerChunk;
    auto const groupOf = [](std::vector<Group> const & groups, int begin) {
        auto const behind =
            std::upper_bound(groups.begin(), groups.end() - 1, begin,
                             [](int place, Group const & group) { return place < group.begin; });
        return static_cast<std::size_t>(behind - groups.begin()) - 1;
    };
    m_team.forEach(chunks, [&](int chunk) {
        int const begin = chunk * pointsPerChunk;
        int const end = begin + std::min(pointsPerChunk, index.size() - begin);
        std::size_t line = groupOf(index.m_lines, begin);
        std::size_t plane = groupOf(index.m_planes, static_cast<int>(line));
        for (int position = begin; position < end; ++position) {
            if (position == index.m_lines[line + 1].begin)
                ++line;
            if (static_cast<int>(line) == index.m_planes[plane + 1].begin)
                ++plane;
            Point & point = index.m_points[static_cast<std::size_t>(position)];
            visit(position, CInt3(index.m_planes[plane].coord, index.m_lines[line].coord, point.z),
                  point.payload);
        }
    });
}

} // namespace VolTr
