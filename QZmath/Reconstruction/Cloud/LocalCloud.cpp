// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Cloud/LocalCloud.h>

#include <QZmath/Backend/ParallelPieces.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

namespace QZmath
{

using QzBackend::findInPieces;
using QzBackend::forPieces;

namespace
{

// Sums of squares of coordinates stay finite up to here.
double const greatestCoordinate = 1e30;

// Smaller clouds leave the vertices no precision.
double const leastCloud = 1e-30;

// A cloud farther out than so many of its extents is moved.
double const farOut = 16.0;

// Extents that need no scaling, by far not reaching where squares or reciprocals leave the range of `float`.
double const leastExtent = 1e-3;
double const greatestExtent = 1e6;

[[noreturn]] void refuse(std::string const & sentence)
{
    throw ReconstructionError(ReconstructionError::Kind::input, sentence);
}

// Points with some flaw: how many, and the first.
class Flaw
{
public:
    void add(std::size_t point)
    {
        if (m_count++ == 0)
            m_first = static_cast<std::int64_t>(point);
    }
    void add(Flaw const & later)
    {
        if (m_count == 0)
            m_first = later.m_first;
        m_count += later.m_count;
    }
    void refuseIfAny(char const * what, std::int64_t firstIndex) const
    {
        if (m_count > 0)
            refuse(std::string(what) + " at " + std::to_string(m_count) +
                   (m_count == 1 ? " point" : " points") + ", the first at index " +
                   std::to_string(firstIndex + m_first) + ", counted from 0");
    }

private:
    std::size_t m_count = 0;
    std::int64_t m_first = 0;
};

template <class Number, class Predicate>
bool anyOf3(Number const * triple, Predicate predicate)
{
    return predicate(triple[0]) || predicate(triple[1]) || predicate(triple[2]);
}

struct CheckedBox
{
    CloudBox box;
    Flaw notFinite, tooLarge;
};

template <class Number>
CheckedBox checkPositions(Number const * positions, std::size_t begin, std::size_t end)
{
    CheckedBox found;
    for (std::size_t i = begin; i < end; ++i) {
        Number const * const point = positions + 3 * i;
        if (anyOf3(point, [](Number value) { return !std::isfinite(value); })) {
            found.notFinite.add(i);
            continue;
        }
        if (anyOf3(point,
                   [](Number value) { return std::abs(static_cast<double>(value)) > greatestCoordinate; }))
            found.tooLarge.add(i);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            found.box.low[axis] = std::min(found.box.low[axis], static_cast<double>(point[axis]));
            found.box.high[axis] = std::max(found.box.high[axis], static_cast<double>(point[axis]));
        }
    }
    return found;
}

template <class Number>
CloudBox boxOfPositions(Number const * positions, std::size_t size, std::int64_t firstIndex,
                        CProgressCounter * progress)
{
    CheckedBox all;
    for (CheckedBox const &part : findInPieces(static_cast<int>(size), progress, [&](int begin, int end) {
             return checkPositions(positions, static_cast<std::size_t>(begin), static_cast<std::size_t>(end));
         })) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            all.box.low[axis] = std::min(all.box.low[axis], part.box.low[axis]);
            all.box.high[axis] = std::max(all.box.high[axis], part.box.high[axis]);
        }
        all.notFinite.add(part.notFinite);
        all.tooLarge.add(part.tooLarge);
    }
    all.notFinite.refuseIfAny("the cloud has coordinates that are not finite", firstIndex);
    all.tooLarge.refuseIfAny("the cloud has coordinates beyond 1e30", firstIndex);
    return all.box;
}

template <class Number>
std::vector<float> toLocal(Number const * positions, std::size_t size, LocalFrame const & frame,
                           CProgressCounter * progress)
{
    std::vector<float> local(3 * size);
    forPieces(static_cast<int>(size), progress, [&](int begin, int end) {
        for (std::size_t i = 3 * static_cast<std::size_t>(begin); i < 3 * static_cast<std::size_t>(end); ++i)
            local[i] = frame.toLocal(static_cast<double>(positions[i]), i % 3);
    });
    return local;
}

// The rows of an array that have no mark.
template <class T>
std::vector<T> withoutMarked(T const * values, std::size_t width, std::vector<std::uint8_t> const & marks)
{
    std::vector<T> rest;
    if (values == nullptr)
        return rest;
    rest.reserve(width * marks.size());
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i] == 0)
            rest.insert(rest.end(), values + width * i, values + width * (i + 1));
    }
    return rest;
}

