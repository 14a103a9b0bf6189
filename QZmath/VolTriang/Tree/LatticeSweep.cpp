// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Tree/LatticeSweep.h>

#include <QZmath/Backend/LargeVector.h>

#include <climits>

namespace VolTr
{

namespace
{

int const pointsPerPart = 1 << 14;

} // namespace

void LatticeSweep::Part::add(CInt3 const & place, int payload)
{
    bool const isNewPlane = planes.empty() || planes.back().coord != place.x();
    if (isNewPlane)
        planes.push_back({place.x(), static_cast<int>(lines.size())});
    if (isNewPlane || lines.back().coord != place.y())
        lines.push_back({place.y(), static_cast<int>(points.size())});
    points.push_back({place.z(), payload});
}

CLatticeIndex LatticeSweep::sorted(std::vector<CInt3> const & places, std::vector<int> const & payloads)
{
    int const count = static_cast<int>(places.size());
    std::vector<Part> parts(static_cast<std::size_t>((count + pointsPerPart - 1) / pointsPerPart));
    m_team.forEach(static_cast<int>(parts.size()), [&](int number) {
        Part & part = parts[static_cast<std::size_t>(number)];
        int const begin = number * pointsPerPart;
        int const end = begin + std::min(pointsPerPart, count - begin);
        for (std::size_t n = static_cast<std::size_t>(begin); n < static_cast<std::size_t>(end); ++n)
            part.add(places[n], payloads[n]);
    });
    return join(parts).index;
}

CLatticeIndex LatticeSweep::halved(CLatticeIndex const & source, int offset)
{
    return sweep(source, {1, {offset, 0}, 1, false}).index;
}

LatticeSweep::Surroundings LatticeSweep::surrounded(CLatticeIndex const & cubes)
{
    return sweep(cubes, {0, {0, 1}, 2, true});
}

void LatticeSweep::scale(CLatticeIndex & index, int shift, int add)
{
    auto const scaled = [&](int coord) { return coord * (1 << shift) + add; };
    for (std::vector<Group> * groups : {&index.m_planes, &index.m_lines}) {
        for (Group & group : *groups)
            group.coord = scaled(group.coord);
    }
    forEachPoint(index, [&](int position, CInt3 const & place, int &) {
        index.m_points[static_cast<std::size_t>(position)].z = scaled(place.z());
    });
}

// Takes the elements with the least coordinate off all streams: tells it in `least`, and calls
// visit(element, corner) for each. False when the streams are at their ends.
template <class Element, class Visit>
bool LatticeSweep::takeLeast(Stream<Element> * streams, int count, int shift, int & least,
                             Visit const & visit)
{
    bool isAny = false;
    for (int n = 0; n < count; ++n) {
        Stream<Element> const & stream = streams[n];
        if (stream.next == stream.end)
            continue;
        int const coord = (coordOf(*stream.next) + stream.add) >> shift;
        least = isAny ? std::min(least, coord) : coord;
        isAny = true;
    }
    if (!isAny)
        return false;
    for (int n = 0; n < count; ++n) {
        Stream<Element> & stream = streams[n];
        for (; stream.next != stream.end && (coordOf(*stream.next) + stream.add) >> shift == least;
             ++stream.next)
            visit(*stream.next, stream.corner);
    }
    return true;
}

// The planes of the result in their order, large ones in several tasks.
std::vector<LatticeSweep::PlaneTask> LatticeSweep::plan(CLatticeIndex const & source, Rule const & rule) const
{
    std::vector<PlaneTask> tasks;
    Stream<Group> streams[mostSources];
    Group const * const planes = source.m_planes.data();
    for (int n = 0; n < rule.addsNumber; ++n)
        streams[n] = {planes, planes + source.m_planes.size() - 1, rule.adds[n], n};
    for (;;) {
        PlaneTask task = {0, {}, {}, 0, INT_MIN, INT_MAX};
        int points = 0;
        int widest = 0;
        int greatest = -1;
        if (!takeLeast(streams, rule.addsNumber, rule.shift, task.coord,
                       [&](Group const & plane, int corner) {
                           int const own = source.m_lines[static_cast<std::size_t>((&plane)[1].begin)].begin -
                                           source.m_lines[static_cast<std::size_t>(plane.begin)].begin;
                           int const index = static_cast<int>(&plane - planes);
                           task.planes[task.planesNumber] = index;
                           task.corners[task.planesNumber] = corner;
                           ++task.planesNumber;
                           points += own;
                           widest = own > greatest ? index : widest;
                           greatest = std::max(greatest, own);
                       }))
            return tasks;
        // Cut at lines of the plane with the most points.
        Group const & plane = planes[widest];
        Group const * const lines = source.m_lines.data();
        int const parts = points / pointsPerPart + 1;
        for (int part = 1; part < parts; ++part) {
            int const at = lines[plane.begin].begin +
                           static_cast<int>(static_cast<std::int64_t>(greatest) * part / parts);
            Group const * const line =
                std::lower_bound(lines + plane.begin, lines + (&plane)[1].begin, at,
                                 [](Group const & group, int place) { return group.begin < place; });
            if (line == lines + (&plane)[1].begin)
                break;
            int const cut = (line->coord + rule.adds[0]) >> rule.shift;
            if (cut <= task.lowestLine)
                continue;
            task.highestLine = cut - 1;
            tasks.push_back(task);
            task.lowestLine = cut;
            task.highestLine = INT_MAX;
        }
        tasks.push_back(task);
    }
}

void LatticeSweep::sweepPlane(CLatticeIndex const & source, Rule const & rule, PlaneTask const & task,
                              Part & part)
{
    struct Source
    {
        Group const * line;
        int corner;
    };
    int const most = mostSources * mostSources;
    Stream<Group> lines[most];
    int linesNumber = 0;
    for (int n = 0; n < task.planesNumber; ++n) {
        Group const * const plane = &source.m_planes[static_cast<std::size_t>(task.planes[n])];
        for (int k = 0; k < rule.addsNumber; ++k) {
            auto const coordBelow = [&](Group const & line, int coord) {
                return (line.coord + rule.adds[k]) >> rule.shift < coord;
            };
            Group const * const all = source.m_lines.data();
            Group const * begin = all + plane[0].begin;
            Group const * end = all + plane[1].begin;
            if (task.lowestLine != INT_MIN)
                begin = std::lower_bound(begin, end, task.lowestLine, coordBelow);
            if (task.highestLine != INT_MAX)
                end = std::lower_bound(begin, end, task.highestLine + 1, coordBelow);
            lines[linesNumber++] = {begin, end, rule.adds[k], task.corners[n] | k << 1};
        }
    }
    int y = 0;
    for (;;) {
        Source together[most];
        int number = 0;
        if (!takeLeast(lines, linesNumber, rule.shift, y, [&](Group const & line, int corner) {
                together[number++] = {&line, corner};
            }))
            return;
        Stream<Point> points[most * mostSources];
        int pointsNumber = 0;
        for (int n = 0; n < number; ++n) {
            Point const * const all = source.m_points.data();
            for (int k = 0; k < rule.addsNumber; ++k)
                points[pointsNumber++] = {all + together[n].line[0].begin, all + together[n].line[1].begin,
                                          rule.adds[k], together[n].corner | k << 2};
        }
        int z = 0;
        int payload = 0;
        int corner = 0;
        bool isFirst = true;
        auto const take = [&](Point const & point, int ofCorner) {
            if (isFirst || point.payload < payload) {
                payload = point.payload;
                corner = ofCorner;
            }
            isFirst = false;
        };
        while (takeLeast(points, pointsNumber, rule.shift, z, take)) {
            part.add(CInt3(task.coord, y, z), payload);
            if (rule.keepsCorners)
                part.corners.push_back(static_cast<std::uint8_t>(corner));
            isFirst = true;
        }
    }
}

LatticeSweep::Surroundings LatticeSweep::sweep(CLatticeIndex const & source, Rule const & rule)
{
    if (source.size() == 0)
        return {};
    std::vector<PlaneTask> const tasks = plan(source, rule);
    // Small planes together.
    std::vector<std::size_t> begins;
    int points = pointsPerPart;
    for (std::size_t n = 0; n < tasks.size(); ++n) {
        if (points >= pointsPerPart) {
            begins.push_back(n);
            points = 0;
        }
        for (int k = 0; k < tasks[n].planesNumber; ++k) {
            Group const * const plane = &source.m_planes[static_cast<std::size_t>(tasks[n].planes[k])];
            points += source.m_lines[static_cast<std::size_t>(plane[1].begin)].begin -
                      source.m_lines[static_cast<std::size_t>(plane[0].begin)].begin;
        }
    }
    begins.push_back(tasks.size());
    std::vector<Part> parts(begins.size() - 1);
    m_team.forEach(static_cast<int>(parts.size()), [&](int number) {
        std::size_t const n = static_cast<std::size_t>(number);
        for (std::size_t task = begins[n]; task < begins[n + 1]; ++task)
            sweepPlane(source, rule, tasks[task], parts[n]);
    });
    return join(parts);
}

LatticeSweep::Surroundings LatticeSweep::join(std::vector<Part> & parts)
{
    // Where each part begins, and what of it goes on from the part before.
    struct Begin
    {
        std::size_t plane, line, point;
        std::size_t skippedPlanes, skippedLines;
    };
    std::vector<Begin> begins;
    std::size_t planes = 0;
    std::size_t lines = 0;
    std::size_t points = 0;
    Part const * last = nullptr;
    for (Part const & part : parts) {
        bool const isSamePlane =
            last != nullptr && !part.planes.empty() && last->planes.back().coord == part.planes.front().coord;
        bool const isSameLine = isSamePlane && last->lines.back().coord == part.lines.front().coord;
        begins.push_back({planes, lines, points, isSamePlane ? 1U : 0U, isSameLine ? 1U : 0U});
        planes += part.planes.size() - begins.back().skippedPlanes;
        lines += part.lines.size() - begins.back().skippedLines;
        points += part.points.size();
        last = part.planes.empty() ? last : &part;
    }
    Surroundings result;
    CLatticeIndex & index = result.index;
    if (points == 0)
        return result;
    bool const hasCorners = !last->corners.empty();
    index.m_planes.resize(planes + 1);
    QzBackend::assignLarge(m_team, index.m_lines, lines + 1);
    QzBackend::assignLarge(m_team, index.m_points, points);
    index.m_planes.back() = {0, static_cast<int>(lines)};
    index.m_lines.back() = {0, static_cast<int>(points)};
    QzBackend::assignLarge(m_team, result.corners, hasCorners ? points : 0);
    m_team.forEach(static_cast<int>(parts.size()), [&](int number) {
        Part & part = parts[static_cast<std::size_t>(number)];
        Begin const & begin = begins[static_cast<std::size_t>(number)];
        for (std::size_t n = begin.skippedPlanes; n < part.planes.size(); ++n)
            index.m_planes[begin.plane + n - begin.skippedPlanes] = {
                part.planes[n].coord,
                part.planes[n].begin + static_cast<int>(begin.line - begin.skippedLines)};
        for (std::size_t n = begin.skippedLines; n < part.lines.size(); ++n)
            index.m_lines[begin.line + n - begin.skippedLines] = {
                part.lines[n].coord, part.lines[n].begin + static_cast<int>(begin.point)};
        std::copy(part.points.begin(), part.points.end(),
                  index.m_points.begin() + static_cast<std::ptrdiff_t>(begin.point));
        if (hasCorners)
            std::copy(part.corners.begin(), part.corners.end(),
                      result.corners.begin() + static_cast<std::ptrdiff_t>(begin.point));
        part = Part();
    });
    return result;
}

} // namespace VolTr
