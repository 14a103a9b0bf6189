// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/ContourCorners.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

using REmath::Point3D;
using REmath::Point3D_d;

namespace
{

constexpr double straightCosine = -1.0;
// A `float` constant: the double nearest to -0.7 would be a different limit.
constexpr double leastCornerCosine = -0.7F;
// Marks as close as this compete, in a contour of more than `smallContour` points.
constexpr std::size_t thinningReach = 5;
constexpr std::size_t smallContour = 10;

double dotProduct(Point3D_d const & a, Point3D_d const & b)
{
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}

// The points of a contour under cyclic or bounded steps.
class TF_Contour
{
public:
    TF_Contour(std::vector<Point3D_d> const & points, double radius2, bool closed)
        : m_points(points), m_radius2(radius2), m_closed(closed)
    {}

    std::size_t size() const { return m_points.size(); }
    bool isClosed() const { return m_closed; }

    std::size_t next(std::size_t i) const { return i + 1 == size() ? 0 : i + 1; }
    std::size_t previous(std::size_t i) const { return i == 0 ? size() - 1 : i - 1; }

    // Cosine of the opening angle at each point. False when a closed contour lies within the radius of a
    // point.
    bool measure(std::vector<double> & cosines) const
    {
        cosines.assign(size(), straightCosine);
        for (std::size_t i = 0; i < size(); ++i) {
            Point3D_d forward, backward;
            if (!findChord<true>(i, forward)) {
                if (m_closed)
                    return false;
                continue;
            }
            if (findChord<false>(i, backward) && hasDirection(forward) && hasDirection(backward))
                cosines[i] = dotProduct(forward.normalize(), backward.normalize());
        }
        return true;
    }

private:
    static bool hasDirection(Point3D_d const & chord)
    {
        double const length2 = dotProduct(chord, chord);
        return length2 > 0 && std::isfinite(length2);
    }

    // The vector from point `i` to the first point in walking order that is farther than the radius. False
    // where the contour ends, or has come round, before.
    template <bool isForward>
    bool findChord(std::size_t i, Point3D_d & chord) const
    {
        std::size_t const last =
            m_closed ? (isForward ? previous(i) : next(i)) : (isForward ? size() - 1 : 0);
        for (std::size_t j = i; j != last;) {
            j = isForward ? next(j) : previous(j);
            chord = m_points[j] - m_points[i];
            if (dotProduct(chord, chord) > m_radius2)
                return true;
        }
        return false;
    }

    std::vector<Point3D_d> const & m_points;
    double m_radius2;
    bool m_closed;
};

// Leaves of marks that are too close together the sharper, or the later one. Clearing a mark makes no new
// pair, so what the scan has passed stays settled and one pass is enough.
void thinMarks(TF_Contour const & contour, std::vector<double> const & cosines, std::vector<int> & marks)
{
    std::size_t const size = contour.size();
    std::size_t const margin = contour.isClosed() ? 0 : 1;
    for (std::size_t i = margin; i + margin < size; ++i) {
        for (std::size_t offset = 1; offset <= thinningReach && marks[i] != 0; ++offset) {
            std::size_t other = i + offset;
            if (other >= size) {
                if (!contour.isClosed())
                    break;
                other -= size;
            }
            if (marks[other] != 0)
                marks[cosines[i] > cosines[other] ? other : i] = 0;
        }
    }
}

template <class P>
bool SplitContourByCornersTmpl(std::vector<std::vector<P>> * segments, std::vector<P> const & contour,
                               double radius2, bool closed, int * cornerCount)
{
    std::vector<int> marks;
    if (segments == nullptr || !GetContourCornerMarks(contour, radius2, closed, marks))
        return false;
    std::vector<std::size_t> corners;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i] == 1)
            corners.push_back(i);
    }
    // Apart from `segments`, which may hold the contour.
    std::vector<std::vector<P>> pieces;
    if (corners.empty() || (closed && corners.size() == 1)) {
        pieces.push_back(contour);
    } else {
        auto const point = [&](std::size_t i) { return contour.begin() + static_cast<std::ptrdiff_t>(i); };
        for (std::size_t corner = 0; corner + 1 < corners.size(); ++corner)
            pieces.emplace_back(point(corners[corner]), point(corners[corner + 1]) + 1);
        if (closed) {
            pieces.emplace_back(point(corners.back()), contour.end());
            pieces.back().insert(pieces.back().end(), contour.begin(), point(corners.front()) + 1);
        }
    }
    segments->insert(segments->end(), std::make_move_iterator(pieces.begin()),
                     std::make_move_iterator(pieces.end()));
    if (cornerCount != nullptr)
        *cornerCount = static_cast<int>(corners.size());
    return true;
}

} // namespace

bool GetContourCornerMarks(std::vector<Point3D> const & contour, double radius2, bool closed,
                           std::vector<int> & marks)
{
    std::vector<Point3D_d> points;
    points.reserve(contour.size());
    for (Point3D const & point : contour)
        points.emplace_back(point.asArray());
    return GetContourCornerMarks(points, radius2, closed, marks);
}

bool GetContourCornerMarks(std::vector<Point3D_d> const & contour, double radius2, bool closed,
                           std::vector<int> & marks)
{
    std::size_t const size = contour.size();
    TF_Contour const walker(contour, radius2, closed);
    std::vector<double> cosines;
    if ((closed && size == 0) || !walker.measure(cosines))
        return false;
    marks.assign(size, 0);
    if (size == 0)
        return true;
    std::size_t const margin = closed ? 0 : 1;
    for (std::size_t i = margin; i + margin < size; ++i) {
        double const neighbours = std::max(cosines[walker.previous(i)], cosines[walker.next(i)]);
        marks[i] = cosines[i] >= leastCornerCosine && cosines[i] >= neighbours ? 1 : 0;
    }
    if (!closed)
        marks.front() = marks.back() = 1;
    if (size > smallContour)
        thinMarks(walker, cosines, marks);
    return true;
}

bool SplitContourByCorners(std::vector<std::vector<Point3D>> * segments, std::vector<Point3D> const & contour,
                           double radius2, bool closed, int * cornerCount)
{
    return SplitContourByCornersTmpl(segments, contour, radius2, closed, cornerCount);
}

bool SplitContourByCorners(std::vector<std::vector<Point3D_d>> * segments,
                           std::vector<Point3D_d> const & contour, double radius2, bool closed,
                           int * cornerCount)
{
    return SplitContourByCornersTmpl(segments, contour, radius2, closed, cornerCount);
}