// An array of points is an array of their coordinates, and the other way round.
REmath::Point3D const * asPoints(float const * coords)
{
    static_assert(sizeof(REmath::Point3D) == 3 * sizeof(float) &&
                  std::is_standard_layout<REmath::Point3D>::value);
    return reinterpret_cast<REmath::Point3D const *>(coords);
}

double squaredLength(float const * normal)
{
    double sum = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis)
        sum += std::pow(static_cast<double>(normal[axis]), 2);
    return sum;
}

} // namespace

CloudBox::CloudBox()
{
    low.fill(std::numeric_limits<double>::infinity());
    high.fill(-std::numeric_limits<double>::infinity());
}

double CloudBox::extent() const
{
    double longest = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis)
        longest = std::max(longest, high[axis] - low[axis]);
    return longest;
}

void checkPositionArrays(PointCloudView const & cloud)
{
    if ((cloud.positions != nullptr) == (cloud.positions64 != nullptr))
        throw ReconstructionError(ReconstructionError::Kind::options,
                                  "the cloud has to have positions in exactly one of the two precisions");
    if (cloud.size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        refuse("the cloud has " + std::to_string(cloud.size) + " points, more than 2147483647");
}

CloudBox boxOf(PointCloudView const & cloud, std::int64_t firstIndex, CProgressCounter * progress)
{
    return cloud.positions != nullptr ? boxOfPositions(cloud.positions, cloud.size, firstIndex, progress)
                                      : boxOfPositions(cloud.positions64, cloud.size, firstIndex, progress);
}

LocalFrame frameOf(CloudBox const & box)
{
    LocalFrame frame;
    double const extent = box.extent();
    if (!(extent > 0.0))
        return frame;
    if (extent < leastCloud)
        refuse("the cloud is smaller than 1e-30 along its longest side");
    double farthest = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis)
        farthest = std::max({farthest, std::abs(box.low[axis]), std::abs(box.high[axis])});
    if (farthest > farOut * extent) {
        double const step = std::ldexp(1.0, std::ilogb(extent) + 1);
        for (std::size_t axis = 0; axis < 3; ++axis)
            frame.origin[axis] = std::round((box.low[axis] + box.high[axis]) / 2.0 / step) * step;
    }
    if (extent < leastExtent || extent > greatestExtent)
        frame.scale = std::ldexp(1.0, -std::ilogb(extent));
    return frame;
}

NormalsState checkNormals(PointCloudView const & cloud, std::int64_t firstIndex, CProgressCounter * progress)
{
    struct Part
    {
        Flaw notFinite;
        NormalsState state;
    };
    auto const check = [&](int begin, int end) {
        Part part;
        for (std::size_t i = static_cast<std::size_t>(begin); i < static_cast<std::size_t>(end); ++i) {
            double const square = squaredLength(cloud.normals + 3 * i);
            if (!std::isfinite(square))
                part.notFinite.add(i);
            part.state.areUnits = part.state.areUnits && (std::abs(square - 1.0) < 1e-4 || square == 0.0);
            part.state.areZero = part.state.areZero && square == 0.0;
        }
        return part;
    };
    Part all;
    for (Part const & part : findInPieces(static_cast<int>(cloud.size), progress, check)) {
        all.notFinite.add(part.notFinite);
        all.state.areUnits = all.state.areUnits && part.state.areUnits;
        all.state.areZero = all.state.areZero && part.state.areZero;
    }
    all.notFinite.refuseIfAny("the cloud has normals that are not finite", firstIndex);
    return all.state;
}

void makeUnit(float const * normal, float * unit)
{
    double const length = std::sqrt(squaredLength(normal));
    for (std::size_t axis = 0; axis < 3; ++axis)
        unit[axis] = length > 0.0 ? static_cast<float>(static_cast<double>(normal[axis]) / length) : 0.0F;
}

std::string CloudScatter::count() const
{
    return std::to_string(m_points) + (m_points == 1 ? " point" : " points");
}

void CloudScatter::addAll(REmath::Point3D const * places, CProgressCounter * progress)
{
    auto const count = static_cast<int>(m_points);
    auto const sumOf = [&](void (CloudScatter::*add)(float const *)) {
        CloudScatter none = *this;
        std::fill_n(&none.scatter[0][0], 9, 0.0);
        return findInPieces(count, progress, [&, none](int begin, int end) {
            auto part = std::make_unique<CloudScatter>(none);
            for (int i = begin; i < end; ++i)
                ((*part).*add)(places[i].asArray());
            return part;
        });
    };
    std::array<double, 3> mean{};
    for (auto const & part : sumOf(&CloudScatter::addToMean)) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            mean[axis] += part->sum[axis];
    }
    std::copy(mean.begin(), mean.end(), sum);
    for (auto const & part : sumOf(&CloudScatter::addAroundMean)) {
        for (int row = 0; row < 3; ++row)
            for (int col = 0; col < 3; ++col)
                scatter[row][col] += part->scatter[row][col];
    }
}

void CloudScatter::refuseWithoutExtent() const
{
    if (!(m_extent > 0.0))
        refuse("the cloud has no extent: " + count() + " in one place make no surface");
}

void CloudScatter::refuseLine() const
{
    // The second invariant is the product of the two largest variances, nearly: area times area.
    double const area = scatter[0][0] * scatter[1][1] - scatter[0][1] * scatter[1][0] +
                        scatter[0][0] * scatter[2][2] - scatter[0][2] * scatter[2][0] +
                        scatter[1][1] * scatter[2][2] - scatter[1][2] * scatter[2][1];
    if (m_points < 3 || !(area > 1e-12 * std::pow(scatter[0][0] + scatter[1][1] + scatter[2][2], 2)))
        refuse("the " + count() + " of the cloud lie on a line, so they make no surface");
}

LocalCloud::LocalCloud(PointCloudView const & cloud, CProgressCounter * progress)
    : m_colors(cloud.colors), m_boundary(cloud.boundary)
{
    if (cloud.size == 0)
        refuse("the cloud has no points");
    checkPositionArrays(cloud);
    m_size = static_cast<int>(cloud.size);
    takePositions(cloud, progress);
    if (cloud.normals != nullptr)
        takeNormals(cloud, progress);
}

void LocalCloud::takePositions(PointCloudView const & cloud, CProgressCounter * progress)
{
    CloudBox const box = boxOf(cloud, 0, progress);
    m_frame = frameOf(box);
    m_extent = box.extent() * m_frame.scale;
    if (cloud.positions64 != nullptr) {
        m_ownPositions = toLocal(cloud.positions64, cloud.size, m_frame, progress);
    } else if (m_frame.scale != 1.0 || m_frame.origin != std::array<double, 3>{}) {
        m_ownPositions = toLocal(cloud.positions, cloud.size, m_frame, progress);
    } else {
        m_positions = cloud.positions;
        return;
    }
    m_positions = m_ownPositions.data();
}

void LocalCloud::takeNormals(PointCloudView const & cloud, CProgressCounter * progress)
{
    NormalsState const state = checkNormals(cloud, 0, progress);
    if (state.areZero)
        return;
    if (state.areUnits) {
        m_normals = cloud.normals;
        return;
    }
    m_ownNormals.resize(3 * cloud.size);
    forPieces(static_cast<int>(cloud.size), progress, [&](int begin, int end) {
        for (std::size_t i = static_cast<std::size_t>(begin); i < static_cast<std::size_t>(end); ++i)
            makeUnit(cloud.normals + 3 * i, m_ownNormals.data() + 3 * i);
    });
    m_normals = m_ownNormals.data();
}

REmath::Point3D const * LocalCloud::points() const { return asPoints(m_positions); }

REmath::Point3D const * LocalCloud::normalVectors() const
{
    return m_normals != nullptr ? asPoints(m_normals) : nullptr;
}

std::size_t LocalCloud::originalIndex(int point) const
{
    auto const index = static_cast<std::size_t>(point);
    return m_original.empty() ? index : m_original[index];
}

void LocalCloud::setNormals(std::vector<REmath::Point3D> const & normals)
{
    m_ownNormals.clear();
    m_ownNormals.reserve(3 * normals.size());
    for (REmath::Point3D const & normal : normals)
        m_ownNormals.insert(m_ownNormals.end(), normal.asArray(), normal.asArray() + 3);
    m_normals = m_ownNormals.data();
}

void LocalCloud::remove(std::vector<std::uint8_t> const & marks)
{
    std::vector<std::uint32_t> original;
    for (int i = 0; i < m_size; ++i) {
        if (marks[static_cast<std::size_t>(i)] == 0)
            original.push_back(static_cast<std::uint32_t>(originalIndex(i)));
    }
    if (original.size() == marks.size())
        return;
    auto const keep = [&marks](auto & own, auto const *& values, std::size_t width) {
        own = withoutMarked(values, width, marks);
        values = values != nullptr ? own.data() : nullptr;
    };
    keep(m_ownPositions, m_positions, 3);
    keep(m_ownNormals, m_normals, 3);
    keep(m_ownColors, m_colors, 3);
    keep(m_ownBoundary, m_boundary, 1);
    m_original = std::move(original);
    m_size = static_cast<int>(m_original.size());
    if (m_size > 0) // they are finite
        m_extent = boxOfPositions(m_positions, m_original.size(), 0, nullptr).extent();
}

} // namespace QZmath
